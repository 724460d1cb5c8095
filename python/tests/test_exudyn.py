"""Bodies in the solver Exudyn: matrices that it computes itself, full models, a slider crank on paper."""

import platform
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path
from typing import Any, NamedTuple

import from_scikit_fem as bracket
import numpy as np
import pytest
from packaging.requirements import Requirement
from scipy import sparse
from scipy.linalg import eigh
from skfem import MeshHex
from skfem.io.meshio import to_meshio

import zel
from conftest import SOURCE, expect_refused, run_page

# Where there is no wheel of the solver, and only there, it may be missing.
_lines = (SOURCE / "python" / "tests" / "requirements.txt").read_text().splitlines()
_marker = Requirement(next(line for line in _lines if line.startswith("exudyn"))).marker
if _marker is not None and not _marker.evaluate():
    here = f"Python {platform.python_version()} on {platform.machine()}"
    pytest.skip(f"there is no Exudyn for {here}", allow_module_level=True)

import exudyn
import exudyn.itemInterface as items
import slider_crank
from exudyn.FEM import FEMinterface, ObjectFFRFreducedOrderInterface


class Bar(NamedTuple):
    """A bar of rubber whose left end is an interface, in mm, t, s, N: the full model, and the body in its file."""

    points: np.ndarray
    stiffness: sparse.csr_matrix
    mass: sparse.csr_matrix
    fresh: Callable[..., zel.Body]
    """as it comes out of the reduction, or with interfaces at other x"""
    path: Path
    body: zel.Body
    """from the file"""
    shapes: np.ndarray
    """(modes, points, 3): all shapes of the body, also at points that are not in the file"""

    @property
    def left(self) -> np.ndarray:
        return np.flatnonzero(self.points[:, 0] == 0.0)

    @property
    def joint(self) -> int:
        return int(self.body.interface_nodes[0])


@pytest.fixture(scope="module")
def bar(tmp_path_factory: pytest.TempPathFactory) -> Bar:
    mesh = MeshHex.init_tensor(np.linspace(0.0, 100.0, 11), np.array([-4.0, 0, 7]), np.array([2.0, 5, 9]))
    steel = bracket.assemble(mesh)
    stiffness, mass, points = steel[0] * (5.0 / 210e3), steel[1] * (1.2e-9 / bracket.DENSITY), mesh.p.T.copy()

    def fresh(*ends: float) -> zel.Body:
        sets = [np.flatnonzero(points[:, 0] == x) + 1 for x in ends or (0.0,)]
        return zel.reduce(stiffness, mass, to_meshio(mesh), interfaces=sets, modes=8, units="mm,t,s,N")

    written = fresh()
    at = np.searchsorted(written.shape_nodes, np.arange(1, len(points) + 1))
    given = np.array([mode.shape[at, :3] for mode in written.modes])
    path = tmp_path_factory.mktemp("bar") / "bar.zel"
    written.write(path, "full_invar")
    body = zel.open(path)
    assert body.transformation is not None
    return Bar(points, stiffness, mass, fresh, path, body, np.einsum("ij,jnc->inc", body.transformation, given))


def own_interface(bar: Bar, shapes: np.ndarray, length: float = 1.0, kilograms: float = 1.0) -> Any:
    """What Exudyn makes of the full model and some shapes, in other units of length and mass."""
    fem = FEMinterface()
    fem.nodes = {"Position": length * bar.points}
    fem.massMatrix, fem.stiffnessMatrix = (sparse.csr_matrix(kilograms * matrix) for matrix in (bar.mass, bar.stiffness))
    fem.modeBasis = {"matrix": length * shapes.reshape(len(shapes), -1).T, "type": "NormalModes"}
    return ObjectFFRFreducedOrderInterface(fem, roundMassMatrix=0, roundStiffnessMatrix=0)


def test_its_matrices_are_those_that_the_solver_computes_from_the_full_model(bar: Bar) -> None:
    reduced = bar.fresh()
    held = reduced.shapes_of(np.arange(1, len(bar.points) + 1))[6:, :, :3]  # the interface rests: with momentum
    reduced.set_units("kg,mm,s,kN")  # do not belong together
    cases = [
        (zel.exudyn.interface(bar.body), own_interface(bar, bar.shapes[6:])),
        (zel.exudyn.interface(reduced, modes=range(7, 15), units="kg,m,s,N"), own_interface(bar, held, 1e-3, 1e3)),
    ]
    for made, own in cases:
        p, t, r = np.sqrt([own.massMatrixReduced.max(), own.totalMass, own.inertiaLocal.max()])
        sizes = {"massMatrixReduced": p * p, "stiffnessMatrixReduced": own.stiffnessMatrixReduced.max()}
        sizes |= {"Mtt": t * t, "chiU": own.chiU.max(), "chiUtilde": own.chiU.max(), "inertiaLocal": r * r}
        sizes |= {"mPhitTPsi": t * p, "mPhitTPsiTilde": t * p, "mXRefTildePsi": r * p, "mXRefTildePsiTilde": r * p}
        sizes |= {"mPsiTildePsi": p * p, "mPsiTildePsiTilde": p * p, "massMatrixFFRFreduced": max(p * p, t * t)}
        for name, size in sizes.items():
            np.testing.assert_allclose(getattr(made, name), getattr(own, name), rtol=0, atol=1e-10 * size, err_msg=name)
        assert np.abs(made.mXRefTildePsiTilde).max() > 0.05 * r * p and np.abs(made.mPsiTildePsi).max() > 0.05 * p * p
        for name in ("totalMass", "nModes", "nODE2rot", "nODE2rigid", "nODE2FFRFreduced"):
            assert getattr(made, name) == pytest.approx(getattr(own, name), rel=1e-12), name
        ids = np.setdiff1d(bar.body.shape_nodes, bar.joint)
        places = made.mesh_nodes(ids)
        np.testing.assert_allclose(made.xRef.reshape(-1, 3)[places], own.xRef.reshape(-1, 3)[ids - 1], rtol=1e-14)
        basis = [side.modeBasis.reshape(-1, 3 * made.nModes) for side in (made, own)]
        np.testing.assert_allclose(basis[0][places], basis[1][ids - 1], rtol=0, atol=1e-10 * np.abs(basis[1]).max())
    assert np.abs(cases[1][0].mPhitTPsi).max() > 0.5 * t * p


def system_of(made: Any, **start: Any) -> tuple[Any, dict[str, Any]]:
    container = exudyn.SystemContainer()
    mbs = container.AddSystem()
    return mbs, made.AddObjectFFRFreducedOrder(mbs, **start)


def test_it_vibrates_as_the_file_says_and_held_as_the_full_model(bar: Bar) -> None:
    assert zel.exudyn.interface(bar.body, node_type="RotationRotationVector").nODE2rot == 3
    made = zel.exudyn.interface(bar.body)
    mbs, added = system_of(made)
    mbs.Assemble()
    hertz = mbs.ComputeODE2Eigenvalues(convert2Frequencies=True)[0]
    np.testing.assert_allclose(hertz[6:], bar.body.modes.frequencies[6:], rtol=1e-6)
    marker = mbs.AddMarker(items.MarkerSuperElementRigid(bodyNumber=added["oFFRFreducedOrder"], **made.joint(bar.joint)))
    at = bar.body.nodes.coordinates[bar.body.nodes.index_of(bar.joint)]
    fixed = mbs.AddMarker(items.MarkerBodyRigid(bodyNumber=mbs.AddObject(items.ObjectGround()), localPosition=at))
    mbs.AddObject(items.GenericJoint(markerNumbers=[fixed, marker], constrainedAxes=[1] * 6))
    mbs.Assemble()
    loose = np.setdiff1d(np.arange(bar.points.size), 3 * bar.left[:, None] + np.arange(3))
    k, m = (matrix.toarray()[np.ix_(loose, loose)] for matrix in (bar.stiffness, bar.mass))
    hertz = mbs.ComputeODE2Eigenvalues(convert2Frequencies=True)[0]
    np.testing.assert_allclose(hertz, np.sqrt(eigh(k, m, eigvals_only=True)[:8]) / (2 * np.pi), rtol=1e-6)


def test_damping_and_faces_come_along_and_what_stays_behind_is_told(bar: Bar) -> None:
    with zel.open(bar.path) as body:
        ratio = np.linspace(0.01, 0.05, len(body.modes))
        omega = 2 * np.pi * body.modes.frequencies
        body.set_damping_matrix(np.diag(2 * ratio * omega))
        made = zel.exudyn.interface(body, modes=[9, 8, 13])
        mbs, _ = system_of(made, massProportionalDamping=3.0)
        mbs.Assemble()
        roots = mbs.ComputeODE2Eigenvalues(computeComplexEigenvalues=True, useAbsoluteValues=False)[0]
        taken = [7, 8, 12]
        rates = np.sort(-roots.real[np.abs(roots.imag) > 1.0])
        np.testing.assert_allclose(rates, np.sort(np.repeat((ratio * omega)[taken] + 1.5, 2)), rtol=1e-6)
        body.set_damping_matrix(np.eye(len(body.modes)))
        body.set_preload(np.ones(len(body.modes)))
        with pytest.warns(zel.ZelWarning) as told:
            zel.exudyn.interface(body)
        assert [str(one.message).split(" stays")[0] for one in told] == [
            "damping of rigid-body modes, or between modes that are taken and others,",
            "the preload of the body",
        ]
    a, b, c = made.xRef.reshape(-1, 3)[np.array(made.trigList).T]
    assert np.einsum("ij,ij->", a, np.cross(b, c)) / 6 == pytest.approx(100 * 11 * 7)  # closed, and seen from outside


def test_what_a_body_lacks_is_named(bar: Bar, tmp_path: Path) -> None:
    bar.fresh().write(tmp_path / "fast.zel", "fast_invar")
    bar.fresh(0.0, 100.0).write(tmp_path / "coupled.zel", "no_ortho full_invar")
    bare = zel.Body("kg,m,s,N")
    bare.set_nodes([1], [[0, 0, 1]], masses=[1.0])
    with zel.open(tmp_path / "fast.zel") as fast, zel.open(tmp_path / "coupled.zel") as coupled:
        cases: dict[str, Callable[[], object]] = {
            "inertia invariants 5 9 are missing: write the body with full_invar": lambda: zel.exudyn.interface(fast),
            "the body has no modes": lambda: zel.exudyn.interface(bare),
            "the modes move the body rigidly or twice the same, mode ": lambda: zel.exudyn.interface(coupled),
            "take each mode that deforms the body once": lambda: zel.exudyn.interface(bar.body, modes=[7, 7]),
            "no mode of those deforms the body": lambda: zel.exudyn.interface(bar.body, modes=[]),
            "no mode 99": lambda: zel.exudyn.interface(bar.body, modes=[99]),
            "do not belong together: give others": lambda: zel.exudyn.interface(bar.body, units="kg,mm,s,N"),
            "node_type: expected one of": lambda: zel.exudyn.interface(bar.body, node_type="RotationRxyz"),
            "no mode shapes at node 1234": lambda: zel.exudyn.interface(bar.body).mesh_nodes(1234),
            "no interface node 7 with rotations": lambda: zel.exudyn.interface(bar.body).joint(7),
        }
        expect_refused(cases, ValueError, KeyError, zel.ZelError)


def force_on_paper(angle: np.ndarray, rod: zel.MassProperties, length: float) -> np.ndarray:
    """(n, 2): Newton and Euler for the rigid rod and the piston, radial and tangential to the crank."""
    r, w, piston = slider_crank.RADIUS, slider_crank.SPEED, slider_crank.PISTON
    c, s = np.cos(angle), np.sin(angle)
    sin, cos = r / length * s, np.sqrt(1 - (r / length * s) ** 2)  # of the rod, which points down by beta
    rate = r / length * w * c / cos
    faster = (rate**2 * sin - r / length * w**2 * s) / cos
    pin = -r * w**2 * np.array([c, s])
    along, across = np.array([cos, -sin]), np.array([-sin, -cos])  # d along / d beta = across
    whole = pin + length * (faster * across - rate**2 * along)
    center = pin + rod.center[0] * (faster * across - rate**2 * along)
    push = -piston * whole[0]  # of the piston along x; moments about the pin give the rest
    turned = rod.mass * rod.center[0] * (along[0] * center[1] - along[1] * center[0]) - rod.inertia[2, 2] * faster
    small = np.array([push, (turned + length * along[1] * push) / (length * along[0])])
    force = rod.mass * center - small
    return -np.column_stack([c * force[0] + s * force[1], c * force[1] - s * force[0]])


def test_a_slider_crank_has_the_forces_of_paper_and_its_rod_bends_as_a_beam(rod: Path, tmp_path: Path) -> None:
    with zel.open(rod) as body:
        rigid, elastic = (slider_crank.simulate(body, kind, turns=1, settling=1, steps=720) for kind in (False, True))
        body.set_units("kg,m,s,N")
        length = slider_crank.length_of(body)
        paper = force_on_paper(np.radians(rigid.angle), body.mass_properties("center"), length)
    largest = np.abs(paper).max()
    np.testing.assert_allclose(rigid.force, paper, rtol=0, atol=1e-4 * largest)
    np.testing.assert_allclose(elastic.force, paper, rtol=0, atol=1e-3 * largest)
    angle = np.radians(elastic.angle[:-1])
    for run in (rigid, elastic):  # what repeats itself gains no momentum, nor energy but for damping
        radial, tangential = run.force[:-1].T
        assert abs((np.cos(angle) * radial - np.sin(angle) * tangential).mean()) < 1e-4 * largest
        assert abs(tangential.mean()) < 1e-5 * largest
    # The crank's acceleration bends the rod. Its eyes are stiffer than the shank: 24 x 14 mm with two grooves.
    area, inertia = 24 * 14e-6 - 2 * 14 * 4e-6, (14 * 24**3 - 8 * 14**3) / 12 * 1e-12
    load = 7850 * area * slider_crank.RADIUS * slider_crank.SPEED**2
    shank = 0.00652 * load * length**4 / (210e9 * inertia)  # between hinges, the load falls linearly to nothing
    assert 0.5 * shank < elastic.bending.max() < shank
    lag = 4 * slider_crank.DAMPING * slider_crank.SPEED / (2 * np.pi * 1291)  # the way back mirrors the way out but for it
    np.testing.assert_allclose(elastic.bending, -elastic.bending[::-1], rtol=0, atol=2 * lag * shank)
    figures = [tmp_path / name for name in ("first.svg", "second.svg")]
    for figure in figures:
        slider_crank.draw(elastic, rigid, figure)
    assert figures[0].read_bytes() == figures[1].read_bytes() and figures[0].stat().st_size > 30_000


def test_the_page_that_leads_to_the_solver_runs(rod: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(rod.parent)
    run_page("from-fe-to-multibody.md")


def test_a_solver_that_is_missing_or_does_not_load_is_told(tmp_path: Path) -> None:
    package = tmp_path / "exudyn" / "__init__.py"
    package.parent.mkdir()
    for fault, told in {
        "ModuleNotFoundError('No module named exudyn', name='exudyn')": "needs the solver Exudyn: pip install exudyn",
        "ImportError('libGL.so.1: cannot open')": "does not load: libGL.so.1: cannot open. On Debian",
    }.items():
        package.write_text(f"raise {fault}")
        code = "import zel; print(len(zel.UNITS)); zel.exudyn"
        done = subprocess.run([sys.executable, "-c", code], env={"PYTHONPATH": str(tmp_path)}, capture_output=True, text=True)
        assert done.stdout == "4\n" and done.returncode == 1 and told in done.stderr, done.stderr
