"""`corv process`: stage selection, parameters, progress, outputs, refusals and Ctrl-C."""

import os
import pty
import re
import signal
import subprocess

import numpy as np
import pytest

from conftest import corv

TRY_HELP = "Try 'corv --help'.\n"
WAVES = np.linspace(400, 720, 33, dtype=np.float32)


def write_envi(path, cube, waves, reflectance=False):
    p = corv.pipeline()
    p.set_I(np.asfortranarray(cube, dtype=np.float32), waves)
    if reflectance:
        p.set_s(np.asfortranarray(cube, dtype=np.float32))
    p.save(corv.hdr_output(reflectance, 4), str(path))
    return path.with_suffix(".hdr")


def read(path, reflectance=False):
    image = corv.hdr_input(str(path))
    return image.s() if reflectance else image.I()


def progress_lines(stderr):
    """The progress lines as (stage, percent) pairs; every line must be one."""
    pairs = []
    for line in stderr.splitlines():
        match = re.fullmatch(r"([a-z ]+): (\d+)%", line)
        assert match, f"not a progress line: {line!r}"
        pairs.append((match[1], int(match[2])))
    return pairs


@pytest.fixture(scope="module")
def mixtures(tmp_path_factory):
    """A reflectance image mixed from three library spectra with known fractions."""
    folder = tmp_path_factory.mktemp("mixtures")
    spectra = np.stack([0.2 + 0.1 * np.sin(WAVES / 37.0),
                        0.6 - 0.4 * (WAVES - 400) / 320,
                        0.1 + 0.5 * np.exp(-((WAVES - 560) / 40.0) ** 2)])
    fractions = np.random.default_rng(7).dirichlet([1, 1, 1], size=(12, 15))
    image = fractions @ spectra
    with open(folder / "library.csv", "w") as out:
        out.write("wavelength,flat,ramp,peak\n")
        for b, w in enumerate(WAVES):
            out.write(f"{w:g},{spectra[0, b]!r},{spectra[1, b]!r},{spectra[2, b]!r}\n")
    header = write_envi(folder / "mixed.fla", image, WAVES, reflectance=True)
    return header, folder / "library.csv", spectra, image


def test_usage_errors_exit_2_and_write_nothing(run_corv, sample_header, tmp_path):
    out = tmp_path / "out.fla"
    cases = [
        ([], "expects one IN"),
        ([sample_header], "needs -o OUT (or --components DIR/PREFIX, --illuminant-csv FILE)"),
        ([sample_header, "-o", tmp_path / "out.png"],
         f"cannot tell the output format of '{tmp_path / 'out.png'}': "
         "end it in .hsz, .fla, .raw, .dat, .img or .hdr, or use --components"),
        ([sample_header, "-o", out, "--set", "speed=3"], "--set: unknown parameter 'speed'"),
        ([sample_header, "-o", out, "--set", "filter_size"],
         "--set expects NAME=VALUE, not 'filter_size'"),
        ([sample_header, "-o", out, "--set", "filter_size=3.5"],
         "--set filter_size expects a whole number, not '3.5'"),
        ([sample_header, "-o", out, "--set", "cooling_rate=nan"],
         "--set cooling_rate expects a number, not 'nan'"),
        ([sample_header, "-o", out, "--set", "nurbs_encoding=yes"],
         "--set nurbs_encoding expects true or false, not 'yes'"),
        ([sample_header, "-o", out, "--set", "illuminant_method=6"],
         "--set illuminant_method expects a code 0 to 5, not '6'"),
        ([sample_header, "-o", out, "--illuminant", "grey-world"],
         "--illuminant expects white-patch, shade-of-gray, gray-world, gray-edge, fs, orbek or "
         "a code 0 to 5, not 'grey-world'"),
        ([sample_header, "-o", out, "--filter", "wiener:x"],
         "--filter expects wiener, mavg or sg, optionally with :SIZE, not 'wiener:x'"),
        ([sample_header, "-o", out, "--pca", "0"],
         "--pca needs a number of components of at least 1, not '0'"),
        ([sample_header, "--pca-out", tmp_path / "pc.hsz", "--pca", "2"],
         f"--pca-out needs an ENVI name ending in .fla, .raw, .dat, .img or .hdr, not "
         f"'{tmp_path / 'pc.hsz'}'"),
        ([sample_header, "--pca-out", tmp_path / "pc.fla"], "--pca-out needs --pca N"),
        ([sample_header, "-o", out, "-v", "6"], "-v expects a level 0 to 5, not '6'"),
        ([sample_header, "-o", out, "--data-type", "3"], "--data-type must be 1, 2, 4 or 12"),
        # Parameters are checked before the input is opened.
        ([tmp_path / "missing.hdr", "-o", out, "--set", "gray_order=two"],
         "--set gray_order expects a whole number, not 'two'"),
    ]
    for args, message in cases:
        done = run_corv("process", *args)
        assert (done.returncode, done.stdout, done.stderr) == (
            2, "", f"corv process: {message}\n" + TRY_HELP), args
        assert os.listdir(tmp_path) == [], args
    usage = run_corv("--help").stdout
    assert "  process IN -o OUT [--filter wiener|mavg|sg[:SIZE]] [--illuminant METHOD]" in usage
    assert "130 processing aborted by Ctrl-C" in usage


def test_filter_and_analysis_match_the_pipeline(run_corv, corv_bin, sample_header, tmp_path):
    out, components = tmp_path / "smooth.fla", tmp_path / "pc.fla"
    done = run_corv("process", sample_header, "-o", out, "--set", "filter_size=3",
                    "--filter", "mavg", "--pca", "3", "--pca-out", components)
    assert done.returncode == 0, done.stderr

    expected = corv.pipeline(corv.hdr_input(str(sample_header)))
    expected.filter(2, 3)
    expected.set_principal_components(3)
    expected.process_analysis(False)
    np.testing.assert_array_equal(read(out), expected.I())
    np.testing.assert_allclose(read(components), expected.principal_components(), rtol=1e-5,
                               atol=1e-2)
    lines = done.stdout.splitlines()
    assert lines[0] == "component  singular value" and len(lines) == 4
    np.testing.assert_allclose([float(line.split()[1]) for line in lines[1:]],
                               expected.principal_strengths(), rtol=1e-5)

    # Off a terminal: a line when a stage starts, at most one per tenth, and 100% at its end.
    progress = progress_lines(done.stderr)
    stages = [stage for stage, _ in progress]
    assert stages == sorted(stages, key=["filter", "analysis"].index)
    for stage in ("filter", "analysis"):
        percents = [percent for name, percent in progress if name == stage]
        assert percents[0] == 0 and percents[-1] == 100
        assert [p // 10 for p in percents] == sorted(set(p // 10 for p in percents))

    # On a terminal: one line redrawn in place, erased at the end.
    master, slave = pty.openpty()
    with subprocess.Popen([str(corv_bin), "process", str(sample_header), "--pca", "2",
                           "--pca-out", str(components)], stdout=subprocess.DEVNULL,
                          stderr=slave) as run:
        os.close(slave)
        drawn = b""
        while True:
            try:
                chunk = os.read(master, 4096)
            except OSError:  # the terminal closes with the process
                break
            if not chunk:
                break
            drawn += chunk
    os.close(master)
    assert run.returncode == 0
    text = drawn.decode()
    assert "\n" not in text and text.startswith("\ranalysis [")
    assert "\ranalysis [####################] 100%" in text
    assert re.search(r"\r +\r$", text)

    # -v echoes the log on standard output; --pca wins over --set principal_components.
    quiet = run_corv("process", sample_header, "--pca", "40", "--pca-out", components)
    loud = run_corv("process", sample_header, "--set", "principal_components=2", "--pca", "40",
                    "--pca-out", components, "-v", "1")
    clipped = "pca: Warning - num_components was clipped to 33"
    assert quiet.returncode == loud.returncode == 0
    assert clipped not in quiet.stdout and clipped in loud.stdout
    assert read(components).shape == (200, 300, 32)


def test_endmembers_unmix_the_reflectance_of_the_input(run_corv, mixtures, tmp_path):
    header, library, spectra, image = mixtures
    prefix = tmp_path / "parts" / "mixed"
    done = run_corv("process", header, "--endmembers", library, "--components", prefix)
    assert done.returncode == 0, done.stderr
    # The input's reflectance is used as it is: no recovery stage runs.
    assert {stage for stage, _ in progress_lines(done.stderr)} == {"classification"}
    fractions = read(str(prefix) + "_endabundances.hdr")
    indexes = read(str(prefix) + "_endindexes.hdr").astype(int)
    assert fractions.shape == indexes.shape == (12, 15, 3)
    rebuilt = np.einsum("rck,rckb->rcb", fractions, spectra[indexes])
    np.testing.assert_allclose(rebuilt, image, atol=1e-4)
    np.testing.assert_array_equal(read(str(prefix) + "_s.hdr", reflectance=True), image.astype(np.float32))

    # An ENVI OUT of such a run is the reflectance.
    out = tmp_path / "refl.fla"
    assert run_corv("process", header, "--endmembers", library, "-o", out).returncode == 0
    np.testing.assert_array_equal(read(out, reflectance=True), image.astype(np.float32))


def test_refusals_exit_1_and_write_nothing(run_corv, mixtures, sample_header, tmp_path):
    header, library, _, _ = mixtures
    out, csv = tmp_path / "out.fla", tmp_path / "light.csv"
    cases = [
        (["process", header, "--materials", "--set", "material_subsample=5", "-o", out],
         "pipeline: material_subsample out of range in process_recover_materials()"),
        # The image's outputs wait for the illuminant, which this run does not have.
        (["process", sample_header, "--pca", "2", "-o", out, "--illuminant-csv", csv],
         "pipeline: illuminant does not exist in pipeline or input."),
        (["process", header, "--endmembers", tmp_path / "none.csv", "-o", out], None),
    ]
    for args, message in cases:
        done = run_corv(*args)
        assert done.returncode == 1, args
        if message:
            assert done.stderr.splitlines()[-1] == message
        assert os.listdir(tmp_path) == [], args


def test_ctrl_c_aborts_with_130_and_writes_nothing(corv_bin, tmp_path):
    # Large enough that reading and filtering it take a good while.
    image = np.zeros((500, 500, 120), dtype=np.float32)
    image[::7, ::5, :] = 1.0
    header = write_envi(tmp_path / "big.fla", image, np.arange(400, 520, dtype=np.float32))
    out_dir = tmp_path / "out"
    out_dir.mkdir()
    out = out_dir / "result.fla"
    run = subprocess.Popen([str(corv_bin), "process", str(header), "-o", str(out), "--filter",
                            "wiener", "--pca", "3"],
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    try:
        first = run.stderr.readline()
        run.send_signal(signal.SIGINT)
        stdout, rest = run.communicate(timeout=300)
    finally:
        run.kill()
    assert first == "filter: 0%\n"
    assert run.returncode == 130
    assert rest.splitlines()[-1] == "Processing was aborted!"
    assert stdout == ""
    assert os.listdir(out_dir) == []


def test_recovery_runs_write_reflectance_illuminant_and_hsz(run_corv, corv_bin, sample_header,
                                                            tmp_path):
    # --illuminant alone recovers only the light, with the named method.
    csv = tmp_path / "light.csv"
    done = run_corv("process", sample_header, "--illuminant", "gray-world", "--illuminant-csv", csv)
    assert done.returncode == 0, done.stderr
    assert {stage for stage, _ in progress_lines(done.stderr)} == {"illuminant recovery"}
    rows = csv.read_text().splitlines()
    assert rows[0] == "wavelength,illuminant" and len(rows) == 34
    table = np.array([[float(v) for v in row.split(",")] for row in rows[1:]])
    expected = corv.pipeline(corv.hdr_input(str(sample_header)))
    expected.set_illuminant_method(3)
    expected.process_recover_illuminant(True)
    np.testing.assert_array_equal(table[:, 0], WAVES)
    np.testing.assert_allclose(table[:, 1], expected.illuminant(), rtol=1e-6)

    # No stage option: illuminant and reflectance; ENVI gets the reflectance.
    # (--set is no stage option; gray world keeps the run short.)
    out = tmp_path / "refl.fla"
    done = run_corv("process", sample_header, "-o", out, "--set", "illuminant_method=3")
    assert done.returncode == 0, done.stderr
    assert [s for s, _ in progress_lines(done.stderr)][-1] == "reflectance recovery"
    expected = corv.pipeline(corv.hdr_input(str(sample_header)))
    expected.set_illuminant_method(3)
    expected.process_recover_illuminant(True)
    expected.process_recover_dichromatic_parameters()
    np.testing.assert_allclose(read(out, reflectance=True), expected.s(), rtol=1e-5, atol=1e-6)

    # HSZ holds the whole model: materials are discovered for it.
    hsz = tmp_path / "model.hsz"
    done = run_corv("process", sample_header, "-o", hsz, "--illuminant", "gray-world")
    assert done.returncode == 0, done.stderr
    assert "material discovery" in {s for s, _ in progress_lines(done.stderr)}
    saved = corv.hsz_input(str(hsz))
    assert saved.s().shape == (200, 300, 33) and saved.illuminant().shape == (33,)
    assert done.stdout == f"materials found: {saved.elements().shape[1]}\n"
