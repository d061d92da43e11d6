"""Illuminant recovery through the module: statistics against numpy, patches in and
out."""

import numpy as np
import pytest

from conftest import corv


def _unit(v):
    v = np.asarray(v, dtype=np.float64)
    return v / np.linalg.norm(v)


def _scene(size=120, bands=12):
    """I = g S L + k L: stripes of three materials, smooth shading and a highlight
    centred in every 20 x 20 cell."""
    t = np.linspace(0.0, 1.0, bands)
    light = 0.4 + 0.8 * t + 0.3 * np.exp(-0.5 * ((t - 0.3) / 0.1) ** 2)
    bodies = 0.15 + 0.7 * np.exp(-0.5 * ((t - np.array([[0.15], [0.5], [0.85]])) / 0.2) ** 2)
    r, c = np.mgrid[0:size, 0:size]
    shading = 0.75 + 0.25 * np.sin(5.0 * c / size + 1.0) * np.cos(4.0 * r / size)
    specular = 0.3 * np.exp(-0.5 * ((r % 20 - 9.5) ** 2 + (c % 20 - 9.5) ** 2) / 9.0)
    cube = (shading[..., None] * bodies[c * 3 // size] + specular[..., None]) * light
    return (cube * (3000.0 / cube.max())).astype(np.float32), light


def _angle(a, b):
    return np.degrees(np.arccos(np.clip(np.dot(_unit(a), _unit(b)), -1.0, 1.0)))


def test_statistical_methods_match_numpy():
    rng = np.random.default_rng(7)
    cube = (rng.random((9, 7, 5)) * 100.0 + 1.0).astype(np.float32)
    x = cube.astype(np.float64)
    for order in (1, 2, 3):
        expected = np.mean(x**order, axis=(0, 1)) ** (1.0 / order)
        np.testing.assert_allclose(corv.recover_illuminant_SG(cube, order), _unit(expected), rtol=1e-5)
        dy, dx = np.gradient(x, axis=(0, 1))
        edge = 0.5 * (
            np.mean(np.abs(dx) ** order, axis=(0, 1)) ** (1.0 / order)
            + np.mean(np.abs(dy) ** order, axis=(0, 1)) ** (1.0 / order)
        )
        np.testing.assert_allclose(corv.recover_illuminant_GE(cube, order), _unit(edge), rtol=1e-5)
    np.testing.assert_allclose(corv.recover_illuminant_WP(cube), _unit(x.mean(axis=(0, 1))), rtol=1e-6)
    np.testing.assert_allclose(corv.recover_illuminant_GW(cube), _unit(x.max(axis=(0, 1))), rtol=1e-6)
    settings = corv.illuminant_parameters()
    settings.order = 2
    found, bounds = corv.recover_global_illuminant(cube, corv.ILLUMINANT_SHADE_OF_GRAY, settings=settings)
    np.testing.assert_allclose(found, corv.recover_illuminant_SG(cube, 2))
    assert bounds.shape == (0, 1)


def test_patches_are_selected_returned_and_reused():
    cube, light = _scene()
    rows, cols, scores, mask = corv.select_smooth_patches(cube, 20, 10)
    assert len(rows) == len(cols) == len(scores) == 10
    assert np.all(np.diff(scores) <= 0)
    assert mask.shape == cube.shape[:2] and mask.sum() == 10 * 400
    for r, c, s in zip(rows, cols, scores):
        patch = cube[20 * r : 20 * r + 20, 20 * c : 20 * c + 20].reshape(-1, cube.shape[2])
        assert s == pytest.approx(np.linalg.norm(patch.mean(axis=0).astype(np.float64)), rel=1e-4)

    found, bounds = corv.recover_global_illuminant(cube, corv.ILLUMINANT_ORBEK, patches=12)
    assert _angle(found, light) < 2.0
    assert bounds.shape == (12, 4)
    again, same = corv.recover_illuminant_HRK(cube, patches=bounds)
    np.testing.assert_array_equal(same, bounds)
    np.testing.assert_allclose(again, found, atol=1e-6)
