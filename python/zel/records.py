"""The small records that a body is asked for and gives."""

from __future__ import annotations

from dataclasses import dataclass
from enum import IntEnum
from typing import NamedTuple, TypeAlias

import numpy as np
import numpy.typing as npt

Floats: TypeAlias = npt.NDArray[np.float64]
Integers: TypeAlias = npt.NDArray[np.int32]
Offsets: TypeAlias = npt.NDArray[np.int64]
Flags: TypeAlias = npt.NDArray[np.bool_]


class Header(NamedTuple):
    """Texts that tell where the data come from."""

    title: str
    date: str
    input_file_name: str
    input_file_type: str
    comment1: str
    comment2: str
    comment3: str


@dataclass(frozen=True, eq=False)
class Nodes:
    """The nodes of a body in the order of its node table."""

    ids: Integers
    """(n,)"""
    coordinates: Floats
    """(n, 3)"""
    masses: Floats
    """(n,)"""
    inertias: Floats | None
    """(n, 3, 3): tensors about the nodes, zero where a node has none; None when no node has one."""

    def __len__(self) -> int:
        return len(self.ids)

    def index_of(self, ids: npt.ArrayLike) -> npt.NDArray[np.intp]:
        """Indexes of nodes by their ids, in the shape of `ids`; KeyError for an unknown one."""
        wanted = np.asarray(ids)
        order = np.argsort(self.ids)
        places = np.searchsorted(self.ids, wanted, sorter=order)
        found = np.take(order, places, mode="clip") if len(order) else np.zeros(wanted.shape, np.intp)
        unknown = wanted[self.ids[found] != wanted] if len(order) else wanted.reshape(-1)
        if unknown.size:
            raise KeyError(f"no node {unknown.flat[0]}")
        return found


class Faces(NamedTuple):
    """Element faces: face i has the vertices ids[offsets[i]:offsets[i + 1]]."""

    offsets: Offsets
    """(faces + 1,)"""
    ids: Integers
    """(offsets[-1],): node ids, in order round each face."""



class Entries(NamedTuple):
    """Entries of a generalized matrix as they were given: of equal places the last one holds."""

    rows: Integers
    """Mode indexes, from 0; -1 where a mode could not be added."""
    columns: Integers
    values: Floats


class Loads(NamedTuple):
    """Modal load cases."""

    labels: list[str]
    values: Floats
    """(cases, modes)"""
    projected: Flags
    """(cases,): whether the first six values are a force and a moment on the principal axes, no longer of modes."""


class Stress(NamedTuple):
    """Stress as the modes of a body combine to it, in one state or in several: then with one more axis in front."""

    node_ids: Integers
    tensors: Floats
    """(nodes, 6): xx, yy, zz, xy, xz, yz"""
    von_mises: Floats
    """(nodes,)"""
    amplitudes: Floats
    """(modes,) in the order of the body"""
    solution: str
    """Whether a load met a free body, in balance with its inertia, or one that is held; or that amplitudes were given."""


class Largest(NamedTuple):
    """Where something is largest, and how large."""

    node_id: int
    value: float


class GlobalMass(NamedTuple):
    """Mass properties as they are stored, whatever the nodes say."""

    mass: float
    center: Floats
    """(3,)"""
    inertia: Floats
    """(3, 3): the tensor about the origin."""


@dataclass(frozen=True, eq=False)
class MassProperties:
    """What a body weighs and how it resists being turned."""

    mass: float
    center: Floats
    """(3,): the centre of mass."""
    point: Floats
    """(3,): what the inertia is about."""
    inertia: Floats
    """(3, 3): the tensor about `point`; off the diagonal it is minus the products of inertia."""
    principal_values: Floats
    """(3,): eigenvalues of the tensor, ascending."""
    principal_axes: Floats
    """(3, 3): column i is the axis of value i."""


class Facts(NamedTuple):
    """What is shown of a body on one screen."""

    coupled: bool
    mass: float
    center: list[float]
    principal_inertias: list[float]
    frequencies: list[tuple[int, float, bool]]
    """Mode, hertz, whether it is rigid."""
    blocks: list[tuple[int, str, int]]
    """Number, name, bytes."""


class Block(IntEnum):
    """The blocks that a file is made of, by their numbers."""

    VERSION = 1
    HEADER = 2
    SUMMARY = 3
    NODES = 4
    TOPOLOGY = 5
    BODY = 6
    EIGENVALUES = 7
    MODES = 8
    MASSES = 9
    INERTIAS = 10
    UNITS = 11
    STIFFNESS = 12
    MASS = 13
    FACES = 14
    DAMPING = 15
    TRANSFORMATION = 16
    INTERFACE = 17
    STRESS = 18
    INVAR1 = 19
    INVAR2 = 20
    INVAR3 = 21
    INVAR4 = 22
    INVAR5 = 23
    INVAR7 = 24
    INVAR8 = 25
    INVAR9 = 26
    PRELOAD = 27
    LOADS = 28
    STRAIN = 29
    STATISTICS = 30
    PRE_STRESS = 31
    PRE_STRAIN = 32
