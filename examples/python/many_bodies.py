"""A parametric study on many workers: bracket thickness x radius, a body for each, one table and one plot.

    python many_bodies.py [--output study]                       24 variants on a local cluster
    python many_bodies.py --scheduler tcp://10.0.0.1:8786        the same on any Dask cluster

Each task meshes, assembles, reduces and writes a body into the output folder, which all workers must reach. A variant that
fails is a row with its message.
"""

import argparse
import csv
from dataclasses import asdict, dataclass, field, fields
from pathlib import Path

import matplotlib

matplotlib.use("Agg")  # draws into files, without a display

import matplotlib.pyplot as plt
from dask.distributed import Client, LocalCluster, as_completed
from skfem.io.meshio import to_meshio

import from_scikit_fem as bracket
import zel

MODES = 10


@dataclass
class Variant:
    """A row of the table."""

    thickness: float
    radius: float
    mass: float = float("nan")
    checks: str = ""
    message: str = ""
    frequencies: list[float] = field(default_factory=list)


def make_body(thickness: float, radius: float, folder: str) -> Variant:
    """One variant from mesh to file, on whatever worker. It returns figures; the body stays in its file."""
    variant = Variant(thickness, radius)
    try:
        mesh = bracket.mesh_bracket(thickness, radius)
        stiffness, mass, _ = bracket.assemble(mesh)
        with zel.reduce(
            stiffness, mass, to_meshio(mesh), interfaces=bracket.ends_of(mesh), modes=MODES, units="mm,t,s,N"
        ) as body:
            body.write(Path(folder) / f"bracket_{thickness:g}_{radius:g}.zel", "full_invar")
            variant.mass = body.mass_properties().mass
            variant.frequencies = body.free_frequencies()[6 : 6 + MODES].tolist()
            failures = body.report.failures + body.check().failures if body.report else []
            variant.checks = "; ".join(row.name for row in failures) or "Okay"
    except (ValueError, RuntimeError, OSError) as error:
        variant.message = str(error)
    return variant


def run(client: Client, sizes: list[tuple[float, float]], folder: Path) -> list[Variant]:
    """All variants in the order of their sizes."""
    client.upload_file(bracket.__file__)  # workers elsewhere do not have it
    futures = [client.submit(make_body, *size, str(folder.resolve()), pure=False) for size in sizes]
    variants = {}
    for done, future in enumerate(as_completed(futures), 1):
        variant = future.result() if future.status == "finished" else None
        size = sizes[futures.index(future)]
        variants[size] = variant or Variant(*size, message=repr(future.exception()))
        print(f"{done} of {len(sizes)}: {size}: {variants[size].message or variants[size].checks}")
    return [variants[size] for size in sizes]


def write_table(variants: list[Variant], path: Path) -> None:
    with path.open("w", newline="") as file:
        names = [one.name for one in fields(Variant) if one.name != "frequencies"]
        table = csv.DictWriter(file, [*names, *(f"f{number}_hz" for number in range(1, MODES + 1))])
        table.writeheader()
        for variant in variants:
            row = asdict(variant)
            hertz = row.pop("frequencies")
            table.writerow(row | {f"f{number}_hz": f"{value:.6g}" for number, value in enumerate(hertz, 1)})


def draw(variants: list[Variant], path: Path) -> None:
    """The first frequency over the thickness, a line for each radius."""
    figure, axes = plt.subplots(figsize=(8, 5), layout="constrained")
    good = [variant for variant in variants if variant.frequencies]
    for radius in sorted({variant.radius for variant in good}):
        line = sorted((one.thickness, one.frequencies[0]) for one in good if one.radius == radius)
        axes.plot(*zip(*line), marker="o", label=f"{radius:g} mm")
    axes.set(xlabel="thickness [mm]", ylabel="first free frequency [Hz]", ylim=(0, None), title="Bent brackets")
    axes.legend(title="radius")
    axes.grid(alpha=0.3)
    figure.savefig(path, dpi=120)


def numbers(text: str) -> list[float]:
    return [float(number) for number in text.split(",")]


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--thickness", type=numbers, default=[2, 3, 4, 5, 6, 8], help="in mm, separated by commas")
    parser.add_argument("--radius", type=numbers, default=[5, 10, 15, 20], help="in mm, separated by commas")
    parser.add_argument("--scheduler", help="address of a Dask scheduler; a local cluster by default")
    parser.add_argument("--workers", type=int, help="of the local cluster")
    parser.add_argument("--output", type=Path, default=Path("study"))
    arguments = parser.parse_args()
    arguments.output.mkdir(parents=True, exist_ok=True)
    sizes = [(thickness, radius) for thickness in arguments.thickness for radius in arguments.radius]
    if arguments.scheduler:
        with Client(arguments.scheduler) as client:
            variants = run(client, sizes, arguments.output)
    else:
        # One thread a worker: BLAS and the factorisation have threads of their own.
        with LocalCluster(n_workers=arguments.workers, threads_per_worker=1, dashboard_address=None) as cluster:
            with Client(cluster) as client:
                variants = run(client, sizes, arguments.output)
    write_table(variants, arguments.output / "study.csv")
    draw(variants, arguments.output / "study.png")
    failed = sum(bool(variant.message) for variant in variants)
    print(f"{len(variants) - failed} bodies, {failed} failed: {arguments.output / 'study.csv'}")


if __name__ == "__main__":
    main()
