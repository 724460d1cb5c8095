"""What a check or a reduction tells: rows of figures, some with a verdict."""

from __future__ import annotations

import html
from collections.abc import Iterator
from dataclasses import dataclass
from enum import IntEnum


class RowKind(IntEnum):
    """What a row of a report is."""

    TITLE = 0
    NOTE = 1
    FIGURE = 2
    """Only informs."""
    CHECK = 3
    """Must hold."""


@dataclass(frozen=True)
class Row:
    """One line of a report."""

    kind: RowKind
    name: str
    text: str
    """The figures as a person reads them."""
    holds: bool | None
    """The verdict on a check; None for all other rows."""
    figures: dict[str, float]
    """The figures as numbers, by their names."""

    @property
    def verdict(self) -> str:
        """Okay or CHECK!, empty where nothing has to hold."""
        return {None: "", True: "Okay", False: "CHECK!"}[self.holds]

    def __str__(self) -> str:
        return self._line(len(self.name))

    def _line(self, width: int) -> str:
        if self.kind == RowKind.TITLE:
            return self.text
        if self.kind == RowKind.NOTE:
            return f"Note: {self.text}"
        return f"{self.verdict:<6} {self.name:<{width}} {self.text}"


class Report:
    """The rows in the order in which they were found. It is true when every check holds."""

    def __init__(self, rows: list[Row]) -> None:
        self.rows = rows

    @classmethod
    def _of(
        cls, rows: list[tuple[int, str, str, bool | None, list[tuple[str, float]]]], only_checks: bool = False
    ) -> Report:
        made = [Row(RowKind(kind), name, text, holds, dict(figures)) for kind, name, text, holds, figures in rows]
        return cls([row for row in made if row.kind == RowKind.CHECK or not only_checks])

    def __bool__(self) -> bool:
        return all(row.holds is not False for row in self.rows)

    def __len__(self) -> int:
        return len(self.rows)

    def __iter__(self) -> Iterator[Row]:
        return iter(self.rows)

    def __getitem__(self, index: int) -> Row:
        return self.rows[index]

    @property
    def failures(self) -> list[Row]:
        """The checks that do not hold."""
        return [row for row in self.rows if row.holds is False]

    def __repr__(self) -> str:
        width = max((len(row.name) for row in self.rows), default=0)
        return "\n".join(row._line(width) for row in self.rows)

    def _repr_html_(self) -> str:
        cells = ((row.name, row.text, row.verdict) for row in self.rows)
        lines = ("".join(f"<td>{html.escape(cell)}</td>" for cell in row) for row in cells)
        return "<table>" + "".join(f"<tr>{line}</tr>" for line in lines) + "</table>"
