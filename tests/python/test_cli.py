"""The `corv` command-line tool: exit codes, messages, `info` and `convert`."""

import json
import os
import re

import corv
import numpy as np
import pytest

from corv_testing import SAMPLE_DATA

SAMPLE_WAVELENGTHS = np.arange(400.0, 721.0, 10.0, dtype=np.float32)
TRY_HELP = "Try 'corv --help'.\n"


def envi_header(rows, cols, bands, data_type, wavelengths, description="IRRADIANCE"):
    """The header `convert` writes, line for line."""
    return (
        f"ENVI\ndescription = {{\n{description}\n}}\nsensor type = unknown\n"
        f"file type = ENVI Standard\nheader offset = 0\nsamples = {cols}\nlines = {rows}\n"
        f"bands = {bands}\ndata type = {data_type}\ninterleave = bsq\nbyte order = 0\n"
        "wavelength = {\n" + ",\n".join(f" {w:.4f}" for w in wavelengths) + "}\n"
    )


def band_sequential(data_file, dtype, rows, cols, bands):
    values = np.fromfile(data_file, dtype=dtype)
    assert values.size == rows * cols * bands
    return values.reshape(bands, rows, cols).transpose(1, 2, 0)


def text_fields(text):
    """`info` text output as {field: value}; the wavelength lines joined."""
    head, _, tail = text.partition("wavelengths:")
    fields = {}
    for line in head.splitlines():
        key, _, value = line.partition(":")
        fields[key.strip()] = value.strip()
    fields["wavelengths"] = tail.split()
    return fields


@pytest.fixture(scope="module")
def sample_cube(sample_header):
    return corv.hdr_input(str(sample_header)).I()


def test_help_version_and_unknown_commands(run_corv):
    version = run_corv("--version")
    assert (version.returncode, version.stdout, version.stderr) == (
        0, f"corv {corv.pipeline.version()}\n", ""
    )

    usage = run_corv("--help")
    assert usage.returncode == 0 and usage.stderr == ""
    assert usage.stdout.startswith("Usage: corv [-v] COMMAND [ARGUMENTS]\n")
    assert "  info FILE [--json]" in usage.stdout
    assert "  convert IN OUT [--data-type 1|2|4|12] [--reflectance]" in usage.stdout
    assert run_corv("-h").stdout == usage.stdout

    # Called with nothing to do is a usage error that still shows the help.
    bare = run_corv()
    assert (bare.returncode, bare.stdout, bare.stderr) == (2, usage.stdout, "")

    unknown = run_corv("frobnicate", "x.hdr")
    assert (unknown.returncode, unknown.stdout) == (2, "")
    assert unknown.stderr == "corv: unknown command 'frobnicate'\n" + usage.stdout


def test_each_command_has_its_own_help(run_corv):
    overview = run_corv("--help").stdout
    commands = sorted(set(re.findall(r"^  ([a-z][a-z-]*) ", overview, re.M)) - {"help"})
    assert len(commands) >= 8, commands
    for command in commands:
        page = run_corv("help", command)
        assert (page.returncode, page.stderr) == (0, ""), command
        assert page.stdout.startswith(f"Usage: corv {command} "), command
        assert run_corv(command, "--help").stdout == page.stdout, command
    # Anywhere among the options, before "--"; never a usage error.
    assert run_corv("info", "x", "-h", "--bogus").stdout == run_corv("help", "info").stdout
    assert run_corv("library", "merge", "--help").stdout == run_corv("help", "library").stdout

    unknown = run_corv("help", "frobnicate")
    assert (unknown.returncode, unknown.stdout) == (2, "")
    assert unknown.stderr == "corv: unknown command 'frobnicate'\n" + overview


def test_double_dash_ends_the_options(run_corv, tmp_path):
    def outcome(*args):
        result = run_corv(*args)
        return result.returncode, result.stdout, result.stderr

    # A formula that begins with a minus sign; "-(" is no option even without "--".
    assert outcome("bandmath", "--", "-(2+3)*2") == (0, "2\n", "")
    assert outcome("bandmath", "-(2+3)*2") == (0, "2\n", "")
    assert outcome("bandmath", "-2") == (0, "-2\n", "")
    # After "--", words that look like options are arguments, "--help" included.
    assert outcome("info", "--bogus.hdr")[0] == 2
    assert outcome("info", "--", "--help") == (1, "", "hdr_input: No Header found!\n")
    assert outcome("bandmath", "-o", tmp_path / "x.fla", "--", "-I1[0]") == (
        1, "", "band_maths: Invalid image 1, there are only 0\n"
    )
    assert os.listdir(tmp_path) == []


def test_usage_errors_exit_2_and_touch_nothing(run_corv, sample_header, tmp_path):
    out = tmp_path / "out.fla"
    cases = [
        (["info"], "corv info: expects one FILE"),
        (["info", sample_header, "--bogus"], "corv info: unknown option --bogus"),
        (["info", sample_header, "--json=yes"], "corv info: option --json takes no value"),
        (["convert", sample_header], "corv convert: expects IN and OUT"),
        (["convert", sample_header, out, "--data-type", "3"],
         "corv convert: --data-type must be 1, 2, 4 or 12"),
        (["convert", sample_header, out, "--data-type", "x"],
         "corv convert: option --data-type needs an integer, not 'x'"),
        (["convert", sample_header, out, "--data-type"],
         "corv convert: option --data-type needs a value"),
        (["convert", sample_header, tmp_path / "out.tif"],
         f"corv convert: cannot tell the output format of '{tmp_path / 'out.tif'}': "
         "end it in .hsz, .fla, .raw, .dat, .img or .hdr, or use --components"),
        # A usage mistake is reported before the input is even opened.
        (["convert", tmp_path / "missing.hdr", out, "--data-type", "5"],
         "corv convert: --data-type must be 1, 2, 4 or 12"),
    ]
    for args, message in cases:
        result = run_corv(*args)
        assert (result.returncode, result.stdout, result.stderr) == (
            2, "", message + "\n" + TRY_HELP
        ), args
        assert os.listdir(tmp_path) == [], args


def test_library_refusals_exit_1_with_the_librarys_message(run_corv, sample_header, tmp_path):
    # The texts themselves are tested with the library; here that they reach stderr whole.
    library = tmp_path / "library.hdr"
    library.write_text(
        "ENVI\nsamples = 4\nlines = 2\nbands = 1\nheader offset = 0\n"
        "file type = ENVI Spectral Library\ndata type = 4\ninterleave = bsq\nbyte order = 0\n"
        "wavelength = {1, 2, 3, 4}\n"
    )
    np.zeros(8, "<f4").tofile(tmp_path / "library.sli")
    library_refusal = (
        f"hdr_input: {library} is an ENVI spectral library, not an image; "
        "import it as a spectral library."
    )
    existing = sorted(os.listdir(tmp_path))
    cases = [
        (["info", tmp_path / "missing.tif"], "tif_input: No file found!"),
        (["info", library, "--json"], library_refusal),
        (["convert", sample_header, tmp_path / "nowhere" / "out.fla"],
         f"Cannot open file {tmp_path / 'nowhere' / 'out.hdr'} for writing."),
    ]
    for args, message in cases:
        result = run_corv(*args)
        assert (result.returncode, result.stdout, result.stderr) == (1, "", message + "\n"), args
        assert sorted(os.listdir(tmp_path)) == existing, args

    # With -v the library's log is echoed on standard output; the refusal stays on stderr.
    verbose = run_corv("-v", "info", library)
    assert (verbose.returncode, verbose.stderr) == (1, library_refusal + "\n")
    assert verbose.stdout == f"hdr_input: Datafile {tmp_path / 'library.sli'} found.\n" + (
        library_refusal + "\n"
    )


def test_failed_conversion_leaves_an_existing_output_untouched(run_corv, sample_header, tmp_path):
    header, data = tmp_path / "out.hdr", tmp_path / "out.fla"
    header.write_text("previous header\n")
    data.write_bytes(b"previous data")
    result = run_corv("convert", sample_header, data, "--reflectance")
    assert result.returncode == 1
    assert header.read_text() == "previous header\n"
    assert data.read_bytes() == b"previous data"
    assert sorted(os.listdir(tmp_path)) == ["out.fla", "out.hdr"]


def test_info_describes_the_bundled_sample(run_corv, sample_header, sample_cube):
    text = run_corv("info", sample_header)
    as_json = run_corv("info", sample_header, "--json")
    for result in (text, as_json):
        assert (result.returncode, result.stderr) == (0, "")
    summary = json.loads(as_json.stdout)
    assert summary == {
        "file": str(sample_header),
        "format": "ENVI",
        "input_kind": 0,
        "lines": 200,
        "samples": 300,
        "bands": 33,
        "content": "irradiance",
        "components": ["I", "wavelengths"],
        "wavelengths": summary["wavelengths"],
    }
    np.testing.assert_array_equal(np.float32(summary["wavelengths"]), SAMPLE_WAVELENGTHS)

    # The text output says the same, field by field.
    fields = text_fields(text.stdout)
    assert fields == {
        "file": summary["file"],
        "format": summary["format"],
        "input kind": f"{summary['input_kind']} (hdr_input)",
        "lines": str(summary["lines"]),
        "samples": str(summary["samples"]),
        "bands": str(summary["bands"]),
        "content": summary["content"],
        "components": ", ".join(summary["components"]),
        "wavelengths": [f"{w:g}" for w in summary["wavelengths"]],
    }

    # Named by its data file, the sample is the same image; and it is what the
    # bundled data says it is: 16-bit counts from 165 up to 65535.
    by_data = json.loads(run_corv("info", SAMPLE_DATA, "--json").stdout)
    assert by_data == dict(summary, file=str(SAMPLE_DATA))
    assert sample_cube.shape == (200, 300, 33)
    assert (sample_cube.min(), sample_cube.max()) == (165.0, 65535.0)
    np.testing.assert_array_equal(sample_cube, np.trunc(sample_cube))


def test_convert_to_unsigned_16_bit_reproduces_the_sample_byte_for_byte(
    run_corv, sample_header, tmp_path
):
    # A header name puts the data in a ".fla" file beside it.
    result = run_corv("convert", sample_header, tmp_path / "copy.hdr", "--data-type=12")
    assert result.returncode == 0, result.stderr
    assert (tmp_path / "copy.hdr").read_bytes() == sample_header.read_bytes()
    assert (tmp_path / "copy.fla").read_bytes() == SAMPLE_DATA.read_bytes()


def test_convert_writes_a_reflectance_image_as_reflectance(run_corv, tmp_path):
    rows, cols, bands = 3, 4, 5
    cube = np.arange(rows * cols * bands, dtype=np.float32).reshape(rows, cols, bands) / 4
    reflectance = cube / 128
    reflectance[0, 0, 0] = 0.5  # the largest element: x / 0.5 is exact
    source = corv.data_input()
    source.set_s(reflectance)
    source.set_wavelengths(np.float32([450, 500, 550, 600, 650]))
    corv.pipeline(source).save(corv.hdr_output(reflectance=True), str(tmp_path / "refl.fla"))
    info = json.loads(run_corv("info", tmp_path / "refl.hdr", "--json").stdout)
    assert (info["content"], info["components"]) == ("reflectance", ["s", "wavelengths"])
    result = run_corv("convert", tmp_path / "refl.hdr", tmp_path / "refl12.raw", "--data-type", 12)
    assert result.returncode == 0, result.stderr
    assert (tmp_path / "refl12.hdr").read_text() == envi_header(
        rows, cols, bands, 12, [450, 500, 550, 600, 650], description="REFLECTANCE"
    )
    np.testing.assert_array_equal(
        band_sequential(tmp_path / "refl12.raw", "<u2", rows, cols, bands),
        np.trunc(reflectance.astype(np.float64) / 0.5 * 65535),
    )
