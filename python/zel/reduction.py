"""From the matrices of a finite-element code to a flexible body."""

from __future__ import annotations

import warnings
from collections.abc import Mapping, Sequence
from typing import Any, NamedTuple, TypeAlias

import numpy as np
import numpy.typing as npt

from . import _zel, convert
from .body import Body, Progress
from .errors import ZelWarning
from .mesh import columns_of, mesh_of
from .records import Floats
from .report import Report
from .units import Units

Interface: TypeAlias = str | npt.ArrayLike | tuple[str | npt.ArrayLike, npt.ArrayLike]
"""A set of nodes by name, or whatever `zel import --interface` takes; or node ids; or a pair of one of these and the point where
the body is joined."""

Load: TypeAlias = npt.ArrayLike | tuple[str | npt.ArrayLike, npt.ArrayLike]
"""Forces at all rows of K; or a pair: nodes, as a set's name or ids, and a force, a force with a moment, or a pressure."""

_METHODS = ("matched", "scaled", "row_sum")


def reduce(
    K: Any,
    M: Any,
    mesh: Any,
    interfaces: Sequence[Interface] = (),
    modes: int | str = 20,
    *,
    units: str | Sequence[str],
    dofs: npt.ArrayLike | None = None,
    loads: Mapping[str, Load] | None = None,
    attachment: bool = False,
    mass: str = "matched",
    invariants: str = "consistent",
    supports: str = "refuse",
    verify: bool = False,
    title: str = "",
    progress: Progress | None = None,
) -> Body:
    """The flexible body of a finite-element model, by the reduction that `zel import` has, with all its checks.

    K, M        scipy sparse matrices of any format, whole or one triangle: stiffness and mass of the free model
    mesh        a meshio.Mesh, or (points, [("hexahedron", cells), ...]) with meshio's names; node ids are point index + 1
    interfaces  Craig-Bampton reduction: names of sets, node ids, or pairs (ids, point). Each gets a node of its own, which
                its nodes follow; without a point it lies in their middle. None: free-free modes. Texts are those of
                `zel import --interface`: "BORE@0,0,0:average" follows the mean of its nodes, "BORE:xyz" is a ball joint,
                "cylinder=0,0,0/0,0,1/12.5" takes the nodes of a bore (all along the axis, or with "/length" behind it)
    modes       how many fixed-interface modes, or flexible modes of a free body; or "0-2000Hz" for all in a range of frequencies, up
                to twice the highest frequency of interest by rule of thumb
    units       of the model, as "mm,t,s,N"; they must belong together
    dofs        (rows, 2): node index and component, 0 to 5, that each row moves. Without it, the rows are three translations
                a node in the order of the points, or six components where there are so many
    loads       load cases by label: forces at the rows of K, or a pair. ("TIP", (fx, fy, fz)) or six numbers with a moment act
                on the set, or on ids of nodes: at the node of the interface that has just these, else about their centre,
                by the faces' areas. ("gravity", (gx, gy, gz)) acts on all mass, ("BORE", pressure) on faces within the set
    attachment  a mode more for each load whose static answer the others do not have, which is exact with it
    mass        how masses at the nodes stand for the mass matrix: "matched" (mass, centre and inertia agree), "scaled" or
                "row_sum"
    invariants  "consistent": the inertia invariants are those of M, as exact as the frequencies; or "lumped": those of the masses
                at the nodes, summed when the body is written
    supports    "refuse" a model that is held, or "remove" springs to the ground and penalties from its stiffness
    verify      compare the free-free modes of the body with those of the full model, and tell in the report up to which frequency
                they agree within 1 %
    title       for the header of the body
    progress    told how far each phase has come

    `report` of the body has the figures and verdicts; a ZelWarning tells of those that do not hold. ZelError when the model
    cannot be reduced, or when a mode below the highest would be missing.
    """
    if mass not in _METHODS:
        raise ValueError(f"mass: expected one of {', '.join(_METHODS)}, got {mass!r}")
    if supports not in ("refuse", "remove"):
        raise ValueError(f'supports: expected "refuse" or "remove", got {supports!r}')
    if invariants not in ("consistent", "lumped"):
        raise ValueError(f'invariants: expected "consistent" or "lumped", got {invariants!r}')
    model = mesh_of(mesh)
    stiffness, weights = columns_of("K", K), columns_of("M", M)
    rows = np.empty((0, 2), np.int64) if dofs is None else convert.indexes("dofs", dofs, stiffness.size, 2)
    choices, vectors = [], []
    for label, load in (loads or {}).items():
        if isinstance(load, tuple) and len(load) == 2 and (isinstance(load[0], str) or np.ndim(load[0]) == 1):
            choices.append(_load(label, load[0], load[1]))
        else:
            vectors.append((label, convert.floats(f"load {label}", load, stiffness.size)))  # type: ignore[arg-type]
    database, report = _zel.reduce(
        stiffness,
        weights,
        model.points,
        model.cells,
        model.sets,
        rows,
        list(Units.parse(units)),
        [_choice(number, interface) for number, interface in enumerate(interfaces, 1)],
        choices,
        vectors,
        attachment,
        str(modes),
        _METHODS.index(mass),
        invariants == "lumped",
        supports == "remove",
        verify,
        title,
        progress,
    )
    body = Body._reduced(database, Report._of(report))
    if not body.report:
        failed = ", ".join(row.name for row in body.report.failures) if body.report is not None else ""
        warnings.warn(ZelWarning(f"the body is not to be trusted, see its report: {failed}"), stacklevel=2)
    return body


class NodeSet(NamedTuple):
    """A node set of a mesh, as `zel import --list` prints them."""

    name: str
    nodes: int
    center: Floats
    """the mean of its nodes"""
    extent: Floats
    """(2, 3): two corners of the box around them"""


def node_sets(mesh: Any) -> list[NodeSet]:
    """The sets of a mesh by name, to choose interfaces from: how many nodes each has, and where they are."""
    model = mesh_of(mesh)
    sets = [(name, model.points[nodes]) for name, nodes in sorted(model.sets, key=lambda row: row[0])]
    return [NodeSet(name, len(at), at.mean(axis=0), np.array([at.min(axis=0), at.max(axis=0)])) for name, at in sets]


def _choice(number: int, interface: Interface) -> tuple[str, list[int], tuple[float, float, float] | None]:
    point: tuple[float, float, float] | None = None
    if isinstance(interface, tuple) and len(interface) == 2 and np.ndim(interface[1]) == 1:
        x, y, z = convert.floats("point of an interface", interface[1], 3)
        interface, point = interface[0], (float(x), float(y), float(z))
    if isinstance(interface, str):
        return interface, [], point
    ids = convert.integers(f"interface {number}", interface, None)  # type: ignore[arg-type]
    if not len(ids):
        raise ValueError(f"interface {number}: expected ids of nodes, got none")
    return f"interface {number}", ids.tolist(), point


def _load(
    label: str, where: str | npt.ArrayLike, values: npt.ArrayLike
) -> tuple[str, int, str, list[int], tuple[float, ...]]:
    numbers = np.atleast_1d(np.asarray(values, float))
    gravity = isinstance(where, str) and where == "gravity"
    if numbers.ndim != 1 or len(numbers) not in ((3,) if gravity else (1, 3, 6)) or not np.isfinite(numbers).all():
        wanted = "three numbers" if gravity else "one, three or six numbers"
        raise ValueError(f"load {label}: expected {wanted}, got {values!r}")
    kind = 1 if gravity else 2 if len(numbers) == 1 else 0  # as LoadKind in fem/fem.h
    padded = tuple(float(x) for x in np.pad(numbers, (0, 6 - len(numbers))))
    if isinstance(where, str):
        return label, kind, where, [], padded
    ids = convert.integers(f"load {label}", where, None)
    if not len(ids):
        raise ValueError(f"load {label}: expected ids of nodes, got none")
    return label, kind, f"load {label}", ids.tolist(), padded
