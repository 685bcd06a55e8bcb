"""What a design does to frequencies: as numbers, as a picture, and in a notebook."""

from __future__ import annotations

import importlib
import math
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._arrays import real

if TYPE_CHECKING:
    from .designs import Design

_MOST_ROOTS = 1001  # coefficients; beyond, zeros crowd along the circle and take seconds


@dataclass(frozen=True)
class Response:
    """What a design does to frequencies.

    Attributes
    ----------
    frequencies : ndarray
        In the unit of the rate that was given: Hz, or radians per sample.
    values : ndarray
        The complex response.
    delay : ndarray
        Group delay in samples.
    zeros, poles : ndarray
        Complex; empty where there are too many coefficients to find them.

    Examples
    --------
    >>> import jurn
    >>> response = jurn.Design("fir", [0.5, 0.5]).response([0, 12000, 24000], rate=48000)
    >>> response.magnitude.round(2)
    array([   0.  ,   -3.01, -300.  ])
    >>> response.delay[:2]
    array([0.5, 0.5])
    >>> response.zeros.real.round(9)
    array([-1.])
    """

    frequencies: NDArray[np.float64]
    values: NDArray[np.complex128]
    delay: NDArray[np.float64]
    zeros: NDArray[np.complex128]
    poles: NDArray[np.complex128]

    @property
    def magnitude(self) -> NDArray[np.float64]:
        """In dB, and -300 at least."""
        return np.asarray(20.0 * np.log10(np.maximum(np.abs(self.values), 1e-15)))

    @property
    def phase(self) -> NDArray[np.float64]:
        """In degrees, without jumps."""
        return np.asarray(np.degrees(np.unwrap(np.angle(self.values))))


def respond(design: Design, frequencies: ArrayLike, rate: float | None) -> Response:
    circle = 2.0 * math.pi if rate is None else float(rate)
    if not 0.0 < circle < math.inf:
        raise ValueError(f"rate: {rate}; takes a number above 0")
    given = real(frequencies, "frequencies")
    if given.ndim == 0:
        if given.dtype.kind not in "iu" or not 1 <= given <= 1 << 24:
            raise ValueError(f"frequencies: {given}; takes a count, or an array of frequencies")
        given = np.arange(int(given)) * (circle / 2.0 / int(given))
    f = np.array(given, np.float64, ndmin=1)
    if f.ndim != 1 or not np.isfinite(f).all():
        raise ValueError("frequencies: take one dimension of finite numbers")
    flat = design._divided()._flat()
    values, delay = _core._response(*flat, f * (2.0 * math.pi / circle))
    few = max(len(flat[1]), len(flat[2])) <= _MOST_ROOTS or design.kind == "sos"
    zeros, poles = _core._roots(*flat) if few else (np.empty(0, complex),) * 2
    return Response(f, values, delay, zeros, poles)


def _logarithmic(rate: float, count: int) -> NDArray[np.float64]:
    top = rate / 2.0
    return np.asarray(np.geomspace(min(10.0, top / 1000.0), top, count))


def _decibels(response: Response) -> tuple[NDArray[np.float64], float, float]:
    """Magnitude, and the range that shows what matters of it."""
    level = response.magnitude
    top = 6.0 * (math.floor(float(level.max()) / 6.0) + 1)
    return level, max(6.0 * math.floor(float(level.min()) / 6.0), top - 84.0), top


def plot(design: Design, rate: float, figure: Any) -> Any:
    """Magnitude, phase, group delay, poles and zeros."""
    if figure is None:
        pyplot: Any = importlib.import_module("matplotlib.pyplot")
        figure = pyplot.figure(figsize=(10, 7), constrained_layout=True)
    response = respond(design, _logarithmic(rate, 1000), rate)
    (magnitude, phase), (delay, plane) = figure.subplots(2, 2)
    level, bottom, top = _decibels(response)
    heard = level > bottom  # phase and delay of what is not there are noise
    magnitude.semilogx(response.frequencies, level)
    magnitude.set(ylim=(bottom, top), ylabel="dB", title="Magnitude")
    phase.semilogx(response.frequencies, np.where(heard, response.phase, np.nan))
    phase.set(ylabel="degrees", title="Phase")
    delay.semilogx(response.frequencies, np.where(heard, response.delay * 1000.0 / rate, np.nan))
    delay.set(ylabel="ms", title="Group delay")
    for axes in (magnitude, phase, delay):
        axes.set(xlim=(response.frequencies[0], rate / 2.0), xlabel="frequency (Hz)")
        axes.grid(True, which="both", alpha=0.25)
    turn = np.exp(2j * np.pi * np.arange(361) / 360)
    plane.plot(turn.real, turn.imag, color="0.7", linewidth=1)
    plane.plot(response.zeros.real, response.zeros.imag, "o", fillstyle="none", label="zeros")
    plane.plot(response.poles.real, response.poles.imag, "x", label="poles")
    plane.set(xlabel="real", ylabel="imaginary", title="Poles and zeros")
    plane.set_aspect("equal", adjustable="datalim")
    plane.grid(True, alpha=0.25)
    plane.legend(loc="upper right")
    return figure


def html(design: Design, text: str) -> str:
    """A picture of the magnitude, for a notebook."""
    response = respond(design, 200, 1.0)
    level, bottom, top = _decibels(response)
    x = 40.0 + 2.0 * 280.0 * response.frequencies
    y = 10.0 + 100.0 * (top - np.clip(level, bottom, top)) / (top - bottom)
    line = " ".join(f"{a:.0f},{b:.1f}" for a, b in zip(x, y))
    axis = "".join(
        f'<line x1="40" x2="320" y1="{at:.0f}" y2="{at:.0f}" stroke="#ccc"/>'
        f'<text x="36" y="{at + 4:.0f}" text-anchor="end">{value:.0f}</text>'
        for at, value in ((10, top), (60, (top + bottom) / 2), (110, bottom))
    )
    return (
        f"<div>jurn.Design: {text}<br>"
        '<svg width="340" height="135" font-size="10" font-family="sans-serif" fill="currentColor">'
        f'{axis}<polyline points="{line}" fill="none" stroke="#1f77b4" stroke-width="1.5"/>'
        '<text x="40" y="128">0</text><text x="320" y="128" text-anchor="end">half the rate</text>'
        '<text x="180" y="128" text-anchor="middle">magnitude in dB</text></svg></div>'
    )


def plot_spectrograms(
    before: ArrayLike, after: ArrayLike, rate: float, *, axis: int = -1, figure: Any = None
) -> Any:
    """Draw spectrograms before and after a filter, one above the other on one scale.

    Needs matplotlib.

    Parameters
    ----------
    before, after : array_like
        Samples of one or two dimensions; of several channels their mean is drawn. Int16 has its full
        scale at 0 dB, floats at 1.0.
    rate : float
        Sampling rate in Hz.
    axis : int, optional
        Axis of the frames; by default the last.
    figure : matplotlib.figure.Figure, optional
        Where to draw; by default a new one.

    Returns
    -------
    matplotlib.figure.Figure

    Examples
    --------
    >>> import numpy as np
    >>> import jurn
    >>> import matplotlib
    >>> matplotlib.use("Agg")
    >>> x = np.sin(np.arange(48000) / 5)
    >>> figure = jurn.plot_spectrograms(x, jurn.fir([0.1], x), 48000)
    >>> len(figure.axes)
    3
    """
    if figure is None:
        pyplot: Any = importlib.import_module("matplotlib.pyplot")
        figure = pyplot.figure(figsize=(9, 6), constrained_layout=True)
    panels = figure.subplots(2, 1, sharex=True, sharey=True)
    for panel, samples, title in zip(panels, (before, after), ("Before", "After")):
        x = real(samples, title.lower())
        mono = np.moveaxis(x, axis, 0).reshape(x.shape[axis], -1).mean(axis=1)
        level = _levels(mono / (32768.0 if x.dtype.kind == "i" else 1.0))
        image = panel.imshow(
            level, origin="lower", aspect="auto", vmin=-110, vmax=-10, cmap="magma",
            extent=(0.0, len(mono) / rate, 0.0, rate / 2000.0),
        )
        panel.set(title=title, ylabel="kHz")
    panels[1].set_xlabel("s")
    figure.colorbar(image, ax=panels, label="dB, 0 is full scale")
    return figure


def _levels(x: NDArray[np.float64]) -> NDArray[np.float64]:
    """(frequencies, times) in dB; a sine at full scale has 0."""
    size = 1024
    x = np.pad(x, (0, max(size - len(x), 0)))
    frames = np.lib.stride_tricks.sliding_window_view(x, size)[:: max(256, len(x) // 1000)]
    window = np.hanning(size)
    power = np.abs(np.fft.rfft(frames * window, axis=1)) / (window.sum() / 2)
    return np.asarray(20.0 * np.log10(np.maximum(power.T, 1e-10)))
