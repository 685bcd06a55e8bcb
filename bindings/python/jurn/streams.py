"""A filter of any kind over a stream, block by block, that can change while it runs."""

from __future__ import annotations

import json
import operator
from typing import Any, Sequence, Tuple, TypeVar, Union, overload

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _double
from ._arrays import real, warn
from .designs import Design, check_precision, prepare
from .setups import Setup

Route = Tuple[int, int, ArrayLike]
StreamFilter = Union[Design, Setup, int, Sequence[Route], None]

_Sample = TypeVar("_Sample", np.int16, np.float32, np.float64)
_KINDS = (*_double.KINDS, "routes", "none", "setup")  # in the order of the module's
_NOTHING = np.empty(0)


class _Wanted:
    """A filter as the module takes it, and what there is to say of it."""

    def __init__(self, what: StreamFilter, precision: str, level: int) -> None:
        self.b: Any = _NOTHING
        self.a = _NOTHING
        self.delay = self.inputs = self.outputs = 0
        self.as_is = False
        self.clips: Sequence[str] = ()
        self.routes: list[Route] = []
        if what is None:
            self.kind, self.text = "none", "no filter"
        elif isinstance(what, Setup):
            if precision != "double":
                raise ValueError(f"precision: {precision!r}; a setup takes 'double'")
            for message in what.warnings:
                warn(message, level + 1)
            self.kind, self.b, self.text = "setup", what._setup, what._text()
            self.delay, self.inputs, self.outputs = what.latency, what.inputs, what.outputs
        elif isinstance(what, Design):
            self.as_is = what.prepared == precision
            ready = prepare(what, precision=precision)
            for message in ready.warnings:
                warn(message, level + 1)
            design = what._divided()
            self.kind, self.b, self.a = design.kind, design.b, design.a
            self.delay, self.clips, self.text = what.delay, ready.clips, what._text()
        elif isinstance(what, Sequence) and not isinstance(what, (str, bytes)):
            self.kind, self.b = "routes", list(what)
            if not self.b:
                raise ValueError("routes: are none")
            for route in self.b:
                if not isinstance(route, tuple) or len(route) != 3:
                    raise TypeError("routes: takes tuples (input, output, taps)")
            ends = [(operator.index(i), operator.index(o)) for i, o, _ in self.b]
            if min(min(i, o) for i, o in ends) < 0:
                raise ValueError("routes: channels count from 0")
            self.inputs = max(i for i, _ in ends) + 1
            self.outputs = max(o for _, o in ends) + 1
            self.text = f"{len(self.b)} routes"
        else:
            try:
                length = operator.index(what)
            except TypeError:
                raise TypeError(
                    f"filter: {type(what).__name__}; takes a Design, a Setup, the length of a mean, "
                    "routes or None"
                ) from None
            self.kind, self.b, self.text = "mean", np.array([float(length)]), f"mean of {length}"

    @property
    def arguments(self) -> tuple[int, Any, Any, bool]:
        return _KINDS.index(self.kind), self.b, self.a, self.as_is


class Stream:
    """A filter of any kind over a stream of any number of channels, in blocks of any lengths.

    Each block continues exactly where the one before has ended. The samples are int16, float32 or
    float64, block by block as they come; the result has their type. `change` fades to another
    filter of any kind.

    Parameters
    ----------
    filter : Design, Setup, int, sequence of routes, or None
        A design filters each channel; a number n is the mean of n samples; routes are tuples
        ``(input, output, taps)`` and convolve; a setup has filters, delays and mixers of its own
        for each channel; None passes the input.
    channels : int, optional
        Channels of the input; by default 1, or what the routes need.
    outputs : int, optional
        Channels of the result; by default as many, or what the routes need.
    rate : int, optional
        Sampling rate in Hz, by which a warning may name frequencies.
    precision : {'double', 'int16'}, optional
        In double precision, rounded once to the type of the samples; or, for int16 alone, as on a
        device with 16 bits. A convolution is of float32 inside.
    block : int, optional
        Frames that a convolution works in, 1 to 4096. Blocks of this length cost least; others have
        no latency either.
    taps : int, optional
        Taps of the longest response that routes will change to, which then fade within a block.

    Raises
    ------
    TypeError
        For another filter.
    ValueError
        For coefficients or channels that cannot run.

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> stream = jurn.Stream(jurn.Design("fir", [0.5, 0.5]))
    >>> stream.process(np.array([10, 20], dtype=np.int16))
    array([ 5, 15], dtype=int16)
    >>> stream.process(np.array([1.0, 3.0]))
    array([10.5,  2. ])
    >>> stream.change(jurn.Design("fir", [1.0]), fade=4)
    >>> stream.process(np.array([3.0, 9.0, 9.0, 9.0, 9.0]))
    array([3., 7., 9., 9., 9.])
    >>> stream
    <jurn.Stream: 1 tap, 1 channel, double>
    """

    # Until the constructor has run: an object of which every call says so.
    _running: _core._Running = _core._Running.__new__(_core._Running)

    def __init__(
        self,
        filter: StreamFilter,
        channels: int | None = None,
        *,
        outputs: int | None = None,
        rate: int = 48000,
        precision: str = "double",
        block: int = 256,
        taps: int | None = None,
    ) -> None:
        check_precision(precision)
        wanted = _Wanted(filter, precision, level=2)
        self._precision = precision
        self._in_blocks = wanted.kind == "routes" or taps is not None
        self._channels = _count(channels, wanted.inputs or 1, "channels")
        self._outputs = _count(outputs, wanted.outputs or self._channels, "outputs")
        self._check_routes(wanted)
        if isinstance(filter, Setup):
            rate = filter.rate
        rate = _count(rate, 0, "rate", 1 << 30)
        block = _count(block, 0, "block", 4096) if self._in_blocks else 1
        if self._in_blocks:
            taps = _count(taps, 1, "taps", 1 << 20)
        self._running = _core._Running.stream(
            *wanted.arguments, precision == "int16", self._channels, self._outputs, rate, block,
            taps or 0,
        )
        self._bad = 0
        self._take(wanted)

    def _check_routes(self, wanted: _Wanted) -> None:
        if self._in_blocks and max(self._channels, self._outputs) > 16:
            raise ValueError("channels: a convolution takes up to 16")
        if wanted.kind == "setup":  # which is checked where it is made
            return
        if wanted.inputs > self._channels or wanted.outputs > self._outputs:
            raise ValueError(
                f"routes: need {wanted.inputs} inputs and {wanted.outputs} outputs; there are "
                f"{self._channels} and {self._outputs}"
            )

    def _take(self, wanted: _Wanted) -> None:
        self._text, self._delay, self._clips = wanted.text, wanted.delay, wanted.clips

    @overload
    def process(
        self, x: NDArray[_Sample], out: NDArray[_Sample] | None = None, *, axis: int = 0
    ) -> NDArray[_Sample]: ...
    @overload
    def process(
        self, x: ArrayLike, out: NDArray[Any] | None = None, *, axis: int = 0
    ) -> NDArray[Any]: ...
    def process(
        self, x: ArrayLike, out: NDArray[Any] | None = None, *, axis: int = 0
    ) -> NDArray[Any]:
        """Filter the next block.

        Other threads run meanwhile.

        Parameters
        ----------
        x : array_like
            Samples of shape (frames,) for one channel, or (frames, channels). Other real numbers
            than int16, float32 and float64 become float64. What is infinite or no number counts as
            0, with a warning.
        out : ndarray, optional
            Array for the result, of its shape and type and in one piece.
        axis : int, optional
            Axis of the frames: 0, or -1 for arrays of shape (channels, frames).

        Returns
        -------
        ndarray
            `out`, or a new array.

        Raises
        ------
        TypeError
            For samples that are not real numbers, or are no int16 where that is the precision.
        ValueError
            For another shape.
        RuntimeError
            When the object runs on another thread at the same time.
        """
        samples = real(x, "x")
        if samples.dtype.char not in "hfd":
            samples = samples.astype(np.float64)
        if not samples.flags.c_contiguous or not samples.dtype.isnative:
            samples = np.array(samples, samples.dtype.newbyteorder("="), order="C")
        if self._running_in_int16() and samples.dtype.char != "h":
            raise TypeError(f"x: {samples.dtype}; precision 'int16' takes samples of int16")
        if self._clips and samples.dtype.char == "h":
            for message in self._clips:
                warn(message, 2)
            self._clips = ()
        channels_first = samples.ndim == 2 and axis in (-1, 1)
        if axis not in (0, -1, 1) or (axis == 1 and samples.ndim == 1):
            raise ValueError(f"axis: {axis}; takes 0 or -1")
        flat = samples.ndim == 1
        table = samples.reshape(-1, 1) if flat and self._channels == 1 else samples
        if table.ndim != 2 or table.shape[0 if channels_first else 1] != self._channels:
            raise ValueError(
                f"x: has the shape {samples.shape}; takes (frames, {self._channels})"
                + (", or (frames,)" if self._channels == 1 else "")
                + f", or ({self._channels}, frames) with axis=-1"
            )
        frames = table.shape[1 if channels_first else 0]
        shape = (self._outputs, frames) if channels_first else (frames, self._outputs)
        result = (frames,) if flat and self._outputs == 1 else shape
        y = _result(out, result, samples.dtype)
        if out is not None and np.shares_memory(y, table):
            table = table.copy()
        self._running.go_on(table, y.reshape(shape), channels_first)
        if self._running.bad_samples != self._bad:
            count, self._bad = self._running.bad_samples - self._bad, self._running.bad_samples
            warn(f"x: samples that are infinite or no number count as 0: {count}", 2)
        return y

    def _running_in_int16(self) -> bool:
        self._running.bad_samples  # of an object that was never made, an error
        return self._precision == "int16"

    def change(self, filter: StreamFilter, *, fade: int = 480) -> None:
        """Fade to another filter of any kind, which hears the past first.

        The fade begins with the next block; a long response first hears the past, some of it with
        every block. During a change a new one can be told; the newest is heard in bounded time. A
        change to the same filter changes no sample.

        Parameters
        ----------
        filter : Design, int, sequence of routes, or None
            As for the constructor, of the same channels.
        fade : int, optional
            Frames of the fade, at least 1. A convolution fades to one of no more taps within a
            block.
        """
        wanted = _Wanted(filter, self._precision if self._running_in_int16() else "double", level=2)
        fade = _count(fade, 0, "fade", 1 << 30)
        if wanted.kind == "routes" and not self._in_blocks:
            raise ValueError(
                "routes: this stream was made without; taps= of the constructor lets them follow"
            )
        self._check_routes(wanted)
        self._running.change(*wanted.arguments, self._precision == "int16", fade)
        self._take(wanted)

    def reset(self) -> None:
        """Return to silence, and to the newest filter."""
        self._running.reset()
        self._bad = 0

    def copy(self) -> Stream:
        """A second stream that continues from the same state, within a fade, too."""
        other = object.__new__(type(self))
        running = self._running.copy()
        other.__dict__.update(self.__dict__)
        other._running = running
        return other

    __copy__ = copy

    def __deepcopy__(self, memo: dict[Any, Any]) -> Stream:
        return self.copy()

    def to_bytes(self) -> bytes:
        """The whole state, within a change, too: `from_bytes` goes on from there, bit by bit.

        The bytes are for the same version of jurn on machines of the same kind. A stream can be
        pickled, too.
        """
        note = {name: value for name, value in self.__dict__.items() if name != "_running"}
        return self._running.stored(json.dumps(note))

    __bytes__ = to_bytes

    @classmethod
    def from_bytes(cls, data: bytes) -> Stream:
        """The stream that `to_bytes` stored.

        Parameters
        ----------
        data : bytes
            What `to_bytes` gave. Only take them from where you would take a pickle from.

        Raises
        ------
        ValueError
            For bytes that were altered or cut, or are of another version or kind.
        """
        running, note = _core._Running.restored(data)
        other = object.__new__(cls)
        other.__dict__.update(json.loads(note), _running=running)
        return other

    def __reduce__(self) -> Any:
        return type(self).from_bytes, (self.to_bytes(),)

    @property
    def channels(self) -> int:
        """Channels of the input."""
        return self._channels

    @property
    def outputs(self) -> int:
        """Channels of the result."""
        return self._outputs

    @property
    def precision(self) -> str:
        """'double' or 'int16'."""
        return self._precision

    @property
    def latency(self) -> int:
        """Frames by which all that the newest filter lets out is late, as linear phase is."""
        return self._delay

    @property
    def tail(self) -> int:
        """Frames of silence after which nothing of the input is heard any more."""
        return self._running.tail

    @property
    def changing(self) -> bool:
        """Whether a change is not yet complete."""
        return self._running.changing

    def __repr__(self) -> str:
        self._running.bad_samples
        ins, outs = self._channels, self._outputs
        channels = f"{ins} channel{'s' * (ins > 1)}" + (f" to {outs}" if outs != ins else "")
        return f"<jurn.Stream: {self._text}, {channels}, {self._precision}>"


def _count(value: int | None, default: int, name: str, most: int = 4096) -> int:
    count = default if value is None else operator.index(value)
    if not 1 <= count <= most:
        raise ValueError(f"{name}: {count}; takes 1 to {most}")
    return count


def _result(out: NDArray[Any] | None, shape: tuple[int, ...], dtype: np.dtype[Any]) -> NDArray[Any]:
    if out is None:
        return np.empty(shape, dtype)
    if not isinstance(out, np.ndarray) or out.dtype != dtype:
        raise TypeError(f"out: {getattr(out, 'dtype', type(out).__name__)}; the result is {dtype}")
    if out.shape != shape or not out.flags.c_contiguous or not out.flags.writeable:
        raise ValueError(f"out: takes an array of shape {shape} in one piece that can be written")
    return out
