"""Coefficients through the filters of a device with 16 bits, over all channels of an array."""

from __future__ import annotations

from typing import Any, Callable, Iterable

import numpy as np
from numpy.typing import ArrayLike

from ._arrays import Channels, Coefficients, Samples
from ._core import Filter, MovingSum

# The direct-form IIR sets small outputs to 0 at the start of each block, so that the block's length
# can change its output; this is the command line's length.
BLOCKS = {"fir": 1024, "iir": 512, "sos": 1024}
LONGEST_BLOCK = {"fir": 1 << 30, "iir": 1056, "sos": 1056}  # an FIR takes as much as it can
_SUM_LENGTH = 256
_AVERAGE_LENGTH = 2156


class Lanes:
    """The filters of all channels, `width` of which go through one."""

    def __init__(self, width: int, channels: int, make: Callable[[int], Any]) -> None:
        self.groups = [slice(c, min(c + width, channels)) for c in range(0, channels, width)]
        self.make = make
        self.kept: list[Any] = []

    @property
    def filters(self) -> list[Any]:
        """Those that go on with the next call."""
        if not self.kept:
            self.kept = [self.make(group.stop - group.start) for group in self.groups]
        return self.kept

    def run(self, x: Samples, block: int) -> Samples:
        """Goes on with (frames, channels); of an IIR, whole blocks until the last."""
        return self._run(x, block, self.filters)

    def run_once(self, x: Samples, block: int) -> Samples:
        """From silence; no more than one filter is there at a time."""
        return self._run(x, block, (self.make(g.stop - g.start) for g in self.groups))

    def _run(self, x: Samples, block: int, filters: Iterable[Any]) -> Samples:
        y = np.empty_like(x, order="C")
        for group, f in zip(self.groups, filters):
            part: Any = group if group.stop - group.start > 1 else group.start
            y[:, part] = f.run(x[:, part], min(block, f.longest_block))
        return y


def lanes(kind: str, b: Coefficients, a: Coefficients, channels: int) -> Lanes:
    """Of coefficients as they run."""

    def make(width: int) -> Any:
        if kind == "fir":
            return Filter.fir(b, width)
        if kind == "iir":
            return Filter.iir(b, a, width)
        return Filter.sos(np.hstack([b, a]), width)

    return Lanes(2, channels, make)


def mean_lanes(length: int, channels: int) -> Lanes:
    if not 1 <= length <= _AVERAGE_LENGTH:
        raise ValueError(f"length: {length}; takes 1 to {_AVERAGE_LENGTH}")
    is_short = length <= _SUM_LENGTH
    return Lanes(1, channels, lambda _: MovingSum(length) if is_short else Filter.average(length))


def run_past(filters: Lanes, past: int, x: Channels, zi: ArrayLike | None, block: int) -> Any:
    """Through filters whose state is `past` samples; with zi the result and the next zi."""
    if zi is None:
        return x.shaped(filters.run_once(x.samples, block))
    before = x.state(zi, past).T
    kept = before.astype(np.int16)
    if not np.array_equal(kept, before):
        raise ValueError("zi: holds samples that int16 cannot hold")
    samples = np.concatenate([kept, x.samples])
    y = filters.run_once(samples, block)
    return x.shaped(y[past:]), x.shaped_state(samples[len(samples) - past :].T)


def _fill(state: dict[str, Samples], name: str, zi: Samples) -> None:
    """Writes a part of zi, whose channels are its last axis, to a filter's state."""
    part = np.moveaxis(zi, -1, 0).reshape(state[name].shape)
    state[name][...] = part
    if not np.array_equal(state[name], part):
        raise ValueError(f"zi: holds values that {state[name].dtype} cannot hold exactly")


def _taken(part: Samples, *shape: int) -> Samples:
    """A part of a filter's state with the channels as its last axis."""
    return np.moveaxis(part.reshape(-1, *shape), 0, -1)


def run_direct_form(
    b: Coefficients, a: Coefficients, x: Channels, zi: ArrayLike | None, block: int
) -> Any:
    """Of a direct form I; its state is past inputs and past outputs, oldest first."""
    filters = lanes("iir", b, a, x.count)
    if zi is None:
        return x.shaped(filters.run_once(x.samples, block))
    split, count = len(b) - 1, len(b) + len(a) - 2
    z = x.state(zi, count).T
    for group, f in zip(filters.groups, filters.filters):
        _fill(f.state, "inputs", z[:split, group])
        _fill(f.state, "outputs", z[split:, group])
    y = filters.run(x.samples, block)
    zf = np.empty_like(z)
    for group, f in zip(filters.groups, filters.filters):
        zf[:split, group] = _taken(f.state["inputs"], split)
        zf[split:, group] = _taken(f.state["outputs"], count - split)
    return x.shaped(y), x.shaped_state(zf.T)


def run_sections(
    b: Coefficients, a: Coefficients, x: Channels, zi: ArrayLike | None, block: int
) -> Any:
    """Of a cascade; its state is two past inputs and two past outputs a section, newest first."""
    filters = lanes("sos", b, a, x.count)
    if zi is None:
        return x.shaped(filters.run_once(x.samples, block))
    z = np.swapaxes(x.state(zi, 4, len(b)), 1, 2)
    for group, f in zip(filters.groups, filters.filters):
        _fill(f.state, "inputs", z[:, :2, group])
        _fill(f.state, "outputs", z[:, 2:, group])
    y = filters.run(x.samples, block)
    zf = np.empty_like(z)
    for group, f in zip(filters.groups, filters.filters):
        zf[:, :2, group] = _taken(f.state["inputs"], len(b), 2)
        zf[:, 2:, group] = _taken(f.state["outputs"], len(b), 2)
    return x.shaped(y), x.shaped_state(np.swapaxes(zf, 1, 2))
