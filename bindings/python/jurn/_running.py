"""Coefficients through the library's filters, over all channels of an array."""

from __future__ import annotations

from typing import Any, Callable, Iterable

import numpy as np
from numpy.typing import ArrayLike

from ._arrays import Channels, Coefficients, Samples
from ._core import Filter, FloatFilter, MovingSum

# The direct-form IIR sets small outputs to 0 at the start of each block, so that the block's length
# can change its output; this is the command line's length.
BLOCKS = {"fir": 1024, "iir": 512, "sos": 1024}
LONGEST_BLOCK = {"fir": 1 << 30, "iir": 1056, "sos": 1056}  # an FIR takes as much as it can
_FLOAT_TAPS = 201
_SUM_LENGTH = 256
_AVERAGE_LENGTH = 2156


class Lanes:
    """The filters of all channels: two of int16, or one of floats, go through a chain of one or
    several."""

    def __init__(self, is_int16: bool, channels: int, make: Callable[[int], list[Any]]) -> None:
        width = 2 if is_int16 else 1
        self.groups = [slice(c, min(c + width, channels)) for c in range(0, channels, width)]
        self.make = make
        self.kept: list[list[Any]] = []

    @property
    def chains(self) -> list[list[Any]]:
        """Those that go on with the next call."""
        if not self.kept:
            self.kept = [self.make(group.stop - group.start) for group in self.groups]
        return self.kept

    def run(self, x: Samples, block: int) -> Samples:
        """Goes on with (frames, channels); of an IIR, whole blocks until the last."""
        return self._run(x, block, self.chains)

    def run_once(self, x: Samples, block: int) -> Samples:
        """From silence; no more than one chain is there at a time."""
        return self._run(x, block, (self.make(g.stop - g.start) for g in self.groups))

    def _run(self, x: Samples, block: int, chains: Iterable[list[Any]]) -> Samples:
        y = np.empty_like(x, order="C")
        for group, chain in zip(self.groups, chains):
            part: Any = group if group.stop - group.start > 1 else group.start
            samples = x[:, part]
            for f in chain:
                samples = f.run(samples, min(block, f.longest_block))
            y[:, part] = samples
        return y


def lanes(kind: str, b: Coefficients, a: Coefficients, is_int16: bool, channels: int) -> Lanes:
    """Of coefficients as they run."""

    def make(width: int) -> list[Any]:
        if kind == "fir":
            return [Filter.fir(b, width) if is_int16 else FloatFilter.fir(b)]
        if kind == "iir":
            return [Filter.iir(b, a, width) if is_int16 else FloatFilter.iir(b, a)]
        if is_int16:
            return [Filter.sos(np.hstack([b, a]), width)]
        return [FloatFilter.iir(*section) for section in zip(b, a)]

    return Lanes(is_int16, channels, make)


def mean_lanes(length: int, is_int16: bool, channels: int) -> Lanes:
    most = _AVERAGE_LENGTH if is_int16 else _FLOAT_TAPS
    if not 1 <= length <= most:
        raise ValueError(f"length: {length}; takes 1 to {most}")
    if not is_int16:
        return lanes("fir", np.full(length, 1.0 / length), np.empty(0), False, channels)
    return Lanes(
        False,
        channels,
        lambda _: [MovingSum(length) if length <= _SUM_LENGTH else Filter.average(length)],
    )


def _with_past(x: Channels, past: int, zi: ArrayLike | None) -> Samples:
    """The samples, with those of zi before them."""
    if zi is None:
        return x.samples
    before = x.state(zi, past)
    kept = before.astype(x.samples.dtype)
    if not np.array_equal(kept, before):
        raise ValueError(f"zi: holds samples that {x.samples.dtype} cannot hold")
    return np.concatenate([kept, x.samples])


def _result(x: Channels, y: Samples, samples: Samples, past: int, zi: ArrayLike | None) -> Any:
    if zi is None:
        return x.shaped(y)
    zf = samples[len(samples) - past :]
    return x.shaped(y[past:]), x.shaped_state(zf.astype(x.dtype))


def run_past(filters: Lanes, past: int, x: Channels, zi: ArrayLike | None, block: int) -> Any:
    """Through filters whose state is `past` samples; with zi the result and the next zi."""
    samples = _with_past(x, past, zi)
    return _result(x, filters.run_once(samples, block), samples, past, zi)


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
    filters = lanes("iir", b, a, x.is_int16, x.count)
    if zi is None:
        return x.shaped(filters.run_once(x.samples, block))
    split, count = len(b) - 1, len(b) + len(a) - 2
    z = x.state(zi, count)
    for group, (f,) in zip(filters.groups, filters.chains):
        _fill(f.state, "inputs", z[:split, group])
        _fill(f.state, "outputs", z[split:, group])
    y = filters.run(x.samples, block)
    zf = np.empty_like(z)
    for group, (f,) in zip(filters.groups, filters.chains):
        zf[:split, group] = _taken(f.state["inputs"], split)
        zf[split:, group] = _taken(f.state["outputs"], count - split)
    return x.shaped(y), x.shaped_state(zf)


def run_sections(
    b: Coefficients, a: Coefficients, x: Channels, zi: ArrayLike | None, block: int
) -> Any:
    """Of a cascade; its state is two past inputs and two past outputs a section, newest first."""
    filters = lanes("sos", b, a, x.is_int16, x.count)
    if zi is None:
        return x.shaped(filters.run_once(x.samples, block))
    z = x.state(zi, len(b), 4)
    parts = list(zip(filters.groups, filters.chains))
    for group, chain in parts:
        if x.is_int16:
            _fill(chain[0].state, "inputs", z[:, :2, group])
            _fill(chain[0].state, "outputs", z[:, 2:, group])
        for i, f in enumerate(chain if not x.is_int16 else []):
            _fill(f.state, "inputs", z[i, 1::-1, group])
            _fill(f.state, "outputs", z[i, :1:-1, group])
    y = filters.run(x.samples, block)
    zf = np.empty_like(z)
    for group, chain in parts:
        if x.is_int16:
            zf[:, :2, group] = _taken(chain[0].state["inputs"], len(b), 2)
            zf[:, 2:, group] = _taken(chain[0].state["outputs"], len(b), 2)
        for i, f in enumerate(chain if not x.is_int16 else []):
            zf[i, :2, group] = _taken(f.state["inputs"][::-1], 2)
            zf[i, 2:, group] = _taken(f.state["outputs"][::-1], 2)
    return x.shaped(y), x.shaped_state(zf)
