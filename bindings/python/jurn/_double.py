"""Arrays through the engine's filters in double precision."""

from __future__ import annotations

from typing import Any

import numpy as np
from numpy.typing import ArrayLike

from . import _core
from ._arrays import Channels, Coefficients, Samples, warn

KINDS = ("fir", "iir", "sos", "mean")  # in the order of the engine's kinds, and one more
LONGEST_MEAN = 1 << 24
_INTERLEAVED = 16  # channels; more are filtered one after the other

Filter = tuple[str, Coefficients, Coefficients]
"""Kind, b and a as they run, with denominators that begin with 1; of a mean b is its length."""


def running(f: Filter, channels: int) -> _core._Running:
    kind, b, a = f
    return _core._Running(KINDS.index(kind), b, a, channels)


def mean(length: int) -> Filter:
    if not 1 <= length <= LONGEST_MEAN:
        raise ValueError(f"length: {length}; takes 1 to {LONGEST_MEAN}")
    return "mean", np.array([float(length)]), np.empty(0)


def _tell(bad_samples: int, level: int) -> None:
    if bad_samples:
        warn(f"x: samples that are infinite or no number count as 0: {bad_samples}", level + 1)


def run(f: Filter, x: Channels, level: int) -> Samples:
    """From silence."""
    frames_first = x.array if x.flat else np.moveaxis(x.array, x.axis, 0)
    if not (0 < x.count <= _INTERLEAVED and frames_first.flags.c_contiguous):
        return _run_rows(f, x, np.empty((x.count, 0)), level + 1)
    y = np.empty(frames_first.shape, x.dtype)
    shape = (len(y), x.count)
    filters = running(f, x.count)
    filters.go_on(frames_first.reshape(shape), y.reshape(shape))
    _tell(filters.bad_samples, level + 1)
    return y if x.flat else np.moveaxis(y, 0, x.axis)


def _run_rows(f: Filter, x: Channels, past: Samples, level: int) -> Samples:
    rows = x.rows
    y = np.empty_like(rows)
    filters = running(f, 1)
    filters.filter_rows(rows, y, past)
    _tell(filters.bad_samples, level + 1)
    return x.of_rows(y)


def run_past(f: Filter, count: int, x: Channels, zi: ArrayLike | None, level: int) -> Any:
    """Of a filter whose state is the `count` samples before; with zi the result and the next zi."""
    if zi is None:
        return run(f, x, level + 1)
    past = x.state(zi, count)
    y = _run_rows(f, x, past, level + 1)
    zf = np.concatenate([past, x.rows], axis=1)[:, x.frames :]
    return y, x.shaped_state(zf, zi)


def run_from_state(f: Filter, x: Channels, zi: ArrayLike, level: int) -> tuple[Samples, Samples]:
    """In transposed direct form II, whose state SciPy has: the result and the next zi."""
    kind, b, a = f
    rows = x.rows
    y = np.empty_like(rows)
    if kind == "sos":
        z = x.state(zi, 2, len(b))
        flat = np.ascontiguousarray(z.swapaxes(0, 1)).reshape(x.count, 2 * len(b))
    else:
        flat = x.state(zi, max(len(b), len(a)) - 1)
    _tell(_core._run_from_state(KINDS.index(kind), b, a, rows, y, flat), level + 1)
    if kind == "sos":
        flat = flat.reshape(x.count, len(b), 2).swapaxes(0, 1)
    return x.of_rows(y), x.shaped_state(flat, zi)
