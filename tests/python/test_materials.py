"""Material discovery from Python: numpy in and out, the library's messages,
the abort from another thread, and the results checked against scikit-learn's
k-means (segmentation) and numpy's least squares (abundances)."""

import threading
import time

import corv
import numpy as np
import pytest
import sklearn.cluster
import sklearn.metrics

BANDS = 33


def surfaces():
    """Four reflectances shaped like vegetation, soil, red paint and blue plastic."""
    nm = np.linspace(400.0, 720.0, BANDS)
    step = lambda edge, width: 1.0 / (1.0 + np.exp(-(nm - edge) / width))  # noqa: E731
    bump = lambda centre, width: np.exp(-0.5 * ((nm - centre) / width) ** 2)  # noqa: E731
    return np.array([
        0.04 + 0.08 * bump(550, 25) + 0.45 * step(705, 8),
        0.12 + 0.25 * (nm - 400) / 320,
        0.06 + 0.6 * step(600, 12),
        0.08 + 0.45 * bump(460, 40),
    ], dtype=np.float32)


def quadrant_scene(size=64, seed=4):
    """Reflectance (rows, columns, bands) of the four surfaces in the quadrants,
    randomly shaded (0.6 to 1) and a little noisy, and the true labels."""
    rng = np.random.default_rng(seed)
    rows, cols = np.mgrid[0:size, 0:size]
    truth = (rows >= size // 2) * 2 + (cols >= size // 2)
    shading = rng.uniform(0.6, 1.0, (size, size, 1)).astype(np.float32)
    s = surfaces()[truth] * shading + rng.normal(0, 0.003, (size, size, BANDS))
    return s.astype(np.float32), truth


def test_finds_the_quadrants_as_k_means_does(logger):
    s, truth = quadrant_scene()
    found = corv.recover_materials(s)
    assert found.elements.shape == (BANDS, 4)
    assert found.elements.dtype == np.float32
    np.testing.assert_allclose(np.linalg.norm(found.elements, axis=0), 1.0, atol=1e-5)
    assert found.abundances.shape == found.abundance_indexes.shape == (64, 64, 5)
    assert found.map.shape == (64, 64)
    np.testing.assert_array_equal(found.map, found.abundance_indexes[:, :, 0])

    unit = (s / np.linalg.norm(s, axis=2, keepdims=True)).reshape(-1, BANDS)
    peer = sklearn.cluster.KMeans(n_clusters=4, n_init=4, random_state=0).fit_predict(unit)
    assert sklearn.metrics.adjusted_rand_score(peer, found.map.ravel()) == 1.0
    assert sklearn.metrics.adjusted_rand_score(truth.ravel(), found.map.ravel()) == 1.0
    # Every true surface within a degree of an element.
    cosines = (surfaces() / np.linalg.norm(surfaces(), axis=1, keepdims=True)) @ found.elements
    assert np.degrees(np.arccos(np.minimum(cosines.max(axis=1), 1.0))).max() < 1.0
    assert logger.progress == 100


def test_abundances_are_least_squares_over_the_chosen_elements():
    s, _ = quadrant_scene(32)
    # Mix the surfaces so that every pixel holds several.
    rng = np.random.default_rng(9)
    s = (0.7 * s + 0.3 * np.roll(s, 16, axis=1) * rng.uniform(0.5, 1, (32, 32, 1))).astype(
        np.float32)
    found = corv.recover_materials(s, materials_per_pixel=2, mode=corv.MATERIALS_FULL)
    assert np.all(np.diff(found.abundances, axis=2) <= 0)
    for r, c in [(0, 0), (5, 20), (31, 31), (17, 3)]:
        chosen = found.abundance_indexes[r, c].astype(int)
        assert len(set(chosen)) == 2
        weights, *_ = np.linalg.lstsq(found.elements[:, chosen].astype(np.float64),
                                      s[r, c].astype(np.float64), rcond=None)
        np.testing.assert_allclose(found.abundances[r, c], weights, rtol=1e-3, atol=1e-4)
        # The chosen elements are the two nearest by angle.
        cosines = found.elements.T @ s[r, c]
        assert set(chosen) == set(np.argsort(-cosines)[:2])

    abundances, indexes = corv.generate_elements(found.elements, s, 2)
    np.testing.assert_array_equal(abundances, found.abundances)
    np.testing.assert_array_equal(indexes, found.abundance_indexes)
    centres = corv.deterministic_annealing(s.reshape(-1, BANDS).T.copy())
    assert centres.shape[0] == BANDS


def test_refusals_are_the_library_messages(logger):
    s, _ = quadrant_scene(16)
    with pytest.raises(RuntimeError) as error:
        corv.recover_materials(s, max_temperature=0.001, min_temperature=0.01)
    assert str(error.value) == (
        "Recover Materials: Temperature Min > Temperature Max, this doesn't make sense!")
    with pytest.raises(RuntimeError, match=r"^q_factor out of range in recover_materials\(\)$"):
        corv.recover_materials(s, subsample=5)
    with pytest.raises(RuntimeError, match="^Generate Elements: Non-compatible arrays$"):
        corv.generate_elements(np.ones((4, 2), np.float32), s)
    with pytest.raises(ValueError):
        corv.recover_materials(s[:, :, 0])
    assert ("Recover Materials: Temperature Min > Temperature Max, this doesn't make sense!"
            in [line for _, line in logger.entries()])


def test_abort_from_another_thread(logger):
    # A long schedule on every pixel: the run is still annealing when the
    # abort arrives, which only works if the call has let go of the GIL.
    s, _ = quadrant_scene(128)
    outcome = {}

    def run():
        try:
            corv.recover_materials(s, mode=corv.MATERIALS_FULL, cooling_rate=0.995,
                                   min_temperature=1e-6, verbosity=3)
            outcome["finished"] = True
        except RuntimeError as error:
            outcome["error"] = str(error)

    worker = threading.Thread(target=run, daemon=True)
    worker.start()
    deadline = time.monotonic() + 60
    while not any("Current Temperature" in line for _, line in logger.entries()):
        assert time.monotonic() < deadline, "the run never started annealing"
        time.sleep(0.01)
    logger.request_abort()
    worker.join(120)
    assert not worker.is_alive()
    assert outcome == {"error": "Processing was aborted!"}
    assert not logger.abort_requested()
