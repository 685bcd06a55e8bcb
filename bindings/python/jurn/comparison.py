"""The exact output beside the ideal one."""

from __future__ import annotations

import importlib
import inspect
from dataclasses import dataclass
from typing import Any, Callable

import numpy as np
from numpy.typing import NDArray

from . import convolution, functions


@dataclass(frozen=True)
class Comparison:
    """What the exact output differs by from the ideal one.

    Attributes
    ----------
    exact : ndarray
        The output bit by bit, as the filter gives it.
    ideal : ndarray
        The output in double precision, neither truncated nor limited.
    difference : ndarray
        ``exact - ideal`` in LSB, units of one int16 step; that of clipped samples, too.
    largest : float
        Largest magnitude of the difference in LSB.
    rms : float
        Root mean square of the difference in LSB.
    clipped : int
        Samples of the output at full scale.
    frequencies : ndarray
        Frequencies of the noise spectrum in Hz.
    noise : ndarray
        Power of the difference per bin in dB below a full-scale sine, mean over blocks and channels.

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> x = np.array([1, 2, 3, 4], dtype=np.int16)
    >>> jurn.compare(jurn.fir, [0.5], x).largest
    0.5
    """

    exact: NDArray[Any]
    ideal: NDArray[np.float64]
    difference: NDArray[np.float64]
    largest: float
    rms: float
    clipped: int
    frequencies: NDArray[np.float64]
    noise: NDArray[np.float64]


def compare(
    function: Callable[..., Any], *arguments: Any, rate: float = 48000.0, **options: Any
) -> Comparison:
    """Run a filter exactly and ideally.

    The ideal output is SciPy's on float64: `scipy.signal` has to be installed.

    Parameters
    ----------
    function : callable
        `fir`, `lfilter`, `sosfilt`, `moving_mean` or `convolve`.
    *arguments
        What it takes, the samples among them. Those of int16 and floats on int16's scale give
        differences in LSB; floats of another scale give them in that scale.
    rate : float, optional
        Sampling rate in Hz, for the frequencies of the noise.
    **options
        What it takes by name; not `zi`.

    Returns
    -------
    Comparison

    Raises
    ------
    ValueError
        For another function.

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> x = np.array([30000, -30000, 30000, -30000], dtype=np.int16)
    >>> jurn.compare(jurn.fir, [1.0, -1.0], x).clipped
    3
    """
    if function not in _IDEAL:
        names = ", ".join(f.__name__ for f in _IDEAL)
        raise ValueError(f"function: takes one of {names}")
    given = inspect.signature(function).bind(*arguments, **options)
    given.apply_defaults()
    o = given.arguments
    if o.get("zi") is not None:
        raise ValueError("zi: compares whole outputs only")
    exact = function(*arguments, **options)
    axis = -1 if o["axis"] is None else o["axis"]
    ideal = _IDEAL[function](o, axis)
    difference = exact.astype(np.float64) - ideal
    by_channel = np.moveaxis(difference, axis, 0).reshape(difference.shape[axis], -1)
    frequencies, noise = _spectrum(by_channel, rate)
    full = (exact == 32767) | (exact == -32768) if exact.dtype == np.int16 else np.zeros(0)
    return Comparison(
        exact,
        ideal,
        difference,
        float(np.max(np.abs(difference), initial=0.0)),
        float(np.sqrt(np.mean(difference**2))) if difference.size else 0.0,
        int(np.count_nonzero(full)),
        frequencies,
        noise,
    )


def _spectrum(
    difference: NDArray[np.float64], rate: float
) -> tuple[NDArray[np.float64], NDArray[np.float64]]:
    """The mean power spectrum over half-overlapping blocks with a Hann window."""
    size = min(4096, max(2, len(difference)))
    window = np.hanning(size + 1)[:size]
    power = np.zeros(size // 2 + 1)
    starts = range(0, max(1, len(difference) - size + 1), max(1, size // 2))
    for start in starts:
        block = difference[start : start + size]
        block = np.pad(block, ((0, size - len(block)), (0, 0)))
        power += np.mean(np.abs(np.fft.rfft(block * window[:, None], axis=0)) ** 2, axis=1)
    # A sine's power lies in one bin with the height of the window's sum, halved for its other half.
    full_scale = (32768.0 * max(window.sum(), 1e-300) / 2.0) ** 2
    level = 10.0 * np.log10(np.maximum(power / len(starts) / full_scale, 1e-30))
    return np.asarray(np.fft.rfftfreq(size, 1.0 / rate), np.float64), level


def _signal() -> Any:
    return importlib.import_module("scipy.signal")


def _ideal_fir(o: dict[str, Any], axis: int) -> Any:
    return _signal().lfilter(np.asarray(o["taps"], float), 1.0, np.asarray(o["x"], float), axis)


def _ideal_lfilter(o: dict[str, Any], axis: int) -> Any:
    return _signal().lfilter(o["b"], o["a"], np.asarray(o["x"], float), axis)


def _ideal_sosfilt(o: dict[str, Any], axis: int) -> Any:
    return _signal().sosfilt(o["sos"], np.asarray(o["x"], float), axis)


def _ideal_mean(o: dict[str, Any], axis: int) -> Any:
    return _ideal_fir({**o, "taps": np.full(o["length"], 1.0 / o["length"])}, axis)


def _ideal_convolve(o: dict[str, Any], axis: int) -> Any:
    x, taps = np.asarray(o["x"], float), np.asarray(o["ir"], float)
    samples = np.moveaxis(x, axis, 0).reshape(x.shape[axis], -1)
    taps = taps.reshape(len(taps), -1)
    routes = convolution.routes_of(taps, samples.shape[1])
    outputs = max(route[1] for route in routes) + 1
    y: NDArray[np.float64] = np.zeros((len(samples) + len(taps) - 1, outputs))
    for source, to, response in routes:
        y[:, to] += _signal().oaconvolve(samples[:, source], response)
    start, stop = convolution.kept(o["mode"], len(samples), len(taps), o["tail"])
    y = y[start:stop]
    if x.ndim == 1:
        return y[:, 0] if outputs == 1 else y
    return np.moveaxis(y, 0, axis)


_IDEAL: dict[Callable[..., Any], Callable[[dict[str, Any], int], Any]] = {
    functions.fir: _ideal_fir,
    functions.lfilter: _ideal_lfilter,
    functions.sosfilt: _ideal_sosfilt,
    functions.moving_mean: _ideal_mean,
    convolution.convolve: _ideal_convolve,
}
