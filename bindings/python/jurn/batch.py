"""Filters a folder of recordings to another one and writes a manifest of the results.

On the command line::

    python3 -m jurn.batch IN OUT --coefficients FILE [--kind fir|iir|sos] [--rate HZ]
    python3 -m jurn.batch IN OUT --average 64 --check manifest.tsv
    python3 -m jurn.batch IN OUT --average 64 --resume

All cores take part; with ``--scheduler ADDRESS`` the workers of a Dask cluster do, which have to see
the same folders and to have the package. The manifest is the same however the work was shared.
"""

from __future__ import annotations

import argparse
import os
import sys
import time
import warnings
from collections import defaultdict
from typing import Any, Callable, Iterator

from . import _core, _sharing, _storage
from ._arrays import JurnWarning
from ._recordings import (
    CoefficientFilter,
    Filter,
    MeanFilter,
    ResponseFilter,
    Result,
    StreamFilter,
)
from .manifest import Entry, Journal, differences, read_manifest, write_manifest

__all__ = [
    "BatchError",
    "Entry",
    "differences",
    "filter_folder",
    "main",
    "read_manifest",
    "write_manifest",
]


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
    function: Filter | StreamFilter,
    *,
    jobs: int | None = None,
    scheduler: str | None = None,
    client: Any = None,
    overwrite: bool = False,
    resume: bool = False,
    manifest: str | os.PathLike[str] | None = None,
    done: Callable[[Entry], None] | None = None,
) -> list[Entry]:
    """Filter all recordings of a folder, those of its subfolders included.

    Parameters
    ----------
    source, target : path
        The folders; results keep the names of their recordings. URLs like ``s3://bucket/folder`` are
        of any storage that the package fsspec knows.
    function : callable
        Takes the samples, of shape (frames, channels), and the rate, and returns the result. Samples
        are int16 for recordings of up to 16 bits, and float64 on the same scale for others.
    jobs : int, optional
        Recordings at a time; by default as many as there are cores.
    scheduler : str, optional
        Address of a Dask scheduler, whose workers do the work instead. When a worker fails, others
        filter its recordings again.
    client : distributed.Client, optional
        A client of a Dask cluster that is there, instead of an address.
    overwrite : bool, optional
        Whether to replace results that exist.
    resume : bool, optional
        Whether to go on with a run that was stopped or killed, or had errors: results that it has
        finished are kept. While a run goes on, ``.jurn-batch.journal`` in `target` says which, or,
        of a storage, a file in this machine's folder for temporary ones.
    manifest : path, optional
        A file for the entries, written when all are there.
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
    ValueError
        When the folders are the same.
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
    source, target = _storage.absolute(source), _storage.absolute(target)
    if source == target:
        raise ValueError(f"{target}: the results would replace their recordings")
    names = list(_recordings(source, target))
    if not names:
        raise FileNotFoundError(f"{source}: has no recordings")
    path = _storage.journal_of(target)
    there = _storage.existing(target, names)
    if there and not overwrite and not path.exists():
        first = _storage.join(target, min(there))
        nothing = ", and there is no stopped run to resume" if resume else ""
        raise FileExistsError(f"{first} exists{nothing}; overwrite is needed to replace it")
    folders: set[str] = set()  # of this machine
    if not _storage.is_url(target):
        folders = {os.path.dirname(os.path.join(target, name)) for name in names}
    for folder in folders:
        os.makedirs(folder, exist_ok=True)
    journal = Journal(path, _described(function), resume, overwrite)
    if journal.goes_on:
        _remove_leftovers(folders)
    left = [name for name in names if not (name in journal.entries and name in there)]
    work = (source, target, function)
    cluster = client or scheduler
    shared = (_sharing.on_cluster(work, left, cluster) if cluster
              else _sharing.on_threads(work, left, jobs))
    results: list[Result] = []
    errors: dict[str, str] = {}
    try:
        for result in shared:
            results.append(result)
            if result.entry is None:
                errors[result.name] = result.error
                continue
            journal.add(result.entry)
            if done:
                done(result.entry)
        entries = sorted(journal.entries[name] for name in names if name in journal.entries)
        if manifest is not None:
            write_manifest(manifest, entries)
    finally:
        journal.close(done=len(journal.entries) == len(names) and not errors)
    if cluster:  # a worker that was killed while it wrote has left its unfinished file
        _remove_leftovers(folders)
    _warn(function, results)
    if errors:
        raise BatchError(entries, errors)
    return entries


def _described(function: Filter | StreamFilter) -> str:
    """For a journal: what must be the same to go on."""
    if isinstance(function, StreamFilter):
        return repr(function)
    return getattr(function, "__qualname__", type(function).__qualname__)


def _remove_leftovers(folders: set[str]) -> None:
    """Unfinished files of processes that are no more."""
    for folder in folders:
        for entry in os.scandir(folder):
            parts = entry.name.split(".")
            if entry.name.startswith(".jurn-filter.") and parts[-1] == "part":
                if not (parts[2].isdigit() and _runs(int(parts[2]))):
                    os.unlink(entry.path)


def _runs(process: int) -> bool:
    if os.name == "nt":  # where asking would end it
        return True
    try:
        os.kill(process, 0)
    except ProcessLookupError:
        return False
    except OSError:
        return True
    return True


def _warn(function: Filter | StreamFilter, results: list[Result]) -> None:
    """Each warning once, with the recordings that it is about."""
    about: dict[str, list[str]] = defaultdict(list)
    for result in sorted(results, key=lambda r: r.name):
        for message in dict.fromkeys(result.warnings):
            about[message].append(result.name)
    for message, names in about.items():
        others = f" and {len(names) - 1} others" if len(names) > 1 else ""
        warnings.warn(f"{names[0]}{others}: {message}", JurnWarning, stacklevel=3)
    rates = sorted({result.rate for result in results if result.entry})
    if isinstance(function, CoefficientFilter) and function.rate is None and len(rates) > 1:
        if len({function.design(rate) for rate in rates}) == 1:
            warnings.warn(
                f"{function.path}: filters recordings of {', '.join(map(str, rates))} Hz alike, so "
                "that its frequencies differ; --rate says which it is for",
                JurnWarning,
                stacklevel=3,
            )


def _recordings(source: str, target: str) -> Iterator[str]:
    endings = {"." + ending for ending in _core._audio_types()}
    inside = target[len(source) + 1 :] + "/" if target.startswith(source + "/") else None
    for name in _storage.files(source):
        if os.path.splitext(name)[1].lower() in endings and not (
            inside and name.startswith(inside)
        ):
            yield name


def main(arguments: list[str] | None = None) -> int:
    """The command line; returns 0, or 1 when outputs changed, or 3 when some could not be made."""
    parser = argparse.ArgumentParser(
        prog="jurn.batch", description="Filters a folder of recordings and writes a manifest."
    )
    parser.add_argument("source", metavar="IN", help="folder of recordings, or its URL")
    parser.add_argument("target", metavar="OUT", help="folder for the results")
    what = parser.add_mutually_exclusive_group(required=True)
    what.add_argument("-c", "--coefficients", metavar="FILE", help="filter with coefficients")
    what.add_argument("--ir", metavar="FILE", help="convolve with an impulse response")
    what.add_argument("--average", metavar="N", type=int, help="replace by the mean of N samples")
    parser.add_argument("--kind", choices=("fir", "iir", "sos"), help="what the file holds")
    parser.add_argument("--precision", choices=("double", "int16"), default="double",
                        help="rounded from double, or as on a device with 16 bits")
    parser.add_argument("--manifest", metavar="FILE", help="by default OUT/manifest.tsv")
    parser.add_argument("--check", metavar="MANIFEST", help="say which outputs differ from these")
    parser.add_argument("--jobs", metavar="N", type=int, help="recordings at a time; default: cores")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of a Dask cluster")
    parser.add_argument("--rate", metavar="HZ", type=int, help="that the coefficients are for")
    parser.add_argument("--overwrite", action="store_true", help="replace results that exist")
    parser.add_argument("--resume", action="store_true", help="go on with a run that was stopped")
    parser.add_argument("--quiet", action="store_true", help="show no progress and no warnings")
    o = parser.parse_args(arguments)
    function: StreamFilter
    if o.coefficients:
        function = CoefficientFilter(os.path.abspath(o.coefficients), o.kind, o.rate, o.precision)
    elif o.ir:
        function = ResponseFilter(os.path.abspath(o.ir), o.precision)
    else:
        function = MeanFilter(o.average, o.precision)
    progress = None if o.quiet or not sys.stderr.isatty() else _Progress()
    try:
        before = read_manifest(o.check) if o.check else []
        code = 0
        with warnings.catch_warnings():
            warnings.simplefilter("ignore" if o.quiet else "always", JurnWarning)
            warnings.showwarning = lambda message, *_: _say(message)
            try:
                entries = filter_folder(
                    o.source, o.target, function, jobs=o.jobs, scheduler=o.scheduler,
                    overwrite=o.overwrite, resume=o.resume, done=progress,
                    manifest=o.manifest or _storage.join(_storage.absolute(o.target), "manifest.tsv"),
                )
            except BatchError as error:
                entries, code = error.entries, 3
                for name in sorted(error.errors):
                    _say(f"{name}: {error.errors[name]}")
    except (OSError, ValueError, RuntimeError) as error:
        _say(error)
        return 3
    if o.check:
        changed = differences(before, entries)
        print("\n".join(changed) if changed else f"{len(entries)} outputs, none has changed")
        code = code or (1 if changed else 0)
    return code


def command() -> None:
    """The program jurn-batch."""
    sys.exit(main())


def _say(message: object) -> None:
    print(f"jurn.batch: {message}", file=sys.stderr)


class _Progress:
    """Counts on a terminal."""

    def __init__(self) -> None:
        self.count, self.next = 0, 0.0

    def __call__(self, entry: Entry) -> None:
        self.count += 1
        if time.monotonic() >= self.next:
            self.next = time.monotonic() + 0.2
            print(f"\r{self.count} recordings", end="\r", file=sys.stderr, flush=True)


if __name__ == "__main__":
    from jurn.batch import main as imported  # workers of a cluster import it by this name, too

    sys.exit(imported())
