"""Draw a body: its frequencies as bars and one mode over the resting shape, as a PNG.

    python plot_modes.py rod.zel [--mode 7] [--output modes.png]
"""

import argparse
from pathlib import Path
from typing import Any

import matplotlib

matplotlib.use("Agg")  # draws into files, without a display

import matplotlib.pyplot as plt
import numpy as np
from matplotlib.axes import Axes
from mpl_toolkits.mplot3d.art3d import Poly3DCollection

import zel


def draw_frequencies(axes: Axes, body: zel.Body) -> None:
    """A bar for each mode that deforms the body."""
    flexible = [mode for mode in body.modes if not mode.is_rigid]
    axes.barh([str(mode.number) for mode in flexible], [mode.frequency / 1000 for mode in flexible], color="steelblue")
    axes.invert_yaxis()
    axes.set(xlabel="frequency [kHz]", ylabel="mode", title=f"{len(flexible)} flexible modes")


def draw_mode(axes: Any, body: zel.Body, number: int) -> None:
    """The faces moved by a mode whose largest motion is a tenth of the body, coloured by the motion of their nodes."""
    mode = body.modes[number]
    row_of = {int(node): row for row, node in enumerate(body.shape_nodes)}
    rest = body.nodes.coordinates[body.nodes.index_of(body.shape_nodes)]
    motion = mode.shape[:, :3]
    lengths = np.linalg.norm(motion, axis=1)
    moved = rest + 0.1 * body.size / lengths.max() * motion

    offsets, ids = body.faces
    rows = np.array([row_of[int(node)] for node in ids])
    faces = [rows[start:end] for start, end in zip(offsets, offsets[1:])]
    colors = plt.get_cmap("viridis")([lengths[face].mean() / lengths.max() for face in faces])
    axes.add_collection3d(Poly3DCollection([moved[face] for face in faces], facecolors=colors))

    low, high = moved.min(axis=0), moved.max(axis=0)
    axes.set(xlim=(low[0], high[0]), ylim=(low[1], high[1]), zlim=(low[2], high[2]))
    axes.set_box_aspect(high - low)
    axes.set_axis_off()
    axes.set_title(f"mode {number}: {mode.frequency:.1f} Hz")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("body", type=Path)
    parser.add_argument("--mode", type=int, help="number of the mode to draw; the first one that deforms the body")
    parser.add_argument("--output", type=Path, default=Path("modes.png"))
    arguments = parser.parse_args()
    with zel.open(arguments.body) as body:
        number = arguments.mode or next(mode.number for mode in body.modes if not mode.is_rigid)
        figure = plt.figure(figsize=(11, 6), layout="constrained")
        places = figure.add_gridspec(1, 2, width_ratios=(1, 2))
        draw_frequencies(figure.add_subplot(places[0, 0]), body)
        draw_mode(figure.add_subplot(places[0, 1], projection="3d"), body, number)
        figure.suptitle(body.header.title)
        figure.savefig(arguments.output, dpi=120)
    print(f"{arguments.output} shows mode {number}")


if __name__ == "__main__":
    main()
