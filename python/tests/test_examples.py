"""The examples and the guide, as a reader runs them."""

import csv
import runpy
import sys
from pathlib import Path
from typing import Any

import from_scikit_fem as bracket
import numpy as np
import pytest
import scipy.io
from skfem import MeshHex
from skfem.io.meshio import to_meshio

import zel
from conftest import SOURCE, command, run_page

EXAMPLES = SOURCE / "examples" / "python"


def run(monkeypatch: pytest.MonkeyPatch, folder: Path, name: str, *arguments: object) -> None:
    """An example as a program in a folder."""
    monkeypatch.chdir(folder)
    monkeypatch.setattr(sys, "argv", [name, *map(str, arguments)])
    runpy.run_path(str(EXAMPLES / name), run_name="__main__")


def test_the_guide_runs_from_install_to_a_body(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(tmp_path)
    run_page("python.md")


def test_modes_are_drawn(rod: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    run(monkeypatch, tmp_path, "plot_modes.py", rod, "--mode", 9, "--output", "modes.png")
    assert (tmp_path / "modes.png").read_bytes()[:8] == b"\x89PNG\r\n\x1a\n"


def test_a_bracket_of_scikit_fem_becomes_a_body(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    run(monkeypatch, tmp_path, "from_scikit_fem.py")  # compares itself with eigsh and with density x volume
    with zel.open(tmp_path / "bracket.zel") as body:
        assert len(body.interface_nodes) == 2 and len(body.modes) == 24


def bracket_in(folder: Path, **how: Any) -> tuple[MeshHex, list[np.ndarray], list[object], zel.Body]:
    """A bracket whose matrices are written into a folder: its mesh, ends, the arguments of an import, and its body."""
    mesh = bracket.mesh_bracket(6.0, 10.0)
    stiffness, mass, _ = bracket.assemble(mesh)
    for name, matrix in {"K": stiffness, "M": mass}.items():
        scipy.io.mmwrite(folder / f"{name}.mtx", matrix, **how)
    ends = bracket.ends_of(mesh)
    body = zel.reduce(stiffness, mass, to_meshio(mesh), interfaces=ends, modes=12, units="mm,t,s,N")
    return mesh, ends, ["--units", "mm,t,s,N", "--modes", 12, "-o", folder / "part.zel"], body


def expect_frequencies(folder: Path, body: zel.Body) -> None:
    with zel.open(folder / "part.zel") as written:
        np.testing.assert_allclose(written.modes.frequencies[6:], body.free_frequencies()[6:], rtol=1e-9)


@pytest.mark.parametrize("suffix", ["vtu", "med"])
def test_matrices_and_a_mesh_in_files_become_a_body(
    suffix: str, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    mesh, ends, arguments, body = bracket_in(tmp_path, symmetry="symmetric", precision=17)
    part = to_meshio(mesh)
    tags = np.zeros(len(part.points), np.int64)
    for tag, nodes in enumerate(ends, 2):
        tags[nodes - 1] = tag
    if suffix == "med":
        part.point_data["point_tags"], part.point_tags = tags, {2: ["FLOOR"], 3: ["WALL"]}
    else:
        part.point_data = {"FLOOR": (tags == 2).astype(np.int8), "WALL": (tags == 3).astype(np.int8)}
    part.write(tmp_path / f"part.{suffix}")
    files = (f"part.{suffix}", "K.mtx", "M.mtx", "--interface", "FLOOR", "--interface", "WALL")
    run(monkeypatch, tmp_path, "from_meshio.py", *files, *arguments)
    expect_frequencies(tmp_path, body)


@pytest.mark.parametrize("kind", ["gmsh", "gmsh22", "nastran", "abaqus"])
def test_the_command_reads_matrices_and_meshes_that_others_wrote(kind: str, tmp_path: Path) -> None:
    mesh, ends, arguments, body = bracket_in(tmp_path)
    to_meshio(mesh).write(tmp_path / "part", file_format=kind, **({"binary": False} if kind.startswith("gmsh") else {}))
    interfaces = [f"--interface=ids={','.join(map(str, end))}" for end in ends]
    files = ("--stiffness", tmp_path / "K.mtx", "--mass", tmp_path / "M.mtx", "--mesh", tmp_path / "part")
    command("import", "matrices", *files, *interfaces, *arguments)
    expect_frequencies(tmp_path, body)


def test_a_study_runs_on_two_workers_and_shows_what_failed(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    sizes = ("--thickness", "4,8", "--radius", "10,-1", "--workers", 2)
    run(monkeypatch, tmp_path, "many_bodies.py", *sizes, "--output", "study")
    rows = list(csv.DictReader((tmp_path / "study" / "study.csv").open()))
    assert [(float(row["thickness"]), float(row["radius"])) for row in rows] == [(4, 10), (4, -1), (8, 10), (8, -1)]
    good, bad = rows[::2], rows[1::2]
    assert [row["message"] for row in bad] == ["a bracket has a thickness and a radius"] * 2
    assert [row["checks"] for row in good] == ["Okay"] * 2
    assert 1.5 < float(good[1]["f1_hz"]) / float(good[0]["f1_hz"]) < 2.2  # bending: about in proportion to the thickness
    assert sorted(path.name for path in (tmp_path / "study").glob("*.zel")) == ["bracket_4_10.zel", "bracket_8_10.zel"]
    assert (tmp_path / "study" / "study.png").stat().st_size > 10_000
