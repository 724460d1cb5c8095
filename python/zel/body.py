"""Flexible bodies, from files and from scratch."""

from __future__ import annotations

from collections.abc import Callable, Mapping, Sequence

import numpy as np

from . import _zel, show
from .errors import set_aside
from .making import Makeable, Path, path_bytes
from .report import Report

Progress = Callable[[float, float], object]
"""Is told some ten times a second how much is done, of how much; ends the operation by raising."""


class Body(Makeable):
    """One flexible body: nodes with masses, faces, modes, generalized matrices, loads and units.

    One thread at a time works on a body, others wait; different bodies serve different threads at once.
    """

    def __init__(self, units: str | Sequence[str]) -> None:
        """An empty body. units: one each of mass, length, time and force in any order, as "mm,t,s,N"."""
        super().__init__(_zel.create())
        self._report: Report | None = None
        self.set_units(units)

    @classmethod
    def _of(cls, database: _zel.Database) -> Body:
        body = cls.__new__(cls)
        super(Body, body).__init__(database)
        body._report = None
        return body

    @classmethod
    def _reduced(cls, database: _zel.Database, report: Report) -> Body:
        body = cls._of(database)
        body._report = report
        return body

    @property
    def report(self) -> Report | None:
        """What its reduction found and checked; None for a body that did not come out of `zel.reduce`."""
        return self._report

    def write(
        self,
        path: Path,
        options: str | Sequence[str] = "",
        units: str | Sequence[str] | None = None,
        progress: Progress | None = None,
        *,
        damping: float | str | Mapping[int, float] | None = None,
        rayleigh: tuple[float, float] | None = None,
    ) -> None:
        """Write a ZEL file, which takes the place of an older one when it is complete.

        options   keywords as `zel convert --help` lists them: "full_invar lowpass(2000)", or a list of them
        units     change the body's units first
        progress  told how far it is
        damping   ratios in place of the damping that the body has: one for all flexible modes, {7: 0.01, 8: 0.02} by mode numbers of
                  the file, or a text as `zel convert --damping` takes it: "0.01:0-500Hz,0.05:500Hz-"
        rayleigh  alpha in 1/s and beta in s of Rayleigh damping instead; rigid-body modes stay undamped either way

        The body becomes what the file is: unless no_ortho is among the options its modes become orthogonal, and units,
        faces and origin change as the options ask for. The file numbers its modes 1 to M, whatever they are called here.
        """
        words = options if isinstance(options, str) else " ".join(options)
        if problem := _zel.problem_of_options(words):
            raise ValueError(f"options: {problem}")
        if damping is not None and rayleigh is not None:
            raise ValueError("damping and rayleigh exclude each other")
        ratios = "" if damping is None else _ratios(damping)
        factors = "" if rayleigh is None else ",".join(repr(float(factor)) for factor in rayleigh)
        if units is not None:
            self.set_units(units)
        try:
            with set_aside(*self._expected_warnings()):
                self._database.write(path_bytes(path), words, ratios, factors, progress)
        finally:
            self._changed()

    def _expected_warnings(self) -> list[str]:
        # Interface nodes without a mass of their own, and one of them at the origin, are as they should be.
        nodes = self.nodes
        joints = np.isin(nodes.ids, self.interface_nodes)
        expected = []
        if (massless := nodes.masses == 0.0).any() and joints[massless].all():
            expected.append(f"Found {massless.sum()} massless")
        if (at_origin := ~nodes.coordinates.any(axis=1)).sum() == 1 and joints[at_origin].all():
            expected.append("Found 1 node(s) with coordinates (0,0,0)")
        return expected

    def check(self, progress: Progress | None = None) -> Report:
        """Whether the body is fit for a multibody solver: a list of checks with figures, true when all hold."""
        return Report._of(self._database.check(progress), only_checks=True)

    def __repr__(self) -> str:
        return "<zel.Body, closed>" if self.closed else "zel.Body\n" + show.as_text(self)

    def _repr_html_(self) -> str:
        return "<p>zel.Body, closed</p>" if self.closed else show.as_html(self)


def _ratios(damping: float | str | Mapping[int, float]) -> str:
    if isinstance(damping, Mapping):
        text = ",".join(f"{mode}:{float(ratio)!r}" for mode, ratio in damping.items())
    else:
        text = damping if isinstance(damping, str) else repr(float(damping))
    if not text:
        raise ValueError("damping: expected ratios, got none")
    return text


def open(path: Path) -> Body:
    """The body in a ZEL file, which stays open until the body is closed: mode vectors are read on demand.

    Every caller gets a body of its own, also of one path. OSError when the file cannot be opened, ZelError when it is
    none or is damaged.
    """
    return Body._of(_zel.open(path_bytes(path)))
