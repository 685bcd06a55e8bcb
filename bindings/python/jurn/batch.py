"""Filters a folder of recordings to another one and writes a manifest of the results.

On the command line::

    python3 -m jurn.batch IN OUT --coefficients FILE [--kind fir|iir|sos]
    python3 -m jurn.batch IN OUT --average 64 --check manifest.tsv

All cores take part; with ``--scheduler ADDRESS`` the workers of a Dask cluster do, which have to see
the same folders and to have the package. The manifest is the same however the work was shared.
"""

from __future__ import annotations

import argparse
import functools
import glob
import hashlib
import importlib
import os
import sys
from concurrent.futures import ThreadPoolExecutor, as_completed
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Callable, Iterable, Iterator

import numpy as np
from numpy.typing import NDArray

from . import _core, convolution, functions
from .files import read_coefficients, read_response

Filter = Callable[[NDArray[Any], int], NDArray[Any]]


@dataclass(frozen=True, order=True)
class Entry:
    """One line of a manifest.

    Attributes
    ----------
    name : str
        Path of the recording below the folder.
    frames : int
        Frames of the result.
    peak : str
        Largest magnitude on the scale of int16.
    clipped : int
        Samples of the result at or beyond full scale.
    sha256 : str
        Hash of the result's samples, interleaved, little-endian int16 or float32.
    """

    name: str
    frames: int
    peak: str
    clipped: int
    sha256: str

    def __str__(self) -> str:
        return f"{self.name}\t{self.frames}\t{self.peak}\t{self.clipped}\t{self.sha256}"


class BatchError(Exception):
    """Some recordings could not be filtered; the results of the others are there.

    Attributes
    ----------
    entries : list of Entry
        What was filtered.
    errors : dict
        Messages by the names of the recordings.
    """

    def __init__(self, entries: list[Entry], errors: dict[str, str]) -> None:
        super().__init__("; ".join(f"{name}: {errors[name]}" for name in sorted(errors)))
        self.entries = entries
        self.errors = errors


def filter_folder(
    source: str | os.PathLike[str],
    target: str | os.PathLike[str],
    function: Filter,
    *,
    jobs: int | None = None,
    scheduler: str | None = None,
    overwrite: bool = False,
    done: Callable[[Entry], None] | None = None,
) -> list[Entry]:
    """Filter all recordings of a folder, those of its subfolders included.

    Parameters
    ----------
    source, target : path
        The folders; results keep the names of their recordings.
    function : callable
        Takes the samples, of shape (frames, channels), and the rate, and returns the result. Samples
        are int16 for recordings of up to 16 bits, and float32 on the same scale for others.
    jobs : int, optional
        Recordings at a time; by default as many as there are cores.
    scheduler : str, optional
        Address of a Dask scheduler, whose workers do the work instead. When a worker fails, others
        filter its recordings again.
    overwrite : bool, optional
        Whether to replace results that exist.
    done : callable, optional
        Called with each entry as soon as it is there.

    Returns
    -------
    list of Entry
        Sorted by name.

    Raises
    ------
    FileNotFoundError
        When the folder has no recordings.
    FileExistsError
        When a result exists.
    BatchError
        When recordings could not be filtered.

    Examples
    --------
    >>> import tempfile
    >>> import jurn.batch
    >>> half = lambda x, rate: jurn.fir([0.5], x, axis=0)
    >>> folder = tempfile.mkdtemp()
    >>> entries = jurn.batch.filter_folder("/usr/share/sounds/alsa", folder, half)
    >>> entries[0].name
    'Front_Center.wav'
    """
    source, target = Path(source).absolute(), Path(target).absolute()
    names = list(_recordings(source, target))
    if not names:
        raise FileNotFoundError(f"{source}: has no recordings")
    if not overwrite:
        for name in names:
            if (target / name).exists():
                raise FileExistsError(f"{target / name} exists; overwrite is needed to replace it")
    for name in names:
        (target / name).parent.mkdir(parents=True, exist_ok=True)
    work = functools.partial(_filter_file, str(source), str(target), function)
    entries, errors = [], {}
    for name, result in (_on_cluster(work, names, scheduler) if scheduler
                         else _on_threads(work, names, jobs or os.cpu_count() or 1)):
        if isinstance(result, Entry):
            entries.append(result)
            if done:
                done(result)
        else:
            errors[name] = result
    if scheduler:  # a worker that was killed while it wrote has left its unfinished file
        for path in (target / name for name in names):
            for left in path.parent.glob(f".{glob.escape(path.name)}.*.part"):
                left.unlink()
    if errors:
        raise BatchError(sorted(entries), errors)
    return sorted(entries)


def _recordings(source: Path, target: Path) -> Iterator[str]:
    endings = {"." + ending for ending in _core._audio_types()}
    for path in sorted(source.rglob("*")):
        if path.suffix.lower() in endings and path.is_file() and target not in path.parents:
            name = path.relative_to(source).as_posix()
            if any(c in name for c in "\t\n\r"):
                raise ValueError(f"{name!r}: a manifest has no place for tabs and ends of line")
            yield name


def _filter_file(source: str, target: str, function: Filter, name: str) -> Entry | str:
    """One recording; errors are returned, for a worker that raises them would be tried again."""
    try:
        samples, rate, bits = _core._read_audio(os.path.join(source, name))
        result = np.ascontiguousarray(function(samples, rate))
        if result.dtype != np.int16:
            result = result.astype("<f4")
        frames = result.reshape(len(result), -1)
        # A worker that was lost may have left a result; the check for others was at the start.
        _core._write_audio(os.path.join(target, name), frames, rate, bits)
        peak = float(np.max(np.abs(frames.astype(np.float32)), initial=0.0))
        clipped = np.count_nonzero((frames >= 32767) | (frames <= -32768))
        digest = hashlib.sha256(frames.astype(frames.dtype.newbyteorder("<"), copy=False).data)
        return Entry(name, len(frames), f"{peak:.9g}", int(clipped), digest.hexdigest())
    except Exception as error:
        return f"{type(error).__name__}: {error}"


def _on_threads(
    work: Callable[[str], Entry | str], names: list[str], jobs: int
) -> Iterator[tuple[str, Entry | str]]:
    # The filters, the files and the hashes let go of Python's lock.
    with ThreadPoolExecutor(jobs) as pool:
        futures = {pool.submit(work, name): name for name in names}
        for future in as_completed(futures):
            yield futures[future], future.result()


def _on_cluster(
    work: Callable[[str], Entry | str], names: list[str], scheduler: str
) -> Iterator[tuple[str, Entry | str]]:
    distributed: Any = importlib.import_module("distributed")

    with distributed.Client(scheduler) as client:
        futures = client.map(work, names, pure=False, retries=3)
        by_key = {future.key: name for future, name in zip(futures, names)}
        for future in distributed.as_completed(futures):
            yield by_key[future.key], (
                future.result() if future.status == "finished" else str(future.exception())
            )


def write_manifest(path: str | os.PathLike[str], entries: Iterable[Entry]) -> None:
    """Write one line per entry: name, frames, peak, clipped samples, hash, between tabs."""
    beside = Path(f"{os.fspath(path)}.part")
    beside.write_text("".join(f"{entry}\n" for entry in sorted(entries)), encoding="utf-8")
    beside.replace(Path(path))


def read_manifest(path: str | os.PathLike[str]) -> list[Entry]:
    """Read the entries of a manifest; a line that is none is a ValueError."""
    entries = []
    for number, line in enumerate(Path(path).read_text(encoding="utf-8").splitlines(), 1):
        parts = line.split("\t")
        try:
            name, frames, peak, clipped, sha256 = parts
            entries.append(Entry(name, int(frames), peak, int(clipped), sha256))
        except ValueError:
            raise ValueError(f"{os.fspath(path)}, line {number}: is no line of a manifest") from None
    return entries


def differences(before: Iterable[Entry], after: Iterable[Entry]) -> list[str]:
    """Say which outputs changed, were lost or are new, one line each."""
    old, new = {e.name: e for e in before}, {e.name: e for e in after}
    lines = []
    for name in sorted(old.keys() | new.keys()):
        if name not in new:
            lines.append(f"{name}: is missing")
        elif name not in old:
            lines.append(f"{name}: is new")
        elif old[name] != new[name]:
            parts = [
                f"{what} {getattr(old[name], what)} -> {getattr(new[name], what)}"
                for what in ("frames", "peak", "clipped")
                if getattr(old[name], what) != getattr(new[name], what)
            ]
            lines.append(f"{name}: has changed" + (", " + ", ".join(parts) if parts else ""))
    return lines


@dataclass(frozen=True)
class _Coefficients:
    path: str
    kind: str | None

    def __call__(self, x: NDArray[Any], rate: int) -> Any:
        return read_coefficients(self.path, rate, kind=self.kind).filter(x, axis=0)


@dataclass(frozen=True)
class _Response:
    path: str

    def __call__(self, x: NDArray[Any], rate: int) -> Any:
        return convolution.convolve(x, read_response(self.path, rate), axis=0)


@dataclass(frozen=True)
class _Average:
    length: int

    def __call__(self, x: NDArray[Any], rate: int) -> Any:
        return functions.moving_mean(self.length, x, axis=0)


def main(arguments: list[str] | None = None) -> int:
    """The command line; returns 0, or 1 when outputs changed, or 3 when some could not be made."""
    parser = argparse.ArgumentParser(
        prog="jurn.batch", description="Filters a folder of recordings and writes a manifest."
    )
    parser.add_argument("source", metavar="IN", help="folder of recordings")
    parser.add_argument("target", metavar="OUT", help="folder for the results")
    what = parser.add_mutually_exclusive_group(required=True)
    what.add_argument("-c", "--coefficients", metavar="FILE", help="filter with coefficients")
    what.add_argument("--ir", metavar="FILE", help="convolve with an impulse response")
    what.add_argument("--average", metavar="N", type=int, help="replace by the mean of N samples")
    parser.add_argument("--kind", choices=("fir", "iir", "sos"), help="what the file holds")
    parser.add_argument("--manifest", metavar="FILE", help="by default OUT/manifest.tsv")
    parser.add_argument("--check", metavar="MANIFEST", help="say which outputs differ from these")
    parser.add_argument("--jobs", metavar="N", type=int, help="recordings at a time; default: cores")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of a Dask cluster")
    parser.add_argument("--overwrite", action="store_true", help="replace results that exist")
    o = parser.parse_args(arguments)
    function: Filter
    if o.coefficients:
        function = _Coefficients(os.path.abspath(o.coefficients), o.kind)
    elif o.ir:
        function = _Response(os.path.abspath(o.ir))
    else:
        function = _Average(o.average)
    try:
        before = read_manifest(o.check) if o.check else []
        code = 0
        try:
            entries = filter_folder(o.source, o.target, function, jobs=o.jobs,
                                    scheduler=o.scheduler, overwrite=o.overwrite)
        except BatchError as error:
            entries, code = error.entries, 3
            for name in sorted(error.errors):
                print(f"jurn.batch: {name}: {error.errors[name]}", file=sys.stderr)
        write_manifest(o.manifest or os.path.join(o.target, "manifest.tsv"), entries)
    except (OSError, ValueError) as error:
        print(f"jurn.batch: {error}", file=sys.stderr)
        return 3
    if o.check:
        changed = differences(before, entries)
        print("\n".join(changed) if changed else f"{len(entries)} outputs, none has changed")
        code = code or (1 if changed else 0)
    return code


if __name__ == "__main__":
    from jurn.batch import main as imported  # workers of a cluster import it by this name, too

    sys.exit(imported())
