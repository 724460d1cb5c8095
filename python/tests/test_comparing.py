"""Modes of random bodies against others: angles as scipy has them."""

import numpy as np
import pytest
from scipy.linalg import subspace_angles

import zel

NODES, MODES = 30, 6


def body_of(shapes: np.ndarray, hertz: np.ndarray, first_id: int = 1) -> zel.Body:
    """Nodes at the same places with the same masses, and modes of the generalized masses that these give."""
    rng = np.random.default_rng(1)
    body = zel.Body(units="kg,m,s,N")
    at, masses = rng.normal(size=(NODES, 3)), rng.uniform(1.0, 9.0, NODES)
    body.set_nodes(np.arange(first_id, first_id + NODES), at, masses=masses)
    for number, shape in enumerate(shapes, 1):
        body.set_mode(number, np.hstack([shape.reshape(NODES, 3), np.zeros((NODES, 3))]))
    generalized = shapes**2 @ np.repeat(masses, 3)
    body.set_mass_matrix(np.diag(generalized))
    body.set_stiffness_matrix(np.diag(generalized * (2 * np.pi * hertz) ** 2))
    assert body.modes.masses == pytest.approx(generalized) and body.modes.frequencies == pytest.approx(hertz)
    return body


def test_where_nothing_was_compared_nothing_is_equal() -> None:
    nothing = zel.Comparison([], 0)
    assert not nothing and repr(nothing) == "nothing was compared"
    assert zel.Comparison([], 1)
    empty = zel.compare(zel.Body(units="kg,m,s,N"), zel.Body(units="kg,m,s,N"))
    assert empty.compared == 0 and not empty


@pytest.mark.parametrize("size", [1e-9, 1e-5, 1e-2, 1.0])
def test_angles_are_those_of_scipy(size: float) -> None:
    rng = np.random.default_rng(2)
    shapes = rng.normal(size=(MODES, 3 * NODES))
    others = shapes + size * rng.normal(size=shapes.shape)
    hertz = np.array([10.0, 20.0, 20.0, 20.0, 40.0, 50.0])
    base, fresh = body_of(shapes, hertz), body_of(others, hertz)
    found = zel.compare(base, fresh, modes=True)
    weights = np.sqrt(np.repeat(base.nodes.masses, 3))[:, None]
    expected = subspace_angles(weights * shapes.T, weights * others.T)
    assert found.base_in_fresh == pytest.approx(expected[0], abs=1e-12)
    assert [group.base for group in found.groups] == [(1,), (2, 3, 4), (5,), (6,)]
    for group in found.groups:
        modes = [number - 1 for number in group.base]
        expected = subspace_angles(weights * shapes[modes].T, weights * others[modes].T)
        np.testing.assert_allclose(group.angles, expected, rtol=0, atol=1e-12)
        assert group.mac == pytest.approx(np.cos(expected[0]) ** 2, abs=1e-12)
    assert bool(found) == (size < 0.1)  # the limit of the criterion is an angle of 0.1


def test_modes_are_matched_by_place() -> None:
    shapes = np.random.default_rng(3).normal(size=(MODES, 3 * NODES))
    hertz = np.arange(1.0, MODES + 1) * 100
    others = -shapes[::-1].copy()
    others[0, 3 * 17 + 1] += 1e-3
    base, fresh = body_of(shapes, hertz), body_of(others, hertz[::-1], 1001)
    assert not zel.compare(base, fresh, modes=True).compared
    found = zel.compare(base, fresh, modes=True, match="position")
    assert found and [group.fresh for group in found.groups] == [(number,) for number in range(MODES, 0, -1)]
    worst = found.groups[-1].worst
    assert worst is not None and (worst.base_node, worst.fresh_node, worst.rotation) == (18, 1018, False)
    with pytest.raises(ValueError, match="match"):
        zel.compare(base, fresh, modes=True, match="name")
