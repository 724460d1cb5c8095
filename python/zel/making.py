"""How a body is made and changed: whole arrays at a time.

Every setter checks all that it gets before it changes anything. What it does not name stays.
"""

from __future__ import annotations

import os
import tempfile
from collections.abc import Sequence
from typing import TypeAlias

import numpy as np
import numpy.typing as npt

from . import convert
from .modes import SHAPE, STRAIN, STRESS
from .reading import MATRICES, Readable
from .records import Floats, Integers
from .units import Units

Path: TypeAlias = str | os.PathLike[str]

Vector: TypeAlias = npt.ArrayLike | tuple[npt.ArrayLike, npt.ArrayLike]
"""Values of nodes: a row for each node of the body, or a pair (node ids, values)."""


def path_bytes(path: Path) -> bytes:
    """A path as the system takes it."""
    encoded = os.fsencode(path)
    if b"\0" in encoded:
        raise ValueError("a path cannot have a null character in it")
    return encoded


def _finite(name: str, values: Floats) -> Floats:
    if not np.isfinite(values).all():
        where = tuple(int(i) for i in np.argwhere(~np.isfinite(values))[0])
        raise ValueError(f"{name}: expected finite numbers, got {values[where]} at {where}")
    return values


def _text(name: str, text: str, most: int) -> str:
    if "\0" in text or len(text.encode()) > most:
        raise ValueError(f"{name}: expected a text of at most {most} bytes without null characters, got {text!r}")
    return text


def _six(tensors: Floats) -> Floats:
    rows, columns = [0, 1, 2, 0, 0, 1], [0, 1, 2, 1, 2, 2]
    return np.ascontiguousarray(tensors[:, rows, columns])


class Makeable(Readable):
    """The setters of a body."""

    # What stays the same when modes are set at nodes that are there.
    _OF_NODES = ("units", "consistency", "header", "nodes", "faces", "interface", "size")

    def _changed(self, *kept: str) -> None:
        self._cache = {name: value for name, value in self._cache.items() if name in kept}

    # ---- Header and units ------------------------------------------------------------------------------------------------

    def set_units(self, units: str | Sequence[str]) -> None:
        """Change the units: everything that the body holds is rescaled. Four spellings in any order, as "kg,m,s,N"."""
        try:
            self._database.set_units(*Units.parse(units))
        finally:
            self._changed()

    def set_header(
        self,
        title: str = "",
        input_file_name: str = "",
        input_file_type: str = "",
        comment1: str = "",
        comment2: str = "",
        comment3: str = "",
    ) -> None:
        """Set all texts that tell where the data come from; the date becomes today's."""
        texts = [_text("title", title, 127), _text("input_file_name", input_file_name, 127)]
        texts.append(_text("input_file_type", input_file_type, 15))
        for number, comment in enumerate((comment1, comment2, comment3), 1):
            texts.append(_text(f"comment{number}", comment, 79))
        self._database.set_header(texts)
        self._changed()

    # ---- Nodes and faces -------------------------------------------------------------------------------------------------

    def set_nodes(
        self,
        ids: npt.ArrayLike,
        coordinates: npt.ArrayLike,
        masses: npt.ArrayLike | None = None,
        inertias: npt.ArrayLike | None = None,
    ) -> None:
        """Add nodes, or move those whose ids are known.

        ids          (n,), each once
        coordinates  (n, 3)
        masses       (n,)
        inertias     (n, 3, 3): symmetric tensors about the nodes
        """
        nodes = convert.integers("ids", ids, None)
        if len(np.unique(nodes)) != len(nodes):
            raise ValueError("ids: expected each node once")
        places = _finite("coordinates", convert.floats("coordinates", coordinates, len(nodes), 3))
        weights = None if masses is None else _finite("masses", convert.floats("masses", masses, len(nodes)))
        tensors = None if inertias is None else self._tensors(inertias, len(nodes))
        try:
            self._database.set_nodes(nodes, places)
            if weights is not None:
                self._database.set_nodal_masses(nodes, weights)
            if tensors is not None:
                self._database.set_nodal_inertias(nodes, _six(tensors))
        finally:
            self._changed()

    def set_nodal_masses(self, ids: npt.ArrayLike, masses: npt.ArrayLike) -> None:
        """Set the masses of known nodes."""
        nodes = self._known("ids", ids)
        weights = _finite("masses", convert.floats("masses", masses, len(nodes)))
        self._database.set_nodal_masses(nodes, weights)
        self._changed()

    def set_nodal_inertias(self, ids: npt.ArrayLike, inertias: npt.ArrayLike) -> None:
        """Set the inertias of known nodes, (n, 3, 3): symmetric tensors about the nodes."""
        nodes = self._known("ids", ids)
        self._database.set_nodal_inertias(nodes, _six(self._tensors(inertias, len(nodes))))
        self._changed()

    @staticmethod
    def _tensors(inertias: npt.ArrayLike, count: int) -> Floats:
        tensors = _finite("inertias", convert.floats("inertias", inertias, count, 3, 3))
        limit = 1e-12 * np.abs(tensors).max(initial=0.0)
        if not np.allclose(tensors, tensors.transpose(0, 2, 1), rtol=1e-12, atol=limit):
            raise ValueError("inertias: expected symmetric tensors")
        return tensors

    def _known(self, name: str, ids: npt.ArrayLike) -> Integers:
        nodes = convert.integers(name, ids, None)
        self.nodes.index_of(nodes)
        return nodes

    def set_faces(
        self, faces: npt.ArrayLike | Sequence[Sequence[int]], offsets: npt.ArrayLike | None = None
    ) -> None:
        """Set the element faces in place of those that are there, as node ids in order round each face.

        faces    (faces, vertices), or a list of faces with 2 to 8 vertices each, or with `offsets` all ids in one array
        offsets  (faces + 1,): face i has faces[offsets[i]:offsets[i + 1]], as `Body.faces` has them
        """
        if offsets is not None:
            starts = convert.integers("offsets", offsets, None)
            ids = convert.integers("faces", faces, None)
            if not len(starts) or starts[0] != 0 or starts[-1] != len(ids):
                raise ValueError(f"offsets: expected them to go from 0 to {len(ids)}, the number of ids in faces")
            counts = np.ascontiguousarray(np.diff(starts), np.int32)
        elif isinstance(faces, np.ndarray):
            table = convert.integers("faces", faces, None, None)
            counts, ids = np.full(len(table), table.shape[1], np.int32), table.reshape(-1)
        else:
            rows = [convert.integers("faces", face, None) for face in faces]  # type: ignore[union-attr]
            counts = np.array([len(row) for row in rows], np.int32)
            ids = np.concatenate([np.empty(0, np.int32), *rows])
        if len(counts) and not (2 <= counts.min() and counts.max() <= 8):
            raise ValueError(f"faces: expected 2 to 8 vertices, got {counts[(counts < 2) | (counts > 8)][0]}")
        self._known("faces", np.unique(ids))
        if len(self.faces.offsets) > 1:
            self._replace_faces(counts, ids)
        else:
            self._database.add_faces(counts, ids)
        self._changed()

    def _replace_faces(self, counts: Integers, ids: Integers) -> None:
        # The library adds faces to those that are there; it takes them anew only from a file.
        places = np.concatenate([[0], np.cumsum(counts)])
        faces = [ids[at : at + count].tolist() for count, at in zip(counts.tolist(), places, strict=False)]
        lines = [" ".join(map(str, [len(face), *face])) for face in faces]
        with tempfile.NamedTemporaryFile("w", suffix=".txt") as file:
            file.write("\n".join([str(len(counts)), *lines, ""]))
            file.flush()
            self._database.sketch_faces(path_bytes(file.name))

    def set_interface_nodes(self, ids: npt.ArrayLike) -> None:
        """Make known nodes interface nodes, beside those that are."""
        self._database.set_interface_nodes(self._known("ids", ids))
        self._changed()

    def swap_nodes(self, first: int, second: int) -> None:
        """Exchange the places of two nodes in the node table; faces and modes go with them."""
        ids = self._known("nodes", [first, second])
        self._database.swap_nodes(int(ids[0]), int(ids[1]))
        self._changed()

    def strip_common_faces(self) -> None:
        """Remove the faces between two elements, so that a body of solids keeps its skin."""
        self._database.strip_common_faces()
        self._changed()

    def sketch_faces(self, path: Path) -> None:
        """Take the faces from a text file; a ZelWarning, and no change, when it cannot be read."""
        self._database.sketch_faces(path_bytes(path))
        self._changed()

    def coarsen_faces(
        self, percent: float, degrees: float = 0.0, preserve: npt.ArrayLike | None = None, preserve_stress: bool = False
    ) -> None:
        """Coarsen the faces; they stay closed and oriented, and use nodes that are there.

        percent          the resolution, of the longest side of the bounding box, 0 to 50
        degrees          neighbouring faces whose normals are within it become one polygon, 0 to 45
        preserve         ids of nodes that must stay on the faces
        preserve_stress  keep all nodes that carry modal stress or strain instead
        """
        text = f"{float(percent)!r},{float(degrees)!r}"
        if preserve is not None:
            text += ",preserve_str," + ",".join(str(node) for node in self._known("preserve", preserve).tolist())
        elif preserve_stress:
            text += ",preserve_str"
        self._database.coarsen_faces(text)
        self._changed()

    # ---- Modes -----------------------------------------------------------------------------------------------------------

    def set_mode(
        self, number: int, shape: Vector | None = None, stress: Vector | None = None, strain: Vector | None = None
    ) -> None:
        """Set vectors of a mode, which is added when its number is unknown.

        number  the caller's own; a file numbers its modes 1 to M in their order, whatever they are called here
        shape   (n, 6): translations and rotations of the nodes in their order; (n, 3): translations alone, no rotations
        stress  (n, 6): xx, yy, zz, xy, xz, yz
        strain  (n, 6): the same, with engineering shears
        Instead of an array each may be a pair (node ids, values), for some of the nodes.
        """
        vectors = [
            (kind, *self._rows(name, vector, kind == SHAPE))
            for name, vector, kind in (("shape", shape, SHAPE), ("stress", stress, STRESS), ("strain", strain, STRAIN))
            if vector is not None
        ]
        if len(vectors) > 1:
            for kind, _, values in vectors:
                _finite(("shape", "stress", "strain")[kind], values)  # all of them before the first is set
        if not vectors:
            self._database.add_modes(convert.integers("number", [number], 1))
        try:
            for kind, ids, values in vectors:
                self._database.set_mode(number, kind, ids, values)
        finally:
            self._changed(*self._OF_NODES)

    def set_pre_stress(self, stress: Vector) -> None:
        """Set the stress before any mode moves, (n, 6) or a pair (node ids, values)."""
        self._set_pre_tensor("stress", stress, STRESS)

    def set_pre_strain(self, strain: Vector) -> None:
        """Set the strain before any mode moves, (n, 6) or a pair (node ids, values)."""
        self._set_pre_tensor("strain", strain, STRAIN)

    def _set_pre_tensor(self, name: str, tensor: Vector, kind: int) -> None:
        self._database.set_mode(0, kind, *self._rows(name, tensor, False))
        self._changed(*self._OF_NODES)

    def _rows(self, name: str, vector: Vector, translations_alone: bool) -> tuple[Integers, Floats]:
        if isinstance(vector, tuple) and len(vector) == 2:
            ids, given = self._known(f"{name} nodes", vector[0]), np.asarray(vector[1])
        else:
            ids, given = self.nodes.ids, np.asarray(vector)
        if translations_alone and given.shape == (len(ids), 3):
            values = np.zeros((len(ids), 6))
            values[:, :3] = convert.floats(name, given, len(ids), 3)
        else:
            values = convert.floats(name, given, len(ids), 6)
        return ids, values

    # ---- Matrices and loads ----------------------------------------------------------------------------------------------

    def set_mass_matrix(self, matrix: npt.ArrayLike) -> None:
        """Set the generalized mass, (modes, modes) in the order of the modes; without any, modes 1 to M are added."""
        self._set_matrix("mass", matrix)

    def set_stiffness_matrix(self, matrix: npt.ArrayLike) -> None:
        """Set the generalized stiffness, (modes, modes) in the order of the modes."""
        self._set_matrix("stiffness", matrix)

    def set_damping_matrix(self, matrix: npt.ArrayLike) -> None:
        """Set the generalized damping, (modes, modes) in the order of the modes."""
        self._set_matrix("damping", matrix)

    def _set_matrix(self, name: str, matrix: npt.ArrayLike) -> None:
        values = np.asarray(matrix)
        if not len(self.modes):
            values = convert.floats(name, values, None, len(values) if values.ndim else None)
            self._database.add_modes(np.arange(1, len(values) + 1, dtype=np.int32))
            self._changed()
        numbers = self.modes.numbers
        values = _finite(name, convert.floats(name, values, len(numbers), len(numbers)))
        # Entries of equal places replace each other, so a zero has to be given where something else was, and all of the
        # diagonal, without which a matrix has values of its own.
        wanted = (values != 0.0) | np.eye(len(numbers), dtype=bool)
        before = self.matrix_entries(name)
        known = (before.rows >= 0) & (before.columns >= 0)
        wanted[before.rows[known], before.columns[known]] = True
        rows, columns = np.nonzero(wanted)
        try:
            self._database.add_entries(MATRICES[name], numbers[rows], numbers[columns], values[rows, columns])
        finally:
            self._changed(*self._OF_NODES)

    def add_load(self, label: str, values: npt.ArrayLike) -> None:
        """Add a modal load case, (modes,) in the order of the modes."""
        loads = _finite("values", convert.floats("values", values, len(self.modes)))
        self._database.set_load(len(self.loads.labels), _text("label", label, 255), self.modes.numbers, loads)
        self._changed(*self._OF_NODES)

    def set_load(self, load_case: int, values: npt.ArrayLike, label: str | None = None) -> None:
        """Replace a load case, which counts from 0, and its label unless it is to stay."""
        labels = self.loads.labels
        if load_case not in range(len(labels)):
            raise IndexError(f"no load case {load_case}; there are {len(labels)}")
        loads = _finite("values", convert.floats("values", values, len(self.modes)))
        text = labels[load_case] if label is None else _text("label", label, 255)
        self._database.set_load(load_case, text, self.modes.numbers, loads)
        self._changed(*self._OF_NODES)

    def set_preload(self, values: npt.ArrayLike) -> None:
        """Set the preload, (modes,) in the order of the modes, force length."""
        loads = _finite("values", convert.floats("values", values, len(self.modes)))
        self._database.set_preload(self.modes.numbers, loads)
        self._changed(*self._OF_NODES)

    def add_coupling_masses(self, first: int, second: int) -> None:
        """Add generalized masses that couple the first modes with the `second` ones behind them, from nodal masses."""
        self._database.add_coupling_masses(first, second)
        self._changed(*self._OF_NODES)

    def project_on_principal_axes(self) -> None:
        """Express loads, preload and damping of the rigid-body modes by forces and velocities on the principal axes, once."""
        self._database.project_on_principal_axes()
        self._changed()

    # ---- Mass ------------------------------------------------------------------------------------------------------------

    def set_global_mass(self, mass: float, center: npt.ArrayLike, inertia: npt.ArrayLike) -> None:
        """Store mass, centre and inertia (the tensor about the origin) of a body without nodal masses."""
        self._database.set_global_mass(
            mass, convert.floats("center", center, 3), convert.floats("inertia", inertia, 3, 3)
        )
        self._changed()

    def set_invariant(self, number: int, values: npt.ArrayLike) -> None:
        """Set an inertia invariant that is known, in the shape that `invariants` tells; 6 is (M,), each exactly 1.

        Add all modes first: a later one drops invariants 3 to 9 with a ZelWarning.
        """
        m = len(self.modes)
        shapes: dict[int, tuple[int, ...]] = {
            1: (), 2: (3,), 3: (3, m), 4: (3, m), 5: (m, 3, m), 6: (m,), 7: (3, 3), 8: (m, 3, 3), 9: (m, m, 3, 3)
        }  # fmt: skip
        if number not in shapes:
            raise KeyError(f"no invariant {number}; they are 1 to 9")
        self._database.set_invariant(number, convert.floats(f"invariant {number}", values, *shapes[number]))
        self._changed()
