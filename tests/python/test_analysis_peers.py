"""Smoothing, Wiener filter, PCA, band maths and image preparation against scipy and numpy.

- Savitzky-Golay against `scipy.signal.savgol_filter(x, window, 2, mode="nearest")`
  and the moving average against `scipy.ndimage.uniform_filter1d(mode="nearest")`:
  both repeat the edge bands, as the library does.
- The Wiener filter against `scipy.signal.wiener`: the same estimator (zero
  padding, sums divided by the full window area, noise = mean local variance).
- PCA against numpy's SVD of the mean-centred pixel matrix, each component up
  to its sign.
- Band maths against numpy evaluating the same formulas, the language's own
  precedence rules included.
- The pipeline's crop, resize, band removal and filters against numpy slicing,
  a bilinear reference written here, and the same scipy filters.

Random data with fixed seeds, the bundled sample and, when present, real cubes
from the shared data folder.
"""

import corv
import numpy as np
import pytest
import scipy.ndimage
import scipy.signal
import spectral
from osgeo import gdal

from corv_testing import SAMPLE_HEADER, SHARED_DATA, SHARED_DATA_ABSENT

gdal.UseExceptions()

# The library sums each window in float32; the peers work in float64. Differences
# are measured against the largest magnitude of the data they come from; the
# largest seen on these data is 3e-7.
SMOOTHING_TOLERANCE = 1e-6


def error_text(call):
    with pytest.raises(RuntimeError) as caught:
        call()
    return str(caught.value)


def random_cube(rows, cols, bands, seed, offset=0.0):
    rng = np.random.default_rng(seed)
    return rng.random((rows, cols, bands), dtype=np.float32) + np.float32(offset)


def assert_close_to_scale(actual, expected, relative):
    """Every element within `relative` times the largest magnitude of `expected`."""
    assert actual.shape == expected.shape
    scale = float(np.abs(expected).max())
    np.testing.assert_allclose(actual, expected, rtol=0, atol=relative * scale)


def savgol_reference(cube, window):
    return scipy.signal.savgol_filter(cube.astype(np.float64), window, 2, axis=2, mode="nearest")


def moving_average_reference(cube, window):
    return scipy.ndimage.uniform_filter1d(cube.astype(np.float64), window, axis=2, mode="nearest")


def wiener_reference(band, rows, cols):
    """scipy's Wiener filter with the library's window placement.

    For an odd size both centre the window on the pixel. For an even size
    scipy's window reaches one pixel further backwards, the library's one further
    forwards; filtering the image turned by 180 degrees and turning the result
    back gives the library's placement with scipy's arithmetic (the mean local
    variance is the same either way).
    """
    band = band.astype(np.float64)
    # Constant areas divide zero by zero before scipy picks the local mean there.
    with np.errstate(divide="ignore", invalid="ignore"):
        if rows % 2 == 1 and cols % 2 == 1:
            return scipy.signal.wiener(band, (rows, cols))
        return scipy.signal.wiener(band[::-1, ::-1], (rows, cols))[::-1, ::-1]


def bilinear_reference(cube, rows, cols):
    """Bilinear resampling with pixel centres at half-integers, as OpenCV's
    INTER_LINEAR places them: target pixel i samples the source at
    (i + 0.5) * scale - 0.5, clamped to the first and last source pixels."""

    def axis_weights(target, source):
        position = (np.arange(target) + 0.5) * (source / target) - 0.5
        first = np.floor(position).astype(int)
        fraction = position - first
        fraction[first < 0] = 0.0
        first[first < 0] = 0
        fraction[first >= source - 1] = 0.0
        first[first >= source - 1] = source - 1
        second = np.minimum(first + 1, source - 1)
        return first, second, fraction

    data = cube.astype(np.float64)
    r0, r1, fr = axis_weights(rows, data.shape[0])
    c0, c1, fc = axis_weights(cols, data.shape[1])
    along_rows = data[r0] * (1 - fr)[:, None, None] + data[r1] * fr[:, None, None]
    return along_rows[:, c0] * (1 - fc)[None, :, None] + along_rows[:, c1] * fc[None, :, None]


def sample_cube():
    return corv.hdr_input(str(SAMPLE_HEADER)).I()


@pytest.fixture(scope="module")
def real_cubes():
    """Real cubes as (rows, columns, bands) float32: the EnMAP tile (GeoTIFF,
    NoData bands included as they are stored) and the AVIRIS-NG radiance cube."""
    if not SHARED_DATA.is_dir():
        pytest.skip(SHARED_DATA_ABSENT)
    tile = gdal.Open(str(SHARED_DATA / "enmap-box" / "enmap_potsdam_tile_128_0.tif"))
    enmap = tile.ReadAsArray().transpose(1, 2, 0).astype(np.float32)
    aviris = spectral.open_image(
        str(SHARED_DATA / "isofit-aviris-ng" / "ang20160910t185702_2rdn_img.hdr")
    ).load()
    return {
        "enmap": np.ascontiguousarray(enmap),
        "aviris": np.ascontiguousarray(np.asarray(aviris, dtype=np.float32)),
    }


def test_savitzky_golay_matches_scipy_with_nearest_edges():
    random = random_cube(13, 11, 40, seed=1, offset=-0.5)
    # Fewer bands than the window: every index past the edge repeats an edge band.
    short = random_cube(3, 2, 4, seed=2)
    for cube in [random, short, sample_cube()]:
        for window in [5, 7, 9]:
            smoothed = corv.savitzky_golay(cube, window)
            assert smoothed.dtype == np.float32
            assert_close_to_scale(smoothed, savgol_reference(cube, window), SMOOTHING_TOLERANCE)
    # The input is left as it was.
    np.testing.assert_array_equal(random, random_cube(13, 11, 40, seed=1, offset=-0.5))


def test_moving_average_matches_scipy_uniform_filter():
    random = random_cube(9, 14, 50, seed=3, offset=2.0)
    short = random_cube(2, 3, 5, seed=4)
    for cube in [random, short, sample_cube()]:
        for window in [3, 5, 9, 15, 31]:
            smoothed = corv.moving_average(cube, window)
            assert_close_to_scale(
                smoothed, moving_average_reference(cube, window), SMOOTHING_TOLERANCE
            )


# The library takes the local variance as E[g^2] - E[g]^2 in float32 (the window
# sums themselves are exact to float32), so it carries an absolute error of about
# 1e-7 times the local mean square, which the gain passes on where the variance
# is small. scipy works in float64. The largest difference seen on these data is
# 2e-6 of the band's range (random bands and real ones alike), including the
# border, where both pad with zeros and divide by the full window area.
WIENER_TOLERANCE = 1e-5


def test_wiener_filter_matches_scipy_including_the_border():
    rng = np.random.default_rng(5)
    # A smooth ramp with patches of noise: some windows fall below the noise
    # estimate (the output is the local mean), others well above it.
    rows, cols = 47, 61
    ramp = np.add.outer(np.linspace(0, 1, rows), np.linspace(0, 2, cols))
    noise = rng.standard_normal((rows, cols)) * (rng.random((rows, cols)) > 0.7)
    band = (ramp + 0.3 * noise).astype(np.float32)
    for window in [(5, 5), (3, 3), (3, 7), (7, 1), (4, 4), (2, 6)]:
        filtered = corv.wiener_filter(band, *window)
        assert filtered.shape == band.shape and filtered.dtype == np.float32
        assert_close_to_scale(filtered, wiener_reference(band, *window), WIENER_TOLERANCE)
    # The defaults are a 5 x 5 window.
    np.testing.assert_array_equal(corv.wiener_filter(band), corv.wiener_filter(band, 5, 5))
    # A window of one pixel has no variance to remove: the image comes back (scipy
    # divides zero by zero there and gives NaN).
    np.testing.assert_allclose(corv.wiener_filter(band, 1, 1), band, rtol=0, atol=1e-6)

    # The bundled sample's bands (integers up to 65535: large means, small spreads).
    sample = sample_cube()
    for b in [0, 16, 32]:
        sample_band = np.ascontiguousarray(sample[:, :, b])
        assert_close_to_scale(corv.wiener_filter(sample_band), wiener_reference(sample_band, 5, 5),
                              WIENER_TOLERANCE)

    assert error_text(lambda: corv.wiener_filter(band, 5, 0)) == (
        "wiener_filter: Window must have at least two dimensions."
    )


# The library decomposes in double precision and returns float32: singular values
# and components agree with numpy's to about 5e-8 relative on these data.
PCA_TOLERANCE = 1e-6


def pca_reference(cube):
    """Singular values and scores (pixels projected onto the right singular
    vectors) of the mean-centred pixel matrix, from numpy's SVD in float64."""
    pixels = cube.reshape(-1, cube.shape[2]).astype(np.float64)
    centred = pixels - pixels.mean(axis=0)
    u, values, _ = np.linalg.svd(centred, full_matrices=False)
    scores = (u * values).reshape(cube.shape[0], cube.shape[1], -1)
    return values, scores


def assert_components_match(components, scores, relative):
    """Each component equals numpy's score image up to its sign."""
    assert components.shape[:2] == scores.shape[:2]
    for k in range(components.shape[2]):
        expected = scores[:, :, k]
        sign = np.sign(np.sum(components[:, :, k] * expected))
        assert sign != 0, k
        np.testing.assert_allclose(
            sign * components[:, :, k], expected, rtol=0,
            atol=relative * np.abs(expected).max(), err_msg=f"component {k}",
        )


def structured_cube(rows, cols, bands, strengths, seed):
    """Pixels on a few orthogonal spectral directions of given strengths, plus
    a little noise and an offset, so that the leading components are well apart."""
    rng = np.random.default_rng(seed)
    directions, _ = np.linalg.qr(rng.standard_normal((bands, len(strengths))))
    scores = rng.standard_normal((rows * cols, len(strengths))) * np.asarray(strengths)
    pixels = scores @ directions.T + 0.05 * rng.standard_normal((rows * cols, bands)) + 3.0
    return pixels.reshape(rows, cols, bands).astype(np.float32)


def test_pca_matches_numpy_svd_up_to_sign():
    cube = structured_cube(40, 30, 24, [40.0, 15.0, 6.0, 2.0], seed=6)
    expected_values, expected_scores = pca_reference(cube)

    components, values = corv.pca(cube, 10)
    assert components.shape == (40, 30, 10) and components.dtype == np.float32
    np.testing.assert_allclose(values, expected_values[:10], rtol=PCA_TOLERANCE)
    # The components after the fourth are noise of nearly equal strength (about
    # 1 % apart); the decomposition in double precision still separates them.
    assert_components_match(components, expected_scores[:, :, :10], PCA_TOLERANCE)

    # Asking for every band returns bands - 1 components whatever the threshold.
    components, values = corv.pca(cube, 30, 0.5)
    assert components.shape == (40, 30, 23)
    np.testing.assert_allclose(values, expected_values[:23], rtol=PCA_TOLERANCE)
    assert_components_match(components, expected_scores[:, :, :23], PCA_TOLERANCE)

    # Pixels on a plane have two non-zero singular values; the library still
    # returns bands - 1 components, the others of (numerically) zero strength.
    rng = np.random.default_rng(8)
    basis = rng.standard_normal((2, 6))
    flat = (rng.standard_normal((120, 2)) @ basis + 1.0).astype(np.float32).reshape(12, 10, 6)
    components, values = corv.pca(flat, 6)
    reference_values, reference_scores = pca_reference(flat)
    assert components.shape == (12, 10, 5) and values.shape == (5,)
    np.testing.assert_allclose(values[:2], reference_values[:2], rtol=PCA_TOLERANCE)
    assert np.all(values[2:] < 1e-6 * values[0])
    assert_components_match(components[:, :, :2], reference_scores[:, :, :2], PCA_TOLERANCE)

    sample = sample_cube()
    sample_values, sample_scores = pca_reference(sample)
    components, values = corv.pca(sample, 5)
    np.testing.assert_allclose(values, sample_values[:5], rtol=PCA_TOLERANCE)
    assert_components_match(components, sample_scores[:, :, :5], PCA_TOLERANCE)


def test_band_maths_matches_numpy_evaluation():
    rng = np.random.default_rng(9)
    first = (rng.random((17, 23, 12), dtype=np.float32) + np.float32(0.05))
    second = rng.random((17, 23, 3), dtype=np.float32) * np.float32(4) - np.float32(2)
    a, b, c = (first[:, :, i] for i in (7, 3, 0))
    d = second[:, :, 1]

    def maths(formula):
        result = corv.band_maths([first, second], formula)
        assert result.dtype == np.float32, formula
        return result

    exact = {
        "(I1[7] - I1[3]) / (I1[7] + I1[3])": (a - b) / (a + b),
        "I1[7]/I1[3]": a / b,
        "I1[7] > 0.5": (a > np.float32(0.5)).astype(np.float32),
        "I1[3] < I1[7]": (b < a).astype(np.float32),
        "(I1[3] < I1[7]) * I2[1]": (b < a).astype(np.float32) * d,
        "I2[1] * (I1[7] > 0.5)": d * (a > np.float32(0.5)).astype(np.float32),
        "I2[1] - I1[0] * 3": d - c * np.float32(3),
        "1 + I1[7] * 2 - I1[0] / 4": np.float32(1) + a * np.float32(2) - c / np.float32(4),
        "I1[7] - I1[3] - I1[0]": (a - b) - c,
        "-I1[7] + I1[3]": -a + b,
        "I1[7] - -I1[3]": a - -b,
        "I2[1] * -2": d * np.float32(-2),
        # The unary minus belongs to the first operand inside the brackets.
        "-(I1[7] + I1[3])": -a + b,
    }
    for formula, expected in exact.items():
        result = maths(formula)
        assert result.shape == (17, 23), formula
        np.testing.assert_array_equal(result, expected, err_msg=formula)

    # Powers go through the C library's pow in float32: within an ulp or two of numpy's.
    powers = {
        # The extra pop after ")" applies the "*" before the "^".
        "I1[0] * (I1[7] + I1[3]) ^ 2": (c * (a + b)) ** 2,
        "I1[7] ^ 2": a ** 2,
        "I1[7] ^ 0.5": np.sqrt(a),
        "(I1[7] - I1[3]) ^ 3": (a - b) ** 3,
        "I1[7] ^ 2 ^ 2": (a ** 2) ** 2,
        # Only the first element of the right operand is the exponent.
        "I1[7] ^ I1[3]": a ** b[0, 0],
        "I1[7] ^ I2[1]": a ** d[0, 0],
    }
    for formula, expected in powers.items():
        np.testing.assert_allclose(maths(formula), expected, rtol=3e-7, atol=0, err_msg=formula)


def pipeline_of(cube, wavelengths):
    image = corv.pipeline()
    image.set_I(cube, wavelengths)
    return image


def test_pipeline_crop_resize_and_band_removal_match_numpy(logger):
    cube = random_cube(20, 30, 8, seed=10)
    wavelengths = np.linspace(400, 750, 8).astype(np.float32)

    image = pipeline_of(cube, wavelengths)
    image.crop(3, 5, 11, 28)  # first row, first column, last row, last column: inclusive
    np.testing.assert_array_equal(image.I(), cube[3:12, 5:29])
    assert (image.height, image.width, image.bands) == (9, 24, 8)
    image.crop(0, 0, 0, 0)
    np.testing.assert_array_equal(image.I(), cube[3:4, 5:6])

    image = pipeline_of(cube, wavelengths)
    image.remove_bands([6, 0, 3, 0])
    np.testing.assert_array_equal(image.I(), cube[:, :, [1, 2, 4, 5, 7]])
    np.testing.assert_array_equal(image.wavelengths(), wavelengths[[1, 2, 4, 5, 7]])

    # Up and down, by whole and fractional factors, different along each axis
    # (a swap of rows and columns cannot pass), and exact halving, where OpenCV
    # averages 2 x 2 blocks (the same as bilinear sampling at half-pixel centres).
    for rows, cols in [(40, 45), (7, 11), (10, 15), (20, 30), (1, 1), (33, 4)]:
        image = pipeline_of(cube, wavelengths)
        image.resize(rows, cols)
        resized = image.I()
        assert resized.shape == (rows, cols, 8)
        np.testing.assert_allclose(resized, bilinear_reference(cube, rows, cols), rtol=1e-4,
                                   atol=1e-6, err_msg=f"{rows} x {cols}")
        np.testing.assert_allclose(corv.resize_cube(cube, rows, cols), resized, rtol=0, atol=0)
    np.testing.assert_array_equal(corv.resize_cube(cube, 20, 30), cube)

    sample = sample_cube()
    image = corv.pipeline(corv.hdr_input(str(SAMPLE_HEADER)))
    image.resize(75, 130)
    np.testing.assert_allclose(image.I(), bilinear_reference(sample, 75, 130), rtol=1e-4, atol=1e-3)


def test_pipeline_filters_match_scipy():
    """The pipeline's filter codes reach the filters checked above."""
    cube = random_cube(16, 12, 30, seed=11, offset=1.0)
    wavelengths = np.linspace(400, 700, 30).astype(np.float32)
    references = {
        0: savgol_reference(cube, 7),
        2: moving_average_reference(cube, 7),
        1: np.stack([wiener_reference(cube[:, :, b], 4, 4) for b in range(30)], axis=2),
    }
    for method, expected in references.items():
        image = pipeline_of(cube, wavelengths)
        image.filter(method, 4 if method == 1 else 7)
        assert_close_to_scale(image.I(), expected, WIENER_TOLERANCE)


def test_real_cubes_match_the_peers(real_cubes):
    """Every check above on the real cubes: spectral filters, the Wiener filter
    on every band through the pipeline, PCA and a normalised difference."""
    for name, cube in real_cubes.items():
        for window in [5, 7, 9]:
            assert_close_to_scale(corv.savitzky_golay(cube, window), savgol_reference(cube, window),
                                  SMOOTHING_TOLERANCE)
        for window in [3, 5, 9, 15, 31]:
            assert_close_to_scale(corv.moving_average(cube, window),
                                  moving_average_reference(cube, window), SMOOTHING_TOLERANCE)

        image = pipeline_of(cube, np.arange(cube.shape[2], dtype=np.float32) + 400)
        image.filter(1, 5)
        filtered = image.I()
        # Band by band: each band has its own range (the EnMAP tile's NoData
        # bands are -32768 throughout and filter to their local means).
        for b in range(cube.shape[2]):
            assert_close_to_scale(filtered[:, :, b], wiener_reference(cube[:, :, b], 5, 5),
                                  WIENER_TOLERANCE)

        # Constant NoData bands would only add zero components.
        valid = cube[:, :, (cube > -32768).all(axis=(0, 1))]
        expected_values, expected_scores = pca_reference(valid)
        components, values = corv.pca(valid, 5)
        np.testing.assert_allclose(values, expected_values[:5], rtol=PCA_TOLERANCE, err_msg=name)
        assert_components_match(components, expected_scores[:, :, :5], PCA_TOLERANCE)

        # A normalised difference, zero denominators included (NaN where both are 0).
        high, low = cube.shape[2] // 2, cube.shape[2] // 4
        x, y = cube[:, :, high], cube[:, :, low]
        with np.errstate(divide="ignore", invalid="ignore"):
            expected = (x - y) / (x + y)
        index = corv.band_maths([cube], f"(I1[{high}] - I1[{low}]) / (I1[{high}] + I1[{low}])")
        np.testing.assert_array_equal(index, expected, err_msg=name)
