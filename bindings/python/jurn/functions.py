"""Filters over whole arrays, with the names of SciPy's."""

from __future__ import annotations

from typing import Any, Callable

import numpy as np
from numpy.typing import ArrayLike, NDArray

from ._core import Convolution, Filter, FloatFilter, MovingSum
from .designs import Design, _numbers, prepare as prepare_design, warn_of

Samples = NDArray[Any]

# The direct-form IIR sets small outputs to 0 at the start of each block, so that the block's length
# can change its output; this is the command line's length.
_IIR_BLOCK = 512
_FLOAT_TAPS = 201
_SUM_LENGTH = 256


class _Channels:
    """The channels of an array along an axis, and a result of the same shape and type."""

    def __init__(self, x: Samples, axis: int) -> None:
        if not isinstance(x, np.ndarray):
            raise TypeError(f"x: {type(x).__name__}; takes an array of int16, float32 or float64")
        if x.dtype not in (np.int16, np.float32, np.float64) or not x.dtype.isnative:
            raise TypeError(f"x: {x.dtype} of shape {x.shape}; takes int16, float32 or float64")
        if x.ndim not in (1, 2):
            raise ValueError(
                f"x: {x.dtype} of shape {x.shape}; takes (frames,) or (frames, channels)"
            )
        self.axis = axis
        self.flat = x.ndim == 1
        self.is_int16 = x.dtype == np.int16
        self.dtype = x.dtype
        self.x: Samples = np.moveaxis(x, axis, 0).reshape(x.shape[axis], -1)
        # Filters in double precision take samples of float32.
        self.samples = self.x if self.is_int16 else self.x.astype(np.float32, copy=False)

    @property
    def count(self) -> int:
        return int(self.x.shape[1])

    def shaped(self, y: Samples) -> Samples:
        """(frames, channels) in the shape and type of the argument."""
        y = y.astype(self.dtype, copy=False)
        return y[:, 0] if self.flat else np.moveaxis(y, 0, self.axis)

    def state(self, zi: ArrayLike, *shape: int) -> Samples:
        """A state of the given shape, with the channels behind; scalars are spread."""
        full = shape if self.flat else (*shape, self.count)
        array = np.asarray(zi, dtype=np.float64)
        if array.ndim and array.shape != full:
            raise ValueError(f"zi: has the shape {array.shape}; takes {full}")
        return np.broadcast_to(array, full).reshape(*shape, self.count)

    def shaped_state(self, zf: Samples) -> Samples:
        return zf[..., 0] if self.flat else zf


def _check_block(block: int, most: int) -> None:
    if not 1 <= block <= most:
        raise ValueError(f"block: {block} frames; takes 1 to {most}")


def _pairs(channels: int) -> list[slice]:
    """Channels in groups of what one filter takes."""
    return [slice(c, min(c + 2, channels)) for c in range(0, channels, 2)]


def _with_past(x: _Channels, past: int, zi: ArrayLike | None) -> Samples:
    """The samples, with those of zi before them."""
    if zi is None:
        return x.samples
    before = x.state(zi, past)
    kept = before.astype(x.samples.dtype)
    if not np.array_equal(kept, before):
        raise ValueError(f"zi: holds samples that {x.samples.dtype} cannot hold")
    return np.concatenate([kept, x.samples])


def _result(x: _Channels, y: Samples, all_samples: Samples, past: int, zi: ArrayLike | None) -> Any:
    if zi is None:
        return x.shaped(y)
    zf = all_samples[len(all_samples) - past :]
    return x.shaped(y[past:]), x.shaped_state(zf.astype(x.dtype))


def _fill(state: dict[str, Samples], name: str, channels: slice | int, zi: Samples) -> None:
    """Writes a part of zi, (..., channels), to a filter's state."""
    part = np.moveaxis(zi[..., channels], -1, 0) if isinstance(channels, slice) else zi[..., channels]
    state[name][...] = part
    if not np.array_equal(state[name], part):
        raise ValueError(f"zi: holds values that {state[name].dtype} cannot hold exactly")


def fir(
    taps: ArrayLike,
    x: Samples,
    *,
    axis: int = 0,
    zi: ArrayLike | None = None,
    block: int = 1024,
    prepare: bool = True,
) -> Any:
    """Filter samples with an FIR.

    Parameters
    ----------
    taps : array_like
        Up to 1250 taps for int16, 201 for floats.
    x : ndarray
        Samples of int16, float32 or float64, of shape (frames,) or (frames, channels). Floats have
        any scale; float64 is rounded to float32 on the way in.
    axis : int, optional
        Axis of the frames.
    zi : array_like, optional
        The ``taps - 1`` samples before `x`, oldest first, of shape (taps - 1,) or
        (taps - 1, channels); or 0 for silence.
    block : int, optional
        Frames of a block; changes no sample.
    prepare : bool, optional
        Whether to warn of taps that would clip.

    Returns
    -------
    y : ndarray
        Of the type and shape of `x`.
    zf : ndarray
        The samples to give as the next `zi`; only with `zi`.

    Raises
    ------
    TypeError
        For samples of another type.
    ValueError
        For another shape, or too many taps.

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> jurn.fir([0.5, 0.5], np.array([10, 20, -5], dtype=np.int16))
    array([ 5, 15,  7], dtype=int16)
    """
    channels = _Channels(x, axis)
    design = _design(Design("fir", _numbers(taps, "taps", 1)), channels, prepare)
    past = len(design.b) - 1
    samples = _with_past(channels, past, zi)
    y = np.empty_like(samples, order="C")
    if channels.is_int16:
        for group in _pairs(channels.count):
            f = Filter.fir(design.b, channels=group.stop - group.start)
            y[:, group] = f.run(samples[:, group], min(block, f.longest_block))
    else:
        for c in range(channels.count):
            one = FloatFilter.fir(design.b)
            y[:, c] = one.run(samples[:, c], min(block, one.longest_block))
    return _result(channels, y, samples, past, zi)


def moving_mean(
    length: int, x: Samples, *, axis: int = 0, zi: ArrayLike | None = None, block: int = 1024
) -> Any:
    """Replace each sample by the mean of the last `length` samples.

    Parameters
    ----------
    length : int
        Up to 2156 for int16, 201 for floats.
    x : ndarray
        Samples of int16, float32 or float64, of shape (frames,) or (frames, channels).
    axis : int, optional
        Axis of the frames.
    zi : array_like, optional
        The ``length - 1`` samples before `x`, oldest first; or 0 for silence.
    block : int, optional
        Frames of a block; changes no sample.

    Returns
    -------
    y : ndarray
        Of the type and shape of `x`; int16 is truncated toward zero.
    zf : ndarray
        The samples to give as the next `zi`; only with `zi`.

    Raises
    ------
    TypeError
        For samples of another type.
    ValueError
        For another shape or length.

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> jurn.moving_mean(2, np.array([10, 20, -5], dtype=np.int16))
    array([ 5, 15,  7], dtype=int16)
    """
    channels = _Channels(x, axis)
    samples = _with_past(channels, length - 1, zi)
    y = np.empty_like(samples, order="C")
    for c in range(channels.count):
        mean: Any
        if not channels.is_int16:
            mean = FloatFilter.fir(np.full(_check_length(length, _FLOAT_TAPS), 1.0 / length))
        elif length <= _SUM_LENGTH:
            mean = MovingSum(length)
        else:
            mean = Filter.average(length)
        y[:, c] = mean.run(samples[:, c], min(block, mean.longest_block))
    return _result(channels, y, samples, length - 1, zi)


def _check_length(length: int, most: int) -> int:
    if not 1 <= length <= most:
        raise ValueError(f"length: {length}; takes 1 to {most}")
    return length


def lfilter(
    b: ArrayLike,
    a: ArrayLike,
    x: Samples,
    *,
    axis: int = 0,
    zi: ArrayLike | None = None,
    block: int = _IIR_BLOCK,
    prepare: bool = True,
) -> Any:
    """Filter samples with numerator and denominator, in direct form I.

    Parameters
    ----------
    b, a : array_like
        Up to 1250 coefficients each for int16, 201 for floats; divided by ``a[0]``.
    x : ndarray
        Samples of int16, float32 or float64, of shape (frames,) or (frames, channels).
    axis : int, optional
        Axis of the frames.
    zi : array_like, optional
        Past samples and past outputs, ``len(b) - 1`` and ``len(a) - 1`` of them one after the
        other, oldest first, of shape (count,) or (count, channels); or 0 for silence. It is another
        state than SciPy's.
    block : int, optional
        Frames of a block. Past outputs below 1e-6 become 0 at its start.
    prepare : bool, optional
        Whether to run a design that would be spoilt in the direct form as sections instead, and to
        warn of one that is unstable, inexact or clips. False runs the coefficients as they are;
        ``a[0]`` has to be 1 then.

    Returns
    -------
    y : ndarray
        Of the type and shape of `x`.
    zf : ndarray
        The state to give as the next `zi`; only with `zi`.

    Raises
    ------
    TypeError
        For samples of another type.
    ValueError
        For another shape, too many coefficients, or `zi` with a design that runs as sections.

    Warns
    -----
    JurnWarning
        When the output is not what the design promises.

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> jurn.lfilter([1.0], [1.0, -0.5], np.array([1000, 0, 0], dtype=np.int16))
    array([1000,  500,  250], dtype=int16)
    """
    channels = _Channels(x, axis)
    _check_block(block, 1056)
    numerator, denominator = _numbers(b, "b", 1), _numbers(a, "a", 1)
    if prepare and denominator[0] != 0.0:
        numerator, denominator = numerator / denominator[0], denominator / denominator[0]
    design = _design(Design("iir", numerator, denominator), channels, prepare)
    if design.kind == "sos":
        if zi is not None:
            raise ValueError(
                "zi: this design runs as sections, which have another state; use sosfilt, or "
                "prepare=False for the direct form"
            )
        return channels.shaped(_cascade(design.sos, channels, None, block)[0])
    counts = len(design.b) - 1, len(design.a) - 1
    state = None if zi is None else channels.state(zi, sum(counts))
    y = np.empty_like(channels.samples, order="C")
    zf = np.zeros((sum(counts), channels.count))

    def run(f: Any, c: slice | int, parts: Callable[[Samples], Samples]) -> None:
        if state is not None:
            _fill(f.state, "inputs", c, state[: counts[0]])
            _fill(f.state, "outputs", c, state[counts[0] :])
        y[:, c] = f.run(channels.samples[:, c], min(block, f.longest_block))
        zf[: counts[0], c] = parts(f.state["inputs"])
        zf[counts[0] :, c] = parts(f.state["outputs"])

    if channels.is_int16:
        for group in _pairs(channels.count):
            run(Filter.iir(design.b, design.a, group.stop - group.start), group, np.transpose)
    else:
        for c in range(channels.count):
            run(FloatFilter.iir(design.b, design.a), c, lambda part: part)
    return channels.shaped(y) if zi is None else (channels.shaped(y), channels.shaped_state(zf))


def sosfilt(
    sos: ArrayLike,
    x: Samples,
    *,
    axis: int = 0,
    zi: ArrayLike | None = None,
    block: int = 1024,
    prepare: bool = True,
) -> Any:
    """Filter samples with a cascade of second-order sections.

    Parameters
    ----------
    sos : array_like
        Sections of shape (sections, 6), as SciPy designs them; up to 416.
    x : ndarray
        Samples of int16, float32 or float64, of shape (frames,) or (frames, channels). Floats pass
        through one filter in double precision per section, and are float32 between them.
    axis : int, optional
        Axis of the frames.
    zi : array_like, optional
        For each section two past inputs and two past outputs, newest first: (sections, 4) or
        (sections, 4, channels); or 0 for silence. It is another state than SciPy's, and one of the
        sections that run.
    block : int, optional
        Frames of a block.
    prepare : bool, optional
        Whether to scale and order the sections so that none is silenced or loses precision, and to
        warn of a design that is unstable, inexact or clips. False runs the sections as they are.

    Returns
    -------
    y : ndarray
        Of the type and shape of `x`.
    zf : ndarray
        The state to give as the next `zi`; only with `zi`.

    Raises
    ------
    TypeError
        For samples of another type.
    ValueError
        For another shape, or too many sections.

    Warns
    -----
    JurnWarning
        When the output is not what the design promises.

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> decay = [[1.0, 0.0, 0.0, 1.0, -0.5, 0.0]]
    >>> jurn.sosfilt(decay, np.array([1000, 0, 0], dtype=np.int16))
    array([1000,  500,  250], dtype=int16)
    """
    channels = _Channels(x, axis)
    _check_block(block, 1056)
    table = np.asarray(sos, dtype=np.float64)
    if table.ndim != 2 or table.shape[1] != 6:
        raise ValueError(f"sos: has the shape {table.shape}; takes (sections, 6)")
    if prepare and np.all(table[:, 3] != 0.0):
        table = table / table[:, 3:4]
    design = _design(Design.of_sos(table), channels, prepare)
    state = None if zi is None else channels.state(zi, len(design.sos), 4)
    y, zf = _cascade(design.sos, channels, state, block)
    return channels.shaped(y) if zi is None else (channels.shaped(y), channels.shaped_state(zf))


def _cascade(
    sos: Samples, channels: _Channels, zi: Samples | None, block: int
) -> tuple[Samples, Samples]:
    y = np.empty_like(channels.samples, order="C")
    zf = np.zeros((len(sos), 4, channels.count))
    if channels.is_int16:
        for group in _pairs(channels.count):
            f = Filter.sos(sos, channels=group.stop - group.start)
            if zi is not None:
                _fill(f.state, "inputs", group, zi[:, :2])
                _fill(f.state, "outputs", group, zi[:, 2:])
            y[:, group] = f.run(channels.samples[:, group], block)
            zf[:, :2, group] = np.moveaxis(f.state["inputs"], 0, -1)
            zf[:, 2:, group] = np.moveaxis(f.state["outputs"], 0, -1)
        return y, zf
    for c in range(channels.count):
        samples = channels.samples[:, c]
        for i, section in enumerate(sos):
            one = FloatFilter.iir(section[:3], section[3:])
            if zi is not None:
                _fill(one.state, "inputs", c, zi[i, 1::-1])
                _fill(one.state, "outputs", c, zi[i, :1:-1])
            samples = one.run(samples, block)
            zf[i, :2, c] = one.state["inputs"][::-1]
            zf[i, 2:, c] = one.state["outputs"][::-1]
        y[:, c] = samples
    return y, zf


def convolve(
    x: Samples, ir: ArrayLike, *, axis: int = 0, block: int = 1024, tail: bool = True
) -> Samples:
    """Convolve samples with an impulse response of any length, without latency.

    Parameters
    ----------
    x : ndarray
        Samples of int16, float32 or float64, of shape (frames,) or (frames, channels), up to 16
        channels.
    ir : array_like
        (taps,) for every channel, or (taps, outputs): as many outputs as `x` has channels give each
        channel taps of its own, and a mono `x` goes to all outputs. Four outputs are true stereo: left
        to left, left to right, right to left, right to right. Up to 1048576 taps.
    axis : int, optional
        Axis of the frames of `x`.
    block : int, optional
        Frames of a block, 1 to 4096; changes rounding within the transform.
    tail : bool, optional
        Whether the result goes on until the response has rung out, ``taps - 1`` frames longer.

    Returns
    -------
    ndarray
        Of the type of `x`.

    Raises
    ------
    TypeError
        For samples of another type.
    ValueError
        For other shapes, or a response too long.

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> jurn.convolve(np.array([401, 1], dtype=np.int16), [0.5, 0.25])
    array([200, 100,   0], dtype=int16)
    """
    channels = _Channels(x, axis)
    taps = np.asarray(ir, dtype=np.float64)
    if taps.ndim not in (1, 2) or taps.size == 0:
        raise ValueError(f"ir: has the shape {taps.shape}; takes (taps,) or (taps, outputs)")
    routes = _routes(taps.reshape(len(taps), -1), channels.count)
    outputs = max(route[1] for route in routes) + 1
    stream = Convolution(routes, inputs=channels.count, outputs=outputs, block=block)
    frames = len(channels.samples) + (len(taps) - 1 if tail else 0)
    padded = np.zeros((-(-frames // block) * block, channels.count), channels.samples.dtype)
    padded[: len(channels.samples)] = channels.samples
    y = stream.run(padded)[:frames].astype(channels.dtype, copy=False)
    if channels.flat and outputs == 1:
        return y.reshape(frames)
    return y if channels.flat else np.moveaxis(y.reshape(frames, outputs), 0, axis)


def _routes(taps: Samples, inputs: int) -> list[tuple[int, int, Samples]]:
    """What goes through which taps to where."""
    responses = taps.shape[1]
    if responses == 4 and inputs == 2:
        return [(i // 2, i % 2, taps[:, i]) for i in range(4)]
    if inputs == 1:
        return [(0, c, taps[:, c]) for c in range(responses)]
    if responses not in (1, inputs):
        raise ValueError(
            f"ir: has {responses} columns; for {inputs} channels it takes 1 or {inputs}"
            + (", or 4 for true stereo" if inputs == 2 else "")
        )
    return [(c, c, taps[:, c % responses]) for c in range(inputs)]


def _design(design: Design, channels: _Channels, prepare: bool) -> Design:
    """What runs."""
    if not prepare:
        return design
    prepared = prepare_design(design, precision="int16" if channels.is_int16 else "double")
    warn_of(prepared.warnings, stacklevel=4)
    return prepared.design
