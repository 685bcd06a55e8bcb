"""Arrays of any shape and type as the filters take them, and back."""

from __future__ import annotations

import math
import threading
import warnings
from contextlib import contextmanager
from typing import Any, Iterator

import numpy as np
from numpy.typing import ArrayLike, NDArray

Samples = NDArray[Any]
Coefficients = NDArray[np.float64]


class JurnWarning(UserWarning):
    """What comes out is not quite what the design promises.

    Examples
    --------
    >>> import warnings
    >>> warnings.simplefilter("error", JurnWarning)  # makes an error of it
    >>> warnings.simplefilter("default", JurnWarning)
    """


_collected = threading.local()


def warn(message: str, level: int) -> None:
    """Warns of the caller `level` calls above, or adds to what this thread collects."""
    if (messages := getattr(_collected, "messages", None)) is not None:
        messages.append(message)
    else:
        warnings.warn(message, JurnWarning, stacklevel=level + 1)


@contextmanager
def collected_warnings() -> Iterator[list[str]]:
    """Those of this thread; Python's own filters would be those of all threads."""
    messages: list[str] = []
    before = getattr(_collected, "messages", None)
    _collected.messages = messages
    try:
        yield messages
    finally:
        _collected.messages = before


def real(values: ArrayLike, name: str) -> Samples:
    """An array of real numbers."""
    array = np.asarray(values)
    if array.dtype.kind not in "fiub" or array.dtype.itemsize > 8:
        raise TypeError(f"{name}: {array.dtype} of shape {array.shape}; takes real numbers")
    return array


def numbers(values: ArrayLike, name: str) -> Coefficients:
    """A copy of finite numbers, at least one, that nobody can write to."""
    array = np.array(real(values, name), dtype=np.float64, order="C")
    if array.size == 0:
        raise ValueError(f"{name}: is empty")
    if not np.isfinite(array).all():
        raise ValueError(f"{name}: number {int(np.argmin(np.isfinite(array)))} is not finite")
    array.flags.writeable = False
    return array


def _has_frames_first(shape: tuple[int, ...]) -> bool:
    """Whether the last axis looks like channels and the first one like frames."""
    return 0 < shape[-1] <= 16 and shape[0] >= 64 * shape[-1]


class Channels:
    """The channels of an array along an axis, and a result of the same shape and type."""

    def __init__(self, x: ArrayLike, axis: int | None, level: int) -> None:
        array = real(x, "x")
        if array.ndim == 0:
            raise ValueError("x: is one number; takes an array of samples")
        if array.dtype.char not in "hfd":
            array = array.astype(np.float64)
        elif not array.dtype.isnative:
            array = array.astype(array.dtype.newbyteorder("="))
        if axis is None:
            axis = -1
            if array.ndim > 1 and _has_frames_first(array.shape):
                warn(
                    f"x: has the shape {array.shape} and is filtered along its last axis, of "
                    f"{array.shape[-1]} samples; axis=0 filters along its frames",
                    level + 1,
                )
        moved = array if array.ndim == 1 and axis in (0, -1) else np.moveaxis(array, axis, 0)
        self.array = array
        self.axis = axis % array.ndim
        self.rest = moved.shape[1:]
        self.count = math.prod(self.rest)
        self.dtype: np.dtype[Any] = array.dtype
        self.is_int16 = array.dtype.char == "h"
        self._moved = moved

    @property
    def flat(self) -> bool:
        return not self.rest

    @property
    def frames(self) -> int:
        return len(self._moved)

    @property
    def x(self) -> Samples:
        """(frames, channels)."""
        return self._moved.reshape(self.frames, self.count)

    @property
    def samples(self) -> Samples:
        """(frames, channels) for what takes int16 or float32."""
        return self.x if self.is_int16 else self.x.astype(np.float32, copy=False)

    @property
    def rows(self) -> Samples:
        """(channels, frames) in one piece."""
        rows = np.ascontiguousarray(self._moved if self.flat else np.moveaxis(self._moved, 0, -1))
        return rows.reshape(self.count, self.frames)

    def of_rows(self, y: Samples) -> Samples:
        """(channels, frames) in the shape of the argument."""
        if self.flat:
            return y.reshape(y.shape[-1])
        return np.moveaxis(y.reshape(*self.rest, y.shape[-1]), -1, self.axis)

    def shaped(self, y: Samples) -> Samples:
        """(frames, channels) in the shape and type of the argument."""
        y = y.astype(self.dtype, copy=False).reshape(len(y), *self.rest)
        return y if self.flat else np.moveaxis(y, 0, self.axis)

    def state(self, zi: ArrayLike, count: int, sections: int | None = None) -> Samples:
        """A state, which has `count` numbers where the samples have frames: (channels, count), or
        (sections, channels, count). Scalars are spread, and axes of one channel."""
        shape = list(self.array.shape)
        shape[self.axis] = count
        full = tuple(shape) if sections is None else (sections, *shape)
        array = real(zi, "zi").astype(np.float64)
        one = [k != self.axis and sections is None for k in range(len(full))]
        if array.ndim and not (
            array.ndim == len(full)
            and all(n == m or (n == 1 and o) for n, m, o in zip(array.shape, full, one))
        ):
            raise ValueError(f"zi: has the shape {array.shape}; takes {full}")
        lead = full[: len(full) - len(shape)]
        if self.flat and array.ndim:
            return array.reshape(*lead, 1, count)  # a copy already
        moved = np.moveaxis(np.broadcast_to(array, full), len(lead) + self.axis, -1)
        return np.array(moved.reshape(*lead, self.count, count), order="C")

    def shaped_state(self, z: Samples, zi: ArrayLike | None = None) -> Samples:
        """(channels, count) or (sections, channels, count) as `state` takes it; of float32 where
        that is the type of the samples and of `zi`."""
        if zi is not None and np.asarray(zi).dtype == self.dtype == np.float32:
            z = z.astype(np.float32)
        if self.flat:
            return z.reshape(*z.shape[:-2], z.shape[-1])
        lead = z.shape[:-2]
        return np.moveaxis(z.reshape(*lead, *self.rest, z.shape[-1]), -1, len(lead) + self.axis)
