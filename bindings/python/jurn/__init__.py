"""Filters for 16-bit PCM and float audio, bit by bit as they run in a program of C.

Functions for whole arrays, which read like SciPy's: `fir`, `lfilter`, `sosfilt`, `moving_mean`,
`convolve`. Objects for streams, block by block: `Filter`, `MovingSum`, `FloatFilter`, `LongFilter`,
`Convolution`. Files: `read_coefficients`, `read_response`. What the exact output differs by from
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
from .files import read_coefficients, read_response
from .functions import fir, lfilter, moving_mean, sosfilt


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
    "__version__",
    "compare",
    "convolve",
    "fir",
    "lfilter",
    "moving_mean",
    "prepare",
    "read_coefficients",
    "read_response",
    "sosfilt",
]
