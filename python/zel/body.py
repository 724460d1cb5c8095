"""Flexible bodies."""

from __future__ import annotations

import builtins
import os

from . import _zel
from .reading import Readable

Path = str | os.PathLike[str]


class Body(Readable):
    """One flexible body: nodes with masses, faces, modes, generalized matrices, loads and units."""

    def __repr__(self) -> str:
        if self.closed:
            return "<zel.Body, closed>"
        return f"<zel.Body: {len(self.nodes)} nodes, {len(self.modes)} modes>"


def path_bytes(path: Path) -> builtins.bytes:
    """A path as the system takes it."""
    encoded = os.fsencode(path)
    if b"\0" in encoded:
        raise ValueError("a path cannot have a null character in it")
    return encoded


def open(path: Path) -> Body:
    """The body in a ZEL file, which stays open until the body is closed: mode vectors are read on demand.

    Every caller gets a body of its own, also of one path. OSError when the file cannot be opened, ZelError when it is
    none or is damaged.
    """
    return Body(_zel.open(path_bytes(path)))
