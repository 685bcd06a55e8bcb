"""What a folder's results are: one line for each."""

from __future__ import annotations

import os
import re
from dataclasses import dataclass
from pathlib import Path
from typing import Iterable

from . import _storage

_ESCAPES = {"\\": "\\\\", "\t": "\\t", "\n": "\\n", "\r": "\\r"}
_CHARACTERS = {escape: character for character, escape in _ESCAPES.items()}


def _escaped(name: str) -> str:
    return re.sub(r"[\\\t\n\r]", lambda m: _ESCAPES[m[0]], name)


def _unescaped(name: str) -> str:
    return re.sub(r"\\[\\tnr]", lambda m: _CHARACTERS[m[0]], name)


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
        return f"{_escaped(self.name)}\t{self.frames}\t{self.peak}\t{self.clipped}\t{self.sha256}"


def _entry(line: str) -> Entry:
    name, frames, peak, clipped, sha256 = line.split("\t")
    return Entry(_unescaped(name), int(frames), peak, int(clipped), sha256)


def write_manifest(path: str | os.PathLike[str], entries: Iterable[Entry]) -> None:
    """Write one line per entry: name, frames, peak, clipped samples, hash, between tabs.

    Tabs and ends of line in names, and backslashes, are written as ``\\t``, ``\\n``, ``\\r`` and
    ``\\\\``.
    """
    path, lines = os.fspath(path), map(str, sorted(entries))
    if _storage.is_url(path):
        _storage.write_text(path, "".join(f"{line}\n" for line in lines))
    else:
        write_lines(Path(path), lines)


def write_lines(path: Path, lines: Iterable[str]) -> None:
    """Replaces the file in one step."""
    beside = path.with_name(f"{path.name}.part")
    with beside.open("w", encoding="utf-8", newline="\n") as file:
        file.writelines(f"{line}\n" for line in lines)
    beside.replace(path)


def read_manifest(path: str | os.PathLike[str]) -> list[Entry]:
    """Read the entries of a manifest; a line that is none is a ValueError."""
    entries = []
    for number, line in enumerate(_storage.read_text(os.fspath(path)).split("\n")[:-1], 1):
        try:
            entries.append(_entry(line))
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


class Journal:
    """The entries of a run that goes on, written as they come, so that a run that was killed can go
    on: a line for the filter, and one for each result."""

    def __init__(self, path: Path, function: str, resume: bool, overwrite: bool) -> None:
        self.path = path
        self.entries: dict[str, Entry] = {}
        self.goes_on = resume and path.exists()
        head = f"jurn.batch 1\t{_escaped(function)}"
        if self.goes_on:
            lines = path.read_text("utf-8").split("\n")[:-1]  # the last one may be cut
            if not lines or lines[0] != head:
                raise ValueError(f"{path}: was begun with another filter or version")
            self.entries = {entry.name: entry for entry in map(_entry, lines[1:])}
        elif path.exists() and not overwrite:
            raise FileExistsError(
                f"{path}: a run was not finished; resume goes on with it, overwrite starts anew"
            )
        write_lines(path, [head, *map(str, self.entries.values())])
        self.file = path.open("a", encoding="utf-8", newline="\n")

    def add(self, entry: Entry) -> None:
        self.file.write(f"{entry}\n")
        self.file.flush()
        self.entries[entry.name] = entry

    def close(self, done: bool) -> None:
        self.file.close()
        if done:
            self.path.unlink()
