"""Bodies for the multibody solver Exudyn (https://pypi.org/project/exudyn), which is imported with this module.

Its flexible body is a floating frame with modes, made of the inertia invariants alone: A. Zwoelfer and J. Gerstmayr,
The nodal-based floating frame of reference formulation with modal reduction, Acta Mechanica 232 (2021).
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt

try:
    import exudyn
    from exudyn.FEM import ObjectFFRFreducedOrderInterface
except ModuleNotFoundError as missing:
    if missing.name != "exudyn":
        raise
    raise ImportError("zel.exudyn needs the solver Exudyn: pip install exudyn") from missing
except ImportError as missing:
    told = f"zel.exudyn needs the solver Exudyn, which does not load: {missing}"
    raise ImportError(f"{told}. On Debian, what it links to is in the packages libgl1 and libx11-6.") from missing

from . import convert
from .errors import ZelError, warn
from .records import Block, Floats
from .units import Units

if TYPE_CHECKING:
    from .body import Body

_Places = npt.NDArray[np.intp]

_NUMBERS = (1, 2, 3, 4, 5, 7, 8, 9)
# Angles about x, y and z are not among them: the solver leaves out how their axes turn, and momenta would not stay.
_ROTATIONS = {"RotationEulerParameters": 4, "RotationRotationVector": 3}
# The part of its generalized mass that rigid motion leaves a mode: rigid up to the first figure; less than the second,
# in any combination of the modes, makes the mass matrix singular.
_RIGID, _DEPENDENT = 1e-4, 1e-6
# Units belong together when force is mass times acceleration to this.
_CONSISTENT = 1e-4
# Corners of a tetrahedron about an interface node, at this part of the body's size.
_CORNERS = np.array([[1.0, 1, 1], [1, -1, -1], [-1, 1, -1], [-1, -1, 1]])
_REACH = 0.01


class Interface(ObjectFFRFreducedOrderInterface):  # type: ignore[misc]
    """Exudyn's own record of a reduced flexible body, with what a body has beyond it: damping, and nodes with ids.

    Its mesh nodes are the body's `shape_nodes`. Behind them, four for each interface node that turns are the corners of
    a tetrahedron that moves with it.
    """

    dampingMatrix: Floats | None = None
    """(modes, modes): the body's own; Exudyn's factors of mass and stiffness come on top. None without one."""
    dampingMatrixReduced: Floats

    def mesh_nodes(self, ids: npt.ArrayLike) -> list[int]:
        """Mesh nodes of the body's nodes; KeyError for one without mode shapes."""
        nodes = convert.integers("ids", np.atleast_1d(ids), None).tolist()
        for node in nodes:
            if node not in self._nodes:
                raise KeyError(f"no mode shapes at node {node}")
        return [self._nodes[node] for node in nodes]

    def joint(self, interface_node: int) -> dict[str, list[Any]]:
        """Arguments of a `MarkerSuperElementRigid` that moves and turns as an interface node of the body does.

        KeyError for another node, and for one without rotations, as solids have: these need a set of `mesh_nodes`.
        """
        if interface_node not in self._corners:
            raise KeyError(f"no interface node {interface_node} with rotations; there are {sorted(self._corners)}")
        first = self._corners[interface_node]
        return {"meshNodeNumbers": list(range(first, first + 4)), "weightingFactors": [0.25] * 4}

    def AddObjectFFRFreducedOrderWithUserFunctions(
        self, exu: Any, mbs: Any, *args: Any, **names: Any
    ) -> dict[str, Any]:
        """As in Exudyn, whose `AddObjectFFRFreducedOrder` comes here too; adds the body's damping."""
        added: dict[str, Any] = super().AddObjectFFRFreducedOrderWithUserFunctions(exu, mbs, *args, **names)
        if self.dampingMatrix is not None:
            self.dampingMatrixReduced = self.dampingMatrixReduced + self.dampingMatrix
            matrix = exudyn.MatrixContainer()
            matrix.SetWithDenseMatrix(self.dampingMatrixReduced, useDenseMatrix=False)
            mbs.SetObjectParameter(added["oFFRFreducedOrder"], "dampingMatrixReduced", matrix)
        return added


def interface(
    body: Body,
    modes: npt.ArrayLike | None = None,
    *,
    units: str | Sequence[str] | None = None,
    node_type: str = "RotationEulerParameters",
) -> Interface:
    """A body as Exudyn takes it: `interface(body).AddObjectFFRFreducedOrder(mbs)` adds it to a system.

    modes      numbers of the modes to take; without them all that deform the body. Rigid-body modes are told by their
               momentum, behind which none of their generalized mass is left, whatever their frequency
    units      of the simulation, as "kg,m,s,N"; without them the body's own. They must belong together
    node_type  how Exudyn describes the rotation of the floating frame, by the name in its `NodeType`

    Inertia comes from the invariants as they are in the body's file or as they were set. No sum goes over nodes: their
    places and shapes are for markers and drawing only. ZelError when an invariant is missing, when units do
    not belong together, or when modes hide a rigid motion, as those of a body that was written with `no_ortho` may.
    Loads and modal stress stay behind; so do, with a ZelWarning, a preload and the damping of rigid-body modes.
    """
    if node_type not in _ROTATIONS:
        raise ValueError(f"node_type: expected one of {', '.join(_ROTATIONS)}, got {node_type!r}")
    scale = _Scale(body, units)
    _check_content(body)
    places = _chosen(body, modes)
    made = Interface()
    made.rigidBodyNodeType, made.nODE2rot = exudyn.NodeType.__members__[node_type], _ROTATIONS[node_type]
    _fill_mass(made, body, places, scale)
    _fill_stiffness(made, body, places, scale, picked=modes is not None)
    _fill_nodes(made, body, places, scale)
    if body.preload is not None:
        warn("the preload of the body stays behind: flexible bodies of Exudyn have none")
    return made


class _Scale:
    """One of the body's values in units of the simulation. A solver derives forces from mass, length and time, so that
    stiffness is in mass length^2 / time^2 here."""

    def __init__(self, body: Body, units: str | Sequence[str] | None) -> None:
        wanted = body.units if units is None else Units.parse(units)
        mass, length, time, force = wanted.factors
        if abs(force * time**2 / (mass * length) - 1.0) > _CONSISTENT:
            raise ZelError(f'the units {", ".join(wanted)} do not belong together: give others, as units="kg,m,s,N"')
        mass, self.length, time, _ = (
            own / given for own, given in zip(body.units.factors, wanted.factors, strict=True)
        )
        self.mass, self.moment, self.inertia = mass, mass * self.length, mass * self.length**2
        self.stiffness = body.unit_consistency * self.inertia / time**2
        self.damping = self.stiffness * time


# ---- What the body must have, and which of its modes are taken -------------------------------------------------------


def _check_content(body: Body) -> None:
    if not len(body.modes):
        raise ZelError("the body has no modes")
    values = {number: np.asarray(body.invariants[number]) for number in _NUMBERS}
    missing = set()
    if body.bytes_of(Block.HEADER):  # sums over the nodes of a file are of masses alone, and of nodes that have shapes
        missing = {number for number in _NUMBERS if body.invariants.origin(number) == "computed"}
    if not (
        values[8].any() and values[9].any()
    ):  # as the library has sums that a node without shapes would be missing from
        missing |= {number for number in _NUMBERS if not values[number].any()}
    if missing:
        names = " ".join(map(str, sorted(missing)))
        raise ZelError(
            f"inertia invariants {names} are missing: write the body with full_invar where all nodes have shapes"
        )
    if not values[1] > 0.0:
        raise ZelError("the body has no mass")


def _chosen(body: Body, modes: npt.ArrayLike | None) -> _Places:
    numbers = body.modes.numbers if modes is None else convert.integers("modes", modes, None)
    places = np.array([body.modes[number].index for number in numbers.tolist()], np.intp)
    left = _left_by_rigid_motion(body)
    if modes is None:
        places = places[np.diag(left)[places] > _RIGID]
    if not len(places):
        raise ZelError("no mode of those deforms the body")
    values, vectors = np.linalg.eigh(left[np.ix_(places, places)])
    if values[0] < _DEPENDENT:
        most = body.modes.numbers[places[np.argmax(np.abs(vectors[:, 0]))]]
        cure = "write the body without no_ortho" if body.modes.coupled else "take each mode that deforms the body once"
        raise ZelError(f"the modes move the body rigidly or twice the same, mode {most} for one: {cure}")
    return places


def _left_by_rigid_motion(body: Body) -> Floats:
    # The generalized mass that is left when the frame goes along with the modes as well as it can, of modes scaled to
    # 1: the Schur complement of the rigid body in the mass matrix, about the centre of mass.
    at_center = body.mass_properties("center")
    momentum = body.invariants[3]
    turning = body.invariants[4] - np.cross(at_center.center, momentum.T).T
    carried = momentum.T @ momentum / at_center.mass
    carried += turning.T @ np.linalg.pinv(at_center.inertia, rcond=1e-9, hermitian=True) @ turning
    own = np.diag(body.mass_matrix)
    if not (own > 0.0).all():
        raise ZelError(f"mode {body.modes.numbers[np.argmin(own)]} has no generalized mass")
    size = np.sqrt(own)
    left: Floats = (body.mass_matrix - carried) / np.outer(size, size)
    return left


# ---- Exudyn's matrices -----------------------------------------------------------------------------------------------
# a~ b = a x b, so that a~ b~ = b a' - (a.b) E; Psi holds the shapes phi_k, Psi~ the blocks phi_k~. With sums over the
# mass, block (i, j) of Psi~' M Psi~ is -sum phi_i~ phi_j~, the negative of invariant 9. The others follow alike.


def _skew(vectors: Floats) -> Floats:
    """(..., 3) to (..., 3, 3)"""
    return -np.cross(vectors[..., None, :], np.eye(3))


def _fill_mass(made: Any, body: Body, places: _Places, scale: _Scale) -> None:
    count, pairs = len(places), np.ix_(places, places)
    of = {number: np.asarray(body.invariants[number]) for number in _NUMBERS}
    made.totalMass = scale.mass * float(of[1])
    made.Mtt = made.totalMass * np.eye(3)
    made.chiU = scale.length * of[2] / of[1]
    made.chiUtilde = _skew(made.chiU)
    made.inertiaLocal = scale.inertia * of[7]
    made.massMatrixReduced = scale.inertia * body.mass_matrix[pairs]
    made.mPhitTPsi = scale.moment * of[3][:, places]
    made.mPhitTPsiTilde = np.hstack(list(_skew(made.mPhitTPsi.T)))
    made.mXRefTildePsi = -scale.inertia * of[4][:, places]
    made.mXRefTildePsiTilde = -scale.inertia * np.hstack(list(of[8][places]))
    made.mPsiTildePsi = -scale.inertia * of[5][places][:, :, places].reshape(3 * count, count)
    made.mPsiTildePsiTilde = -scale.inertia * of[9][pairs].transpose(0, 2, 1, 3).reshape(3 * count, 3 * count)

    made.dim3D, made.nModes, made.nODE2rigid = 3, count, 3 + made.nODE2rot
    made.nODE2FFRFreduced = made.nODE2rigid + count
    made.massMatrixFFRFreduced = np.zeros((made.nODE2FFRFreduced, made.nODE2FFRFreduced))
    made.massMatrixFFRFreduced[:3, :3] = made.Mtt
    made.massMatrixFFRFreduced[made.nODE2rigid :, made.nODE2rigid :] = made.massMatrixReduced


def _fill_stiffness(made: Any, body: Body, places: _Places, scale: _Scale, picked: bool) -> None:
    pairs, damping = np.ix_(places, places), body.damping_matrix
    made.stiffnessMatrixReduced = scale.stiffness * body.stiffness_matrix[pairs]
    if damping is not None:
        made.dampingMatrix = scale.damping * damping[pairs]
        others = np.delete(damping, places, axis=0)
        if np.abs(others[:, places] if picked else others).max(initial=0.0) > 1e-9 * np.abs(damping).max():
            warn("damping of rigid-body modes, or between modes that are taken and others, stays behind")


# ---- Nodes and faces, for markers and drawing ------------------------------------------------------------------------


def _fill_nodes(made: Any, body: Body, places: _Places, scale: _Scale) -> None:
    ids = body.shape_nodes
    shapes = body.shapes_of(ids, body.modes.numbers[places])  # (modes, nodes, 6)
    points = body.nodes.coordinates[body.nodes.index_of(ids)]
    made._nodes = {node: row for row, node in enumerate(ids.tolist())}
    joints = [made._nodes[node] for node in body.interface_nodes.tolist() if node in made._nodes]
    joints = [row for row in joints if shapes[:, row, 3:].any()]
    made._corners = {int(ids[row]): len(ids) + 4 * number for number, row in enumerate(joints)}

    arms = _REACH * body.size * _CORNERS
    corners = (points[joints][:, None] + arms).reshape(-1, 3)
    moved = shapes[:, joints, None, :3] + np.cross(shapes[:, joints, None, 3:], arms)
    basis = np.concatenate([shapes[:, :, :3], moved.reshape(len(places), -1, 3)], axis=1)
    made.modeBasis = scale.length * basis.reshape(len(places), -1).T.copy()
    made.xRef = scale.length * np.concatenate([points, corners]).reshape(-1)
    made.nNodes = len(ids) + len(corners)
    made.trigList = _triangles(body, made._nodes)
    made.postProcessingModes = {}


def _triangles(body: Body, row_of: dict[int, int]) -> list[list[int]]:
    offsets, ids = body.faces
    rows = [row_of.get(node, -1) for node in ids.tolist()]
    found: list[list[int]] = []
    for start, end in zip(offsets.tolist(), offsets[1:].tolist(), strict=False):
        face = rows[start:end]
        if -1 not in face:  # a fan about the second vertex, which is between two corners where edges have three nodes
            face = face[1:] + face[:1]
            found += ([face[0], face[k], face[k + 1]] for k in range(1, len(face) - 1))
    return found
