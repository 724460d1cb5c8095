"""Bodies from matrices: eigenvalues of the full model, closed forms, and models that are refused."""

import re
from collections.abc import Callable
from pathlib import Path
from typing import Any

import from_scikit_fem as bracket
import numpy as np
import pytest
from scipy import sparse
from scipy.linalg import eigh
from skfem import MeshHex
from skfem.io.meshio import to_meshio

import zel
from conftest import expect_refused

UNITS = "mm,t,s,N"
Cells = list[tuple[str, np.ndarray]]


def block() -> tuple[sparse.csr_matrix, sparse.csr_matrix, tuple[np.ndarray, Cells], np.ndarray]:
    """A block of 3 x 2 x 2 hexahedra without symmetry: stiffness, mass, mesh and the hertz of the free block."""
    mesh = MeshHex.init_tensor(np.array([0, 9, 20, 33.0]), np.array([0, 7, 13.0]), np.array([2, 6, 11.0]))
    stiffness, mass, _ = bracket.assemble(mesh)
    values = eigh(stiffness.toarray(), mass.toarray(), eigvals_only=True)
    return stiffness, mass, (mesh.p.T, [("hexahedron", to_meshio(mesh).cells[0].data)]), np.sqrt(values[6:]) / (2 * np.pi)


def test_a_free_body_has_the_eigenvalues_of_its_matrices_however_they_come() -> None:
    stiffness, mass, mesh, hertz = block()
    shuffled = np.random.default_rng(2).permutation(stiffness.shape[0])
    dofs = np.column_stack(np.divmod(np.arange(len(shuffled)), 3))[shuffled]
    order = np.ix_(shuffled, shuffled)
    forms: dict[str, Callable[[], zel.Body]] = {
        "whole": lambda: zel.reduce(stiffness, mass, mesh, modes=8, units=UNITS),
        "upper and lower": lambda: zel.reduce(
            sparse.triu(stiffness, format="coo"), sparse.tril(mass, format="dia"), mesh, modes=8, units=UNITS
        ),
        "shuffled": lambda: zel.reduce(
            sparse.csc_array(stiffness.toarray()[order]), mass.toarray()[order], mesh, modes=8, units=UNITS, dofs=dofs
        ),
    }
    for name, make in forms.items():
        body = make()
        np.testing.assert_allclose(body.free_frequencies()[6:], hertz[:8], rtol=1e-9, err_msg=name)
        assert body.report, body.report
        assert body.nodes.masses.sum() == pytest.approx(33 * 13 * 9 * bracket.DENSITY, rel=1e-9)
        assert len(body.faces.offsets) - 1 == 2 * (3 * 2 + 3 * 2 + 2 * 2)  # the skin alone
        exact = np.linalg.eigvalsh(33 * 13 * 9 * bracket.DENSITY / 12 * np.diag([13**2 + 9**2, 33**2 + 9**2, 33**2 + 13**2]))
        np.testing.assert_allclose(body.mass_properties("center").principal_values, exact, rtol=1e-6)


def test_modes_of_a_range_are_all_there_verified_and_damped_as_asked(tmp_path: Path) -> None:
    stiffness, mass, mesh, hertz = block()
    limit = 0.5 * (hertz[6] + hertz[7])
    body = zel.reduce(stiffness, mass, mesh, modes=f"0-{limit}Hz", verify=True, units=UNITS)
    assert len(body.modes) == 6 + 7
    assert body.report is not None
    assert next(row.figures["agreeing"] for row in body.report if row.name == "verified") == 7
    body.write(tmp_path / "damped.zel", "full_invar", damping=0.02)
    damping = zel.open(tmp_path / "damped.zel").damping_matrix
    assert damping is not None
    np.testing.assert_allclose(np.diag(damping), np.append(np.zeros(6), 0.04 * 2 * np.pi * hertz[:7]), rtol=1e-8)
    with pytest.raises(zel.ZelError, match="no mode 99"):
        body.write(tmp_path / "damped.zel", damping={99: 0.1})


def test_supports_are_taken_out_on_request() -> None:
    stiffness, mass, mesh, hertz = block()
    held = stiffness.tolil()
    for row in (3 * 4 + 1, 3 * 20, 3 * 21 + 2):
        held[row, row] += 1e12
    body = zel.reduce(held, mass, mesh, modes=4, units=UNITS, supports="remove")
    np.testing.assert_allclose(body.free_frequencies()[6:], hertz[:4], rtol=1e-9)
    assert body.report is not None and "taken out at 5.2, 21.1, 22.3" in repr(body.report)


def test_what_cannot_be_reduced_says_why() -> None:
    stiffness, mass, mesh, _ = block()
    skew = stiffness.tolil()
    skew[0, 5] += 1e4

    def reduced(matrix: Any = stiffness, units: str = UNITS, **how: Any) -> zel.Body:
        return zel.reduce(matrix, mass, mesh, units=units, **how)

    cases: dict[str, Callable[[], object]] = {
        "the stiffness matrix is not symmetric: its entries at (0, 5) and (5, 0)": lambda: reduced(skew),
        "no node set named LEFT": lambda: reduced(interfaces=["LEFT"]),
        "names node 99": lambda: reduced(interfaces=[[1, 99]]),
        "no node of the surface lies in box=90,0,0/91,1,1; the model": lambda: reduced(interfaces=["box=90,0,0/91,1,1"]),
        "the units do not belong together": lambda: reduced(units="mm,kg,s,N"),
        "mass: expected one of matched, scaled, row_sum": lambda: reduced(mass="lumped"),
        'invariants: expected "consistent" or "lumped"': lambda: reduced(invariants="exact"),
    }
    expect_refused(cases, ValueError, zel.ZelError)


def test_invariants_are_those_of_the_matrix_or_of_the_nodes() -> None:
    stiffness, mass, mesh, _ = block()
    body, lumped = (zel.reduce(stiffness, mass, mesh, modes=6, units=UNITS, invariants=kind) for kind in ("consistent", "lumped"))
    shapes = np.stack([mode.shape[:, :3] for mode in body.modes])
    m = mass.toarray()[::3, ::3]
    np.testing.assert_allclose(body.invariants[3], np.einsum("pq,kqc->ck", m, shapes), atol=1e-12)
    assert np.abs(body.invariants[3][:, 6:]).max() < 1e-12 < np.abs(lumped.invariants[3][:, 6:]).max()


def test_loads_of_all_kinds_have_exact_static_answers_with_attachment_modes() -> None:
    stiffness, mass, mesh, _ = block()
    left, right = (np.flatnonzero(mesh[0][:, 0] == at) + 1 for at in (0.0, 33.0))
    k, m = stiffness.toarray(), mass.toarray()
    wind = np.zeros(len(k))
    wind[3 * 17 + 1] = 5.0
    loads: dict[str, zel.reduction.Load] = {
        "wind": wind, "pull": (right, (1, 2, 3, 40, 50, 60)), "weight": ("gravity", (0, 0, -9810.0)), "press": (right, 2.0)
    }
    made = {
        kind: zel.reduce(k, m, mesh, interfaces=[(left, (0.0, 6.5, 20.0))], modes=3, units=UNITS, loads=loads, attachment=kind)
        for kind in (True, False)
    }
    inner = np.setdiff1d(np.arange(len(k)), (3 * (left - 1)[:, None] + np.arange(3)).ravel())
    answer = np.linalg.solve(k[np.ix_(inner, inner)], wind[inner]) @ wind[inner]  # the work of the load
    for kind, body in made.items():
        assert body.loads.labels == ["pull", "weight", "press", "wind"]  # those at rows come last
        assert len(body.modes) == 6 + 3 + 4 * kind
        at = body.nodes.coordinates[body.nodes.index_of(int(body.interface_nodes[0]))]
        np.testing.assert_array_equal(at, [0.0, 6.5, 20.0])
        rest = body.loads.values[3][6:]
        work = rest @ np.linalg.solve(body.stiffness_matrix[6:, 6:], rest)
        assert (abs(work / answer - 1) < 1e-8) == kind
    weight = body.loads.values[1][:6]
    np.testing.assert_allclose(weight[:3], [0, 0, -9810 * 33 * 13 * 9 * bracket.DENSITY], atol=1e-9)
    np.testing.assert_allclose(body.loads.values[2][0], -2.0 * 13 * 9)  # inward, on the right end
    wrong: list[tuple[zel.reduction.Load, str]] = [
        (wind[:9], "load x: expected an array of shape (108,)"), (("gravity", 9.81), "expected three numbers"),
        ((right[:2], 1.0), "holds no whole face"),
    ]
    for load, message in wrong:
        with pytest.raises((ValueError, zel.ZelError), match=re.escape(message)):
            zel.reduce(k, m, mesh, units=UNITS, loads={"x": load})


def test_interfaces_in_the_grammar_of_the_command() -> None:
    stiffness, mass, mesh, _ = block()
    texts = ["plane=0,0,0/1,0,0@0,6.5,6.5:average", "plane=33,0,0/1,0,0:xyz"]
    body = zel.reduce(stiffness, mass, mesh, interfaces=texts, modes=4, units=UNITS)
    assert len(body.modes) == 6 + 3 + 4
    at = body.nodes.coordinates[body.nodes.index_of(int(body.interface_nodes[0]))]
    np.testing.assert_array_equal(at, [0.0, 6.5, 6.5])
