"""Whether two bodies are the same."""

from __future__ import annotations

import tempfile
from collections.abc import Callable, Iterator
from contextlib import ExitStack
from dataclasses import dataclass
from enum import IntEnum
from pathlib import Path as FilePath
from typing import Any, Literal, overload

import numpy as np
from numpy.typing import NDArray

from . import _zel
from .body import Body, open
from .making import Path
from .records import Block


class Verdict(IntEnum):
    """What became of a check."""

    PASS = 0
    NOTE = 1
    """A difference that is none of the body, or nothing to compare."""
    WARNING = 2
    """A difference that may be meant, or a comparison that was not possible."""
    FAIL = 3


@dataclass(frozen=True)
class Difference:
    """One check of a comparison."""

    check: str
    worst: float
    """The largest difference, absolute over 1 or relative where values are larger; of counts their distance."""
    limit: float
    """What it may be."""
    verdict: Verdict
    block: Block
    mode: int | None
    """The number in the new body of the mode that differs most; None where no mode is to be named, and so on."""
    node: int | None
    component: int | None

    def __str__(self) -> str:
        places = ((name, getattr(self, name)) for name in ("mode", "node", "component"))
        where = ", ".join(f"{name} {value}" for name, value in places if value is not None)
        return f"{self.block.name:<14} {self.check:<32} {self.worst:>12.4g}  {self.verdict.name:<8} {where}".rstrip()


class Comparison:
    """The checks of a comparison in the order of the blocks. It is true when the bodies are equal: some values were compared, and
    no check fails."""

    def __init__(self, rows: list[Difference], compared: int) -> None:
        self.rows = rows
        self.compared = compared
        """How many checks compared values of the bodies."""

    def __bool__(self) -> bool:
        return self.compared > 0 and not self.failures

    def __len__(self) -> int:
        return len(self.rows)

    def __iter__(self) -> Iterator[Difference]:
        return iter(self.rows)

    @property
    def failures(self) -> list[Difference]:
        """The checks that failed."""
        return [row for row in self.rows if row.verdict == Verdict.FAIL]

    def __repr__(self) -> str:
        failed = f"different: {len(self.failures)} of {len(self)} checks failed"
        title = "equal" if self else failed if self.failures else "nothing was compared"
        return "\n".join([title, *(f"  {row}" for row in self.rows if row.verdict != Verdict.PASS)])


@dataclass(frozen=True, eq=False)
class WorstNode:
    """The node at which matched modes differ most, after the best scaling and turning of the new ones."""

    mode: int
    """Number of the base's mode."""
    base_node: int
    fresh_node: int
    rotation: bool
    """The vectors are rotations, otherwise translations."""
    base: NDArray[np.float64]
    fresh: NDArray[np.float64]
    """What the new modes have in place of the base's vector."""
    share: float
    """The difference in parts of the mode's largest vector."""


@dataclass(frozen=True, eq=False)
class ModeGroup:
    """Modes of both bodies that belong together: a pair, modes of nearly equal frequencies, or the rigid-body modes."""

    base: tuple[int, ...]
    """Mode numbers of the base."""
    fresh: tuple[int, ...]
    """As many of the new body."""
    rigid: bool
    base_hertz: float | None
    """Of the two frequencies that differ most; None where modes have none."""
    fresh_hertz: float | None
    frequency_difference: float
    """In parts of the base's."""
    angles: NDArray[np.float64]
    """Principal angles between the spans in radians, the largest first."""
    mac: float
    """Squared cosine of the largest: the modal assurance criterion of a pair."""
    unweighed_mac: float
    """The same of what masses do not weigh: rotations, and translations of nodes without mass."""
    worst: WorstNode | None
    okay: bool
    """All of it is within the limits."""


@dataclass(frozen=True)
class MatrixMatch:
    """An inertia invariant or generalized matrix after the change of basis to the modes of the base."""

    name: str
    difference: float | None
    """The largest, in parts of what the mass of the body allows; None: not compared."""
    reason: str
    """Why it is not compared."""
    okay: bool


@dataclass(frozen=True)
class ModalComparison:
    """The modes of two bodies matched. It is true when they are the same: some were compared, none is without a partner, and all is
    within the limits."""

    common_nodes: int
    base_only: int
    """Nodes with mode shapes that only the base has."""
    fresh_only: int
    largest_distance: float
    """Within a pair of nodes, in the base's unit of length."""
    largest_distance_node: int
    weighed: bool
    """Nodal masses weigh the shapes."""
    with_rotations: bool
    """Rotations count as well, as some mode moves no node."""
    groups: tuple[ModeGroup, ...]
    """By frequency."""
    base_unmatched: tuple[int, ...]
    fresh_unmatched: tuple[int, ...]
    base_in_fresh: float | None
    """Largest principal angle in radians: the new modes span those of the base to it. None: the nodes are too few to tell."""
    fresh_in_base: float | None
    matrices: tuple[MatrixMatch, ...]
    notes: tuple[str, ...]
    compared: bool
    equal: bool

    def __bool__(self) -> bool:
        return self.equal


def _group(row: tuple[Any, ...]) -> ModeGroup:
    base, fresh, rigid, base_hertz, fresh_hertz, difference, angles, mac, unweighed, worst, okay = row
    node = None
    if worst is not None:
        mode, base_node, fresh_node, rotation, base_vector, fresh_vector, share = worst
        node = WorstNode(mode, base_node, fresh_node, rotation, np.array(base_vector), np.array(fresh_vector), share)
    return ModeGroup(
        tuple(base), tuple(fresh), rigid, base_hertz, fresh_hertz, difference, np.array(angles), mac, unweighed, node, okay
    )


def _opened(stack: ExitStack, body: Path | Body) -> Body:
    return body if isinstance(body, Body) else stack.enter_context(open(body))


def _two_bodies(stack: ExitStack, base: Path | Body, fresh: Path | Body) -> list[Body]:
    bodies = [_opened(stack, base), _opened(stack, fresh)]
    if bodies[0] is bodies[1]:
        raise ValueError("expected two bodies, got the same one twice")
    return bodies


def _in_units_of(base: Body, fresh: Body) -> Body:
    """The new body, or a copy of it where its modes have to be normalised in the units of the base."""
    if not _zel.needs_units_of_base(base._database, fresh._database):
        return fresh
    with tempfile.TemporaryDirectory(prefix="zel_compare_") as folder:
        copy = FilePath(folder) / "copy.zel"
        _zel.write_in_units_of_base(base._database, fresh._database, str(copy))
        return open(copy)


def _compare_modes(
    bodies: list[Body],
    match: str,
    distance: float | None,
    limits: tuple[float, float, float, float],
    progress: Callable[[float, float], object] | None,
) -> ModalComparison:
    if match not in ("id", "position"):
        raise ValueError(f'match: expected "id" or "position", got {match!r}')
    if distance is not None and (match == "id" or not distance >= 0):
        raise ValueError(f"distance: expected a number from 0 on, and nodes matched by position, got {distance!r}")
    row = _zel.compare_modes(
        bodies[0]._database, bodies[1]._database, match == "position", distance, *limits, progress
    )
    (common, base_only, fresh_only, farthest, node, weighed, rotations), rest = row[:7], row[7:]
    groups, base_alone, fresh_alone, base_angle, fresh_angle, matrices, notes, compared, equal = rest
    return ModalComparison(
        common,
        base_only,
        fresh_only,
        farthest,
        node,
        weighed,
        rotations,
        tuple(_group(group) for group in groups),
        tuple(base_alone),
        tuple(fresh_alone),
        base_angle,
        fresh_angle,
        tuple(MatrixMatch(*matrix) for matrix in matrices),
        tuple(notes),
        compared,
        equal,
    )


@overload
def compare(
    base: Path | Body,
    fresh: Path | Body,
    tolerance: float = 1e-6,
    progress: Callable[[float, float], object] | None = None,
    *,
    modes: Literal[False] = False,
) -> Comparison: ...


@overload
def compare(
    base: Path | Body,
    fresh: Path | Body,
    *,
    progress: Callable[[float, float], object] | None = None,
    modes: Literal[True],
    match: str = "id",
    distance: float | None = None,
    cluster: float = 1e-3,
    mac: float = 0.99,
    frequency: float = 1e-3,
    invariants: float = 1e-2,
) -> ModalComparison: ...


def compare(
    base: Path | Body,
    fresh: Path | Body,
    tolerance: float = 1e-6,
    progress: Callable[[float, float], object] | None = None,
    *,
    modes: bool = False,
    match: str = "id",
    distance: float | None = None,
    cluster: float = 1e-3,
    mac: float = 0.99,
    frequency: float = 1e-3,
    invariants: float = 1e-2,
) -> Comparison | ModalComparison:
    """Compare a body, or the body in a file, with a base. Nodes are paired by id and modes by their order.

    A check fails when its difference exceeds the tolerance. Whatever units the two are in, they are compared in SI units;
    the values of a body that is not in a file pass through these and back, so that their last digits may change. Modes of
    generalized mass 1 mean other amplitudes in other units: those of a new file are normalised in the units of the base.

    With `modes` it is the modes that are compared, whatever their order, signs, basis and units, over the nodes of both by id, or by
    "position" within a distance in the base's unit (1e-4 of the body's size). Frequencies within `cluster` of their neighbour's are
    one span. `mac` is the least assurance, `frequency` and `invariants` are the largest relative differences that pass.
    """
    with ExitStack() as stack:
        bodies = _two_bodies(stack, base, fresh)
        if modes:
            return _compare_modes(bodies, match, distance, (cluster, mac, frequency, invariants), progress)
        if not isinstance(fresh, Body):
            bodies[1] = stack.enter_context(_in_units_of(*bodies))
        units = [body.units for body in bodies]
        try:
            rows, compared = _zel.compare(bodies[0]._database, bodies[1]._database, tolerance, progress)
        finally:
            for body, given, before in zip(bodies, (base, fresh), units, strict=True):
                if body is given:
                    body.set_units(before)
    return Comparison(
        [Difference(row[0], row[1], row[6], Verdict(row[7]), Block(row[2]), *row[3:6]) for row in rows], compared
    )
