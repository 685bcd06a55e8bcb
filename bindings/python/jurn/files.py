"""Coefficients and impulse responses from files."""

from __future__ import annotations

import os
from typing import Sequence, Union

import numpy as np
from numpy.typing import NDArray

from . import _core
from .designs import KINDS, PRECISIONS, Design, check_precision, of_flat

Path = Union[str, "os.PathLike[str]"]


def read_coefficients(
    path: Path | tuple[Path, Path],
    rate: float | None = None,
    *,
    kind: str | None = None,
    variables: Sequence[str] = (),
    negate_a: bool | None = None,
    precision: str = "double",
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
        What is wanted; by default what the file holds: by the names in it, or else by its shape.
        A table of two rows is numerator and denominator, but one of six columns whose fourth is 1
        in both rows is two sections.
    variables : sequence of str, optional
        Names of the arrays in a file with names.
    negate_a : bool, optional
        Whether to turn the signs of the feedback, for files of programs that add it. By default a
        file whose signs look turned is an error.
    precision : {'double', 'int16'}, optional
        What it will run in: a device takes fewer coefficients, so a graphic equaliser for it has
        1249 taps at most.

    Returns
    -------
    Design

    Raises
    ------
    OSError
        When the file cannot be read.
    ValueError
        When it holds no coefficients of that kind.

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
    if len(names) not in (1, 2):
        raise ValueError(f"path: has {len(names)} files; takes one, or numerator and denominator")
    for name in names:
        open(name, "rb").close()  # for Python's own errors
    if len(names) == 2:
        kind = "iir"
    if kind is not None and kind not in KINDS:
        raise ValueError(f"kind: {kind!r}; takes one of {', '.join(KINDS)}")
    check_precision(precision)
    flat, delay, in_double = _core._load_design(
        names,
        None if kind is None else KINDS.index(kind),
        list(variables),
        int(rate or 0),
        negate_a,
        precision == "double",
    )
    prepared = None if in_double is None else PRECISIONS[0 if in_double else 1]
    return of_flat(*flat, delay=delay, prepared=prepared)


def eq(filters: str, rate: float) -> Design:
    """Make an equaliser that is told in words.

    Parameters
    ----------
    filters : str
        Filters, between semicolons or on lines of their own: a type, a frequency in Hz, a gain in dB
        where it has one, and a width. PK is a peak, LS and HS are shelves, HP and LP high- and
        low-pass, BP a band-pass, NO a notch, AP an all-pass.
    rate : float
        Sampling rate of the recordings.

    Returns
    -------
    Design
        Sections.

    Raises
    ------
    ValueError
        For words that name no filter, or one that does not fit the rate.

    Examples
    --------
    >>> import jurn
    >>> design = jurn.eq("HP 80; PK 3k -4 Q 2", rate=48000)
    >>> design
    <jurn.Design: 2 sections>
    >>> design.response([3000], 48000).magnitude.round(2)
    array([-4.])
    """
    words = [line.strip() for line in filters.replace("\n", ";").split(";") if line.strip()]
    if not words:
        raise ValueError("filters: are none")
    return of_flat(*_core._equaliser(words, int(rate)))


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
