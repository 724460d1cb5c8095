"""What a body can be asked.

Arrays that come out are read-only and keep their memory: they stay as they are when the body changes or ends.
"""

from __future__ import annotations

from collections.abc import Callable, Iterable
from types import TracebackType
from typing import Any, TypeVar, cast

import numpy as np
import numpy.typing as npt

from . import _zel, convert
from .errors import ZelError
from .invariants import Invariants
from .modes import KINDS, SHAPE, STRAIN, STRESS, Modes, frozen
from .records import Block, Entries, Faces, Facts, Floats, GlobalMass, Header, Integers, Loads, MassProperties, Nodes, Stress
from .units import Units

_Value = TypeVar("_Value")
_Self = TypeVar("_Self", bound="Readable")

_MASS, _STIFFNESS, _DAMPING = range(3)
MATRICES = {"mass": _MASS, "stiffness": _STIFFNESS, "damping": _DAMPING}


def _choice(name: str, table: dict[str, int], key: str) -> int:
    if key not in table:
        raise ValueError(f"{name}: expected one of {', '.join(table)}, got {key!r}")
    return table[key]


class Readable:
    """The questions to a body. What costs nothing is a property; an answer that does not change is made once."""

    def __init__(self, database: _zel.Database) -> None:
        self._database = database
        self._cache: dict[str, Any] = {}

    def _cached(self, name: str, make: Callable[[], _Value]) -> _Value:
        if self._database.closed:
            raise ValueError("the body is closed")
        if name not in self._cache:
            self._cache[name] = make()
        return cast(_Value, self._cache[name])

    # ---- Lifetime --------------------------------------------------------------------------------------------------

    def close(self) -> None:
        """End the body and its hold on a file. Arrays that it gave stay. A second call does nothing."""
        self._cache.clear()
        self._database.close()

    @property
    def closed(self) -> bool:
        """Whether the body has ended."""
        return self._database.closed

    def __enter__(self: _Self) -> _Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    # ---- Header, units, blocks --------------------------------------------------------------------------------------

    @property
    def units(self) -> Units:
        """The units that all values are in: labels of mass, length, time and force."""
        return self._cached("units", lambda: Units(*self._database.units()))

    @property
    def unit_consistency(self) -> float:
        """Force time^2 / (length mass) of the units, 1 when they belong together."""
        return self._cached("consistency", self._database.consistency)

    @property
    def header(self) -> Header:
        """Texts that tell where the data come from."""
        return self._cached("header", lambda: Header(*self._database.header()))

    @property
    def version(self) -> float:
        """The version of the file that was read, as 3.1; the newest for a body that was made."""
        return self._database.version() / 10

    @property
    def double_precision(self) -> bool:
        """Whether stored mode vectors are doubles."""
        return self._database.double_precision() == 1

    @property
    def portable(self) -> bool:
        """Whether the file that was read is in portable encoding (XDR, RFC 4506)."""
        return self._database.portable()

    @property
    def blocks(self) -> list[Block]:
        """The blocks that the body has."""
        return [block for block in Block if self._database.block(block)[0]]

    def bytes_of(self, block: Block) -> int:
        """Bytes that a block takes in the file that was read; 0 when it is not there or describes the body no more."""
        return self._database.block(block)[1]

    def contents(self, block: Block) -> str:
        """A block in readable form."""
        return self._database.contents(block)

    # ---- Nodes and faces -----------------------------------------------------------------------------------------------

    @property
    def nodes(self) -> Nodes:
        """Ids, coordinates, masses and inertias of the nodes."""
        return self._cached("nodes", self._read_nodes)

    def _read_nodes(self) -> Nodes:
        database = self._database
        return Nodes(database.node_ids(), database.coordinates(), database.masses(), database.inertias())

    @property
    def faces(self) -> Faces:
        """Element faces as (offsets, ids), since they have 2 to 8 vertices."""
        return self._cached("faces", lambda: Faces(*self._database.faces()))

    @property
    def interface_nodes(self) -> Integers:
        """Ids of the nodes through which the body is joined to others."""
        return self._cached("interface", self._database.interface_nodes)

    @property
    def size(self) -> float:
        """The diagonal of the bounding box of all nodes."""
        return self._cached("size", self._database.size)

    def geometry_nodes(self) -> Integers:
        """Ids of the nodes that draw the body: those of faces and the interface nodes."""
        return self._database.geometry_nodes()

    def closest_nodes(self, point: npt.ArrayLike, count: int = 1, interface_only: bool = False) -> Integers:
        """Ids of the nodes nearest to a point, nearest first."""
        return self._database.closest_nodes(self._point(point), count, interface_only)

    def nodes_within(self, point: npt.ArrayLike, radius: float) -> tuple[Integers, Floats]:
        """Ids and distances of all nodes up to `radius` from a point, nearest first."""
        return self._database.nodes_within(self._point(point), radius)

    @staticmethod
    def _point(point: npt.ArrayLike) -> tuple[float, float, float]:
        x, y, z = convert.floats("point", point, 3)
        return float(x), float(y), float(z)

    # ---- Mass ----------------------------------------------------------------------------------------------------------

    @property
    def global_mass(self) -> GlobalMass:
        """Mass, centre and inertia as they are stored, whatever the nodes say."""
        return self._cached("global mass", lambda: GlobalMass(*self._database.global_mass()))

    def mass_properties(self, about: npt.ArrayLike | str = "origin") -> MassProperties:
        """Mass, centre and inertia by invariants 1, 2 and 7.

        about: "origin", "center" (of mass) or a point
        """
        mass = self.invariants[1]
        first = self.invariants[2]
        center = first / mass if mass > 0.0 else np.zeros(3)
        point = self._place(about, center)
        inertia = self.invariants[7] - _point_inertia(mass, center) + _point_inertia(mass, center - point)
        values, axes = np.linalg.eigh((inertia + inertia.T) / 2)
        return MassProperties(mass, *(frozen(array) for array in (center, point, inertia, values, axes)))

    @staticmethod
    def _place(about: npt.ArrayLike | str, center: Floats) -> Floats:
        if not isinstance(about, str):
            return convert.floats("about", about, 3).copy()
        if about not in ("origin", "center"):
            raise ValueError(f'about: expected "origin", "center" or a point, got {about!r}')
        return np.zeros(3) if about == "origin" else center.copy()

    @property
    def invariants(self) -> Invariants:
        """Inertia invariants by their numbers, 1 to 9; computed on first use."""
        return Invariants(self)

    # ---- Modes ---------------------------------------------------------------------------------------------------------

    @property
    def modes(self) -> Modes:
        """The modes: `modes[7]` is number 7; len() and iteration as a list."""
        return Modes(self)

    @property
    def shape_nodes(self) -> Integers:
        """Ids of the nodes that mode shapes cover, in the order of their rows."""
        return self._cached("shape nodes", lambda: self._database.mode_node_ids(SHAPE))

    @property
    def stress_nodes(self) -> Integers:
        """The same for modal stress and pre-stress."""
        return self._cached("stress nodes", lambda: self._database.mode_node_ids(STRESS))

    @property
    def strain_nodes(self) -> Integers:
        """The same for modal strain and pre-strain."""
        return self._cached("strain nodes", lambda: self._database.mode_node_ids(STRAIN))

    def shape_of(self, node_id: int, kind: str = "shape") -> Floats:
        """(modes, 6): one node over all modes. Reads this node only."""
        return self.shapes_of([node_id], kind=kind)[:, 0]

    def shapes_of(
        self, node_ids: npt.ArrayLike, mode_numbers: npt.ArrayLike | None = None, kind: str = "shape"
    ) -> Floats:
        """(modes, nodes, 6): some nodes over some modes or all. Reads these nodes only.

        kind: "shape", "stress" or "strain"
        """
        number = _choice("kind", KINDS, kind)
        nodes = convert.integers("node_ids", node_ids, None)
        covered = (self.shape_nodes, self.stress_nodes, self.strain_nodes)[number]
        if unknown := set(nodes.tolist()).difference(covered.tolist()):
            raise KeyError(f"no {kind} at node {min(unknown)}")
        modes = self.modes.numbers if mode_numbers is None else convert.integers("mode_numbers", mode_numbers, None)
        for mode in modes.tolist():
            self.modes[mode]
        if not len(nodes) or not len(modes):
            return frozen(np.empty((len(modes), len(nodes), 6)))
        return self._database.modes_of_nodes(number, nodes, np.ascontiguousarray(modes))

    def _vector(self, number: int, kind: int) -> Floats:
        vector = self._database.mode_vector(number, kind)
        if vector is None:
            if len((self.shape_nodes, self.stress_nodes, self.strain_nodes)[kind]):
                raise ZelError(f"mode {number} cannot be read")
            vector = frozen(np.empty((0, 6)))
        return vector

    @property
    def pre_stress(self) -> Floats | None:
        """(n, 6) at the `stress_nodes`: the stress before any mode moves; None without one."""
        return self._vector(0, STRESS) if self._database.block(Block.PRE_STRESS)[0] else None

    @property
    def pre_strain(self) -> Floats | None:
        """(n, 6) at the `strain_nodes`: the strain before any mode moves; None without one."""
        return self._vector(0, STRAIN) if self._database.block(Block.PRE_STRAIN)[0] else None

    def stress(
        self,
        load: str | None = None,
        fix: int | Iterable[int] = (),
        amplitudes: npt.ArrayLike | None = None,
        progress: Callable[[float, float], object] | None = None,
    ) -> Stress:
        """Stress at the `stress_nodes` under a load, or for amplitudes of the modes as a solver has found them.

        load        label of a modal load case. A free body bears it in balance with the inertia of its rigid motion (inertia relief)
        fix         interface nodes that neither move nor turn instead
        amplitudes  (modes,) or (states, modes), in the order of the body
        progress    told how far it is

        As good as the modes are: with the constraint modes of what is held and an attachment mode of the load a static answer is
        exact. A pre-stress is not in it. Modes are read one at a time.
        """
        held = [fix] if isinstance(fix, int) else list(fix)
        if (load is None) == (amplitudes is None) or (held and load is None):
            raise ValueError("stress takes a load, with interface nodes to fix if wanted, or amplitudes")
        if load is not None:
            rigid, _, found = self._database.static_answer(load, held)
            states: Floats = np.array(found)
            solution = f"held at {', '.join(map(str, held))}" if held else "inertia relief" if rigid else "held as its modes are"
        else:
            states = np.asarray(amplitudes, dtype=np.float64)
            solution = "amplitudes as given"
        modes = len(self.modes)
        if states.ndim not in (1, 2) or states.shape[-1] != modes:
            raise ValueError(f"amplitudes: expected {modes} of modes in the last axis, got an array of shape {states.shape}")
        tensors, mises = self._database.combined_stress(np.ascontiguousarray(states.reshape(-1, modes)), progress)
        if states.ndim == 1:
            tensors, mises = tensors[0], mises[0]
        return Stress(self.stress_nodes, tensors, mises, frozen(states), solution)

    @property
    def transformation(self) -> Floats | None:
        """(modes, modes): row i has the components of mode i on the modes as they were given; None without one."""
        return self._cached("transformation", self._database.transformation)

    # ---- Matrices and loads -------------------------------------------------------------------------------------------

    @property
    def mass_matrix(self) -> Floats:
        """(modes, modes): the generalized mass, mass length^2."""
        return self._cached("mass matrix", lambda: self._known_matrix(_MASS))

    @property
    def stiffness_matrix(self) -> Floats:
        """(modes, modes): the generalized stiffness, force length."""
        return self._cached("stiffness matrix", lambda: self._known_matrix(_STIFFNESS))

    def _known_matrix(self, which: int) -> Floats:
        matrix = self._database.matrix(which)
        assert matrix is not None
        return matrix

    @property
    def damping_matrix(self) -> Floats | None:
        """(modes, modes): the generalized damping, force length time; None without one."""
        return self._cached("damping matrix", lambda: self._database.matrix(_DAMPING))

    @property
    def damping_projected(self) -> bool:
        """Whether the first six rows and columns of the damping are of the rigid body, no longer of modes."""
        return self._database.damping_projected()

    def projected_damping(self, mode_numbers: npt.ArrayLike | None = None) -> Floats | None:
        """(6 + n, 6 + n): damping of the rigid body and of n modes; None unless it is projected."""
        modes = self.modes.numbers[6:] if mode_numbers is None else convert.integers("mode_numbers", mode_numbers, None)
        for mode in modes.tolist():
            self.modes[mode]
        return self._database.projected_damping(np.ascontiguousarray(modes))

    def matrix_entries(self, matrix: str) -> Entries:
        """The entries of "mass", "stiffness" or "damping" as they were given."""
        return Entries(*self._database.matrix_entries(_choice("matrix", MATRICES, matrix)))

    @property
    def loads(self) -> Loads:
        """Modal load cases: labels, values (cases, modes) and which are projected."""
        return self._cached("loads", lambda: Loads(*self._database.loads()))

    @property
    def preload(self) -> Floats | None:
        """(modes,), force length; None without one."""
        return self._cached("preload", self._database.preload)

    @property
    def preload_projected(self) -> bool:
        """Whether the first six values of the preload are a force and a moment, no longer of modes."""
        return self._database.preload_projected()

    # ---- How it vibrates ------------------------------------------------------------------------------------------------

    def _facts(self) -> Facts:
        return self._cached("facts", lambda: Facts(*self._database.facts()))

    def free_frequencies(self) -> Floats:
        """(n,) ascending, in hertz: how the free body vibrates, also while its modes are coupled.

        Without numbers when it has none, since the generalized mass is not positive.
        """
        return frozen(np.sort([hertz for _, hertz, _ in self._facts().frequencies]))


def _point_inertia(mass: float, at: Floats) -> Floats:
    inertia: Floats = mass * (np.dot(at, at) * np.eye(3) - np.outer(at, at))
    return inertia
