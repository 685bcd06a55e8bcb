"""Folders of recordings: of this machine, or of a storage that fsspec knows, by their URLs."""

from __future__ import annotations

import hashlib
import importlib
import os
import tempfile
from contextlib import contextmanager
from functools import lru_cache
from pathlib import Path
from typing import Any, Iterable, Iterator


def is_url(folder: str) -> bool:
    return "://" in folder


def absolute(folder: str | os.PathLike[str]) -> str:
    folder = os.fspath(folder)
    return folder.rstrip("/") if is_url(folder) else os.path.abspath(folder)


def join(folder: str, name: str) -> str:
    return f"{folder}/{name}" if is_url(folder) else os.path.join(folder, name)


@lru_cache(maxsize=16)
def _opened(url: str) -> tuple[Any, str]:
    """The storage, and the folder's path in it."""
    try:
        core: Any = importlib.import_module("fsspec.core")
        storage, root = core.url_to_fs(url)
    except ImportError as error:  # fsspec itself, or what it needs for this storage
        raise RuntimeError(f"{url}: {error}; folders with :// need fsspec") from None
    return storage, root.rstrip("/")


def files(folder: str) -> Iterator[str]:
    """The names of all files below the folder, in order."""
    if is_url(folder):
        storage, root = _opened(folder)
        for path in sorted(storage.find(root)):
            yield path[len(root) :].lstrip("/")
        return
    for file in sorted(Path(folder).rglob("*")):
        if file.is_file():
            yield file.relative_to(folder).as_posix()


def existing(folder: str, names: Iterable[str]) -> set[str]:
    """Those of the names that are there."""
    if is_url(folder):
        return set(files(folder)) & set(names)
    return {name for name in names if os.path.exists(os.path.join(folder, name))}


def journal_of(folder: str) -> Path:
    """Storages cannot append to a file: theirs lies on this machine."""
    if not is_url(folder):
        return Path(folder) / ".jurn-batch.journal"
    mark = hashlib.sha256(folder.encode()).hexdigest()[:16]
    return Path(tempfile.gettempdir()) / f"jurn-batch.{mark}.journal"


def read_text(path: str) -> str:
    if not is_url(path):
        return Path(path).read_text("utf-8")
    storage, inside = _opened(path)
    text: bytes = storage.cat_file(inside)
    return text.decode("utf-8")


def write_text(path: str, text: str) -> None:
    """Replaces a file of a storage."""
    storage, inside = _opened(path)
    storage.pipe_file(inside, text.encode("utf-8"))


@contextmanager
def fetched(folder: str, name: str) -> Iterator[str]:
    """A path of this machine where the file can be read."""
    with _here(folder, name) as (path, storage, there):
        if storage:
            storage.get_file(there, path)
        yield path


@contextmanager
def stored(folder: str, name: str) -> Iterator[str]:
    """A path of this machine where the file can be written; it is stored when all went well."""
    with _here(folder, name) as (path, storage, there):
        yield path
        if storage:
            storage.makedirs(os.path.dirname(there), exist_ok=True)
            storage.put_file(path, there)


@contextmanager
def _here(folder: str, name: str) -> Iterator[tuple[str, Any, str]]:
    """The file's path, or for one of a storage that of a copy, the storage, and its path there."""
    if not is_url(folder):
        yield os.path.join(folder, name), None, ""
        return
    storage, root = _opened(folder)
    with tempfile.TemporaryDirectory() as here:
        yield os.path.join(here, os.path.basename(name)), storage, f"{root}/{name}"
