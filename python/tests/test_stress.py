"""Stress under loads and for amplitudes, as the command has it too."""

import json
from pathlib import Path

import numpy as np
import pytest
import zel

from conftest import SOURCE, command


def test_stress_of_a_pulled_bar(tmp_path: Path) -> None:
    path, free, out = tmp_path / "bar.zel", tmp_path / "free.zel", tmp_path / "bar.json"
    job = SOURCE / "examples" / "ccx" / "cantilever"
    ends = ["--interface", "ROOT@0,0,0:average", "--interface", "TIP@1000,0,0:average"]
    load = ["--load", "PULL=TIP:8000,0,0", "--attachment", "--stress"]
    command("import", "ccx", job, "--units", "mm,t,s,N", *ends, *load, "--modes", 2, "-o", path)
    with zel.open(path) as bar:
        root = int(bar.interface_nodes[0])
        pulled = bar.stress("PULL", fix=root)
        assert pulled.solution == f"held at {root}"
        x = bar.nodes.coordinates[bar.nodes.index_of(pulled.node_ids), 0]
        middle = (x > 300) & (x < 700)  # force over area
        assert np.allclose(pulled.tensors[middle], [10, 0, 0, 0, 0, 0], atol=0.01)
        assert np.allclose(pulled.von_mises[middle], 10, atol=0.02)
        both = bar.stress(amplitudes=[pulled.amplitudes, 2 * pulled.amplitudes])
        assert both.tensors.shape == (2, len(x), 6)
        assert np.allclose(both.tensors[1], 2 * pulled.tensors)
        command("stress", path, "--load", "PULL", "--fix", root, "-o", out)
        told = json.loads(out.read_text())
        assert np.allclose(told["states"][0]["stress"], pulled.tensors.ravel())
        with pytest.raises(zel.ZelError, match="no load case"):
            bar.stress("PUSH")
        with pytest.raises(ValueError, match="amplitudes: expected"):
            bar.stress(amplitudes=[1.0])
        with pytest.raises(ValueError, match="takes a load"):
            bar.stress()
    command("import", "ccx", job, "--units", "mm,t,s,N", "--free", *load, "--modes", 2, "-o", free)
    with zel.open(free) as bar:
        drawn = bar.stress("PULL")
        x = bar.nodes.coordinates[bar.nodes.index_of(drawn.node_ids), 0]
        middle = (x > 300) & (x < 700)  # a section draws the mass behind it
        assert drawn.solution == "inertia relief"
        assert np.allclose(drawn.tensors[middle, 0], x[middle] / 100, atol=0.01)
