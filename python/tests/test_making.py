"""Bodies made from arrays: what was set comes back, before and after a file, and mechanics that numpy works out."""

import warnings
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy as np
import pytest

import zel
from conftest import command, expect_refused

MODES = 5


def lumps(nodes: int = 7, seed: int = 3) -> tuple[zel.Body, dict[str, np.ndarray]]:
    """A body of lumps with inertias and random modes, without symmetry, and the arrays that it was made of."""
    rng = np.random.default_rng(seed)
    half = rng.normal(size=(nodes, 3, 3))
    given = {
        "ids": np.array([40, 7, 19, 3, 1000, 2, 55])[:nodes],
        "at": rng.normal(size=(nodes, 3)),
        "m": rng.uniform(1.0, 2.0, nodes),
        "J": half @ half.transpose(0, 2, 1),
        "shapes": rng.normal(size=(MODES, nodes, 6)),
        "stress": rng.normal(size=(MODES, nodes, 6)),
    }
    body = zel.Body(units="mm,t,s,N")
    body.set_nodes(given["ids"], given["at"], masses=given["m"], inertias=given["J"])
    for number, (shape, stress) in enumerate(zip(given["shapes"], given["stress"], strict=True), 1):
        body.set_mode(10 * number, shape, stress=stress)
    return body, given


def coupled_matrices() -> tuple[np.ndarray, np.ndarray]:
    rng = np.random.default_rng(5)
    k, m = rng.normal(size=(2, MODES, MODES))
    return k @ k.T + np.eye(MODES), m @ m.T + np.eye(MODES)


def test_what_was_set_comes_back_from_the_body_and_from_a_file(tmp_path: Path) -> None:
    body, given = lumps()
    ids = given["ids"].tolist()
    body.set_faces([ids[:3], ids[2:6], ids[:2]])
    body.set_interface_nodes([19, 3])
    body.set_header("Lumps", "lumps.py", "numpy", comment2="seven of them")
    body.add_load("gravity", np.arange(MODES))
    body.add_load("wind", -np.arange(MODES))
    body.set_load(0, np.arange(MODES) + 1.0)
    body.set_preload(np.linspace(1, 2, MODES))
    body.set_damping_matrix(np.diag(np.arange(1.0, MODES + 1)))
    body.set_pre_stress(([2, 7], np.arange(12.0).reshape(2, 6)))
    body.set_mass_matrix(np.eye(MODES))
    body.set_stiffness_matrix(np.full((MODES, MODES), 9.0))
    body.set_stiffness_matrix(np.diag(np.arange(1.0, MODES + 1)))  # what was off the diagonal is gone
    body.write(tmp_path / "lumps.zel", "no_ortho full_str")
    assert command("info", tmp_path / "lumps.zel").splitlines()[1].split() == ["title", "Lumps"]
    with zel.open(tmp_path / "lumps.zel") as again:
        assert body.modes.numbers.tolist() == [10, 20, 30, 40, 50]
        assert again.modes.numbers.tolist() == [1, 2, 3, 4, 5]  # a file numbers them from 1
        for back in (body, again):
            assert back.units == ("MEGAGRAM", "MILLIMETER", "SECOND", "NEWTON")
            order = back.nodes.index_of(given["ids"])
            np.testing.assert_array_equal(back.nodes.coordinates[order], given["at"])
            np.testing.assert_array_equal(back.nodes.masses[order], given["m"])
            assert back.nodes.inertias is not None and back.pre_stress is not None
            np.testing.assert_allclose(back.nodes.inertias[order], given["J"], rtol=1e-15)
            for mode, shape, stress in zip(back.modes, given["shapes"], given["stress"], strict=True):
                np.testing.assert_array_equal(mode.shape[order], shape)
                np.testing.assert_array_equal(mode.stress[np.argsort(back.stress_nodes)], stress[np.argsort(ids)])
            faces = [back.faces.ids[a:b].tolist() for a, b in zip(back.faces.offsets, back.faces.offsets[1:])]
            assert faces == [ids[:3], ids[2:6], ids[:2]]
            assert set(back.interface_nodes) == {19, 3}
            assert back.header[0] == "Lumps" and back.header.comment2.strip() == "seven of them"
            assert [label.strip() for label in back.loads.labels] == ["gravity", "wind"]
            np.testing.assert_array_equal(back.loads.values, [np.arange(MODES) + 1.0, -np.arange(MODES)])
            np.testing.assert_array_equal(back.preload, np.linspace(1, 2, MODES))
            np.testing.assert_array_equal(back.damping_matrix, np.diag(np.arange(1.0, MODES + 1)))
            np.testing.assert_array_equal(back.stiffness_matrix, np.diag(np.arange(1.0, MODES + 1)))
            np.testing.assert_array_equal(back.mass_matrix, np.eye(MODES))
            assert back.pre_stress[back.stress_nodes == 7].tolist() == [[6, 7, 8, 9, 10, 11]]


def test_invariants_are_sums_over_the_nodes() -> None:
    body, given = lumps()
    m, s, inertia = given["m"], given["at"], given["J"]
    phi, psi = given["shapes"][:, :, :3], given["shapes"][:, :, 3:]
    e = np.eye(3)

    def tensor_about(point: list[float]) -> Any:
        r = s - point
        return np.einsum("p,pab->ab", m, (r**2).sum(1)[:, None, None] * e - r[:, :, None] * r[:, None]) + inertia.sum(0)

    expected = {
        1: m.sum(),
        2: m @ s,
        3: np.einsum("p,kpc->ck", m, phi),
        4: np.einsum("p,kpc->ck", m, np.cross(s, phi)) + np.einsum("pab,kpa->bk", inertia, psi),
        6: np.eye(MODES),
        7: tensor_about([0.0, 0.0, 0.0]),
    }
    for number, values in expected.items():
        np.testing.assert_allclose(body.invariants[number], values, rtol=1e-12, atol=1e-12, err_msg=f"{number}")
    np.testing.assert_allclose(body.mass_properties().inertia, expected[7], rtol=1e-12)
    about = [3.0, -4.0, 2.5]
    np.testing.assert_allclose(body.mass_properties(about).inertia, tensor_about(about), rtol=1e-12)
    body.set_invariant(3, 2 * expected[3])
    np.testing.assert_array_equal(body.invariants[3], 2 * expected[3])
    assert body.invariants.origin(3) == "set"


def test_writing_makes_coupled_modes_orthogonal(tmp_path: Path) -> None:
    body, given = lumps()
    stiffness, mass = coupled_matrices()
    body.set_stiffness_matrix(stiffness)
    body.set_mass_matrix(mass)
    values = np.linalg.eigvals(np.linalg.solve(mass, stiffness)).real  # t, mm, s and N belong together
    hertz = np.sort(np.sqrt(values)) / (2 * np.pi)
    assert body.modes.coupled and np.isnan(body.modes[30].frequency)
    np.testing.assert_allclose(body.free_frequencies(), hertz, rtol=1e-10)
    told: list[tuple[float, float]] = []
    body.write(tmp_path / "body.zel", ["full_invar"], units="kg,m,ms,kN", progress=lambda *done: told.append(done))
    with zel.open(tmp_path / "body.zel") as again:
        assert again.units.factors == (1.0, 1.0, 0.001, 1000.0)
        np.testing.assert_allclose(again.modes.frequencies, hertz, rtol=1e-10)  # hertz, whatever the unit of time
        np.testing.assert_allclose(again.nodes.coordinates.sum(), given["at"].sum() / 1000, rtol=1e-12)


def test_a_body_grows_as_things_come() -> None:
    body = zel.Body("kg,m,s,N")
    body.set_mode(1, ([], np.empty((0, 6))))
    for last in (10, 100, 1000):
        body.set_nodes(np.arange(1, last + 1), np.zeros((last, 3)))
        for number in range(1, last // 10 + 1):
            body.set_mode(number, np.full((last, 3), float(number * last)))
    assert (len(body.nodes), len(body.modes)) == (1000, 100)
    for number in (1, 50, 100):
        np.testing.assert_array_equal(body.modes[number].shape, np.tile([1000.0 * number] * 3 + [0.0] * 3, (1000, 1)))


def test_arrays_stay_as_they_were_when_the_body_changes() -> None:
    body, given = lumps()
    taken: list[Callable[[], np.ndarray]] = [
        lambda: body.nodes.masses,
        lambda: body.nodes.coordinates,
        lambda: body.modes[10].shape,
        lambda: body.invariants[3],
        lambda: body.mass_matrix,
    ]
    before = [array() for array in taken]
    copies = [array.copy() for array in before]
    body.set_nodes(np.arange(2000, 4000), np.ones((2000, 3)), masses=np.ones(2000))
    body.set_nodes(given["ids"], given["at"] + 1, masses=given["m"] * 2)
    body.set_mode(10, np.ones((2007, 6)))
    body.set_mass_matrix(2 * np.eye(MODES))
    for array, old, copy in zip(taken, before, copies, strict=True):
        assert not np.array_equal(array(), copy), "the setter did nothing"
        np.testing.assert_array_equal(old, copy)


def test_wrong_arrays_are_refused_and_change_nothing() -> None:
    body, given = lumps()
    body.set_stiffness_matrix(np.eye(MODES))
    before = (body.nodes, body.modes[10].shape, body.stiffness_matrix, body.faces)
    cases: dict[str, Callable[[], object]] = {
        "coordinates: expected an array of shape (7, 3), got (3, 7)": lambda: body.set_nodes(given["ids"], given["at"].T),
        "masses: expected an array of shape (7,), got (6,)": lambda: body.set_nodes(given["ids"], given["at"] + 1, masses=given["m"][:6]),
        "coordinates: expected finite numbers, got nan at (0, 1)": lambda: body.set_nodes([3], [[0.0, np.nan, 0.0]]),
        "ids: expected integers, got float64": lambda: body.set_nodes([1.5], [[0, 0, 0]]),
        "ids: expected integers from -2147483648 to 2147483647, got 4294967299": lambda: body.set_nodes([2**32 + 3], [[0, 0, 0]]),
        "ids: expected each node once": lambda: body.set_nodes([3, 3], np.zeros((2, 3))),
        "shape: expected an array of shape (7, 6), got (7, 5)": lambda: body.set_mode(10, np.zeros((7, 5))),
        "shape: expected real numbers, got complex128": lambda: body.set_mode(10, np.zeros((7, 6)) + 1j),
        "no node 8": lambda: body.set_mode(10, ([8], np.zeros((1, 6)))),
        "not finite": lambda: body.set_mode(10, np.full((7, 6), np.inf)),
        "stiffness: expected an array of shape (5, 5), got (4, 4)": lambda: body.set_stiffness_matrix(np.eye(4)),
        "faces: expected 2 to 8 vertices, got 1": lambda: body.set_faces([[3, 7], [3]]),
        "no node 4": lambda: body.set_faces([[3, 7, 4]]),
        "inertias: expected symmetric tensors": lambda: body.set_nodal_inertias([3], [np.triu(np.ones((3, 3)))]),
        '"furlong" is not a unit': lambda: body.set_units("kg,furlong,s,N"),
        'options: "ful_invar" is no write option; the nearest is full_invar': lambda: body.write("x.zel", "ful_invar"),
    }  # fmt: skip
    expect_refused(cases, ValueError, TypeError, KeyError, zel.ZelError)
    after = (body.nodes, body.modes[10].shape, body.stiffness_matrix, body.faces)
    for old, new in zip(before[1:3], after[1:3], strict=True):
        np.testing.assert_array_equal(old, new)
    np.testing.assert_array_equal(before[0].coordinates, after[0].coordinates)
    assert len(after[0]) == 7 and len(after[3].offsets) == 1


def test_the_library_warns_and_fails_through_python_and_prints_nothing(
    tmp_path: Path, capfd: pytest.CaptureFixture[str]
) -> None:
    body, _ = lumps()
    stiffness, mass = coupled_matrices()
    mass[4] = mass[:, 4] = stiffness[4] = stiffness[:, 4] = 0.0
    body.set_stiffness_matrix(stiffness)
    body.set_mass_matrix(mass)
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        body.write(tmp_path / "body.zel")
    assert [warning.category for warning in caught] and {warning.category for warning in caught} == {zel.ZelWarning}
    assert {warning.filename for warning in caught} == {__file__}
    assert len(body.modes) == MODES - 1
    with pytest.raises(zel.ZelError) as failed:
        body.write(tmp_path / "no such folder" / "body.zel")
    assert failed.value.lines == str(failed.value).splitlines() != []
    assert capfd.readouterr() == ("", "")


def test_a_comparison_names_what_differs(tmp_path: Path) -> None:
    for name in ("base", "fresh"):
        body, given = lumps()
        body.set_stiffness_matrix(np.diag(np.arange(1.0, MODES + 1)))
        body.set_mass_matrix(np.eye(MODES))
        if name == "fresh":
            given["shapes"][2, 3, 1] += 0.25  # mode 30 at node 3 along y
            body.set_mode(30, given["shapes"][2])
        body.write(tmp_path / f"{name}.zel")
    base = tmp_path / "base.zel"
    assert zel.compare(base, base)
    with zel.open(base) as other:
        other.write(tmp_path / "si.zel", units="kg,m,s,N")
    assert zel.compare(base, tmp_path / "si.zel")
    report = zel.compare(base, tmp_path / "fresh.zel")
    assert not report
    worst = max(report.failures, key=lambda row: row.worst)
    assert (worst.block, worst.mode, worst.node, worst.component) == (zel.Block.MODES, 3, 3, 1)
    assert worst.worst == pytest.approx(0.25 / 1000 / max(1.0, np.abs(given["shapes"][2]).max() / 1000), rel=1e-3)
