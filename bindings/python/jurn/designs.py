"""Designs: coefficients from arrays and files, checked and prepared to run as the command line does."""

from __future__ import annotations

import os
import warnings as python_warnings
from dataclasses import dataclass, field
from typing import Any, Sequence, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core

Coefficients = NDArray[np.float64]
Path = Union[str, "os.PathLike[str]"]

_KINDS = ("fir", "iir", "sos")  # in the order of the library's toolkit


class JurnWarning(UserWarning):
    """What comes out is not quite what the design promises.

    Examples
    --------
    >>> import warnings
    >>> warnings.simplefilter("error", JurnWarning)  # makes an error of it
    >>> warnings.simplefilter("default", JurnWarning)
    """


def warn_of(messages: Sequence[str], stacklevel: int) -> None:
    for message in messages:
        python_warnings.warn(message, JurnWarning, stacklevel=stacklevel)


def _numbers(values: ArrayLike, name: str, dimensions: int) -> Coefficients:
    array = np.asarray(values)
    if array.dtype.kind not in "fiub":
        raise TypeError(f"{name}: {array.dtype} of shape {array.shape}; takes real numbers")
    array = array.astype(np.float64)
    if array.ndim != dimensions or array.size == 0:
        takes = "(count,)" if dimensions == 1 else "(sections, 6)"
        raise ValueError(f"{name}: has the shape {array.shape}; takes {takes}")
    if not np.all(np.isfinite(array)):
        raise ValueError(f"{name}: number {int(np.argmin(np.isfinite(array)))} is not finite")
    return array


@dataclass(frozen=True)
class Design:
    """A filter's coefficients in double precision.

    Attributes
    ----------
    kind : {'fir', 'iir', 'sos'}
        Taps; numerator and denominator; or sections.
    b : ndarray
        Taps or numerator; of sections their numerators, (sections, 3).
    a : ndarray
        Denominator, empty for taps; of sections their denominators, (sections, 3).

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> design = jurn.Design("iir", np.array([1.0]), np.array([1.0, -0.5]))
    >>> design.filter(np.array([1000, 0, 0], dtype=np.int16))
    array([1000,  500,  250], dtype=int16)
    """

    kind: str
    b: Coefficients
    a: Coefficients = field(default_factory=lambda: np.empty(0))

    @staticmethod
    def of_sos(sos: ArrayLike) -> Design:
        """The design of SciPy's sections, of shape (sections, 6)."""
        table = _numbers(sos, "sos", 2)
        if table.shape[1] != 6:
            raise ValueError(f"sos: has the shape {table.shape}; takes (sections, 6)")
        return Design("sos", table[:, :3], table[:, 3:])

    @property
    def sos(self) -> Coefficients:
        """The sections as SciPy has them, of shape (sections, 6)."""
        if self.kind != "sos":
            raise ValueError(f"the design is no cascade of sections: its kind is {self.kind}")
        return np.hstack([self.b, self.a])

    def filter(self, x: NDArray[Any], **options: Any) -> Any:
        """Filter samples by `fir`, `lfilter` or `sosfilt`, whose options it takes."""
        from . import functions

        if self.kind == "fir":
            return functions.fir(self.b, x, **options)
        if self.kind == "iir":
            return functions.lfilter(self.b, self.a, x, **options)
        return functions.sosfilt(self.sos, x, **options)

    def _flat(self) -> tuple[int, list[float], list[float]]:
        return _KINDS.index(self.kind), list(self.b.ravel()), list(self.a.ravel())


def _of_flat(kind: int, b: list[float], a: list[float]) -> Design:
    rows = (-1, 3) if _KINDS[kind] == "sos" else (-1,)
    return Design(_KINDS[kind], np.array(b).reshape(rows), np.array(a).reshape(rows))


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
    """

    design: Design
    stable: bool
    pole_radius: float
    expected_error: float
    expected_error_rms: float
    notices: tuple[str, ...]
    warnings: tuple[str, ...]


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
        Coefficients; `Design.of_sos` makes one of SciPy's sections.
    precision : {'int16', 'double'}, optional
        The filters for int16, or those for floats.
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
    if precision not in ("int16", "double"):
        raise ValueError(f"precision: {precision!r}; takes 'int16' or 'double'")
    flat, stable, radius, largest, rms, notices, warnings = _core._prepare(
        *design._flat(), precision == "double", as_is, as_sections
    )
    return Prepared(
        _of_flat(*flat), stable, radius, largest, rms, tuple(notices), tuple(warnings)
    )


def read_coefficients(
    path: Path | tuple[Path, Path],
    rate: float | None = None,
    *,
    kind: str | None = None,
    variables: Sequence[str] = (),
    negate_a: bool | None = None,
) -> Design:
    """Read coefficients from a file in any format that the command line reads.

    Parameters
    ----------
    path : path or pair of paths
        Text, CSV, NumPy .npy, MATLAB .mat, C header, biquad list, equaliser, or audio file; or
        numerator and denominator in a file each.
    rate : float, optional
        Sampling rate of the recordings, which an equaliser file needs.
    kind : {'fir', 'iir', 'sos'}, optional
        What the file holds; by default sections if it can be read as such, or else numerator and
        denominator, or else taps.
    variables : sequence of str, optional
        Names of the arrays in a file with names.
    negate_a : bool, optional
        Whether to turn the signs of the feedback, for files of programs that add it. By default a
        file whose signs look turned is an error.

    Returns
    -------
    Design

    Raises
    ------
    OSError
        When the file cannot be read.
    ValueError
        When it holds no coefficients of that kind.

    Warns
    -----
    JurnWarning
        When the filter is unstable or would clip.

    Examples
    --------
    >>> import pathlib, tempfile
    >>> import jurn
    >>> file = pathlib.Path(tempfile.mkdtemp(), "taps.txt")
    >>> _ = file.write_text("0.5\\n0.25\\n0.25\\n")
    >>> jurn.read_coefficients(file).b
    array([0.5 , 0.25, 0.25])
    """
    paths = path if isinstance(path, tuple) else (path,)
    names = [os.fspath(p) for p in paths]
    for name in names:
        open(name, "rb").close()  # for Python's own errors
    if len(names) == 2:
        kind = "iir"
    if kind is not None and kind not in _KINDS:
        raise ValueError(f"kind: {kind!r}; takes one of {', '.join(_KINDS)}")
    found, errors = {}, []
    for wanted in _KINDS if kind is None else (kind,):
        try:
            found[wanted] = _core._load_design(
                names, _KINDS.index(wanted), list(variables), int(rate or 0), negate_a
            )
        except ValueError as error:
            errors.append(error)
    if not found:
        raise errors[0] if len({str(e) for e in errors}) == 1 else ValueError(
            "; or ".join(str(e) for e in errors)
        )
    if {"iir", "sos"} <= set(found):  # two rows of six numbers: the a0 of sections are equal, 1
        _, numerator, denominator = found["iir"][0]
        if numerator[3] != denominator[3]:
            del found["sos"]
    flat, warnings = next(found[k] for k in ("sos", "iir", "fir") if k in found)
    warn_of(warnings, stacklevel=3)
    return _of_flat(*flat)


def read_response(
    path: Path | Sequence[Path],
    rate: float,
    *,
    resample: bool = False,
    truncate: int | None = None,
    normalise: bool = False,
) -> NDArray[np.float64]:
    """Read an impulse response from audio files.

    Parameters
    ----------
    path : path or sequence of paths
        Files whose channels follow one another.
    rate : float
        Sampling rate of the recordings; a file at another rate is an error.
    resample : bool, optional
        Whether to convert a file at another rate instead.
    truncate : int, optional
        Taps to keep.
    normalise : bool, optional
        Whether to scale the largest gain over all frequencies to 0 dB.

    Returns
    -------
    ndarray
        (taps,), or (taps, channels) for several channels; 1.0 is full scale.

    Raises
    ------
    OSError
        When a file cannot be read.
    ValueError
        When it is no audio file, or does not fit.

    Examples
    --------
    >>> import jurn
    >>> jurn.read_response("missing.wav", 48000)
    Traceback (most recent call last):
        ...
    FileNotFoundError: [Errno 2] No such file or directory: 'missing.wav'
    """
    paths = [path] if isinstance(path, (str, os.PathLike)) else path
    names = [os.fspath(p) for p in paths]
    for name in names:
        open(name, "rb").close()
    channels = _core._read_response(names, int(rate), resample, truncate or 0, normalise)
    response = np.array(channels).T
    return response[:, 0] if len(channels) == 1 else response
