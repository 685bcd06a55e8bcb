"""Designs: coefficients, checked and prepared to run as the command line does."""

from __future__ import annotations

from dataclasses import dataclass, replace
from functools import lru_cache
from typing import Any, Sequence, TypeVar, overload

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _double, _running, response
from ._arrays import Channels, Coefficients, numbers, real, warn

KINDS = ("fir", "iir", "sos")  # in the order of the engine's kinds

PRECISIONS = ("double", "int16")

_Sample = TypeVar("_Sample", np.int16, np.float32, np.float64)


def warn_of(messages: Sequence[str], level: int) -> None:
    for message in messages:
        warn(message, level + 1)


@dataclass(frozen=True, eq=False, repr=False, init=False)
class Design:
    """A filter's coefficients in double precision, a value: it compares, hashes and never changes.

    Attributes
    ----------
    kind : {'fir', 'iir', 'sos'}
        Taps; numerator and denominator; or sections.
    b : ndarray
        Taps or numerator; of sections their numerators, (sections, 3).
    a : ndarray
        Denominator, empty for taps; of sections their denominators, (sections, 3).
    delay : int
        Frames by which all that leaves the filter is late, as linear phase is. Without `zi`,
        `filter` takes them away: the result is in time with the samples.
    prepared : {None, 'double', 'int16'}
        The precision that it was prepared for before, as a file of `jurn-filter export` tells: there
        it runs as it is.

    Raises
    ------
    TypeError
        For coefficients that are not real numbers.
    ValueError
        For another kind, coefficients that are not finite or do not fit the kind, or a denominator
        that begins with 0.

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> design = jurn.Design("iir", np.array([1.0]), np.array([1.0, -0.5]))
    >>> design.filter(np.array([1000, 0, 0], dtype=np.int16))
    array([1000,  500,  250], dtype=int16)
    >>> design == jurn.Design("iir", [1.0], [1.0, -0.5])
    True
    """

    kind: str
    b: Coefficients
    a: Coefficients
    delay: int
    prepared: str | None

    def __init__(
        self,
        kind: str,
        b: ArrayLike,
        a: ArrayLike = (),
        delay: int = 0,
        prepared: str | None = None,
    ) -> None:
        if kind not in KINDS:
            raise ValueError(f"kind: {kind!r}; takes one of {', '.join(KINDS)}")
        b = numbers(b, "taps" if kind == "fir" else "b")
        if kind == "fir":
            if np.size(a):
                raise ValueError("a: a design of taps has none")
            a = np.empty(0)
            a.flags.writeable = False
        else:
            a = numbers(a, "a")
        if kind == "sos":
            if b.ndim != 2 or b.shape[1] != 3 or a.shape != b.shape:
                raise ValueError(
                    f"b, a: have the shapes {b.shape} and {a.shape}; take (sections, 3) each"
                )
        else:
            for name, array in (("taps" if kind == "fir" else "b", b), ("a", a)):
                if array.ndim != 1:
                    raise ValueError(f"{name}: has the shape {array.shape}; takes (count,)")
        if not a[..., :1].all():
            raise ValueError("a: begins with 0, by which nothing can be divided")
        # Adding 0 makes 0 of -0, which equals it.
        key = (kind, b.shape, (b + 0.0).tobytes(), (a + 0.0).tobytes(), delay, prepared)
        values = {"kind": kind, "b": b, "a": a, "delay": delay, "prepared": prepared, "_key": key}
        for name, value in values.items():
            object.__setattr__(self, name, value)

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Design) and bool(self._key == other._key)  # type: ignore[attr-defined]

    def __hash__(self) -> int:
        return hash(self._key)  # type: ignore[attr-defined]

    @staticmethod
    def of_sos(sos: ArrayLike) -> Design:
        """The design of SciPy's sections, of shape (sections, 6)."""
        table = real(sos, "sos")
        if table.ndim != 2 or table.shape[1] != 6:
            raise ValueError(f"sos: has the shape {table.shape}; takes (sections, 6)")
        return kept_design("sos", table[:, :3], table[:, 3:])

    @property
    def sos(self) -> Coefficients:
        """The sections as SciPy has them, of shape (sections, 6)."""
        if self.kind != "sos":
            raise ValueError(f"the design is no cascade of sections: its kind is {self.kind}")
        return np.hstack([self.b, self.a])

    def response(
        self, frequencies: ArrayLike = 512, rate: float | None = None
    ) -> response.Response:
        """The response at frequencies, with group delay, zeros and poles.

        Parameters
        ----------
        frequencies : int or array_like, optional
            How many, evenly from 0 up to half the rate, which is left out; or which.
        rate : float, optional
            Sampling rate in Hz; without it frequencies are in radians per sample.
        """
        return response.respond(self, frequencies, rate)

    def plot(self, rate: float = 48000.0, *, figure: Any = None) -> Any:
        """Draw magnitude, phase, group delay, poles and zeros; needs matplotlib.

        Parameters
        ----------
        rate : float, optional
            Sampling rate in Hz.
        figure : matplotlib.figure.Figure, optional
            Where to draw; by default a new one, which is returned.
        """
        return response.plot(self, rate, figure)

    def __repr__(self) -> str:
        late = f", {self.delay} frames late" if self.delay else ""
        return f"<jurn.Design: {self._text()}{late}>"

    def _repr_html_(self) -> str:
        return response.html(self, self._text())

    def _text(self) -> str:
        """In words: "6 taps"."""
        if self.kind == "iir":
            return f"numerator of {len(self.b)} and denominator of {len(self.a)}"
        count, what = len(self.b), "tap" if self.kind == "fir" else "section"
        return f"{count} {what}{'s' * (count != 1)}"

    @overload
    def filter(
        self, x: NDArray[_Sample], axis: int | None = ..., zi: None = ..., *, precision: str = ..., block: int | None = ..., prepare: bool = ...
    ) -> NDArray[_Sample]: ...
    @overload
    def filter(
        self, x: ArrayLike, axis: int | None = ..., zi: None = ..., *, precision: str = ..., block: int | None = ..., prepare: bool = ...
    ) -> NDArray[Any]: ...
    @overload
    def filter(
        self, x: ArrayLike, axis: int | None = ..., *, zi: ArrayLike, precision: str = ..., block: int | None = ..., prepare: bool = ...
    ) -> tuple[NDArray[Any], NDArray[Any]]: ...
    @overload
    def filter(
        self, x: ArrayLike, axis: int | None, zi: ArrayLike, *, precision: str = ..., block: int | None = ..., prepare: bool = ...
    ) -> tuple[NDArray[Any], NDArray[Any]]: ...
    def filter(
        self,
        x: ArrayLike,
        axis: int | None = None,
        zi: ArrayLike | None = None,
        *,
        precision: str = "double",
        block: int | None = None,
        prepare: bool = True,
    ) -> Any:
        """Filter samples, with the parameters of `fir`, `lfilter` or `sosfilt`."""
        return self._filter(x, axis, zi, precision, block, prepare, level=2)

    def _filter(
        self,
        x: ArrayLike,
        axis: int | None,
        zi: ArrayLike | None,
        precision: str,
        block: int | None,
        prepare: bool,
        level: int,
    ) -> Any:
        """As filter; warnings name the caller `level` calls above."""
        channels = Channels(x, axis, level + 1)
        if self.delay and zi is None:
            shape = list(channels.array.shape)
            shape[channels.axis] = self.delay
            silence = np.zeros(shape, channels.dtype)
            late = replace(self, delay=0)._filter(
                np.concatenate([channels.array, silence], channels.axis),
                *(channels.axis, None, precision, block, prepare, level + 1),
            )
            return np.moveaxis(np.moveaxis(late, channels.axis, 0)[self.delay :], 0, channels.axis)
        check_precision(precision, channels)
        if block is not None:
            most = _running.LONGEST_BLOCK[self.kind]
            if not 1 <= block <= most:
                raise ValueError(f"block: {block} frames; takes 1 to {most}")
        if precision == "int16":
            return self._filter_int16(channels, zi, block, prepare, level + 1)
        # A state belongs to the coefficients as they are.
        as_is = zi is not None and self.kind != "fir"
        design = self._divided()
        if prepare:
            prepared = _prepared(self, precision, as_is, False)
            warn_of(prepared.warnings, level + 1)
            if channels.is_int16:
                warn_of(prepared.clips, level + 1)
            design = prepared.design
        runs = (design.kind, design.b, design.a)
        if as_is and zi is not None:
            return _double.run_from_state(runs, channels, zi, level + 1)
        return _double.run_past(runs, len(design.b) - 1, channels, zi, level + 1)

    def _filter_int16(
        self, x: Channels, zi: ArrayLike | None, block: int | None, prepare: bool, level: int
    ) -> Any:
        design = self
        if prepare:
            prepared = _prepared(self, "int16", False, False)
            warn_of((*prepared.warnings, *prepared.clips), level + 1)
            design = prepared.design
        block = block or _running.BLOCKS[design.kind]
        if design.kind == "fir":
            filters = _running.lanes("fir", design.b, design.a, x.count)
            return _running.run_past(filters, len(design.b) - 1, x, zi, block)
        if design.kind == "iir":
            return _running.run_direct_form(design.b, design.a, x, zi, block)
        if self.kind == "iir" and zi is not None:
            raise ValueError(
                "zi: this design runs as sections, which have another state; use sosfilt, or "
                "prepare=False for the direct form"
            )
        return _running.run_sections(design.b, design.a, x, zi, block)

    def _leads_with_1(self) -> bool:
        return bool((self.a[..., :1] == 1.0).all())

    def _divided(self) -> Design:
        """The same filter with denominators that begin with 1."""
        if self.kind == "fir" or self._leads_with_1():
            return self
        return Design(self.kind, self.b / self.a[..., :1], self.a / self.a[..., :1])

    def _flat(self) -> tuple[int, list[float], list[float]]:
        return KINDS.index(self.kind), self.b.ravel().tolist(), self.a.ravel().tolist()


def check_precision(precision: str, x: Channels | None = None) -> None:
    if precision not in PRECISIONS:
        raise ValueError(f"precision: {precision!r}; takes 'int16' or 'double'")
    if precision == "int16" and x is not None and not x.is_int16:
        raise ValueError(f"precision: 'int16' takes samples of int16, and x is {x.dtype}")


def kept_design(kind: str, b: ArrayLike, a: ArrayLike = ()) -> Design:
    """A design that is made once of the same numbers: calls in a loop cost microseconds."""
    pair = [np.asarray(values) for values in (b, a)]
    pair = [v.astype(np.float64) if v.dtype.kind in "iu" else v for v in pair]
    if pair[0].dtype.char == pair[1].dtype.char == "d":
        return _kept(kind, pair[0].tobytes(), pair[0].shape, pair[1].tobytes(), pair[1].shape)
    return Design(kind, pair[0], pair[1])


@lru_cache(maxsize=256)
def _kept(
    kind: str, b: bytes, b_shape: tuple[int, ...], a: bytes, a_shape: tuple[int, ...]
) -> Design:
    return Design(kind, np.frombuffer(b).reshape(b_shape), np.frombuffer(a).reshape(a_shape))


def of_flat(
    kind: int, b: list[float], a: list[float], delay: int = 0, prepared: str | None = None
) -> Design:
    rows = (-1, 3) if KINDS[kind] == "sos" else (-1,)
    arrays = np.array(b).reshape(rows), np.array(a).reshape(rows)
    return Design(KINDS[kind], *arrays, delay, prepared)


@dataclass(frozen=True)
class Prepared:
    """What `prepare` has made of a design.

    Attributes
    ----------
    design : Design
        What runs; a direct form may have become sections.
    stable : bool
        Whether what runs is stable.
    pole_radius : float
        Radius of the outermost pole of what runs.
    expected_error : float
        Largest difference from the design in double precision, in LSB of int16, on noise at full
        scale.
    expected_error_rms : float
        Root mean square of the same.
    notices : tuple of str
        What was done.
    warnings : tuple of str
        What remains.
    clips : tuple of str
        What is said of int16 samples if the filter's gain can exceed their range.
    """

    design: Design
    stable: bool
    pole_radius: float
    expected_error: float
    expected_error_rms: float
    notices: tuple[str, ...]
    warnings: tuple[str, ...]
    clips: tuple[str, ...]


def prepare(
    design: Design,
    *,
    precision: str = "int16",
    as_is: bool = False,
    as_sections: bool = False,
) -> Prepared:
    """Prepare a design to run: scale and order sections, factor what the direct form would spoil.

    Parameters
    ----------
    design : Design
        Coefficients; `Design.of_sos` makes one of SciPy's sections. Denominators are divided by
        their first coefficient.
    precision : {'int16', 'double'}, optional
        As on a device with 16 bits, or in double as the functions do by default.
    as_is : bool, optional
        Whether to keep the coefficients, only rounded, and measure them.
    as_sections : bool, optional
        Whether to make sections of a direct form that would do as it is.

    Returns
    -------
    Prepared

    Raises
    ------
    ValueError
        For another precision, or a design without coefficients.

    Examples
    --------
    >>> import jurn
    >>> tiny = jurn.Design.of_sos([[1e-9, 0, 0, 1, 0, 0], [1e9, 0, 0, 1, 0, 0]])
    >>> ready = jurn.prepare(tiny)
    >>> bool(ready.design.b[0, 0] > 0.1)
    True
    """
    check_precision(precision)
    return _prepared(design, precision, as_is, as_sections)


@lru_cache(maxsize=256)
def _prepared(design: Design, precision: str, as_is: bool, as_sections: bool) -> Prepared:
    """Takes milliseconds for a design that is new, and nothing for one that was met before."""
    _check_length(design, precision)
    flat, stable, radius, largest, rms, notices, warnings, clips = _core._prepare(
        *design._divided()._flat(),
        *(precision == "double", as_is, as_sections),
        None if design.prepared is None else design.prepared == "double",
    )
    return Prepared(
        of_flat(*flat), stable, radius, largest, rms, tuple(notices), tuple(warnings), tuple(clips)
    )


def _check_length(design: Design, precision: str) -> None:
    if design.kind == "fir" and precision == "double":
        return  # tap by tap, as many as there are
    most, reason = _core._coefficient_limit(KINDS.index(design.kind), precision == "double")
    for name, array in (("b", design.b), ("a", design.a)):
        if len(array) > most:
            name = design.kind if design.kind != "iir" else name
            raise ValueError(f"{name}: holds {len(array)}, more than {reason}")
