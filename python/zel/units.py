"""Units of measure: four labels, one each of mass, length, time and force."""

from __future__ import annotations

from collections.abc import Sequence
from typing import NamedTuple

from . import _zel

_DIMENSIONS = ("mass", "length", "time", "force")

UNITS: dict[str, dict[str, float]] = {
    dimension: dict(rows) for dimension, rows in zip(_DIMENSIONS, _zel.unit_tables(), strict=True)
}
"""Every label of each dimension and its factor to kilograms, metres, seconds or newtons."""

# Symbols that engineers write and the library does not know.
_SYMBOLS = {"t": "tonne", "g": "gram"}


class Units(NamedTuple):
    """Labels of the four units, as `zel.UNITS` has them."""

    mass: str
    length: str
    time: str
    force: str

    @property
    def factors(self) -> tuple[float, float, float, float]:
        """One unit of each in kilograms, metres, seconds and newtons."""
        mass, length, time, force = (UNITS[dimension][label] for dimension, label in zip(_DIMENSIONS, self, strict=True))
        return mass, length, time, force

    @classmethod
    def parse(cls, units: str | Sequence[str]) -> Units:
        """Four spellings in any order, one of each dimension: "mm,t,s,N" or ("kg", "m", "s", "N")."""
        spellings = units.split(",") if isinstance(units, str) else list(units)
        found: dict[str, str] = {}
        for spelling in (spelling.strip() for spelling in spellings):
            label = _zel.unit_label(_SYMBOLS.get(spelling, spelling))
            if not label:
                raise ValueError(f'"{spelling}" is not a unit')
            dimension = next(dimension for dimension in _DIMENSIONS if label in UNITS[dimension])
            if dimension in found:
                raise ValueError(f"the units name both {found[dimension]} and {label}")
            found[dimension] = label
        if len(found) < len(_DIMENSIONS):
            raise ValueError("the units must name one each of mass, length, time and force, as in mm,t,s,N")
        return cls(**found)
