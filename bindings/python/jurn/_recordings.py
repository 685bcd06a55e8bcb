"""One recording of a folder through a filter, in constant memory where the filter allows it."""

from __future__ import annotations

import hashlib
import os
from dataclasses import dataclass, field
from functools import lru_cache
from typing import Any, Callable, Iterable

import numpy as np
from numpy.typing import NDArray

from . import _core, _double, _storage
from ._arrays import collected_warnings, warn
from .designs import KINDS, Design, prepare
from .files import read_coefficients
from .manifest import Entry

Filter = Callable[[NDArray[Any], int], NDArray[Any]]

_FRAMES = 65536  # of a block


@dataclass
class Result:
    """What has become of a recording."""

    name: str
    entry: Entry | None = None
    error: str = ""
    rate: int = 0
    warnings: list[str] = field(default_factory=list)


class StreamFilter:
    """A filter that goes through a recording block by block, as the command line runs it."""

    def voice(self, rate: int, channels: int, bits: int) -> _core._RecordingFilter:
        """For a recording of 16 or 24 bits, or 0 for floats."""
        raise NotImplementedError


def _check_bits(precision: str, bits: int) -> None:
    if precision == "int16" and bits != 16:
        raise ValueError("has more than 16 bits, which precision int16 does not take")


# What a filter is for many recordings: each goes through a copy of it.


@lru_cache(maxsize=64)
def _design(path: str, kind: str | None, rate: int, precision: str, changed: int) -> Design:
    return read_coefficients(path, rate, kind=kind, precision=precision)


@lru_cache(maxsize=64)
def _of_design(
    design: Design, precision: str, rate: int, channels: int, bits: int
) -> _core._RecordingFilter:
    runs, as_is = design._divided(), design.prepared == precision
    return _core._RecordingFilter(
        KINDS.index(runs.kind), runs.b, runs.a, as_is, precision == "int16", design.delay, rate,
        channels, bits,
    )


@lru_cache(maxsize=64)
def _of_mean(
    length: int, precision: str, rate: int, channels: int, bits: int
) -> _core._RecordingFilter:
    kind, b, a = _double.mean(length)
    return _core._RecordingFilter(
        _double.KINDS.index(kind), b, a, False, precision == "int16", 0, rate, channels, bits
    )


@lru_cache(maxsize=8)
def _of_response(
    path: str, precision: str, rate: int, channels: int, changed: int
) -> _core._RecordingFilter:
    return _core._RecordingFilter.of_response(path, precision == "int16", rate, channels)


@dataclass(frozen=True)
class CoefficientFilter(StreamFilter):
    path: str
    kind: str | None
    rate: int | None  # that the coefficients are for, if that is known
    precision: str = "double"

    def design(self, rate: int) -> Design:
        return _design(
            self.path, self.kind, rate, self.precision, os.stat(self.path).st_mtime_ns
        )

    def voice(self, rate: int, channels: int, bits: int) -> _core._RecordingFilter:
        if self.rate not in (None, rate):
            raise ValueError(f"is at {rate} Hz; the coefficients are for {self.rate} Hz")
        design = self.design(rate)
        _check_bits(self.precision, bits)
        ready = prepare(design, precision=self.precision)
        for message in (*ready.warnings, *(ready.clips if bits == 16 else ())):
            warn(f"{self.path}: {message}", 1)
        return _of_design(design, self.precision, rate, channels, bits)


@dataclass(frozen=True)
class MeanFilter(StreamFilter):
    length: int
    precision: str = "double"

    def voice(self, rate: int, channels: int, bits: int) -> _core._RecordingFilter:
        _check_bits(self.precision, bits)
        return _of_mean(self.length, self.precision, rate, channels, bits)


@dataclass(frozen=True)
class ResponseFilter(StreamFilter):
    path: str
    precision: str = "double"

    def voice(self, rate: int, channels: int, bits: int) -> _core._RecordingFilter:
        _check_bits(self.precision, bits)
        changed = os.stat(self.path).st_mtime_ns
        return _of_response(self.path, self.precision, rate, channels, changed)


class _Tally:
    """What an entry says of a result, from the samples as they were written."""

    def __init__(self) -> None:
        self.samples = self.clipped = 0
        self.peak = 0.0
        self.hash = hashlib.sha256()

    def add(self, y: NDArray[Any]) -> None:
        self.samples += y.size
        if y.size:
            low, high = float(y.min()), float(y.max())
            self.peak = max(self.peak, -low, high)
            if high >= 32767 or low <= -32768:
                self.clipped += int(np.count_nonzero((y >= 32767) | (y <= -32768)))
        self.hash.update(np.ascontiguousarray(y, y.dtype.newbyteorder("<")).data)

    def entry(self, name: str, channels: int) -> Entry:
        frames, peak = self.samples // channels, f"{self.peak:.9g}"
        return Entry(name, frames, peak, self.clipped, self.hash.hexdigest())


def _filter(
    function: Filter | StreamFilter, source: str, target: str, tally: _Tally
) -> tuple[int, int]:
    """Channels and rate of the result."""
    if not isinstance(function, StreamFilter):
        return _through(function, source, target, tally)
    channels, rate, bad_samples, said = _core._filter_recording(
        source, target, function.voice, tally.add
    )
    if bad_samples:
        said.append(f"samples that are infinite or no number count as 0: {bad_samples}")
    for message in said:
        warn(message, 1)
    return channels, rate


def _through(function: Filter, source: str, target: str, tally: _Tally) -> tuple[int, int]:
    """A whole recording through a function: channels and rate of the result."""
    reader = _core._Reader(source)
    blocks = [reader.read(_FRAMES)]
    while len(blocks[-1]) == _FRAMES:
        blocks.append(reader.read(_FRAMES))
    y = np.asarray(function(np.concatenate(blocks), reader.rate))
    if y.size == 0:  # a recording of none cannot be read
        raise ValueError("the function gave no samples")
    y = y.reshape(len(y), -1)
    writer = _core._Writer(target, y.shape[1], reader.rate, reader.bits, tally.add)
    writer.write(y)
    writer.commit()
    return y.shape[1], reader.rate


def filter_file(
    source: str, target: str, function: Filter | StreamFilter, name: str
) -> Result:
    """One recording; errors are returned, for a worker that raises them would be tried again."""
    result, tally, here = Result(name), _Tally(), ""
    with collected_warnings() as result.warnings:
        try:
            with _storage.fetched(source, name) as here, _storage.stored(target, name) as there:
                channels, result.rate = _filter(function, here, there, tally)
            result.entry = tally.entry(name, channels)
        except Exception as error:
            said = str(error).replace(here, _storage.join(source, name)) if here else str(error)
            result.error = f"{type(error).__name__}: {said}"
    return result


def filter_files(
    source: str, target: str, function: Filter | StreamFilter, version: str, names: Iterable[str]
) -> list[Result]:
    """Several, as a worker of a cluster takes them."""
    if version != _core.__version__:
        error = f"the worker has jurn {_core.__version__}, and this is {version}"
        return [Result(name, error=error) for name in names]
    return [filter_file(source, target, function, name) for name in names]
