"""The processing commands of the `corv` tool on the bundled sample: prepare, pca, bandmath
and component files (the streamed runs are compared with the library in test_streamed_cli)."""

import numpy as np
import pytest

from conftest import corv


def read(path):
    return corv.hdr_input(str(path)).I()


@pytest.fixture(scope="module")
def sample_cube(sample_header):
    return corv.hdr_input(str(sample_header)).I()


def test_bandmath_prints_numbers_and_needs_an_output_for_images(run_corv, sample_header):
    done = run_corv("bandmath", "2*(3+4)^2")
    assert (done.returncode, done.stdout.strip()) == (0, "196")

    done = run_corv("bandmath", "I1[0]", sample_header)
    assert done.returncode == 2 and "write it with -o OUT" in done.stderr
    done = run_corv("bandmath", "I2[0]", sample_header)
    assert (done.returncode, done.stderr) == (1, "band_maths: Invalid image 2, there are only 1\n")


def test_pca_prints_strengths_and_writes_components(run_corv, sample_header, sample_cube, tmp_path):
    out = tmp_path / "pc.fla"
    done = run_corv("pca", sample_header, "-n", "3", "-o", out)
    assert done.returncode == 0, done.stderr
    lines = done.stdout.splitlines()
    assert lines[0] == "component  singular value" and len(lines) == 4
    components = read(out)
    assert components.shape == (200, 300, 3)
    x = sample_cube.reshape(-1, 33, order="F").astype(np.float64)
    singular = np.linalg.svd(x - x.mean(axis=0), compute_uv=False)
    np.testing.assert_allclose([float(l.split()[1]) for l in lines[1:]], singular[:3], rtol=1e-4)
    assert run_corv("pca", sample_header).returncode == 2


def test_prepare_crops_removes_resizes_and_filters(run_corv, sample_header, sample_cube, tmp_path):
    out = tmp_path / "crop.fla"
    done = run_corv("prepare", sample_header, "-o", out, "--crop", "10,20,59,119",
                    "--remove-bands", "0,32")
    assert done.returncode == 0, done.stderr
    np.testing.assert_array_equal(read(out), sample_cube[10:60, 20:120, 1:32])
    wavelengths = corv.hdr_input(str(out)).wavelengths()
    assert (wavelengths[0], wavelengths[-1], len(wavelengths)) == (410, 710, 31)

    for bad, text in [(["--crop", "0,0,200,10"], "pipeline crop: Error - Invalid parameters.\n"),
                      (["--filter", "sg:4"],
                       "savitzky_golay: Window size is incorrect. (5, 7 or 9 only)\n")]:
        target = tmp_path / "bad.fla"
        done = run_corv("prepare", sample_header, "-o", target, *bad)
        assert (done.returncode, done.stderr) == (1, text)
        assert not target.exists()
    assert run_corv("prepare", sample_header, "-o", tmp_path / "x.fla",
                    "--filter", "median").returncode == 2


def test_component_files_round_trip_through_the_tool(run_corv, sample_header, sample_cube,
                                                     tmp_path):
    prefix = tmp_path / "set" / "sample"
    assert run_corv("convert", sample_header, "--components", prefix).returncode == 0
    done = run_corv("info", prefix, "--components", "--json")
    assert done.returncode == 0 and '"format": "component files"' in done.stdout
    back = tmp_path / "back.fla"
    assert run_corv("convert", prefix, back, "--from-components").returncode == 0
    np.testing.assert_array_equal(read(back), sample_cube)
    done = run_corv("info", tmp_path / "nothing", "--components")
    assert (done.returncode, done.stderr) == (1, "component_input: Didn't load any components.\n")
