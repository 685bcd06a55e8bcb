"""Filters for 16-bit PCM and float audio, bit by bit as they run in a program of C.

Functions for whole arrays, which read like SciPy's: `fir`, `lfilter`, `sosfilt`, `moving_mean`,
`convolve`. For streams, block by block, `Stream`, whose filter can be any and change; and an object
for each record of the library: `Filter`, `MovingSum`, `FloatFilter`, `LongFilter`, `Convolution`.
Equalisers in words: `eq`. Files: `read_coefficients`, `read_response`, `read_setup`. What the exact output differs by from
the ideal one: `compare`. Many recordings: the module `jurn.batch`.

The frames of an array lie along its last axis, as SciPy and librosa have them; ``axis=0`` takes
arrays of shape (frames, channels), as python-soundfile has them.
"""

from enum import IntEnum

from ._arrays import JurnWarning
from ._core import (
    Convolution,
    Filter,
    FloatFilter,
    LongFilter,
    MovingSum,
    __version__,
)
from .comparison import Comparison, compare
from .convolution import convolve
from .designs import Design, prepare
from .files import eq, read_coefficients, read_response
from .functions import fir, lfilter, moving_mean, sosfilt
from .response import Response, plot_spectrograms
from .setups import Setup, read_setup
from .streams import Stream


class Kind(IntEnum):
    """The library's numbers of the kinds of filters, ``filtertype``.

    Examples
    --------
    >>> Kind.LONG_FFT.value
    -2
    """

    FIR = -1
    IIR = 0
    CASCADE = 1
    MOVING_AVERAGE = 2
    LONG_FFT = -2
    LONG_TWO_FILTERS = -3
    LONG_FFT_LEFT_ONLY = -4
    LONG_FFT_MONO_TO_STEREO = -5
    LONG_MONO_TO_STEREO = -6
    LONG_FFT_CROSSED = -7


__all__ = [
    "Comparison",
    "Convolution",
    "Design",
    "Filter",
    "FloatFilter",
    "JurnWarning",
    "Kind",
    "LongFilter",
    "MovingSum",
    "Response",
    "Setup",
    "Stream",
    "__version__",
    "compare",
    "convolve",
    "eq",
    "fir",
    "lfilter",
    "moving_mean",
    "plot_spectrograms",
    "prepare",
    "read_coefficients",
    "read_response",
    "read_setup",
    "sosfilt",
]
