"""Convolution over whole arrays."""

from __future__ import annotations

from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _double
from ._arrays import Channels, Samples, numbers
from ._core import Convolution, _connections
from .designs import check_precision

_SHORT = 1024  # taps that are summed in double by default


def convolve(
    x: ArrayLike,
    ir: ArrayLike,
    mode: str = "full",
    method: str = "auto",
    *,
    axis: int | None = None,
    precision: str = "double",
    block: int = 1024,
    tail: bool = True,
) -> NDArray[Any]:
    """Convolve samples with an impulse response of any length, without latency.

    Parameters
    ----------
    x : array_like
        Samples, as for `fir`, of one or two dimensions and up to 16 channels. A sample that is not
        finite spoils the frames that hear it, and no others.
    ir : array_like
        (taps,) for every channel, or (taps, outputs): as many outputs as `x` has channels give each
        channel taps of its own, and a mono `x` goes to all outputs. Four outputs are true stereo: left
        to left, left to right, right to left, right to right. Up to 1048576 taps.
    mode : {'full', 'same', 'valid'}, optional
        As SciPy has it: the whole result, its middle of the length of `x`, or what no edge touches.
    method : {'auto', 'direct', 'fft'}, optional
        'direct' sums float64 samples tap by tap in double; 'auto' does so up to 1024 taps. All else is
        of float32 inside, short parts in sums and long ones in transforms: measured on noise with 10
        to 100,000 taps, at most 4e-7 of the largest output off.
    axis : int, optional
        Axis of the frames of `x`; by default the last.
    precision : {'double', 'int16'}, optional
        Rounded once to the type of the result; or, for samples of int16, as on a device with 16 bits,
        which truncates.
    block : int, optional
        Frames of a block, 1 to 4096; changes rounding within the transform.
    tail : bool, optional
        Whether the full result goes on until the response has rung out, ``taps - 1`` frames longer
        than `x`.

    Returns
    -------
    ndarray
        Of the type of `x`.

    Raises
    ------
    TypeError
        For samples or coefficients that are not real numbers.
    ValueError
        For other shapes, or a response too long.

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> jurn.convolve(np.array([401, 1], dtype=np.int16), [0.5, 0.25])
    array([200, 101,   0], dtype=int16)
    """
    if mode not in ("full", "same", "valid"):
        raise ValueError(f"mode: {mode!r}; takes 'full', 'same' or 'valid'")
    if method not in ("auto", "direct", "fft"):
        raise ValueError(f"method: {method!r}; takes 'auto', 'direct' or 'fft'")
    channels = Channels(x, axis, level=2)
    check_precision(precision, channels)
    if len(channels.rest) > 1:
        raise ValueError(f"x: has {len(channels.rest) + 1} dimensions; takes 1 or 2")
    taps = numbers(ir, "ir")
    if taps.ndim not in (1, 2):
        raise ValueError(f"ir: has the shape {taps.shape}; takes (taps,) or (taps, outputs)")
    routes = routes_of(taps.reshape(len(taps), -1), channels.count)
    outputs = max((route[1] for route in routes), default=-1) + 1
    start, stop = kept(mode, len(channels.x), len(taps), tail)
    if channels.dtype.char == "d" and method != "fft" and (
        method == "direct" or len(taps) <= _SHORT
    ):
        y = _run_direct(channels, routes, outputs, stop)[start:]
    else:
        y = _run(channels, routes, outputs, stop, block, precision)[start:]
    if channels.flat:
        return y[:, 0] if outputs == 1 else y
    return np.moveaxis(y, 0, channels.axis)


def kept(mode: str, frames: int, taps: int, tail: bool) -> tuple[int, int]:
    """The first frame of the result and the one after its last."""
    if frames == 0:
        return 0, 0
    if mode == "same":
        return (taps - 1) // 2, (taps - 1) // 2 + frames
    if mode == "valid":
        return min(frames, taps) - 1, max(frames, taps)
    return 0, frames + (taps - 1 if tail else 0)


def _run(
    x: Channels,
    routes: list[tuple[int, int, Samples]],
    outputs: int,
    frames: int,
    block: int,
    precision: str,
) -> Samples:
    """The first frames of the result, by float32."""
    if frames == 0 or outputs == 0:
        return np.empty((frames, outputs), x.dtype)
    stream = Convolution(routes, inputs=x.count, outputs=outputs, block=block)
    device = precision == "int16"
    padded = np.zeros((-(-frames // block) * block, x.count), np.int16 if device else np.float32)
    count = min(frames, len(x.samples))
    padded[:count] = x.samples[:count]
    bad = np.empty(0) if x.is_int16 else ~np.isfinite(padded)
    if not bad.any():
        y = stream.run(padded)[:frames].reshape(frames, outputs)
        if x.is_int16 and not device:
            y = np.clip(np.rint(y), -32768, 32767)
        return y.astype(x.dtype, copy=False)
    # A transform would spread what is not finite over its whole block.
    padded[bad] = 0.0
    y = stream.run(padded)[:frames].astype(x.dtype, copy=False).reshape(frames, outputs)
    _spoil(y, bad, routes)
    return y


def _run_direct(
    x: Channels, routes: list[tuple[int, int, Samples]], outputs: int, frames: int
) -> Samples:
    """The same tap by tap in double."""
    y = np.zeros((frames, outputs))
    padded = np.zeros((x.count, 1, frames))
    count = min(frames, x.frames)
    padded[:, 0, :count] = x.rows[:, :count]
    bad = ~np.isfinite(padded)
    padded[bad] = 0.0
    past, part = np.empty((1, 0)), np.empty((1, frames))
    for source, to, taps in routes:
        filters = _double.running(("fir", taps, np.empty(0)), 1)
        filters.filter_rows(padded[source], part, past)
        y[:, to] += part[0]
    if bad.any():
        _spoil(y, bad[:, 0].T, routes)
    return y


def _spoil(y: Samples, bad: Samples, routes: list[tuple[int, int, Samples]]) -> None:
    """Makes no numbers of the frames that hear what is none."""
    for source, to, taps in routes:
        heard = np.cumsum(bad[:, source])
        heard[len(taps) :] -= heard[: -len(taps)].copy()
        y[heard[: len(y)] > 0, to] = np.nan


def routes_of(taps: Samples, inputs: int) -> list[tuple[int, int, Samples]]:
    """What goes through which taps to where."""
    return [(i, o, taps[:, c]) for i, o, c in _connections(taps.shape[1], inputs, "ir")]
