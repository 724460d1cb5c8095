"""Whether two bodies are the same."""

from __future__ import annotations

import tempfile
from collections.abc import Callable, Iterator
from contextlib import ExitStack
from dataclasses import dataclass
from enum import IntEnum
from pathlib import Path as FilePath

import numpy as np

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
    """The checks of a comparison in the order of the blocks. It is true when the bodies are equal: no check fails."""

    def __init__(self, rows: list[Difference]) -> None:
        self.rows = rows

    def __bool__(self) -> bool:
        return all(row.verdict != Verdict.FAIL for row in self.rows)

    def __len__(self) -> int:
        return len(self.rows)

    def __iter__(self) -> Iterator[Difference]:
        return iter(self.rows)

    @property
    def failures(self) -> list[Difference]:
        """The checks that failed."""
        return [row for row in self.rows if row.verdict == Verdict.FAIL]

    def __repr__(self) -> str:
        title = "equal" if self else f"different: {len(self.failures)} of {len(self)} checks failed"
        return "\n".join([title, *(f"  {row}" for row in self.rows if row.verdict != Verdict.PASS)])


def _opened(stack: ExitStack, body: Path | Body) -> Body:
    return body if isinstance(body, Body) else stack.enter_context(open(body))


def _is_normalised(body: Body) -> bool:
    return bool(len(body.modes)) and Block.EIGENVALUES in body.blocks and bool(np.all(abs(body.modes.masses - 1) < 1e-6))


def _options_to_keep(body: Body) -> str:
    blocks = body.blocks
    invariants = "full_invar" if Block.INVAR9 in blocks else "fast_invar" if Block.INVAR3 in blocks else ""
    return invariants + ("" if body.double_precision else " single")


def _in_units_of(base: Body, fresh: Body) -> Body:
    """Modes of generalized mass 1 mean another amplitude in other units: a copy has them normalised in those of the base."""
    if base.units == fresh.units or not _is_normalised(base) or not _is_normalised(fresh):
        return fresh
    with tempfile.TemporaryDirectory(prefix="zel_compare_") as folder:
        fresh.write(FilePath(folder) / "copy.zel", _options_to_keep(fresh), base.units)
        return open(FilePath(folder) / "copy.zel")


def compare(
    base: Path | Body,
    fresh: Path | Body,
    tolerance: float = 1e-6,
    progress: Callable[[float, float], object] | None = None,
) -> Comparison:
    """Compare a body, or the body in a file, with a base. Nodes are paired by id and modes by their order.

    A check fails when its difference exceeds the tolerance. Whatever units the two are in, they are compared in SI units;
    the values of a body that is not in a file pass through these and back, so that their last digits may change. Modes of
    generalized mass 1 mean other amplitudes in other units: those of a new file are normalised in the units of the base.
    """
    with ExitStack() as stack:
        bodies = [_opened(stack, base), _opened(stack, fresh)]
        if bodies[0] is bodies[1]:
            raise ValueError("expected two bodies, got the same one twice")
        if not isinstance(fresh, Body):
            bodies[1] = stack.enter_context(_in_units_of(*bodies))
        units = [body.units for body in bodies]
        try:
            rows = _zel.compare(bodies[0]._database, bodies[1]._database, tolerance, progress)
        finally:
            for body, given, before in zip(bodies, (base, fresh), units, strict=True):
                if body is given:
                    body.set_units(before)
    places = [tuple(None if place == _zel.NONE else place for place in row[3:6]) for row in rows]
    return Comparison(
        [
            Difference(row[0], row[1], row[6], Verdict(row[7]), Block(row[2]), *place)
            for row, place in zip(rows, places, strict=True)
        ]
    )
