"""Commands that stream an ENVI image in blocks of rows give what the library gives on the
whole image; commands that need the whole image refuse one too large for memory."""

import os

import corv
import numpy as np
import pytest

from test_classify_cli import write_csv_library, write_envi_image

# With 1 MiB blocks: 107 rows of all 40 bands a block, 1074 rows of the 4 bands the formula
# below reads; every command goes through several blocks.
ROWS, COLS, BANDS = 1200, 61, 40
WAVES = np.arange(420.0, 420.0 + 12 * BANDS, 12.0, dtype=np.float32)


def read_envi(name):
    """An ENVI result as (rows, columns, bands) in its stored type, and its header."""
    header = open(name[:-4] + ".hdr").read()
    fields = dict(line.split(" = ", 1) for line in header.splitlines() if " = " in line)
    dtype = {"1": "u1", "2": "<i2", "4": "<f4", "12": "<u2"}[fields["data type"]]
    shape = int(fields["bands"]), int(fields["lines"]), int(fields["samples"])
    return np.fromfile(name, dtype=dtype).reshape(shape).transpose(1, 2, 0), header


@pytest.fixture
def image(tmp_path, monkeypatch):
    # Small blocks, so that a small image goes through in several of them.
    monkeypatch.setenv("CORV_BLOCK_MIB", "1")
    rng = np.random.default_rng(8)
    spectra = rng.random((6, BANDS), dtype=np.float32) + np.float32(0.05)
    cube = ((rng.random((ROWS, COLS, 6), dtype=np.float32) ** 3) @ spectra).astype(np.float32)
    header = write_envi_image(tmp_path / "scene", cube, WAVES)
    return {"header": header, "cube": cube, "spectra": spectra, "dir": tmp_path}


def whole(operations):
    """The library's result on the whole image: operations on a pipeline, then I."""
    def run(header):
        p = corv.pipeline(corv.hdr_input(header))
        operations(p)
        return p

    return run


def test_convert_and_prepare_match_the_whole_image_pipeline(run_corv, image):
    header, out = image["header"], image["dir"]
    cases = [
        # (command arguments, data type, what the pipeline does)
        (["convert", header, out / "float.fla"], 4, lambda p: None),
        (["convert", header, out / "u16.hdr", "--data-type", "12"], 12, lambda p: None),
        (["prepare", header, "-o", out / "sg.fla", "--crop", "3,2,1190,50", "--remove-bands",
          "0,7,7,39", "--filter", "sg:7", "--data-type", "2"], 2,
         lambda p: (p.crop(3, 2, 1190, 50), p.remove_bands([0, 7, 7, 39]), p.filter(0, 7))),
        (["prepare", header, "-o", out / "spatial.fla", "--resize", "500x33", "--filter",
          "wiener:3"], 4, lambda p: (p.resize(500, 33), p.filter(1, 3))),
        (["prepare", header, "-o", out / "both.fla", "--crop", "1,1,1195,59", "--resize", "600x30",
          "--filter", "mavg:5", "--data-type", "1"], 1,
         lambda p: (p.crop(1, 1, 1195, 59), p.resize(600, 30), p.filter(2, 5))),
    ]
    for arguments, data_type, operations in cases:
        done = run_corv(*arguments)
        assert done.returncode == 0, (arguments, done.stderr)
        target = str(arguments[2] if arguments[0] == "convert" else arguments[3])
        data = target[:-4] + ".fla" if target.endswith(".hdr") else target
        streamed, streamed_header = read_envi(data)

        p = whole(operations)(header)
        expected_name = str(out / "expected.fla")
        p.save(corv.hdr_output(False, data_type), expected_name)
        expected, expected_header = read_envi(expected_name)
        assert streamed_header == expected_header, arguments
        np.testing.assert_array_equal(streamed, expected, err_msg=str(arguments))
    # Nothing is left of the staged bands of the last two runs.
    assert not [f for f in os.listdir(out) if ".staged" in f]


def test_bandmath_and_classify_match_the_library_on_the_whole_image(run_corv, image):
    header, out, cube = image["header"], image["dir"], image["cube"]
    formula = "(I1[30] - I1[4]) / (I1[30] + I1[4]) ^ I1[12] + I2[1]"
    second = write_envi_image(out / "second", cube[:, :, ::-1].copy(), WAVES)
    done = run_corv("bandmath", formula, header, second, "-o", out / "ratio.fla")
    assert done.returncode == 0, done.stderr
    expected = corv.band_maths([cube, cube[:, :, ::-1]], formula)
    np.testing.assert_array_equal(read_envi(str(out / "ratio.fla"))[0][:, :, 0], expected)

    library = write_csv_library(out / "library.csv", image["spectra"][::2], WAVES)
    for method, routine in (("sam", corv.sam), ("unmix", corv.unmix_by_spectra)):
        done = run_corv("classify", header, "--library", library, "--method", method, "-k", "2",
                        "-o", out / method)
        assert done.returncode == 0, done.stderr
        assert done.stdout == f"{out / method}_values.hdr\n{out / method}_indexes.hdr\n"
        values, indexes = routine(cube, WAVES, image["spectra"][::2], WAVES, 2)
        np.testing.assert_array_equal(read_envi(f"{out / method}_values.fla")[0], values)
        indexes_read, indexes_header = read_envi(f"{out / method}_indexes.fla")
        np.testing.assert_array_equal(indexes_read, indexes)
        # The rank of each result band is its "wavelength".
        assert "wavelength = {\n 1.0000,\n 2.0000}\n" in indexes_header

    # Refusals are the library's, and come before anything is written.
    refused = out / "refused.fla"
    for arguments, message in (
            (["bandmath", "I1[40] + 1", header, second, "-o", refused],
             "band_maths: Invalid band 40, image only has 40 bands."),
            (["bandmath", "(I1[0]", header, second, "-o", refused], "Parse: Mismatched parenthesis!"),
            (["prepare", header, "-o", refused, "--filter", "mavg:4"],
             "moving_average: Window size is incorrect. (greater than 3 and odd)"),
            (["prepare", header, "-o", refused, "--resize", "9x9", "--data-type", "3"],
             "Data type not valid for writing HDR!")):
        done = run_corv(*arguments)
        assert (done.returncode, done.stderr) == (1, message + "\n")
    assert not [f for f in os.listdir(out) if f.startswith("refused") or ".staged" in f]


def test_an_image_larger_than_memory_is_cropped_but_not_processed(run_corv, tmp_path):
    # A terabyte of zeros that takes no room on disk.
    rows, cols, bands = 1 << 18, 8192, 128
    data = tmp_path / "huge.fla"
    with open(data, "wb") as f:
        f.truncate(rows * cols * bands * 4)
    with open(tmp_path / "huge.hdr", "w") as f:
        f.write(f"ENVI\nsamples = {cols}\nlines = {rows}\nbands = {bands}\nheader offset = 0\n"
                "data type = 4\ninterleave = bsq\nbyte order = 0\nwavelength = {"
                + ", ".join(str(400 + b) for b in range(bands)) + "}\n")

    done = run_corv("process", data, "-o", tmp_path / "out.hsz")
    assert done.returncode == 1
    assert done.stderr.startswith("process: the image (262144 x 8192 x 128, 1024.0 GiB) needs "
                                  "about 4096.0 GiB of memory, ")
    assert done.stderr.endswith(" GiB are available; make it smaller with corv prepare --crop, "
                                "--remove-bands or --resize first\n")

    done = run_corv("prepare", data, "-o", tmp_path / "part.fla", "--crop", "5,5,14,24",
                    "--remove-bands", ",".join(str(b) for b in range(2, bands)))
    assert done.returncode == 0, done.stderr
    part, _ = read_envi(str(tmp_path / "part.fla"))
    assert part.shape == (10, 20, 2) and not part.any()
