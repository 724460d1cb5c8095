"""A flexible body from matrices in Matrix Market files and a mesh that meshio reads (MED, VTU, gmsh, Abaqus, ...).

    python from_meshio.py part.vtu K.mtx M.mtx --units mm,t,s,N --interface LEFT --interface RIGHT -o part.zel

Rows are three translations a node in the order of the mesh's points (six components where there are so many), unless
--dofs names a text file with node index and component for each row.
"""

import argparse
from pathlib import Path

import meshio
import numpy as np
from scipy.io import mmread

import zel


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("mesh", type=Path)
    parser.add_argument("stiffness", type=Path, help="Matrix Market file, symmetric or general, plain or .gz")
    parser.add_argument("mass", type=Path)
    parser.add_argument("--units", required=True, help="of the model, as mm,t,s,N")
    parser.add_argument("--interface", action="append", default=[], help="a set of nodes of the mesh; several times")
    parser.add_argument("--modes", type=int, default=20)
    parser.add_argument("--dofs", type=Path)
    parser.add_argument("-o", "--output", type=Path, required=True)
    arguments = parser.parse_args()
    body = zel.reduce(
        mmread(arguments.stiffness),
        mmread(arguments.mass),
        meshio.read(arguments.mesh),
        interfaces=arguments.interface,
        modes=arguments.modes,
        units=arguments.units,
        dofs=np.loadtxt(arguments.dofs, dtype=int) if arguments.dofs else None,
        title=arguments.mesh.name,
    )
    print(body.report)
    body.write(arguments.output, "full_invar")
    print(f"{arguments.output} is written")


if __name__ == "__main__":
    main()
