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
        self.axis = axis
        self.rest = moved.shape[1:]
        self.dtype: np.dtype[Any] = array.dtype
        self.is_int16 = array.dtype.char == "h"
        self.x: Samples = moved.reshape(len(moved), math.prod(self.rest))
        # Filters in double precision take samples of float32.
        self.samples = self.x if self.is_int16 else self.x.astype(np.float32, copy=False)

    @property
    def flat(self) -> bool:
        return not self.rest

    @property
    def precision(self) -> str:
        """Of the filters that take the samples."""
        return "int16" if self.is_int16 else "double"

    @property
    def count(self) -> int:
        return int(self.x.shape[1])

    def shaped(self, y: Samples) -> Samples:
        """(frames, channels) in the shape and type of the argument."""
        y = y.astype(self.dtype, copy=False).reshape(len(y), *self.rest)
        return y if self.flat else np.moveaxis(y, 0, self.axis)

    def state(self, zi: ArrayLike, *shape: int) -> Samples:
        """A state of the given shape, with the channels behind; scalars are spread."""
        full = (*shape, *self.rest)
        array = real(zi, "zi").astype(np.float64)
        if array.ndim and array.shape != full:
            raise ValueError(f"zi: has the shape {array.shape}; takes {full}")
        return np.broadcast_to(array, full).reshape(*shape, self.count)

    def shaped_state(self, zf: Samples) -> Samples:
        return zf.reshape(*zf.shape[:-1], *self.rest)

