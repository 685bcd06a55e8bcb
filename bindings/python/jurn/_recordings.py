"""One recording of a folder through a filter, in constant memory where the filter allows it."""

from __future__ import annotations

import hashlib
import os
from dataclasses import dataclass, field
from functools import lru_cache
from typing import Any, Callable, Iterable, Iterator

import numpy as np
from numpy.typing import NDArray

from . import _core, _double, _running
from ._arrays import collected_warnings, warn
from .convolution import routes_of
from .designs import Design, prepare
from .files import read_coefficients, read_response
from .manifest import Entry

Filter = Callable[[NDArray[Any], int], NDArray[Any]]
_Block = NDArray[Any]

# Whole calls of every filter: of 512, 1024 or fewer frames.
_FRAMES = 65536


@dataclass
class Result:
    """What has become of a recording."""

    name: str
    entry: Entry | None = None
    error: str = ""
    rate: int = 0
    warnings: list[str] = field(default_factory=list)


class StreamFilter:
    """A filter that goes through a recording block by block."""

    def blocks(
        self, x: Iterator[_Block], rate: int, channels: int, is_int16: bool
    ) -> Iterator[_Block]:
        raise NotImplementedError


def _check_bits(precision: str, is_int16: bool) -> None:
    if precision == "int16" and not is_int16:
        raise ValueError("has more than 16 bits, which precision int16 does not take")


def _in_double(f: _double.Filter, x: Iterator[_Block], channels: int) -> Iterator[_Block]:
    filters = _double.running(f, channels)
    for block in x:
        y = np.empty_like(block)
        filters.go_on(block, y)
        yield y
    if filters.bad_samples:
        warn(f"samples that are infinite or no number count as 0: {filters.bad_samples}", 1)


def _then_silence(x: Iterator[_Block], frames: int, channels: int, dtype: type) -> Iterator[_Block]:
    yield from x
    if frames:
        yield np.zeros((frames, channels), dtype)


def _without_first(y: Iterator[_Block], frames: int) -> Iterator[_Block]:
    for block in y:
        yield block[frames:]
        frames = max(frames - len(block), 0)


@lru_cache(maxsize=64)
def _design(path: str, kind: str | None, rate: int, precision: str, changed: int) -> Design:
    return read_coefficients(path, rate, kind=kind, precision=precision)


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

    def blocks(
        self, x: Iterator[_Block], rate: int, channels: int, is_int16: bool
    ) -> Iterator[_Block]:
        if self.rate not in (None, rate):
            raise ValueError(f"is at {rate} Hz; the coefficients are for {self.rate} Hz")
        design = self.design(rate)
        _check_bits(self.precision, is_int16)
        ready = prepare(design, precision=self.precision)
        for message in (*ready.warnings, *(ready.clips if is_int16 else ())):
            warn(f"{self.path}: {message}", 1)
        runs = ready.design
        x = _then_silence(x, design.delay, channels, np.int16 if is_int16 else np.float32)
        if self.precision == "double":
            y = _in_double((runs.kind, runs.b, runs.a), x, channels)
        else:
            filters = _running.lanes(runs.kind, runs.b, runs.a, channels)
            y = (filters.run(block, _running.BLOCKS[runs.kind]) for block in x)
        return _without_first(y, design.delay)


@dataclass(frozen=True)
class MeanFilter(StreamFilter):
    length: int
    precision: str = "double"

    def blocks(
        self, x: Iterator[_Block], rate: int, channels: int, is_int16: bool
    ) -> Iterator[_Block]:
        _check_bits(self.precision, is_int16)
        if self.precision == "double":
            return _in_double(_double.mean(self.length), x, channels)
        filters = _running.mean_lanes(self.length, channels)
        return (filters.run(block, _running.BLOCKS["fir"]) for block in x)


@lru_cache(maxsize=8)
def _convolution(path: str, rate: int, channels: int, changed: int) -> _core.Convolution:
    """Silent; its copies share the transformed response."""
    response = read_response(path, rate)
    routes = routes_of(response.reshape(len(response), -1), channels)
    outputs = max(route[1] for route in routes) + 1
    return _core.Convolution(routes, inputs=channels, outputs=outputs, block=1024)


@dataclass(frozen=True)
class ResponseFilter(StreamFilter):
    path: str

    def blocks(
        self, x: Iterator[_Block], rate: int, channels: int, is_int16: bool
    ) -> Iterator[_Block]:
        stream = _convolution(self.path, rate, channels, os.stat(self.path).st_mtime_ns).copy()
        step, left = stream.block, stream.taps - 1
        for block in x:
            silence = -len(block) % step
            if silence:  # the end of the recording, and the beginning of the tail
                block = np.concatenate([block, np.zeros((silence, channels), block.dtype)])
            y = stream.run(block)
            yield y[: len(y) - max(silence - left, 0)]
            left = max(left - silence, 0)
        silence_block = np.zeros((step, channels), np.int16 if is_int16 else np.float32)
        while left > 0:
            yield stream.run(silence_block)[:left]
            left -= step


class _Tally:
    """What an entry says of a result."""

    def __init__(self) -> None:
        self.frames = self.clipped = 0
        self.peak = 0.0
        self.hash = hashlib.sha256()

    def add(self, y: _Block) -> None:
        self.frames += len(y)
        if y.size:
            low, high = float(y.min()), float(y.max())
            self.peak = max(self.peak, -low, high)
            if high >= 32767 or low <= -32768:
                self.clipped += int(np.count_nonzero((y >= 32767) | (y <= -32768)))
        self.hash.update(np.ascontiguousarray(y, y.dtype.newbyteorder("<")).data)

    def entry(self, name: str) -> Entry:
        return Entry(name, self.frames, f"{self.peak:.9g}", self.clipped, self.hash.hexdigest())


def _read(reader: _core._Reader) -> Iterator[_Block]:
    while len(block := reader.read(_FRAMES)):
        yield block


def _results(function: Filter | StreamFilter, reader: _core._Reader) -> Iterator[_Block]:
    if isinstance(function, StreamFilter):
        return function.blocks(_read(reader), reader.rate, reader.channels, reader.bits == 16)
    empty = np.zeros((0, reader.channels), np.int16 if reader.bits == 16 else np.float32)
    y = np.asarray(function(np.concatenate([empty, *_read(reader)]), reader.rate))
    return iter([y.reshape(len(y), -1)])


def filter_file(
    source: str, target: str, function: Filter | StreamFilter, name: str
) -> Result:
    """One recording; errors are returned, for a worker that raises them would be tried again."""
    result = Result(name)
    with collected_warnings() as result.warnings:
        try:
            reader = _core._Reader(os.path.join(source, name))
            result.rate = reader.rate
            tally, writer = _Tally(), None
            for y in _results(function, reader):
                y = y if y.dtype == np.int16 else y.astype(np.float32, copy=False)
                if writer is None:
                    # What a worker that was lost has left; the check for others was at the start.
                    path = os.path.join(target, name)
                    writer = _core._Writer(path, y.shape[1], reader.rate, reader.bits)
                writer.write(y)
                tally.add(y)
            if writer is None:  # no frames
                path = os.path.join(target, name)
                writer = _core._Writer(path, reader.channels, reader.rate, reader.bits)
            writer.commit()
            result.entry = tally.entry(name)
        except Exception as error:
            result.error = f"{type(error).__name__}: {error}"
    return result


def filter_files(
    source: str, target: str, function: Filter | StreamFilter, version: str, names: Iterable[str]
) -> list[Result]:
    """Several, as a worker of a cluster takes them."""
    if version != _core.__version__:
        error = f"the worker has jurn {_core.__version__}, and this is {version}"
        return [Result(name, error=error) for name in names]
    return [filter_file(source, target, function, name) for name in names]
