"""Flexible bodies for multibody dynamics, in and out of numpy."""

from ._zel import version as __version__
from .body import Body, open
from .errors import ZelError, ZelWarning
from .invariants import Invariants
from .modes import Mode, Modes
from .records import Block, Entries, Faces, GlobalMass, Header, Largest, Loads, MassProperties, Nodes
from .units import UNITS, Units

__all__ = [
    "UNITS",
    "Block",
    "Body",
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
    "Units",
    "ZelError",
    "ZelWarning",
    "__version__",
    "open",
]
