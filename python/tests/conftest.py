"""What the tests share: the command, a body that it imports from a solver's matrices, pages of documentation, refusals."""

import os
import re
import subprocess
from collections.abc import Callable
from pathlib import Path

import pytest

SOURCE = Path(__file__).resolve().parents[2]


def command(*arguments: object) -> str:
    """Standard output of the zel command."""
    done = subprocess.run([os.environ["ZEL_COMMAND"], *map(str, arguments)], check=True, capture_output=True, text=True)
    return done.stdout


def run_page(name: str) -> None:
    """The Python of a page of the documentation, from its first line to its last."""
    page, names = (SOURCE / "docs" / name).read_text(), dict[str, object]()
    for match in re.finditer(r"^```python\n(.*?)^```", page, re.M | re.S):
        lines_before = page.count("\n", 0, match.start(1))
        exec(compile("\n" * lines_before + match[1], f"docs/{name}", "exec"), names)


def expect_refused(cases: dict[str, Callable[[], object]], *errors: type[Exception]) -> None:
    """Each call raises one of the errors, with its text in the message."""
    for message, call in cases.items():
        with pytest.raises(errors, match=re.escape(message)):
            call()


@pytest.fixture(scope="session")
def rod(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A connecting rod in mm, t, s, N with two interface nodes and 22 modes."""
    path = tmp_path_factory.mktemp("rod") / "rod.zel"
    job = SOURCE / "examples" / "ccx" / "rod"
    interfaces = ["--interface", "LARGE@0,0,0", "--interface", "SMALL@150,0,0"]
    command("import", "ccx", job, "--units", "mm,t,s,N", *interfaces, "--modes", 10, "-o", path)
    return path
