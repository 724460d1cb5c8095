"""The modes of a body: a sequence by index, and a table by the numbers that the caller gave."""

from __future__ import annotations

from collections.abc import Iterator
from typing import TYPE_CHECKING

import numpy as np

from .records import Floats, Integers, Largest

if TYPE_CHECKING:
    from .reading import Readable

SHAPE, STRESS, STRAIN = range(3)
KINDS = {"shape": SHAPE, "stress": STRESS, "strain": STRAIN}
_TRANSLATION, _ROTATION, _VON_MISES_STRESS, _VON_MISES_STRAIN = range(4)


def frozen(array: Floats) -> Floats:
    """The array, which nobody can write to any more."""
    array.flags.writeable = False
    return array


class Mode:
    """One mode of a body. Vectors are read from the file each time that they are asked for."""

    def __init__(self, body: Readable, number: int, index: int) -> None:
        self._body = body
        self._number = number
        self._index = index

    @property
    def number(self) -> int:
        """The caller's number. A file numbers its modes 1 to M, whatever they were called when it was written."""
        return self._number

    @property
    def index(self) -> int:
        """The place among the modes, from 0."""
        return self._index

    @property
    def frequency(self) -> float:
        """In hertz, whatever the unit of time; negative for a negative eigenvalue. No number for modes that are coupled."""
        return float(self._body.modes.frequencies[self._index])

    @property
    def eigenvalue(self) -> float:
        """In force / (mass length)."""
        return float(self._body.modes.eigenvalues[self._index])

    @property
    def mass(self) -> float:
        """The generalized mass, mass length^2."""
        return float(self._body.modes.masses[self._index])

    @property
    def stiffness(self) -> float:
        """The generalized stiffness, force length."""
        return float(self._body.modes.stiffnesses[self._index])

    @property
    def is_rigid(self) -> bool:
        """Whether this is one of the rigid-body modes at the front."""
        return self._index < self._body.modes.rigid_count

    @property
    def shape(self) -> Floats:
        """(n, 6): translations and rotations of the body's `shape_nodes`."""
        return self._vector(SHAPE)

    @property
    def stress(self) -> Floats:
        """(n, 6): xx, yy, zz, xy, xz, yz at the body's `stress_nodes`; without rows when there is no modal stress."""
        return self._vector(STRESS)

    @property
    def strain(self) -> Floats:
        """(n, 6): the same of strain, with engineering shears, at the body's `strain_nodes`."""
        return self._vector(STRAIN)

    def largest_translation(self) -> Largest | None:
        """The node that moves most; None when none does."""
        return self._largest(_TRANSLATION)

    def largest_rotation(self) -> Largest | None:
        """The node that turns most; None when none does."""
        return self._largest(_ROTATION)

    def largest_stress(self) -> Largest | None:
        """The node of the largest von Mises stress; None without stress."""
        return self._largest(_VON_MISES_STRESS)

    def largest_strain(self) -> Largest | None:
        """The node of the largest von Mises strain; None without strain."""
        return self._largest(_VON_MISES_STRAIN)

    def _largest(self, measure: int) -> Largest | None:
        node_id, value = self._body._database.largest(self._number, measure)
        return Largest(node_id, value) if value > 0.0 else None

    def _vector(self, kind: int) -> Floats:
        return self._body._vector(self._number, kind)

    def __repr__(self) -> str:
        rigid = ", rigid body" if self.is_rigid else ""
        return f"<zel.Mode {self._number}: {self.frequency:.6g} Hz{rigid}>"


class Modes:
    """All modes of a body: `modes[7]` is the mode with the number 7, iteration goes in their order."""

    def __init__(self, body: Readable) -> None:
        self._body = body

    def __len__(self) -> int:
        return len(self.numbers)

    def __getitem__(self, number: int) -> Mode:
        places = np.flatnonzero(self.numbers == number)
        if not len(places):
            raise KeyError(f"no mode {number}; {self._what_there_is()}")
        return Mode(self._body, int(number), int(places[0]))

    def __iter__(self) -> Iterator[Mode]:
        return (Mode(self._body, int(number), index) for index, number in enumerate(self.numbers))

    def __contains__(self, number: object) -> bool:
        return bool(np.any(self.numbers == number))

    @property
    def numbers(self) -> Integers:
        """(modes,)"""
        return self._body._cached("mode numbers", self._body._database.mode_numbers)

    @property
    def eigenvalues(self) -> Floats:
        """(modes,) in force / (mass length)."""
        return self._records()[:, 0]

    @property
    def frequencies(self) -> Floats:
        """(modes,) in hertz, whatever the unit of time. No numbers while the modes are coupled: see `coupled`."""
        return self._body._cached("frequencies", self._hertz)

    @property
    def masses(self) -> Floats:
        """(modes,) generalized masses, mass length^2."""
        return self._records()[:, 3]

    @property
    def stiffnesses(self) -> Floats:
        """(modes,) generalized stiffnesses, force length."""
        return self._records()[:, 4]

    @property
    def coupled(self) -> bool:
        """Whether generalized matrices couple the modes, so that these have no frequencies of their own.

        Writing without `no_ortho` makes them orthogonal. `Body.free_frequencies` tells how such a body vibrates.
        """
        return self._body._facts().coupled

    @property
    def rigid_count(self) -> int:
        """How many modes at the front are rigid-body modes; 0 while the modes are coupled."""
        return 0 if self.coupled else self._body._cached("rigid", self._body._database.rigid_mode_count)

    def _records(self) -> Floats:
        return self._body._cached("eigenvalues", self._body._database.eigenvalues)

    def _hertz(self) -> Floats:
        if self.coupled:
            return frozen(np.full(len(self), np.nan))
        return frozen(self._records()[:, 1] / self._body._database.seconds())

    def _what_there_is(self) -> str:
        if not len(self):
            return "the body has no modes"
        return f"the body's modes are {self.numbers.min()} to {self.numbers.max()}"

    def __repr__(self) -> str:
        return f"<zel.Modes: {len(self)}, {self.rigid_count} of them rigid-body modes>"
