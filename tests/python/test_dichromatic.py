"""Dichromatic parameter recovery from Python: the split against a numpy/scipy
rendering of the same model and the image rebuilt from k, g and s (the refusals and the
per-pixel illuminant are checked in C++)."""

import corv
import numpy as np
import pytest
import scipy.ndimage


def scene(rows=40, cols=30, bands=16, seed=3):
    """Two materials, shading, a highlight and noise under a smooth illuminant."""
    rng = np.random.default_rng(seed)
    x = np.linspace(0, 1, bands, dtype=np.float32)
    light = (0.5 + 0.5 * np.sin(0.4 + 2.0 * x)).astype(np.float32)
    materials = np.stack([0.2 + 0.6 * x, 0.8 - 0.5 * x**2]).astype(np.float32)
    which = (np.arange(cols)[None, :] >= cols // 2).astype(int) * np.ones((rows, 1), int)
    shading = rng.uniform(0.3, 1.0, (rows, cols)).astype(np.float32)
    r, c = np.mgrid[0:rows, 0:cols]
    k = (0.6 * np.exp(-((r - rows / 3) ** 2 + (c - cols / 4) ** 2) / 10)).astype(np.float32)
    I = (shading[..., None] * materials[which] + k[..., None]) * light
    I += rng.normal(0, 0.002, I.shape).astype(np.float32)
    return I.astype(np.float32), light, x * 300 + 400


def reference(I, light, n, gray_threshold=2):
    """The same model in numpy: unit spectra summed over the window inside the
    image (scipy's uniform filter with zeros outside), a least-squares split
    against a flat spectrum, achromatic pixels, and s = (R - k) / g."""
    R = (I / light).astype(np.float64)
    bands = R.shape[2]
    norm = np.linalg.norm(R, axis=2)
    U = R / norm[..., None]
    D = scipy.ndimage.uniform_filter(U, size=(2 * n + 1, 2 * n + 1, 1), mode="constant")
    d = D / np.linalg.norm(D, axis=2)[..., None]
    m = d.sum(axis=2)
    ud = (R * d).sum(axis=2)
    u1 = R.sum(axis=2)
    det = bands - m * m
    g = (bands * ud - m * u1) / det
    k = (u1 - m * ud) / det
    all_diffuse = (g < 0) | (det <= 1e-4 * bands)
    g[all_diffuse], k[all_diffuse] = norm[all_diffuse], 0
    angle = np.degrees(np.arccos(np.clip(u1 / (norm * np.sqrt(bands)), -1, 1)))
    g[angle < gray_threshold] = norm[angle < gray_threshold]
    return k, g


@pytest.mark.parametrize("n", [0, 2, 5])
def test_split_matches_numpy_and_rebuilds_the_image(n):
    I, light, waves = scene()
    k, g, s = corv.recover_dichromatic_parameters(I, light, waves, neighbourhood_size=n)
    assert k.shape == g.shape == I.shape[:2] and s.shape == I.shape
    assert k.dtype == g.dtype == s.dtype == np.float32
    ref_k, ref_g = reference(I, light, n)
    np.testing.assert_allclose(k, ref_k, atol=2e-4)
    np.testing.assert_allclose(g, ref_g, rtol=1e-4, atol=2e-4)
    rebuilt = (g[..., None].astype(np.float64) * s + k[..., None]) * light
    error = np.linalg.norm(rebuilt - I, axis=2) / np.linalg.norm(I, axis=2)
    assert error.max() < 1e-4

