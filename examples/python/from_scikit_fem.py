"""A bent bracket, meshed and assembled by scikit-fem, as a flexible body in mm, t, s, N.

    python from_scikit_fem.py [--thickness 6] [--radius 10] [--output bracket.zel]

Prints the report of the reduction and the checks of the file, and compares the body with scipy's eigenvalues of the full
matrices and with density x volume.
"""

import argparse
from pathlib import Path

import numpy as np
from scipy.sparse import csr_matrix
from scipy.sparse.linalg import eigsh
from skfem import Basis, BilinearForm, ElementHex1, ElementVector, Functional, MeshHex
from skfem.helpers import dot
from skfem.io.meshio import to_meshio
from skfem.models.elasticity import lame_parameters, linear_elasticity

import zel

YOUNG, POISSON, DENSITY = 210e3, 0.3, 7.85e-9  # steel, in N/mm^2 and t/mm^3
LEG, WIDTH, SIZE = 60.0, 30.0, 5.0  # of each leg, of the plate, of an element


def mesh_bracket(thickness: float, radius: float) -> MeshHex:
    """A plate that is bent by a right angle with an inner radius: two legs and a quarter of a ring between."""
    if thickness <= 0.0 or radius <= 0.0:
        raise ValueError("a bracket has a thickness and a radius")
    middle = radius + thickness / 2
    arc = middle * np.pi / 2

    def steps(start: float, length: float) -> np.ndarray:
        return start + np.linspace(0.0, length, max(2, int(np.ceil(length / SIZE))) + 1)

    along = np.unique(np.concatenate([steps(0.0, LEG), steps(LEG, arc), steps(LEG + arc, LEG)]).round(9))
    flat = MeshHex.init_tensor(along, steps(0.0, WIDTH), steps(-thickness / 2, thickness))
    s, y, h = flat.p
    angle = np.clip((s - LEG) / middle, 0.0, np.pi / 2)
    x = np.minimum(s, LEG) + (middle - h) * np.sin(angle)
    z = middle - (middle - h) * np.cos(angle) + np.maximum(s - LEG - arc, 0.0)
    return MeshHex(np.array([x, y, z]), flat.t)


def assemble(mesh: MeshHex) -> tuple[csr_matrix, csr_matrix, float]:
    """Stiffness, mass and volume. Rows are three translations a node, in the order of the nodes."""
    basis = Basis(mesh, ElementVector(ElementHex1()))
    stiffness = linear_elasticity(*lame_parameters(YOUNG, POISSON)).assemble(basis)
    mass = BilinearForm(lambda u, v, _: DENSITY * dot(u, v)).assemble(basis)
    volume = Functional(lambda w: 1.0 + 0.0 * w.x[0]).assemble(basis)
    return stiffness, mass, float(volume)


def ends_of(mesh: MeshHex) -> list[np.ndarray]:
    """Ids of the nodes at the ends of the two legs."""
    x, _, z = mesh.p
    return [np.flatnonzero(np.isclose(x, x.min())) + 1, np.flatnonzero(np.isclose(z, z.max())) + 1]


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--thickness", type=float, default=6.0, help="in mm")
    parser.add_argument("--radius", type=float, default=10.0, help="inside the bend, in mm")
    parser.add_argument("--output", type=Path, default=Path("bracket.zel"))
    arguments = parser.parse_args()
    mesh = mesh_bracket(arguments.thickness, arguments.radius)
    stiffness, mass, volume = assemble(mesh)

    # For a solver that joins it at its ends: two interfaces and twelve fixed-interface modes (Craig-Bampton).
    body = zel.reduce(
        stiffness, mass, to_meshio(mesh), interfaces=ends_of(mesh), modes=12, units="mm,t,s,N", title="Bracket"
    )
    print(body.report)
    body.write(arguments.output, "full_invar")
    with zel.open(arguments.output) as written:
        checks = written.check()
        print(checks)
        weight = written.mass_properties().mass
    assert checks, checks.failures
    assert abs(weight / (DENSITY * volume) - 1) < 1e-9

    # By itself: free-free modes, whose frequencies are those of the full matrices.
    count = 10
    free = zel.reduce(stiffness, mass, to_meshio(mesh), modes=count, units="mm,t,s,N")
    # K alone is singular, and near a rigid-body mode no digits are left for the others: a shift below zero, of their size.
    shift = -((2 * np.pi * 1000.0) ** 2)
    start = np.random.default_rng(1).normal(size=len(mass.diagonal()))
    values = eigsh(stiffness, k=6 + count, M=mass, sigma=shift, v0=start, tol=1e-14, return_eigenvectors=False)
    expected = np.sqrt(np.sort(values)[6:]) / (2 * np.pi)
    difference = np.abs(free.free_frequencies()[6:] / expected - 1).max()
    print(f"free frequencies {expected[:4].round(1)} ... Hz, off by {difference:.1e} at most")
    assert difference < 1e-8


if __name__ == "__main__":
    main()
