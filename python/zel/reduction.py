"""From the matrices of a finite-element code to a flexible body."""

from __future__ import annotations

import warnings
from collections.abc import Sequence
from typing import Any, TypeAlias

import numpy as np
import numpy.typing as npt

from . import _zel, convert
from .body import Body, Progress
from .errors import ZelWarning
from .mesh import Columns, Indexes, Mesh, columns_of, mesh_of
from .records import Floats
from .report import Report, RowKind
from .units import Units

Interface: TypeAlias = str | npt.ArrayLike | tuple[str | npt.ArrayLike, npt.ArrayLike]
"""A set of nodes by name, or node ids; or a pair of one of these and the point where the body is joined."""

_METHODS = ("matched", "scaled", "row_sum")
_RIGID = 1e-6  # of K R against |K| |R|


def reduce(
    K: Any,
    M: Any,
    mesh: Any,
    interfaces: Sequence[Interface] = (),
    modes: int = 20,
    *,
    units: str | Sequence[str],
    dofs: npt.ArrayLike | None = None,
    mass: str = "matched",
    supports: str = "refuse",
    title: str = "",
    progress: Progress | None = None,
) -> Body:
    """The flexible body of a finite-element model, by the reduction that `zel import` has, with all its checks.

    K, M        scipy sparse matrices of any format, whole or one triangle: stiffness and mass of the free model
    mesh        a meshio.Mesh, or (points, [("hexahedron", cells), ...]) with meshio's names; node ids are point index + 1
    interfaces  Craig-Bampton reduction: names of sets, node ids, or pairs (ids, point). Each gets a node of its own, which
                its nodes follow; without a point it lies in their middle. None: free-free modes
    modes       how many fixed-interface modes, or flexible modes of a free body
    units       of the model, as "mm,t,s,N"; they must belong together
    dofs        (rows, 2): node index and component, 0 to 5, that each row moves. Without it, the rows are three translations
                a node in the order of the points, or six components where there are so many
    mass        how masses at the nodes stand for the mass matrix: "matched" (mass, centre and inertia agree), "scaled" or
                "row_sum"
    supports    "refuse" a model that is held, or "remove" springs to the ground and penalties from its stiffness
    title       for the header of the body
    progress    told how far each phase has come

    `report` of the body has the figures and verdicts; a ZelWarning tells of those that do not hold. ZelError when the model
    cannot be reduced, or when a mode below the highest would be missing.
    """
    if mass not in _METHODS:
        raise ValueError(f"mass: expected one of {', '.join(_METHODS)}, got {mass!r}")
    if supports not in ("refuse", "remove"):
        raise ValueError(f'supports: expected "refuse" or "remove", got {supports!r}')
    model = mesh_of(mesh)
    stiffness, weights = columns_of("K", K), columns_of("M", M)
    rows = np.empty((0, 2), np.int64) if dofs is None else convert.indexes("dofs", dofs, stiffness.size, 2)
    held: list[str] = []
    if supports == "remove":
        stiffness, held = _without_supports(stiffness, model, _rows(rows, stiffness.size, len(model.points)))
    database, report = _zel.reduce(
        stiffness,
        weights,
        model.points,
        model.cells,
        model.sets,
        rows,
        list(Units.parse(units)),
        [_choice(number, interface) for number, interface in enumerate(interfaces, 1)],
        modes,
        _METHODS.index(mass),
        title,
        progress,
    )
    body = Body._reduced(database, Report._of([*report, *((RowKind.NOTE, "", note, None, []) for note in held)]))
    if not body.report:
        failed = ", ".join(row.name for row in body.report.failures) if body.report is not None else ""
        warnings.warn(ZelWarning(f"the body is not to be trusted, see its report: {failed}"), stacklevel=2)
    return body


def _rows(dofs: Indexes, size: int, points: int) -> Indexes:
    if len(dofs) or size not in (3 * points, 6 * points):
        return dofs  # the reduction tells what is wrong with them
    return np.column_stack(np.divmod(np.arange(size), size // points))


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


# ---- Supports ----------------------------------------------------------------------------------------------------------


def _rigid_motions(points: Floats, rows: Indexes) -> Floats:
    at = points - (points.min(0) + points.max(0)) / 2
    length = max(float(np.abs(at).max()), 1e-300)
    at = at / length  # turns by 1 / length move nodes as far as translations do
    motion = np.zeros((len(points), 6, 6))
    motion[:, range(6), range(6)] = [1, 1, 1, 1 / length, 1 / length, 1 / length]
    motion[:, 0, 4], motion[:, 0, 5] = at[:, 2], -at[:, 1]
    motion[:, 1, 3], motion[:, 1, 5] = -at[:, 2], at[:, 0]
    motion[:, 2, 3], motion[:, 2, 4] = at[:, 1], -at[:, 0]
    return motion[rows[:, 0], rows[:, 1]]


def _without_supports(stiffness: Columns, mesh: Mesh, rows: Indexes) -> tuple[Columns, list[str]]:
    """The stiffness without springs to the ground, which resist rigid motions at single rows, and what was taken out.

    A row that is held has the diagonal entry that leaves the motion along it without force; the others tell how large it is.
    """
    from scipy import sparse

    if len(rows) != stiffness.size or not len(mesh.points):
        return stiffness, []
    given = sparse.csc_array((stiffness.values, stiffness.rows, stiffness.starts), shape=(stiffness.size,) * 2)
    upper, lower = sparse.triu(given, 1), sparse.tril(given, -1)
    whole = given if upper.count_nonzero() and lower.count_nonzero() else given + upper.T + lower.T
    motions = _rigid_motions(mesh.points, rows)
    held = np.flatnonzero((np.abs(whole @ motions) > _RIGID * (abs(whole) @ np.abs(motions))).any(1))
    if not len(held):
        return stiffness, []
    beside = sparse.csr_array(whole - sparse.diags_array(whole.diagonal()))
    names = [f"{rows[row, 0] + 1}.{rows[row, 1] + 1}" for row in held]
    for row, name in zip(held, names, strict=True):
        if not beside[[row]].count_nonzero():
            raise ValueError(f"the support at {name} (node.component) has taken its row's entries: assemble without it")
    diagonal = whole.diagonal()
    components = rows[held, 1]
    diagonal[held] = -(beside @ motions)[held, components] / motions[held, components]
    freed = beside + sparse.diags_array(diagonal)
    few = ", ".join(names[:8]) + (f" and {len(names) - 8} more" if len(names) > 8 else "")
    return columns_of("K", freed), [f"supports are taken out at {few} (node.component)"]
