"""`corv classify`: SVM labels, the default result count and the refusals (SAM and unmixing
are compared with the library in test_streamed_cli)."""

import corv
import numpy as np
import pytest

TRY_HELP = "Try 'corv --help'.\n"
USAGE = (
    "corv classify: expects IN --library LIB --method sam|svm|unmix [-k K] [--reflectance] "
    "-o PREFIX\n"
)

ROWS, COLS, BANDS = 6, 5, 8
WAVES = np.arange(450.0, 450.0 + 20 * BANDS, 20.0, dtype=np.float32)


def write_envi_image(path, cube, waves):
    """A band-sequential float32 ENVI pair: path.hdr and path.fla."""
    rows, cols, bands = cube.shape
    cube.transpose(2, 0, 1).astype("<f4").tofile(f"{path}.fla")
    with open(f"{path}.hdr", "w") as header:
        header.write(
            f"ENVI\nsamples = {cols}\nlines = {rows}\nbands = {bands}\nheader offset = 0\n"
            "file type = ENVI Standard\ndata type = 4\ninterleave = bsq\nbyte order = 0\n"
            "wavelength = {" + ", ".join(f"{w:.1f}" for w in waves) + "}\n"
        )
    return f"{path}.hdr"


def write_csv_library(path, spectra, waves):
    """One spectrum per column, as the library CSV is written."""
    with open(path, "w") as out:
        out.write("wavelength," + ",".join(f"material {i + 1}" for i in range(len(spectra))) + "\n")
        for b, w in enumerate(waves):
            out.write(f"{w:g}," + ",".join(repr(float(s[b])) for s in spectra) + "\n")
    return path


def read_envi_result(prefix, depth):
    header = open(f"{prefix}.hdr").read()
    assert f"samples = {COLS}\nlines = {ROWS}\nbands = {depth}\ndata type = 4\n" in header
    data = np.fromfile(f"{prefix}.fla", dtype="<f4")
    return data.reshape(depth, ROWS, COLS).transpose(1, 2, 0)


@pytest.fixture
def scene(tmp_path):
    rng = np.random.default_rng(4)
    spectra = rng.random((4, BANDS), dtype=np.float32) + np.float32(0.1)
    weights = rng.random((ROWS, COLS, 4), dtype=np.float32) ** 3
    cube = (weights @ spectra).astype(np.float32)
    return {
        "cube": cube,
        "spectra": spectra,
        "image": write_envi_image(tmp_path / "scene", cube, WAVES),
        "library": write_csv_library(tmp_path / "library.csv", spectra, WAVES),
        "out": tmp_path / "result",
    }


def test_svm_writes_labels_and_k_defaults_to_five(run_corv, scene):
    done = run_corv("classify", scene["image"], "--library", scene["library"], "--method", "svm",
                    "-o", scene["out"])
    assert (done.returncode, done.stdout, done.stderr) == (0, f"{scene['out']}_labels.hdr\n", "")
    _, expected = corv.svm(scene["cube"], WAVES, scene["spectra"], WAVES, None)
    np.testing.assert_array_equal(read_envi_result(f"{scene['out']}_labels", 1)[:, :, 0], expected)

    # Without -k, sam keeps 5 results, or as many as there are references (4).
    done = run_corv("classify", scene["image"], "--library", scene["library"], "--method", "sam",
                    "--output", scene["out"])
    assert done.returncode == 0, done.stderr
    assert read_envi_result(f"{scene['out']}_values", 4).shape == (ROWS, COLS, 4)


def test_usage_mistakes_and_library_refusals(run_corv, scene, tmp_path):
    image, library, out = scene["image"], scene["library"], scene["out"]
    for words in (
        ["classify", image, "--method", "sam", "-o", out],
        ["classify", image, image, "--library", library, "--method", "sam", "-o", out],
    ):
        done = run_corv(*words)
        assert (done.returncode, done.stdout, done.stderr) == (2, "", USAGE + TRY_HELP), words

    done = run_corv("classify", image, "--library", library, "--method", "knn", "-o", out)
    assert (done.returncode, done.stderr) == (
        2, "corv classify: --method must be sam, svm or unmix, not 'knn'\n" + TRY_HELP)

    # A library at three of the image's wavelengths and two others cannot be aligned.
    odd_waves = np.concatenate([WAVES[:3], [1200.0, 1300.0]]).astype(np.float32)
    odd = write_csv_library(tmp_path / "odd.csv", scene["spectra"][:, :5], odd_waves)
    done = run_corv("classify", image, "--library", odd, "--method", "unmix", "-o", out)
    assert (done.returncode, done.stdout, done.stderr) == (
        1, "", "unmix_by_spectra: For some reason, could not align data.\n")
    assert not (tmp_path / "result_values.hdr").exists()
