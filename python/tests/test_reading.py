"""Bodies in files: numpy's arithmetic on what is read, and what the command says of the same file."""

import gc
import json
import re
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy as np
import pytest

import zel
from conftest import SOURCE, command, expect_refused


def test_the_command_says_the_same_of_a_file(rod: Path) -> None:
    told: dict[str, Any] = json.loads(command("info", "--json", rod))
    with zel.open(rod) as body:
        assert body.units._asdict() == told["units"]
        assert (len(body.nodes), len(body.modes)) == (told["nodes"], told["modes"])
        assert len(body.faces.offsets) == told["faces"] + 1
        assert len(body.interface_nodes) == told["interface_nodes"]
        assert body.header.title == told["title"]
        assert [(int(block), body.bytes_of(block)) for block in body.blocks] == [
            (block["number"], block["bytes"]) for block in told["blocks"]
        ]
        for mode, said in zip(body.modes, told["frequencies"], strict=True):
            assert (mode.number, mode.is_rigid) == (said["mode"], said["rigid"])
            assert mode.frequency == pytest.approx(said["frequency_hz"], rel=1e-12)
        properties = body.mass_properties(about="center")
        assert properties.mass == pytest.approx(told["mass"], rel=1e-12)
        np.testing.assert_allclose(properties.center, told["center_of_mass"], rtol=1e-9, atol=1e-9)
        np.testing.assert_allclose(properties.principal_values, told["principal_inertias"], rtol=1e-9)


def test_a_body_shows_and_checks_itself_as_the_command_does(rod: Path) -> None:
    with zel.open(rod) as body:
        assert repr(body).splitlines()[1:] == command("info", rod).splitlines()[1:]
        assert "<td>Connecting rod</td>" in body._repr_html_()
        report = body.check()
        said = json.loads(command("check", "--json", rod))
        assert [(row.name, row.holds, row.text) for row in report] == [
            (row["check"], row["okay"], row["figures"]) for row in said
        ]
        assert bool(report) and len(report) > 5
        body.set_nodal_masses(body.nodes.ids[:1], [-1.0])
        assert not body.check() and body.check().failures[0].verdict == "CHECK!"
    assert repr(body) == "<zel.Body, closed>"


def test_one_node_over_all_modes_is_a_slice_of_them(rod: Path) -> None:
    with zel.open(rod) as body:
        row = 1234
        node = int(body.shape_nodes[row])
        np.testing.assert_array_equal(body.shape_of(node), [mode.shape[row] for mode in body.modes])
        np.testing.assert_array_equal(
            body.shapes_of(body.shape_nodes[[5, 3]], [9, 8]), [body.modes[9].shape[[5, 3]], body.modes[8].shape[[5, 3]]]
        )
        where = body.modes[7].largest_translation()
        lengths = np.linalg.norm(body.modes[7].shape[:, :3], axis=1)
        assert where is not None
        assert where.node_id == body.shape_nodes[lengths.argmax()] and where.value == pytest.approx(lengths.max())


def test_arrays_outlive_the_body_and_cannot_be_written(rod: Path) -> None:
    body, again = zel.open(rod), zel.open(rod)
    arrays: list[np.ndarray] = [body.nodes.coordinates, body.modes[7].shape, body.faces.ids, body.invariants[8]]
    copies = [array.copy() for array in arrays]
    body.close()
    del body
    gc.collect()
    for array, copy in zip(arrays, copies, strict=True):
        np.testing.assert_array_equal(array, copy)
        with pytest.raises(ValueError, match="read-only"):
            array[0] = 0
    np.testing.assert_array_equal(again.modes[7].shape, copies[1])


def test_questions_that_have_no_answer_say_so(rod: Path, tmp_path: Path) -> None:
    with zel.open(rod) as body:
        questions: dict[str, Callable[[], object]] = {
            "no mode 23; the body's modes are 1 to 22": lambda: body.modes[23],
            "no shape at node 99999": lambda: body.shape_of(99999),
            "no node -7": lambda: body.nodes.index_of([1, -7]),
            "no invariant 10": lambda: body.invariants[10],
        }
        expect_refused(questions, KeyError)
        expect_refused({"expected an array of shape (3,), got (2,)": lambda: body.closest_nodes([0.0, 1.0])}, ValueError)
        assert body.modes[7].stress.shape == (0, 6)
        assert (body.preload, body.damping_matrix, body.pre_stress) == (None, None, None)
    with pytest.raises(ValueError, match="closed"):
        _ = body.nodes
    with pytest.raises(FileNotFoundError, match=r"none\.zel"):
        zel.open(tmp_path / "none.zel")
    (tmp_path / "cut.zel").write_bytes(rod.read_bytes()[:5000])
    for path in (tmp_path / "cut.zel", Path(__file__), tmp_path):
        with pytest.raises(zel.ZelError) as caught:
            zel.open(path)
        assert caught.value.lines


def test_every_block_of_the_header_has_its_name() -> None:
    header = (SOURCE / "zel" / "include" / "zel.h").read_text()
    names = re.findall(r"^    ZEL_BLOCK_(\w+)(?: = 1)?,", header, re.M)
    assert [block.name for block in zel.Block] == names
    assert [int(block) for block in zel.Block] == list(range(1, len(names) + 1))
