"""Classification and unmixing checked against Spectral Python, scipy and scikit-learn.

SAM angles and rankings against `spectral.spectral_angles` (radians, image
rows x columns x bands and members one per row); NNLS against
`scipy.optimize.nnls`; the resampling curve against scipy's B-spline
interpolation on the same knots; SVM labels against scikit-learn's linear `SVC`.
Random data and real spectra (EnMAP tile, Berlin urban library) both.
"""

import corv
import numpy as np
import pytest
import scipy.interpolate
import scipy.optimize
import sklearn.svm
import spectral
from osgeo import gdal

from corv_testing import SHARED_DATA, SHARED_DATA_ABSENT

gdal.UseExceptions()

ANGLE_TOLERANCE_DEGREES = 1e-3


def waves_for(bands):
    return np.linspace(400.0, 1000.0, bands, dtype=np.float32)


def peer_ranking(I, references):
    """Spectral Python's angles in degrees, ranked smallest first (ties: lower number)."""
    radians = spectral.spectral_angles(I, references)
    order = np.argsort(radians, axis=2, kind="stable")
    return np.degrees(np.take_along_axis(radians, order, axis=2)), order + 1


@pytest.fixture(scope="module")
def real_scene():
    """The EnMAP tile's pixels (reflectance, 0-1) and the Berlin library
    interpolated onto its wavelengths, one spectrum per row."""
    if not SHARED_DATA.is_dir():
        pytest.skip(SHARED_DATA_ABSENT)
    tile = gdal.Open(str(SHARED_DATA / "enmap-box" / "enmap_potsdam_tile_128_0.tif"))
    cube = tile.ReadAsArray().transpose(1, 2, 0).astype(np.float32)
    waves = np.array(
        [float(tile.GetRasterBand(b + 1).GetMetadataItem("wavelength")) for b in range(cube.shape[2])],
        dtype=np.float32,
    )
    # Every pixel as a row of a 1-column image, without the bands that are NoData
    # throughout (the water vapour bands near 1400 nm) and outside the library's range.
    pixels = cube.reshape(-1, 1, cube.shape[2]) * np.float32(1e-4)
    valid = (cube > -32768).all(axis=(0, 1))
    library = spectral.open_image(str(SHARED_DATA / "enmap-box" / "library_berlin.hdr"))
    library_waves = np.asarray(library.bands.centers) * 1000.0
    inside = valid & (waves >= library_waves[0]) & (waves <= library_waves[-1])
    references = np.array(
        [np.interp(waves[inside], library_waves, s) for s in library.spectra], dtype=np.float32
    ) * np.float32(1e-4)
    return {
        "pixels": np.ascontiguousarray(pixels[:, :, inside]),
        "waves": waves[inside],
        "references": references,
        "names": library.names,
        "full_cube": cube,
        "full_waves": waves,
        "library_spectra": np.asarray(library.spectra, dtype=np.float32),
        "library_waves": library_waves.astype(np.float32),
    }


def test_sam_matches_spectral_angles_on_random_data():
    rng = np.random.default_rng(1)
    I = rng.random((33, 17, 40), dtype=np.float32) - np.float32(0.1)
    references = rng.random((9, 40), dtype=np.float32)
    values, indexes = corv.sam(I, waves_for(40), references, None, 9)
    expected_values, expected_indexes = peer_ranking(I, references)
    assert values.shape == indexes.shape == (33, 17, 9)
    np.testing.assert_allclose(values, expected_values, atol=ANGLE_TOLERANCE_DEGREES, rtol=0)
    np.testing.assert_array_equal(indexes, expected_indexes)

    # Five best only, as the viewer asks; an empty wave list means "the image's bands".
    values, indexes = corv.sam(I, waves_for(40), references, np.empty(0, np.float32), 5)
    np.testing.assert_allclose(values, expected_values[:, :, :5], atol=ANGLE_TOLERANCE_DEGREES)
    np.testing.assert_array_equal(indexes, expected_indexes[:, :, :5])

    # The image in the module's own (Fortran) order, and as float64: the same results.
    for same in (np.asfortranarray(I), I.astype(np.float64)):
        other_values, other_indexes = corv.sam(same, waves_for(40), references, None, 5)
        np.testing.assert_array_equal(other_values, values)
        np.testing.assert_array_equal(other_indexes, indexes)


def test_sam_matches_spectral_angles_on_real_spectra(real_scene):
    pixels, references = real_scene["pixels"], real_scene["references"]
    values, indexes = corv.sam(pixels, real_scene["waves"], references, None, 5)
    expected_values, expected_indexes = peer_ranking(pixels, references)
    np.testing.assert_allclose(values, expected_values[:, :, :5], atol=ANGLE_TOLERANCE_DEGREES)
    # Real spectra can be nearly parallel, so two ranks may swap where their
    # angles tie within rounding: the references chosen must have, by the peer's
    # own angles, exactly the peer's best angles.
    radians = spectral.spectral_angles(pixels, references)
    chosen = np.degrees(np.take_along_axis(radians, indexes.astype(int) - 1, axis=2))
    np.testing.assert_allclose(chosen, expected_values[:, :, :5], atol=ANGLE_TOLERANCE_DEGREES)
    assert (indexes == expected_indexes[:, :, :5]).mean() > 0.99


def test_real_library_and_image_share_no_wavelength(real_scene):
    """Band alignment keeps only bands at the library's exact wavelengths: the
    EnMAP bands are not among the library's."""
    with pytest.raises(RuntimeError) as error:
        corv.sam(real_scene["full_cube"], real_scene["full_waves"], real_scene["library_spectra"],
                 real_scene["library_waves"], 5)
    assert str(error.value) == "unmix_by_spectra: No matching image bands between image and library."


def test_nnls_matches_scipy_on_random_problems():
    rng = np.random.default_rng(7)
    for trial in range(100):
        m, n = 10 + trial % 40, 1 + trial % 8
        A = rng.random((m, n), dtype=np.float32) - np.float32(0.2 if trial % 2 else 0.0)
        b = rng.standard_normal(m).astype(np.float32) + np.float32(0.5)
        x = corv.nnls(A, b)
        expected, _ = scipy.optimize.nnls(A.astype(np.float64), b.astype(np.float64))
        np.testing.assert_allclose(x, expected, atol=1e-5 * max(1.0, expected.max()), rtol=1e-4,
                                   err_msg=f"trial {trial}")


def test_unmixing_matches_scipy_nnls_pixel_by_pixel(real_scene):
    pixels = real_scene["pixels"]
    # Five dissimilar materials: red clay tile, bitumen, concrete, grass, tree.
    chosen = [0, 7, 27, 30, 60]
    references = real_scene["references"][chosen]
    fractions, indexes = corv.unmix_by_spectra(pixels, real_scene["waves"], references, None, 5)
    _, ranked = corv.sam(pixels, real_scene["waves"], references, None, 5)
    np.testing.assert_array_equal(indexes, ranked)
    A = references.T.astype(np.float64)
    differences = []
    for p in range(pixels.shape[0]):
        b = pixels[p, 0].astype(np.float64)
        x, residual = scipy.optimize.nnls(A, b)
        got = np.zeros(5)
        got[indexes[p, 0].astype(int) - 1] = fractions[p, 0]
        differences.append(np.abs(got - x / x.sum()).max())
        # The same optimum: corv's mixture, at its best brightness, leaves scipy's residual.
        mixture = A @ got
        brightness = (mixture @ b) / (mixture @ mixture)
        assert np.linalg.norm(b - brightness * mixture) == pytest.approx(residual, rel=1e-7), p
    # Fractions agree to 1e-5; the few exceptions are pixels whose optimum
    # barely uses a reference (a fraction near 1e-4) where these strongly
    # correlated spectra leave the least-squares minimum nearly flat: a gradient
    # within single precision of zero decides whether that reference enters.
    differences = np.array(differences)
    assert (differences < 1e-5).mean() > 0.99
    assert differences.max() < 1e-3
    np.testing.assert_allclose(fractions.sum(axis=2), 1.0, atol=1e-5)


def averaging_knots(parameters, degree):
    inner = [parameters[j:j + degree].mean() for j in range(1, len(parameters) - degree)]
    return np.concatenate([np.zeros(degree + 1), inner, np.ones(degree + 1)])


def test_resampling_is_the_spline_scipy_fits_on_the_same_knots(real_scene):
    spectra = real_scene["library_spectra"][:4] * np.float32(1e-4)
    waves = real_scene["library_waves"]
    targets = real_scene["waves"]  # inside the library's range
    resampled = corv.resample_endmembers(spectra, waves, targets)
    u = (waves.astype(np.float64) - waves[0]) / (float(waves[-1]) - waves[0])
    knots = averaging_knots(u, 3)
    for s in range(4):
        curve = scipy.interpolate.make_interp_spline(u, spectra[s].astype(np.float64), k=3, t=knots)
        expected = curve((targets.astype(np.float64) - waves[0]) / (float(waves[-1]) - waves[0]))
        np.testing.assert_allclose(resampled[s], expected, atol=1e-5, err_msg=f"spectrum {s}")


def separable_classes(rng, classes, bands, per_class_noise):
    centres = rng.random((classes, bands), dtype=np.float32) * np.float32(2.0)
    truth = rng.integers(0, classes, size=(40, 25))
    I = centres[truth] + per_class_noise * rng.standard_normal((40, 25, bands)).astype(np.float32)
    return centres, truth, I.astype(np.float32)


def test_svm_matches_scikit_learn_linear_svc():
    rng = np.random.default_rng(5)
    centres, truth, I = separable_classes(rng, 6, 20, 0.01)
    labels = np.array([4, 2, 6, 1, 3, 5], dtype=np.float32)
    used, predicted = corv.svm(I, waves_for(20), centres, None, labels)
    np.testing.assert_array_equal(used, labels)
    peer = sklearn.svm.SVC(kernel="linear", C=1.0).fit(centres, labels.astype(int))
    expected = peer.predict(I.reshape(-1, 20)).reshape(40, 25)
    np.testing.assert_array_equal(predicted, expected)
    np.testing.assert_array_equal(predicted, labels[truth])

    # Several references per class: two noisy samples of each centre.
    samples = np.concatenate([centres, centres + np.float32(0.01)])
    sample_labels = np.concatenate([labels, labels])
    used, predicted = corv.svm(I, waves_for(20), samples, None, sample_labels)
    peer = sklearn.svm.SVC(kernel="linear", C=1.0).fit(samples, sample_labels.astype(int))
    np.testing.assert_array_equal(predicted, peer.predict(I.reshape(-1, 20)).reshape(40, 25))
