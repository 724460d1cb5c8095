"""Bodies that the tests share: one that the command imports from a solver's matrices, and what the command says of it."""

import json
import os
import subprocess
from pathlib import Path
from typing import Any

import pytest

SOURCE = Path(__file__).resolve().parents[2]


def command(*arguments: object) -> str:
    """Standard output of the zel command."""
    done = subprocess.run([os.environ["ZEL_COMMAND"], *map(str, arguments)], check=True, capture_output=True, text=True)
    return done.stdout


@pytest.fixture(scope="session")
def rod(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A connecting rod in mm, t, s, N with two interface nodes and 22 modes."""
    path = tmp_path_factory.mktemp("rod") / "rod.zel"
    job = SOURCE / "examples" / "ccx" / "rod"
    interfaces = ["--interface", "LARGE@0,0,0", "--interface", "SMALL@150,0,0"]
    command("import", "ccx", job, "--units", "mm,t,s,N", *interfaces, "--modes", 10, "-o", path)
    return path


@pytest.fixture(scope="session")
def told(rod: Path) -> dict[str, Any]:
    """What `zel info` says of the rod."""
    facts: dict[str, Any] = json.loads(command("info", "--json", rod))
    return facts
