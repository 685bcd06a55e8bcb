"""Setups of loudspeakers: filters, delays, gains and mixers per channel, from one text file."""

from __future__ import annotations

import os
from dataclasses import dataclass, field
from typing import Any, Union

from . import _core


@dataclass(frozen=True)
class Setup:
    """What `read_setup` has read; `Stream` runs it, and `Stream.change` fades to it.

    Attributes
    ----------
    inputs, outputs : int
        Channels that it takes and gives.
    rate : int
        Sampling rate in Hz that it was read for.
    latency : int
        Frames by which all outputs are late, as filters of linear phase are.
    remarks : tuple of str
        What was rounded.
    warnings : tuple of str
        What a stream of it warns of.

    Examples
    --------
    >>> import pathlib, tempfile
    >>> import jurn
    >>> file = pathlib.Path(tempfile.mkdtemp(), "quiet.txt")
    >>> _ = file.write_text("Preamp: -6 dB\\n")
    >>> jurn.read_setup(file, 48000).outputs
    2
    """

    inputs: int
    outputs: int
    rate: int
    latency: int
    remarks: tuple[str, ...]
    warnings: tuple[str, ...]
    _setup: Any = field(repr=False, compare=False)

    def _text(self) -> str:
        return f"setup for {self.rate} Hz"


def read_setup(path: Union[str, os.PathLike[str]], rate: int, channels: int = 2) -> Setup:
    """Read a whole setup: settings of CamillaDSP, or an equaliser with lines of ``Channel``.

    Parameters
    ----------
    path : path
        Text file. Files that it names are found beside it.
    rate : int
        Sampling rate of the recordings in Hz.
    channels : int, optional
        Channels of the recordings, where the file does not say.

    Returns
    -------
    Setup

    Raises
    ------
    OSError
        When the file cannot be read.
    ValueError
        When it holds no setup; with the line.

    Examples
    --------
    >>> import pathlib, tempfile
    >>> import numpy as np
    >>> import jurn
    >>> file = pathlib.Path(tempfile.mkdtemp(), "left.txt")
    >>> _ = file.write_text("Channel: L\\nPreamp: -6.0206 dB\\n")
    >>> stream = jurn.Stream(jurn.read_setup(file, 48000))
    >>> stream.process(np.array([[1000, 1000]], dtype=np.int16))
    array([[ 500, 1000]], dtype=int16)
    """
    name = os.fspath(path)
    open(name, "rb").close()  # for Python's own errors
    setup, inputs, outputs, latency, remarks, warnings = _core._read_setup(name, rate, channels)
    return Setup(inputs, outputs, rate, latency, tuple(remarks), tuple(warnings), setup)
