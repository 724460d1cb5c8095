"""Meshes and matrices of finite-element codes, as the reduction takes them."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from typing import Any, NamedTuple, TypeAlias

import numpy as np
import numpy.typing as npt

from . import convert
from .records import Floats

Indexes: TypeAlias = npt.NDArray[np.int64]


class Mesh(NamedTuple):
    """Points, cells, and sets of points by name, all counted from 0."""

    points: Floats
    cells: list[tuple[str, int, Indexes]]
    """Type, nodes of a cell, nodes of all cells."""
    sets: list[tuple[str, Indexes]]


# ---- Sets of nodes, by whatever name a format has for them -------------------------------------------------------------


def _nodes_of_cells(mesh: Any, members: Sequence[Any]) -> Indexes:
    pairs = zip(mesh.cells, members, strict=True)
    parts = [block.data[chosen].reshape(-1) for block, chosen in pairs if chosen is not None]
    return np.unique(np.concatenate([np.empty(0, np.int64), *parts]))


def _cells_with(mesh: Any, key: str, value: int) -> list[Any]:
    return [np.flatnonzero(np.asarray(data) == value) for data in mesh.cell_data[key]]


def _sets_of(mesh: Any) -> dict[str, Indexes]:
    sets: dict[str, Indexes] = {}
    for name, members in mesh.cell_sets.items():
        sets[name] = _nodes_of_cells(mesh, members)
    if "gmsh:physical" in mesh.cell_data:
        for name, (tag, dimension) in mesh.field_data.items():  # tags count anew in each dimension
            chosen = _cells_with(mesh, "gmsh:physical", tag)
            chosen = [some if block.dim == dimension else None for some, block in zip(chosen, mesh.cells, strict=True)]
            sets[name] = _nodes_of_cells(mesh, chosen)
    for tag, names in getattr(mesh, "cell_tags", {}).items():  # MED: a tag stands for several groups
        for name in names:
            nodes = _nodes_of_cells(mesh, _cells_with(mesh, "cell_tags", tag))
            sets[name] = np.union1d(sets.get(name, nodes), nodes)
    for tag, names in getattr(mesh, "point_tags", {}).items():
        for name in names:
            nodes = np.flatnonzero(np.asarray(mesh.point_data["point_tags"]) == tag)
            sets[name] = np.union1d(sets.get(name, nodes), nodes)
    for name, data in mesh.point_data.items():  # VTU and others without sets: 1 at their nodes, 0 elsewhere
        flags = np.asarray(data)
        if flags.ndim == 1 and flags.dtype.kind in "biu" and np.isin(flags, (0, 1)).all():
            sets[name] = np.flatnonzero(flags)
    for name, members in mesh.point_sets.items():
        sets[name] = np.unique(np.asarray(members))
    return {name: nodes.astype(np.int64) for name, nodes in sets.items() if len(nodes)}


def mesh_of(mesh: Any) -> Mesh:
    """A meshio.Mesh, or points (n, 3) and cells as [("hexahedron", (m, 8)), ...]."""
    if hasattr(mesh, "points") and hasattr(mesh, "cells"):
        given, blocks, sets = mesh.points, [(block.type, block.data) for block in mesh.cells], _sets_of(mesh)
    else:
        given, named = mesh
        blocks, sets = list(named.items() if isinstance(named, Mapping) else named), {}
    points = convert.floats("points", given, None, 3)
    tables = [(name, convert.indexes(f"cells of type {name}", data, None, None)) for name, data in blocks]
    cells = [(name, table.shape[1], table.reshape(-1)) for name, table in tables if table.size]
    return Mesh(points, cells, list(sets.items()))


# ---- Matrices ----------------------------------------------------------------------------------------------------------


class Columns(NamedTuple):
    """A sparse matrix by compressed columns."""

    size: int
    starts: Indexes
    rows: Indexes
    values: Floats


def columns_of(name: str, matrix: Any) -> Columns:
    """A sparse matrix of any format."""
    from scipy import sparse

    given = sparse.csc_array(matrix)
    if given.ndim != 2 or given.shape[0] != given.shape[1]:
        raise ValueError(f"{name}: expected a square matrix, got {given.shape}")
    if given.dtype.kind not in "iufb":
        raise TypeError(f"{name}: expected real numbers, got {given.dtype}")
    return Columns(
        given.shape[0], given.indptr.astype(np.int64), given.indices.astype(np.int64), given.data.astype(np.float64)
    )
