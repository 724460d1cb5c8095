"""Flexible bodies for multibody dynamics, in and out of numpy."""

from typing import TYPE_CHECKING as _TYPE_CHECKING

from ._zel import version as __version__
from .body import Body, open
from .compare import (
    Comparison,
    Difference,
    MatrixMatch,
    ModalComparison,
    ModeGroup,
    Verdict,
    WorstNode,
    compare,
)
from .errors import ZelError, ZelWarning
from .invariants import Invariants
from .modes import Mode, Modes
from .records import Block, Entries, Faces, GlobalMass, Header, Largest, Loads, MassProperties, Nodes, Stress
from .reduction import NodeSet, node_sets, reduce
from .report import Report, Row, RowKind
from .units import UNITS, Units

if _TYPE_CHECKING:
    from . import exudyn as exudyn
else:

    def __getattr__(name: str) -> object:
        # The solver takes a while to load, and not everybody has it.
        if name != "exudyn":
            raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
        from importlib import import_module

        return import_module(".exudyn", __name__)


__all__ = [
    "UNITS",
    "Block",
    "Body",
    "Comparison",
    "Difference",
    "Entries",
    "Faces",
    "GlobalMass",
    "Header",
    "Invariants",
    "Largest",
    "Loads",
    "MassProperties",
    "MatrixMatch",
    "ModalComparison",
    "Mode",
    "ModeGroup",
    "Modes",
    "NodeSet",
    "Nodes",
    "Report",
    "Row",
    "RowKind",
    "Stress",
    "Units",
    "Verdict",
    "WorstNode",
    "ZelError",
    "ZelWarning",
    "__version__",
    "compare",
    "node_sets",
    "open",
    "reduce",
]
