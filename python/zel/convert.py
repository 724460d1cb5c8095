"""From what callers pass to the arrays that the library takes: converted once, checked with a message that says what was
expected and what came."""

from __future__ import annotations

import numpy as np
import numpy.typing as npt

from .records import Floats, Integers

_LEAST, _MOST = np.iinfo(np.int32).min, np.iinfo(np.int32).max


def _check_shape(name: str, array: npt.NDArray[np.generic], shape: tuple[int | None, ...]) -> None:
    if array.ndim == len(shape) and all(want in (None, have) for want, have in zip(shape, array.shape, strict=True)):
        return
    wanted = ", ".join("n" if extent is None else str(extent) for extent in shape)
    wanted += "," if len(shape) == 1 else ""
    raise ValueError(f"{name}: expected an array of shape ({wanted}), got {array.shape}")


def floats(name: str, values: npt.ArrayLike, *shape: int | None) -> Floats:
    """Reals in C order, None in the shape for any extent."""
    array = np.asarray(values)
    if array.dtype.kind not in "iufb":
        raise TypeError(f"{name}: expected real numbers, got {array.dtype}")
    _check_shape(name, array, shape)
    return np.ascontiguousarray(array, np.float64).reshape(array.shape)


def indexes(name: str, values: npt.ArrayLike, *shape: int | None) -> npt.NDArray[np.int64]:
    """Integers of 64 bits in C order, None in the shape for any extent."""
    array = np.asarray(values)
    if array.dtype.kind not in "iu" and array.size:
        raise TypeError(f"{name}: expected integers, got {array.dtype}")
    _check_shape(name, array, shape)
    return np.ascontiguousarray(array, np.int64).reshape(array.shape)


def integers(name: str, values: npt.ArrayLike, *shape: int | None) -> Integers:
    """Integers of 32 bits in C order, None in the shape for any extent."""
    array = indexes(name, values, *shape)
    if array.size and (array.min() < _LEAST or array.max() > _MOST):
        raise ValueError(f"{name}: expected integers from {_LEAST} to {_MOST}, got {array.min()} to {array.max()}")
    return array.astype(np.int32)
