"""Filters over whole arrays, with the names and the parameters of SciPy's."""

from __future__ import annotations

import operator
from typing import Any, TypeVar, overload

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _double, _running
from ._arrays import Channels
from .designs import Design, check_precision, kept_design

_Sample = TypeVar("_Sample", np.int16, np.float32, np.float64)


def _list(values: ArrayLike) -> NDArray[Any]:
    """An array of a number, too."""
    array = np.asarray(values)
    return array if array.ndim else array[np.newaxis]


@overload
def fir(
    taps: ArrayLike, x: NDArray[_Sample], axis: int | None = ..., zi: None = ..., *, precision: str = ..., block: int | None = ..., prepare: bool = ...
) -> NDArray[_Sample]: ...
@overload
def fir(
    taps: ArrayLike, x: ArrayLike, axis: int | None = ..., zi: None = ..., *, precision: str = ..., block: int | None = ..., prepare: bool = ...
) -> NDArray[Any]: ...
@overload
def fir(
    taps: ArrayLike, x: ArrayLike, axis: int | None = ..., *, zi: ArrayLike, precision: str = ..., block: int | None = ..., prepare: bool = ...
) -> tuple[NDArray[Any], NDArray[Any]]: ...
@overload
def fir(
    taps: ArrayLike, x: ArrayLike, axis: int | None, zi: ArrayLike, *, precision: str = ..., block: int | None = ..., prepare: bool = ...
) -> tuple[NDArray[Any], NDArray[Any]]: ...
def fir(
    taps: ArrayLike,
    x: ArrayLike,
    axis: int | None = None,
    zi: ArrayLike | None = None,
    *,
    precision: str = "double",
    block: int | None = None,
    prepare: bool = True,
) -> Any:
    """Filter samples with an FIR.

    Parameters
    ----------
    taps : array_like
        Any number; up to 1250 with ``precision="int16"``.
    x : array_like
        Samples of any shape. Int16, float32 and float64 keep their type, other real numbers become
        float64. Floats have any scale. What is infinite or no number counts as 0, with a warning.
    axis : int, optional
        Axis of the frames; by default the last.
    zi : array_like, optional
        The ``taps - 1`` samples before `x`, oldest first, in the shape of `x` with ``taps - 1``
        frames; or 0 for silence.
    precision : {'double', 'int16'}, optional
        In double precision, rounded once to the type of the result; or, for samples of int16, as on a
        device with 16 bits, which truncates.
    block : int, optional
        With ``precision="int16"``, frames of a block; changes no sample.
    prepare : bool, optional
        Whether to warn of taps that would clip.

    Returns
    -------
    y : ndarray
        Of the shape of `x`, and of its type.
    zf : ndarray
        The samples to give as the next `zi`; only with `zi`.

    Raises
    ------
    TypeError
        For samples or coefficients that are not real numbers.
    ValueError
        For another shape, or too many taps.

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> jurn.fir([0.5, 0.5], np.array([10, 20, -5], dtype=np.int16))
    array([ 5, 15,  8], dtype=int16)
    >>> jurn.fir([0.5, 0.5], np.array([10, 20, -5], dtype=np.int16), precision="int16")
    array([ 5, 15,  7], dtype=int16)
    """
    return kept_design("fir", _list(taps))._filter(x, axis, zi, precision, block, prepare, level=2)


@overload
def moving_mean(
    length: int, x: NDArray[_Sample], axis: int | None = ..., zi: None = ..., *, precision: str = ..., block: int | None = ...
) -> NDArray[_Sample]: ...
@overload
def moving_mean(
    length: int, x: ArrayLike, axis: int | None = ..., zi: None = ..., *, precision: str = ..., block: int | None = ...
) -> NDArray[Any]: ...
@overload
def moving_mean(
    length: int, x: ArrayLike, axis: int | None = ..., *, zi: ArrayLike, precision: str = ..., block: int | None = ...
) -> tuple[NDArray[Any], NDArray[Any]]: ...
@overload
def moving_mean(
    length: int, x: ArrayLike, axis: int | None, zi: ArrayLike, *, precision: str = ..., block: int | None = ...
) -> tuple[NDArray[Any], NDArray[Any]]: ...
def moving_mean(
    length: int,
    x: ArrayLike,
    axis: int | None = None,
    zi: ArrayLike | None = None,
    *,
    precision: str = "double",
    block: int | None = None,
) -> Any:
    """Replace each sample by the mean of the last `length` samples.

    Parameters
    ----------
    length : int
        Up to 2 ** 24; up to 2156 with ``precision="int16"``.
    x : array_like
        Samples, as for `fir`.
    axis : int, optional
        Axis of the frames; by default the last.
    zi : array_like, optional
        The ``length - 1`` samples before `x`, oldest first; or 0 for silence.
    precision : {'double', 'int16'}, optional
        In double precision, rounded once to the type of the result; or, for samples of int16, as on a
        device with 16 bits, which truncates.
    block : int, optional
        With ``precision="int16"``, frames of a block; changes no sample.

    Returns
    -------
    y : ndarray
        Of the shape of `x`, and of its type.
    zf : ndarray
        The samples to give as the next `zi`; only with `zi`.

    Raises
    ------
    TypeError
        For samples or coefficients that are not real numbers.
    ValueError
        For another shape or length.

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> jurn.moving_mean(2, np.array([10, 20, -5], dtype=np.int16))
    array([ 5, 15,  8], dtype=int16)
    """
    channels = Channels(x, axis, level=2)
    count = operator.index(length)
    check_precision(precision, channels)
    if precision == "double":
        return _double.run_past(_double.mean(count), count - 1, channels, zi, level=2)
    filters = _running.mean_lanes(count, channels.count)
    return _running.run_past(filters, count - 1, channels, zi, block or _running.BLOCKS["fir"])


@overload
def lfilter(
    b: ArrayLike, a: ArrayLike, x: NDArray[_Sample], axis: int | None = ..., zi: None = ..., *, precision: str = ..., block: int | None = ..., prepare: bool = ...
) -> NDArray[_Sample]: ...
@overload
def lfilter(
    b: ArrayLike, a: ArrayLike, x: ArrayLike, axis: int | None = ..., zi: None = ..., *, precision: str = ..., block: int | None = ..., prepare: bool = ...
) -> NDArray[Any]: ...
@overload
def lfilter(
    b: ArrayLike, a: ArrayLike, x: ArrayLike, axis: int | None = ..., *, zi: ArrayLike, precision: str = ..., block: int | None = ..., prepare: bool = ...
) -> tuple[NDArray[Any], NDArray[Any]]: ...
@overload
def lfilter(
    b: ArrayLike, a: ArrayLike, x: ArrayLike, axis: int | None, zi: ArrayLike, *, precision: str = ..., block: int | None = ..., prepare: bool = ...
) -> tuple[NDArray[Any], NDArray[Any]]: ...
def lfilter(
    b: ArrayLike,
    a: ArrayLike,
    x: ArrayLike,
    axis: int | None = None,
    zi: ArrayLike | None = None,
    *,
    precision: str = "double",
    block: int | None = None,
    prepare: bool = True,
) -> Any:
    """Filter samples with numerator and denominator.

    Parameters
    ----------
    b, a : array_like
        A number or a list of them, up to 1250 each; divided by ``a[0]``.
    x : array_like
        Samples, as for `fir`.
    axis : int, optional
        Axis of the frames; by default the last.
    zi : array_like, optional
        The state of a transposed direct form II, as SciPy's `lfilter` has it and `lfilter_zi`
        computes it, in the shape of `x` with ``max(len(a), len(b)) - 1`` frames; or 0 for silence.
        With it the direct form runs as it is. With ``precision="int16"`` the state is of the device:
        past samples and past outputs, ``len(b) - 1`` and ``len(a) - 1``, oldest first.
    precision : {'double', 'int16'}, optional
        In double precision, rounded once to the type of the result; or, for samples of int16, as on a
        device with 16 bits, which truncates.
    block : int, optional
        With ``precision="int16"``, frames of a block. Past outputs below 1e-6 become 0 at its start.
    prepare : bool, optional
        Whether to run it as sections where the direct form would lose precision, and to warn of a
        design that is unstable, inexact or clips. False runs the coefficients as they are; with
        ``precision="int16"`` ``a[0]`` has to be 1 then.

    Returns
    -------
    y : ndarray
        Of the shape of `x`, and of its type.
    zf : ndarray
        The state to give as the next `zi`; only with `zi`.

    Raises
    ------
    TypeError
        For samples or coefficients that are not real numbers.
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
    design = kept_design("iir", _list(b), _list(a))
    has_state = zi is not None and precision == "double"
    if len(design.a) == 1 and not has_state and (prepare or design.a[0] == 1.0):
        design = kept_design("fir", design.b / design.a[0])
    return design._filter(x, axis, zi, precision, block, prepare, level=2)


@overload
def sosfilt(
    sos: ArrayLike, x: NDArray[_Sample], axis: int | None = ..., zi: None = ..., *, precision: str = ..., block: int | None = ..., prepare: bool = ...
) -> NDArray[_Sample]: ...
@overload
def sosfilt(
    sos: ArrayLike, x: ArrayLike, axis: int | None = ..., zi: None = ..., *, precision: str = ..., block: int | None = ..., prepare: bool = ...
) -> NDArray[Any]: ...
@overload
def sosfilt(
    sos: ArrayLike, x: ArrayLike, axis: int | None = ..., *, zi: ArrayLike, precision: str = ..., block: int | None = ..., prepare: bool = ...
) -> tuple[NDArray[Any], NDArray[Any]]: ...
@overload
def sosfilt(
    sos: ArrayLike, x: ArrayLike, axis: int | None, zi: ArrayLike, *, precision: str = ..., block: int | None = ..., prepare: bool = ...
) -> tuple[NDArray[Any], NDArray[Any]]: ...
def sosfilt(
    sos: ArrayLike,
    x: ArrayLike,
    axis: int | None = None,
    zi: ArrayLike | None = None,
    *,
    precision: str = "double",
    block: int | None = None,
    prepare: bool = True,
) -> Any:
    """Filter samples with a cascade of second-order sections.

    Parameters
    ----------
    sos : array_like
        Sections of shape (sections, 6), as SciPy designs them; up to 1024, and 416 with
        ``precision="int16"``.
    x : array_like
        Samples, as for `fir`.
    axis : int, optional
        Axis of the frames; by default the last.
    zi : array_like, optional
        The state of SciPy's `sosfilt`, as `sosfilt_zi` computes it: for each section two numbers in
        place of the frames, (sections, 2) for one channel; or 0 for silence. With
        ``precision="int16"`` the device's, two past inputs and two past outputs, newest first, of
        the sections that run.
    precision : {'double', 'int16'}, optional
        In double precision, rounded once to the type of the result; or, for samples of int16, as on a
        device with 16 bits, which truncates.
    block : int, optional
        With ``precision="int16"``, frames of a block.
    prepare : bool, optional
        Whether to warn of a design that is unstable, inexact or clips, and for 16 bits to scale and
        order the sections so that none is silenced. False runs the sections as they are.

    Returns
    -------
    y : ndarray
        Of the shape of `x`, and of its type.
    zf : ndarray
        The state to give as the next `zi`; only with `zi`.

    Raises
    ------
    TypeError
        For samples or coefficients that are not real numbers.
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
    return Design.of_sos(sos)._filter(x, axis, zi, precision, block, prepare, level=2)
