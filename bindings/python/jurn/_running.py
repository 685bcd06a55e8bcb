"""Coefficients through the library's filters, over all channels of an array."""

from __future__ import annotations

from typing import Any

import numpy as np
from numpy.typing import ArrayLike

from ._arrays import Channels, Coefficients, Samples
from ._core import Filter, FloatFilter, MovingSum

# The direct-form IIR sets small outputs to 0 at the start of each block, so that the block's length
# can change its output; this is the command line's length.
IIR_BLOCK = 512
BLOCK = 1024
LONGEST_BLOCK = {"fir": 1 << 30, "iir": 1056, "sos": 1056}  # an FIR takes as much as it can
_FLOAT_TAPS = 201
_SUM_LENGTH = 256
_AVERAGE_LENGTH = 2156


def _groups(x: Channels) -> list[slice]:
    """Channels in groups of what one filter takes: two of int16, one of floats."""
    width = 2 if x.is_int16 else 1
    return [slice(c, min(c + width, x.count)) for c in range(0, x.count, width)]


def _run(f: Any, x: Samples, y: Samples, group: slice, block: int) -> None:
    part: Any = group if group.stop - group.start > 1 else group.start
    y[:, part] = f.run(x[:, part], min(block, f.longest_block))


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


def run_taps(
    taps: Coefficients, x: Channels, zi: ArrayLike | None = None, block: int = BLOCK
) -> Any:
    """Of an FIR; with zi the result and the next zi."""
    past = len(taps) - 1
    samples = _with_past(x, past, zi)
    y = np.empty_like(samples, order="C")
    for group in _groups(x):
        f = Filter.fir(taps, group.stop - group.start) if x.is_int16 else FloatFilter.fir(taps)
        _run(f, samples, y, group, block)
    return _result(x, y, samples, past, zi)


def run_mean(length: int, x: Channels, zi: ArrayLike | None = None, block: int = BLOCK) -> Any:
    most = _AVERAGE_LENGTH if x.is_int16 else _FLOAT_TAPS
    if not 1 <= length <= most:
        raise ValueError(f"length: {length}; takes 1 to {most}")
    if not x.is_int16:
        return run_taps(np.full(length, 1.0 / length), x, zi, block)
    samples = _with_past(x, length - 1, zi)
    y = np.empty_like(samples, order="C")
    for c in range(x.count):
        mean: Any = MovingSum(length) if length <= _SUM_LENGTH else Filter.average(length)
        _run(mean, samples, y, slice(c, c + 1), block)
    return _result(x, y, samples, length - 1, zi)


def _fill(state: dict[str, Samples], name: str, zi: Samples) -> None:
    """Writes a part of zi, whose channels are its last axis, to a filter's state."""
    part = np.moveaxis(zi, -1, 0).reshape(state[name].shape)
    state[name][...] = part
    if not np.array_equal(state[name], part):
        raise ValueError(f"zi: holds values that {state[name].dtype} cannot hold exactly")


def _taken(part: Samples, shape: tuple[int, ...]) -> Samples:
    """A part of a filter's state with the channels as its last axis."""
    return np.moveaxis(part.reshape(-1, *shape), 0, -1)


def run_direct_form(
    b: Coefficients,
    a: Coefficients,
    x: Channels,
    zi: ArrayLike | None = None,
    block: int = IIR_BLOCK,
) -> Any:
    """Of a direct form I; its state is past inputs and past outputs, oldest first."""
    split = len(b) - 1
    count = split + len(a) - 1
    state = None if zi is None else x.state(zi, count)
    y = np.empty_like(x.samples, order="C")
    zf = np.zeros((count, x.count))
    for group in _groups(x):
        f: Any = Filter.iir(b, a, group.stop - group.start) if x.is_int16 else FloatFilter.iir(b, a)
        if state is not None:
            _fill(f.state, "inputs", state[:split, group])
            _fill(f.state, "outputs", state[split:, group])
        _run(f, x.samples, y, group, block)
        if state is not None:
            zf[:split, group] = _taken(f.state["inputs"], (split,))
            zf[split:, group] = _taken(f.state["outputs"], (count - split,))
    return x.shaped(y) if zi is None else (x.shaped(y), x.shaped_state(zf))


def run_sections(
    sos: Coefficients, x: Channels, zi: ArrayLike | None = None, block: int = BLOCK
) -> Any:
    """Of a cascade; its state is two past inputs and two past outputs a section, newest first."""
    state = None if zi is None else x.state(zi, len(sos), 4)
    y = np.empty_like(x.samples, order="C")
    zf = np.zeros((len(sos), 4, x.count))
    run = _run_int16_sections if x.is_int16 else _run_float_sections
    for group in _groups(x):
        if state is None:
            run(sos, x.samples, y, group, block, None, None)
        else:
            run(sos, x.samples, y, group, block, state[..., group], zf[..., group])
    return x.shaped(y) if zi is None else (x.shaped(y), x.shaped_state(zf))


def _run_int16_sections(
    sos: Coefficients, x: Samples, y: Samples, group: slice, block: int,
    zi: Samples | None, zf: Samples | None,
) -> None:
    f = Filter.sos(sos, channels=group.stop - group.start)
    if zi is not None:
        _fill(f.state, "inputs", zi[:, :2])
        _fill(f.state, "outputs", zi[:, 2:])
    _run(f, x, y, group, block)
    if zf is not None:
        zf[:, :2] = _taken(f.state["inputs"], (len(sos), 2))
        zf[:, 2:] = _taken(f.state["outputs"], (len(sos), 2))


def _run_float_sections(
    sos: Coefficients, x: Samples, y: Samples, group: slice, block: int,
    zi: Samples | None, zf: Samples | None,
) -> None:
    samples = x[:, group.start]
    for i, section in enumerate(sos):
        f = FloatFilter.iir(section[:3], section[3:])
        if zi is not None:
            _fill(f.state, "inputs", zi[i, 1::-1])
            _fill(f.state, "outputs", zi[i, :1:-1])
        samples = f.run(samples, block)
        if zf is not None:
            zf[i, :2] = _taken(f.state["inputs"][::-1], (2,))
            zf[i, 2:] = _taken(f.state["outputs"][::-1], (2,))
    y[:, group.start] = samples
