"""A crank turns at 3 000 rpm and moves a piston through a connecting rod, which is elastic, and rigid for comparison.

    zel import ccx examples/ccx/rod --units mm,t,s,N --interface LARGE@0,0,0 --interface SMALL@150,0,0 -o rod.zel
    python examples/exudyn/slider_crank.py rod.zel [--output slider_crank.svg]

Shows the force in the bearing of the crank pin and how much the rod bends, over two turns.
"""

import argparse
from collections.abc import Sequence
from pathlib import Path
from typing import Any, NamedTuple

import exudyn
import matplotlib

matplotlib.use("Agg")  # draws into files, without a display

import exudyn.itemInterface as items
import matplotlib.pyplot as plt
import numpy as np
from exudyn.rigidBodyUtilities import RigidBodyInertia

import zel

UNITS = "kg,m,s,N"
RADIUS = 0.04  # of the crank
SPEED = 3000 * 2 * np.pi / 60
PISTON = 0.45  # kg
DAMPING = 0.02  # of critical, in the rod's first mode
STEPS = 1000  # a turn


class Run(NamedTuple):
    """What a run gives at the steps of its last turns."""

    angle: np.ndarray
    """(n,) of the crank from top dead centre, in degrees"""
    force: np.ndarray
    """(n, 2) of the rod on the crank pin, radial and tangential to the crank, in newtons"""
    bending: np.ndarray
    """(n,) middle of the rod against the line through its eyes, in the plane of motion, in metres"""


class Rod(NamedTuple):
    """A rod in a system: markers at its large and small eye; of an elastic one how its modal coordinates bend it."""

    large: int
    small: int
    modal: int = -1
    """sensor of the modal coordinates"""
    bending: np.ndarray = np.empty(0)
    """(modes,)"""


def length_of(body: zel.Body) -> float:
    """From eye to eye, in metres."""
    large, small = body.nodes.coordinates[body.nodes.index_of(body.interface_nodes)]
    return float(np.linalg.norm(small - large)) * body.units.factors[1]


def motion_at_top(body: zel.Body) -> dict[str, list[float]]:
    """How a rod moves while crank and rod are in line: the pin across, the piston not at all."""
    return {
        "initialVelocity": [0.0, RADIUS * SPEED, 0.0],
        "initialAngularVelocity": [0.0, 0.0, -RADIUS * SPEED / length_of(body)],
    }


def add_elastic(mbs: Any, body: zel.Body) -> Rod:
    """The rod as it is in its file."""
    first = next(frequency for frequency in body.modes.frequencies if frequency > 1.0)
    rod = zel.exudyn.interface(body, units=UNITS)
    added = rod.AddObjectFFRFreducedOrder(
        mbs,
        positionRef=[RADIUS, 0.0, 0.0],
        stiffnessProportionalDamping=2 * DAMPING / (2 * np.pi * first),
        **motion_at_top(body),
    )
    large, small = (
        mbs.AddMarker(items.MarkerSuperElementRigid(bodyNumber=added["oFFRFreducedOrder"], **rod.joint(int(node))))
        for node in body.interface_nodes
    )
    places, shapes = rod.xRef.reshape(-1, 3), rod.modeBasis.reshape(-1, 3, rod.nModes)
    middle = np.argmin(np.linalg.norm(places - [length_of(body) / 2, 0.0, 0.0], axis=1))
    eyes = rod.mesh_nodes(body.interface_nodes)
    bending = shapes[middle, 1] - shapes[eyes, 1].mean(axis=0)
    return Rod(large, small, sensor_of_node(mbs, added["nGenericODE2"], exudyn.OutputVariableType.Coordinates), bending)


def add_rigid(mbs: Any, body: zel.Body) -> Rod:
    """A rod of the same mass, centre and inertia."""
    mass, length, _, _ = body.units.factors
    about_center = body.mass_properties("center")
    inertia = RigidBodyInertia(
        mass=mass * about_center.mass,
        inertiaTensor=mass * length**2 * about_center.inertia,
        com=length * about_center.center,
        inertiaTensorAtCOM=True,
    )
    rod = mbs.CreateRigidBody(referencePosition=[RADIUS, 0.0, 0.0], inertia=inertia, **motion_at_top(body))
    ends = ([0.0, 0.0, 0.0], [length_of(body), 0.0, 0.0])
    large, small = (mbs.AddMarker(items.MarkerBodyRigid(bodyNumber=rod, localPosition=end)) for end in ends)
    return Rod(large, small)


def sensor_of_node(mbs: Any, node: int, what: Any) -> int:
    return int(
        mbs.AddSensor(items.SensorNode(nodeNumber=node, outputVariableType=what, storeInternal=True, writeToFile=False))
    )


def add_crank(mbs: Any) -> int:
    """A crank that turns at its speed, whatever the force; returns the marker of its pin."""
    angle = mbs.AddNode(items.Node1D(referenceCoordinates=[0.0], initialCoordinates=[0.0], initialVelocities=[SPEED]))
    crank = mbs.AddObject(items.ObjectRotationalMass1D(nodeNumber=angle, inertia=0.01))
    ground = mbs.AddNode(items.NodePointGround())
    turning = [mbs.AddMarker(items.MarkerNodeCoordinate(nodeNumber=node, coordinate=0)) for node in (ground, angle)]
    mbs.AddObject(items.CoordinateConstraint(markerNumbers=turning, velocityLevel=True, offset=SPEED))
    return int(mbs.AddMarker(items.MarkerBodyRigid(bodyNumber=crank, localPosition=[RADIUS, 0.0, 0.0])))


def add_piston(mbs: Any, at: float) -> int:
    """A piston that slides along x; returns its marker."""
    node = mbs.AddNode(items.NodePoint(referenceCoordinates=[at, 0.0, 0.0]))
    piston = mbs.AddObject(items.ObjectMassPoint(nodeNumber=node, mass=PISTON))
    ground = mbs.AddMarker(items.MarkerNodeCoordinate(nodeNumber=mbs.AddNode(items.NodePointGround()), coordinate=0))
    for across in (1, 2):
        marker = mbs.AddMarker(items.MarkerNodeCoordinate(nodeNumber=node, coordinate=across))
        mbs.AddObject(items.CoordinateConstraint(markerNumbers=[ground, marker]))
    return int(mbs.AddMarker(items.MarkerBodyPosition(bodyNumber=piston)))


def simulate(body: zel.Body, elastic: bool, turns: int = 2, settling: int = 2, steps: int = STEPS) -> Run:
    """The mechanism over some turns, after others in which vibrations from the start die out."""
    system = exudyn.SystemContainer()
    mbs = system.AddSystem()
    pin = add_crank(mbs)
    rod = (add_elastic if elastic else add_rigid)(mbs, body)
    joint = mbs.AddObject(items.GenericJoint(markerNumbers=[pin, rod.large], constrainedAxes=[1, 1, 1, 1, 1, 0]))
    piston = add_piston(mbs, RADIUS + length_of(body))
    mbs.AddObject(items.SphericalJoint(markerNumbers=[piston, rod.small], constrainedAxes=[1, 1, 0]))
    force = mbs.AddSensor(
        items.SensorObject(
            objectNumber=joint,
            outputVariableType=exudyn.OutputVariableType.ForceLocal,
            storeInternal=True,
            writeToFile=False,
        )
    )
    mbs.Assemble()
    settings = exudyn.SimulationSettings()
    integration = settings.timeIntegration
    integration.endTime = (settling + turns) * 2 * np.pi / SPEED
    integration.numberOfSteps = (settling + turns) * steps
    integration.generalizedAlpha.spectralRadius = 0.8
    settings.solution.file.write = False
    settings.solution.sensors.writePeriod = integration.endTime / integration.numberOfSteps
    mbs.SolveDynamic(settings)
    times, *forces = mbs.GetSensorStoredData(force)[-turns * steps - 1 :].T
    bending = np.zeros(len(times))
    if elastic:
        bending = mbs.GetSensorStoredData(rod.modal)[-turns * steps - 1 :, 1:] @ rod.bending
    angle = np.degrees(SPEED * times) - 360.0 * settling
    return Run(angle, np.column_stack(forces[:2]), bending)


def draw(elastic: Run, rigid: Run, path: Path) -> None:
    """Three panels over the crank angle. The same runs give the same bytes."""
    look: Any = {
        "font.family": "DejaVu Sans",
        "font.size": 9,
        "axes.grid": True,
        "grid.alpha": 0.3,
        "svg.hashsalt": "crank",
    }
    with plt.rc_context():
        matplotlib.rcdefaults()
        matplotlib.rcParams.update(look)
        figure, panels = plt.subplots(3, 1, figsize=(7, 6), sharex=True, layout="constrained", height_ratios=(2, 1, 1))
        sizes = {"elastic": np.linalg.norm(elastic.force, axis=1), "rigid": np.linalg.norm(rigid.force, axis=1)}
        panels[0].plot(elastic.angle, sizes["elastic"] / 1000, color="tab:blue", linewidth=2.5, label="elastic rod")
        panels[0].plot(
            rigid.angle, sizes["rigid"] / 1000, color="tab:orange", linewidth=1, linestyle="--", label="rigid rod"
        )
        panels[0].set(ylabel="force on the crank pin [kN]", ylim=(0, None))
        panels[0].legend(loc="lower right")
        panels[1].plot(elastic.angle, sizes["elastic"] - sizes["rigid"], color="tab:green", linewidth=1)
        panels[1].set_ylabel("elastic - rigid [N]")
        panels[2].plot(elastic.angle, 1e6 * elastic.bending, color="tab:blue", linewidth=1)
        panels[2].set(ylabel="bending of the rod [µm]", xlabel="crank angle from top dead centre [degrees]")
        panels[2].set(xlim=(0, elastic.angle[-1]), xticks=np.arange(0, elastic.angle[-1] + 1, 90))
        figure.align_ylabels()
        figure.savefig(path, dpi=120, metadata={"Date": None} if path.suffix == ".svg" else None)
        plt.close(figure)


def main(arguments: Sequence[str] | None = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("rod", type=Path)
    parser.add_argument("--output", type=Path, default=Path("slider_crank.svg"))
    given = parser.parse_args(arguments)
    with zel.open(given.rod) as body:
        elastic, rigid = (simulate(body, kind) for kind in (True, False))
    draw(elastic, rigid, given.output)
    forces = [np.linalg.norm(run.force, axis=1) for run in (elastic, rigid)]
    print(
        f"{given.output}: the rod bends by {1e6 * np.abs(elastic.bending).max():.2f} micrometres and changes the force"
    )
    print(f"on the crank pin, up to {forces[1].max() / 1000:.2f} kN, by {np.abs(forces[0] - forces[1]).max():.2f} N")


if __name__ == "__main__":
    main()
