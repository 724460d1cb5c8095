"""The inertia invariants of a body."""

from __future__ import annotations

from collections.abc import Iterator
from typing import TYPE_CHECKING, Literal, overload

from .errors import ZelError
from .records import Floats

if TYPE_CHECKING:
    from .reading import Readable

_ORIGINS = ("none", "computed", "set", "read")


class Invariants:
    """Inertia invariants 1 to 9: what was set, else what the file holds, else sums over the nodes, made on first use.

    With M modes: 1 a float; 2 (3,); 3 and 4 (3, M); 5 (M, 3, M); 6 (M, M); 7 (3, 3); 8 (M, 3, 3); 9 (M, M, 3, 3).
    """

    def __init__(self, body: Readable) -> None:
        self._body = body

    @overload
    def __getitem__(self, number: Literal[1]) -> float: ...
    @overload
    def __getitem__(self, number: Literal[2, 3, 4, 5, 6, 7, 8, 9]) -> Floats: ...
    @overload
    def __getitem__(self, number: int) -> float | Floats: ...
    def __getitem__(self, number: int) -> float | Floats:
        if number not in range(1, 10):
            raise KeyError(f"no invariant {number}; they are 1 to 9")
        if number == 1:
            return self._body._database.invariant1()
        values = self._body._database.invariant(number)
        if values is None:
            raise ZelError(f"invariant {number} is not known: {self._why(number)}")
        return values

    def __len__(self) -> int:
        return 9

    def __iter__(self) -> Iterator[int]:
        return iter(range(1, 10))

    def origin(self, number: int) -> str:
        """Where it comes from, as far as it has been asked for: "none", "computed", "set" or "read"."""
        return _ORIGINS[self._body._database.invariant_origin(number)]

    def _why(self, number: int) -> str:
        return "the body has no modes" if not len(self._body.modes) else "the body does not tell"
