"""Recordings on the threads of this process, or on the workers of a cluster."""

from __future__ import annotations

import importlib
import os
from concurrent.futures import ThreadPoolExecutor, as_completed
from typing import Any, Iterator, Tuple, Union

from . import _core
from ._recordings import Filter, Result, StreamFilter, filter_file, filter_files

Work = Tuple[str, str, Union[Filter, StreamFilter]]

_START = 30.0  # seconds that a cluster may take to answer
_MOST_FILES = 32  # of a task


def on_threads(work: Work, names: list[str], jobs: int | None) -> Iterator[Result]:
    # The filters, the files and the hashes let go of Python's lock.
    with ThreadPoolExecutor(jobs or os.cpu_count() or 1) as pool:
        futures = [pool.submit(filter_file, *work, name) for name in names]
        for future in as_completed(futures):
            yield future.result()


def on_cluster(work: Work, names: list[str], cluster: Any) -> Iterator[Result]:
    """`cluster` is a client, or the address of a scheduler."""
    try:
        distributed: Any = importlib.import_module("distributed")
    except ImportError as error:
        raise RuntimeError(f"{error}; a cluster needs the package distributed") from None
    if not isinstance(cluster, str):
        yield from _on_client(distributed, cluster, work, names)
        return
    with distributed.Client(cluster, timeout=_START) as client:
        yield from _on_client(distributed, client, work, names)


def _version() -> str:
    return _core.__version__


def _on_client(
    distributed: Any, client: Any, work: Work, names: list[str]
) -> Iterator[Result]:
    try:
        client.wait_for_workers(1, timeout=_START)
    except TimeoutError:
        raise RuntimeError(f"the cluster has had no worker for {_START:.0f} s") from None
    versions = client.run(_version)
    for worker, version in versions.items():
        if version != _core.__version__:
            raise RuntimeError(f"{worker} has jurn {version}, and this is {_core.__version__}")
    size = max(1, min(_MOST_FILES, len(names) // (8 * len(versions))))
    groups = [names[i : i + size] for i in range(0, len(names), size)]
    futures = [client.submit(filter_files, *work, _core.__version__, group, pure=False, retries=3)
               for group in groups]
    by_key = {future.key: group for future, group in zip(futures, groups)}
    for future in distributed.as_completed(futures):
        if future.status == "finished":
            yield from future.result()
        else:
            error = str(future.exception())
            yield from (Result(name, error=error) for name in by_key[future.key])
