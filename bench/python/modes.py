"""One mode of 100 000 nodes, set from numpy and read into it, against loops in C in the same run.

    build/test/python/environment/bin/python bench/python/modes.py build/test/bench/python_loops [nodes]

The references are a call of ZEL_SetModeVec a node, ZEL_Read_Mode_Double into an array that is there, and two calls of
ZEL_ModeByNode a node. The fastest of several modes and rounds counts. Missing a target is no failure.
"""

import json
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path

import numpy as np

import zel

MODES, ROUNDS, TARGET = 20, 5, 1.2


def fastest(action: Callable[[int], object]) -> float:
    """Seconds of the fastest call with a mode number."""
    best = float("inf")
    for mode in range(1, MODES + 1):
        started = time.perf_counter()
        action(mode)
        best = min(best, time.perf_counter() - started)
    return best


def set_modes(nodes: int, shape: np.ndarray) -> tuple[zel.Body, float]:
    """A body with its modes, and how long one takes."""
    body = zel.Body("kg,m,s,N")
    body.set_nodes(np.arange(1, nodes + 1), shape[:, :3])
    return body, fastest(lambda mode: body.set_mode(mode, shape))


def main() -> None:
    program, nodes = sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else 100_000
    shape = np.random.default_rng(1).normal(size=(nodes, 6))
    best: dict[str, float] = {}
    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder) / "modes.zel"
        set_modes(nodes, shape)[0].write(path, "no_ortho")
        for _ in range(ROUNDS):
            body, setting = set_modes(nodes, shape)
            body.close()
            with zel.open(path) as read:
                reading = fastest(lambda mode: read.modes[mode].shape)
            arguments = [program, str(nodes), str(MODES), str(path)]
            printed = subprocess.run(arguments, check=True, capture_output=True, text=True).stdout
            loops = json.loads(printed.splitlines()[-1])  # behind what the library says
            seconds = {"numpy set": setting, "numpy read": reading}
            seconds |= {f"C {name}": value for name, value in loops.items()}
            best = {name: min(value, best.get(name, value)) for name, value in seconds.items()}
    for name, value in best.items():
        print(f"{name:<16} {1e3 * value:9.3f} ms")
    for ours, reference in (("numpy set", "C set"), ("numpy read", "C read"), ("numpy read", "C read by node")):
        ratio = best[ours] / best[reference]
        verdict = "met" if ratio <= TARGET else "missed"
        print(f"{ours} over {reference:<16} {ratio:6.2f}   target at most {TARGET}: {verdict}")


if __name__ == "__main__":
    main()
