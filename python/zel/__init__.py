"""Flexible bodies for multibody dynamics, in and out of numpy."""

from ._zel import version as __version__
from .body import Body, open
from .compare import Comparison, Difference, Verdict, compare
from .errors import ZelError, ZelWarning
from .invariants import Invariants
from .modes import Mode, Modes
from .records import Block, Entries, Faces, GlobalMass, Header, Largest, Loads, MassProperties, Nodes
from .reduction import reduce
from .report import Report, Row, RowKind
from .units import UNITS, Units

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
    "Mode",
    "Modes",
    "Nodes",
    "Report",
    "Row",
    "RowKind",
    "Units",
    "Verdict",
    "ZelError",
    "ZelWarning",
    "__version__",
    "compare",
    "open",
    "reduce",
]
