"""Long calls leave the interpreter to others and end by Ctrl-C."""

import os
import signal
import threading
import time
from collections.abc import Callable
from pathlib import Path

import numpy as np
import pytest

import zel


@pytest.fixture(scope="module")
def large() -> zel.Body:
    """A body whose full invariants take seconds."""
    nodes, modes = 20000, 120
    rng = np.random.default_rng(1)
    body = zel.Body("kg,m,s,N")
    body.set_nodes(np.arange(1, nodes + 1), rng.normal(size=(nodes, 3)), masses=np.ones(nodes))
    for number in range(1, modes + 1):
        body.set_mode(number, rng.normal(size=(nodes, 3)))
    body.set_mass_matrix(np.eye(modes))
    body.set_stiffness_matrix(np.diag(np.arange(1.0, modes + 1)))
    return body


def test_other_threads_run_during_a_long_call(large: zel.Body, tmp_path: Path) -> None:
    done, turns = threading.Event(), 0

    def write() -> None:
        large.write(tmp_path / "large.zel", "full_invar no_ortho")
        done.set()

    thread = threading.Thread(target=write)
    started = time.perf_counter()
    thread.start()
    while not done.wait(0.001):
        turns += 1
    thread.join()
    assert turns > 10 * (time.perf_counter() - started)


def interrupt_soon() -> None:
    threading.Timer(0.05, os.kill, (os.getpid(), signal.SIGINT)).start()


def test_ctrl_c_ends_a_long_call_and_leaves_no_partial_file(large: zel.Body, tmp_path: Path) -> None:
    before = signal.signal(signal.SIGINT, signal.default_int_handler)  # a shell may have it ignored
    interrupt_soon()
    with pytest.raises(KeyboardInterrupt):
        for attempt in range(100):
            large.write(tmp_path / f"{attempt}.zel", "full_invar no_ortho")
            (tmp_path / f"{attempt}.zel").unlink()
    signal.signal(signal.SIGINT, before)
    for whole in tmp_path.iterdir():  # the signal came behind the last progress of a write
        assert whole.suffix == ".zel" and zel.open(whole).modes[7].shape.shape == (20000, 6)
    assert large.modes[7].shape.shape == (20000, 6)


def test_who_is_told_of_progress_can_stop_but_not_use_bodies(large: zel.Body, tmp_path: Path) -> None:
    class Stop(Exception):
        pass

    def stop(done: float, total: float) -> None:
        assert 0.0 <= done <= total
        raise Stop

    def use(done: float, total: float) -> None:
        large.modes[1].shape  # noqa: B018

    cases: list[tuple[Callable[[float, float], None], type[Exception]]] = [(stop, Stop), (use, ValueError)]
    for progress, error in cases:
        with pytest.raises(error):
            large.write(tmp_path / "stopped.zel", "full_invar no_ortho", progress=progress)
        assert list(tmp_path.iterdir()) == []
