"""Spectra as NURBS curves: round trips of real spectra within the error bound, the
compression they reach, the curves read back independently through scipy, and the
binding's arguments."""

import corv
import numpy as np
import pytest
from scipy.interpolate import BSpline
from scipy.optimize import brentq

from corv_testing import SHARED_DATA, SHARED_DATA_ABSENT

# (folder/file, reader, alpha, largest compression ratio expected)
LIBRARIES = [
    ("enmap-box/library_berlin.sli", "envi", 0.05, 0.5),
    ("enmap-box/gamsberg_field_library", "envi", 0.05, 0.1),
    ("ecostress-library/ecostress_snow_mixtures", "envi", 0.05, 0.3),
    ("usgs-aster-spectra-and-aviris/s07_AV95_envi.sli", "envi", 0.05, 0.5),
    ("hylite-spectra/library.csv", "csv", 0.05, 0.3),
]


def library_cube(relative, reader):
    """The finite spectra of a library as a one-line cube, bands sorted by wavelength."""
    path = SHARED_DATA / relative
    if not path.is_file():
        pytest.skip(SHARED_DATA_ABSENT)
    if reader == "csv":
        library = corv.read_library_csv(str(path))
    else:
        library = corv.read_envi_library(str(path), drop_incomplete=True)
    spectra = np.asarray(library.endmembers(), dtype=np.float32)  # bands x spectra
    waves = np.asarray(library.wavelengths(), dtype=np.float32)
    spectra = spectra[:, np.isfinite(spectra).all(axis=0)]
    # Spectrometers that overlap (USGS splib07 AVIRIS resampling) list their
    # bands out of order: the curve wants them along the wavelength axis.
    order = np.argsort(waves, kind="stable")
    waves, spectra = waves[order], spectra[order]
    assert np.all(np.diff(waves) > 0)
    if spectra.shape[1] > 400:
        spectra = spectra[:, :: spectra.shape[1] // 300]
    return np.ascontiguousarray(spectra.T[None, :, :]), waves


def round_trip(cube, waves, alpha, capsys, name):
    knots, points = corv.generate_nurbs(cube, None, waves, alpha=alpha)
    back = corv.nurbs_evaluate(knots, points, 2, waves)
    assert back.shape == cube.shape
    data = cube.astype(np.float64)
    span = data.max() - data.min()
    error = np.abs(back.astype(np.float64) - data).max()
    stored = knots.size + points.size
    ratio = stored / cube.size
    with capsys.disabled():
        print(f"\n  {name}: {cube.shape[0] * cube.shape[1]} spectra x {cube.shape[2]} bands, "
              f"{knots.size} knots, {points.shape[2]} control points: compression {ratio:.3f} "
              f"({stored} of {cube.size} numbers), largest error {error / span:.4f} of the range "
              f"(bound {alpha})")
    return knots, points, back, error, span, ratio


@pytest.mark.parametrize("relative, reader, alpha, largest_ratio", LIBRARIES,
                         ids=[entry[0].split("/")[-1] for entry in LIBRARIES])
def test_real_spectra_come_back_within_the_bound_and_compressed(relative, reader, alpha,
                                                                 largest_ratio, capsys):
    cube, waves = library_cube(relative, reader)
    knots, points, back, error, span, ratio = round_trip(cube, waves, alpha, capsys, relative)
    # Every value within alpha of the range, up to the rounding of the float read back.
    assert error <= alpha * span * (1 + 1e-6)
    assert ratio < largest_ratio
    assert points.shape == (1, cube.shape[1], knots.size - 3, 2)
    # Clamped knots, curves from the first band to the last.
    assert np.all(knots[:3] == 0) and np.all(knots[-3:] == 1) and np.all(np.diff(knots) >= 0)
    assert np.allclose(points[0, :, 0, 0], waves[0])
    assert np.allclose(points[0, :, -1, 0], waves[-1])
    assert np.allclose(back[..., 0], cube[..., 0], atol=1e-6 * span)


def test_the_bundled_radiance_sample_comes_back_within_the_bound(capsys, sample_header):
    source = corv.open_input(str(sample_header))
    cube = np.ascontiguousarray(np.asarray(source.I(), dtype=np.float32)[::5, ::5, :])
    waves = np.asarray(source.wavelengths(), dtype=np.float32)
    # Radiance counts up to 65535 against 10 nm steps: each pixel's parameters
    # follow its own values, which the shared knots serve less well than the
    # reflectance libraries, so the bound is the default 10 %.
    knots, points, back, error, span, ratio = round_trip(cube, waves, 0.1, capsys, "sample")
    assert error <= 0.1 * span * (1 + 1e-6)
    assert ratio < 1.0


def read_with_scipy(knots, points, targets):
    """The reading rule, independently: along u, each target (ascending) is met at
    the first crossing of wavelength(u) after the previous target's u."""
    x = BSpline(knots.astype(np.float64), points[:, 0].astype(np.float64), 2)
    y = BSpline(knots.astype(np.float64), points[:, 1].astype(np.float64), 2)
    grid = np.linspace(0.0, 1.0, 20001)
    along = x(grid)
    previous, out = 0.0, []
    for w in targets.astype(np.float64):
        if not w > x(previous):
            out.append(y(previous))
            continue
        after = np.nonzero((grid > previous) & (along >= w))[0]
        if after.size == 0:
            out.append(y(1.0))
            continue
        low = max(previous, grid[after[0] - 1])
        previous = brentq(lambda u: x(u) - w, low, grid[after[0]], xtol=1e-15)
        out.append(y(previous))
    return np.array(out)


def test_curves_read_back_by_scipy_match_the_library():
    path = SHARED_DATA / "hylite-spectra/library.csv"
    if not path.is_file():
        pytest.skip(SHARED_DATA_ABSENT)
    cube, waves = library_cube("hylite-spectra/library.csv", "csv")
    cube = np.ascontiguousarray(cube[:, :12, :])
    knots, points = corv.generate_nurbs(cube, None, waves, alpha=0.02)
    targets = np.linspace(waves[0], waves[-1], 97).astype(np.float32)
    for grid in (waves, targets):
        read = corv.nurbs_evaluate(knots, points, 2, grid)
        for column in range(cube.shape[1]):
            expected = read_with_scipy(knots, points[0, column], grid)
            assert np.allclose(read[0, column], expected, rtol=0, atol=2e-6), column


def test_arguments_and_messages_of_the_binding(logger):
    waves = np.linspace(400, 700, 16).astype(np.float32)
    x = (waves - 400) / 300
    cube = np.stack([0.4 + 0.2 * np.sin(4 * x + p) for p in range(6)]).reshape(2, 3, 16)
    cube = cube.astype(np.float32)

    knots, points = corv.generate_nurbs(cube, None, waves)
    assert points.shape == (2, 3, knots.size - 3, 2)
    assert logger.entries()[-1][1] == f"Final number of knots: {knots.size}"
    # J given as an image of its own takes part; the same spectra change nothing.
    same_knots, same_points = corv.generate_nurbs(cube, cube, waves)
    assert np.array_equal(same_knots, knots)
    assert np.array_equal(same_points, points)
    # Keywords reach the codec: a cubic curve has one control point fewer.
    cubic_knots, cubic_points = corv.generate_nurbs(cube, None, waves, degree=3, alpha=0.02)
    assert cubic_points.shape[2] == cubic_knots.size - 4

    with pytest.raises(ValueError) as error:
        corv.nurbs_evaluate(knots, points[..., 0], 2, waves)
    assert str(error.value) == "expected control points as a 4-D array (rows, columns, points, 2)"
