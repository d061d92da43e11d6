"""Spectral libraries: the SLZ file as h5py sees it, CSV and ENVI imports, real libraries
cross-checked with Spectral Python and the csv module, and `corv library`."""

import csv
import os

import corv
import h5py
import numpy as np
import pytest
import spectral

from corv_testing import assert_within_one_step, dequantised, step_of

TRY_HELP = "Try 'corv --help'.\n"
def small_library(colours=True):
    endmembers = np.array([[0.1, 0.9, 0.5], [0.2, 0.8, 0.5], [0.35, 0.7, 0.5], [0.4, -0.05, 0.5]],
                          dtype=np.float32)
    library = corv.spectral_library(endmembers, ["grass, dry", "tile \"red\"", "flat"],
                                    np.array([400.25, 500, 600, 700.5]))
    library.metadata = "three test spectra"
    if not colours:
        library.set_colours(np.zeros((0, 3)))
    return library


def test_slz_layout_as_h5py_reads_it(tmp_path):
    name = tmp_path / "lib.slz"
    library = small_library()
    library.save(str(name))
    with h5py.File(name, "r") as f:
        assert sorted(f.keys()) == ["Endmembers", "HDR", "Labels"]
        assert sorted(f["HDR"].keys()) == ["RGB", "numEndmembers", "wavelength"]
        assert dict(f["HDR"].attrs) == {"wavelength_unit": b"Nanometers",
                                        "metadata": b"three test spectra"}
        wavelength_unit = f["HDR"].attrs.get_id("wavelength_unit")
        assert wavelength_unit.shape == ()
        assert wavelength_unit.get_type().get_size() == len("Nanometers")

        expected = {
            "Endmembers": (4, 3), "HDR/numEndmembers": (1,), "HDR/wavelength": (4, 1),
            "HDR/RGB": (3, 3),
        }
        for path, shape in expected.items():
            group = f[path]
            assert sorted(group.keys()) == ["DATA", "MAX", "MIN"], path
            assert group["DATA"].dtype == np.dtype("<u2"), path
            assert group["DATA"].shape == shape, path
            assert group["DATA"].chunks == shape, path
            for member in ("MAX", "MIN"):
                assert group[member].dtype == np.dtype("<f8"), path
                assert group[member].shape == (1,) and group[member].chunks == (1,), path
            for member in ("DATA", "MAX", "MIN"):
                assert group[member].compression == "gzip", path
                assert group[member].compression_opts == 6, path

        labels = f["Labels/DATA"]
        assert h5py.check_string_dtype(labels.dtype).length is None  # variable length
        assert labels.shape == (3,) and labels.chunks == (3,)
        assert labels.compression_opts == 6
        assert [label.decode() for label in labels[()]] == library.labels()

        # The quantised values, computed here from DATA, MAX and MIN.
        endmembers = f["Endmembers"]
        assert endmembers["MAX"][0] == pytest.approx(0.9)
        assert endmembers["MIN"][0] == pytest.approx(-0.05)
        assert endmembers["DATA"][3, 1] == 0 and endmembers["DATA"][0, 1] == 65535
        assert_within_one_step(dequantised(endmembers), library.endmembers(), step_of(endmembers))
        count = f["HDR/numEndmembers"]
        assert (count["DATA"][0], count["MAX"][0], count["MIN"][0]) == (3, 3.0, 3.0)
        assert_within_one_step(dequantised(f["HDR/wavelength"])[:, 0], library.wavelengths(),
                               step_of(f["HDR/wavelength"]))
        assert np.array_equal(np.round(dequantised(f["HDR/RGB"])), library.colours())

        # Written in the order Endmembers, Labels, HDR and its members: object
        # headers are laid down one after another.
        order = ["Endmembers", "Labels/DATA", "HDR", "HDR/numEndmembers", "HDR/wavelength",
                 "HDR/RGB"]
        addresses = [h5py.h5o.get_info(f[path].id).addr for path in order]
        assert addresses == sorted(addresses)

    reloaded = corv.spectral_library()
    reloaded.load(str(name))
    assert reloaded.endmembers().dtype == np.float32
    assert reloaded.endmembers().shape == (4, 3)
    with h5py.File(name, "r") as f:
        assert np.allclose(reloaded.endmembers(), dequantised(f["Endmembers"]), atol=1e-7)
    assert reloaded.sources() == [str(name)] * 3
    assert reloaded.metadata == "three test spectra"

    # No colours, no RGB group; an existing file is replaced, not appended to.
    small_library(colours=False).save(str(name))
    with h5py.File(name, "r") as f:
        assert sorted(f["HDR"].keys()) == ["numEndmembers", "wavelength"]


def test_a_file_without_metadata_is_an_accepted_older_file(tmp_path, capfd):
    name = tmp_path / "old.slz"
    small_library().save(str(name))
    with h5py.File(name, "r+") as f:
        del f["HDR"].attrs["metadata"]
    capfd.readouterr()
    old = corv.spectral_library()
    old.load(str(name))
    assert capfd.readouterr().out == "Old format file - no metadata\n"
    assert old.metadata == ""
    assert old.labels() == small_library().labels()


def test_mismatched_files_are_refused_on_loading(tmp_path, logger):
    name = tmp_path / "bad.slz"
    small_library().save(str(name))
    with h5py.File(name, "r+") as f:
        del f["Labels/DATA"]
        f["Labels"].create_dataset("DATA", data=[b"one", b"two"], dtype=h5py.string_dtype("ascii"))
    library = corv.spectral_library()
    with pytest.raises(RuntimeError) as error:
        library.load(str(name))
    assert str(error.value) == "spectral_library: Error loading file."
    assert logger.entries()[-2][1] == "Incorrect Endmember number or wavelength size"


def test_the_binding_takes_numpy_arrays_and_keyword_options():
    library = small_library()
    assert (library.size, library.bands, len(library)) == (3, 4, 3)
    library.add_endmembers(np.full((4, 1), 0.25), ["added"])
    assert library.sources()[-1] == "nofile"
    assert library.colours().shape == (4, 3)
    assert len(corv.spectral_library.palette_colours(3, 1)[0]) == 3
    other = corv.spectral_library(np.array([[1.0], [3.0]]), ["coarse"], np.array([300.0, 800.0]))
    library.merge(other, re_evaluate=True)
    assert library.labels()[-1] == "coarse" and library.endmembers().shape == (4, 5)


# Every real spectral library in the shared data, how to read it with this library,
# and how to read it with a peer.
def _spy_library(path):
    lib = spectral.open_image(str(path))
    return lib.names, np.asarray(lib.bands.centers, dtype=np.float64), lib.spectra.T


def _spy_image(path):
    image = spectral.open_image(str(path))
    cube = image.load()
    stem = os.path.basename(str(path))[: -len(".hdr")]
    names = [f"{stem} {i + 1}" for i in range(cube.shape[0] * cube.shape[1])]
    spectra = np.asarray(cube).reshape(-1, cube.shape[2]).T
    return names, np.asarray(image.bands.centers, dtype=np.float64), spectra


def _csv_rows(path):
    with open(path, newline="") as f:
        rows = list(csv.reader(f))
    names = [row[0].strip() for row in rows[1:]]
    wavelengths = np.array([float(cell) for cell in rows[0][1:]])
    spectra = np.array([[float(cell) for cell in row[1:]] for row in rows[1:]]).T
    return names, wavelengths, spectra


REAL_LIBRARIES = [
    # (file, reader, peer, unit factor of the peer's wavelengths, count, bands)
    ("enmap-box/library_berlin.sli", "envi", _spy_library, "enmap-box/library_berlin.hdr",
     1000.0, 75, 177),
    ("enmap-box/gamsberg_field_library", "envi", _spy_library,
     "enmap-box/gamsberg_field_library.hdr", 1.0, 27, 2151),
    ("usgs-aster-spectra-and-aviris/s07_AV95_envi.sli", "envi", _spy_library,
     "usgs-aster-spectra-and-aviris/s07_AV95_envi.hdr", 1000.0, 3139, 224),
    ("ecostress-library/ecostress_library_with_mixtures.hdr", "envi", _spy_image,
     "ecostress-library/ecostress_library_with_mixtures.hdr", 1.0, 2041, 479),
    ("ecostress-library/ecostress_snow_mixtures", "envi", _spy_image,
     "ecostress-library/ecostress_snow_mixtures.hdr", 1.0, 500, 216),
    ("hylite-spectra/library.csv", "csv", _csv_rows, "hylite-spectra/library.csv", 1.0, 57, 450),
]


@pytest.mark.parametrize("case", REAL_LIBRARIES, ids=[c[0] for c in REAL_LIBRARIES])
def test_real_libraries_import_and_survive_an_slz_round_trip(case, shared_data, tmp_path):
    relative, reader, peer, peer_file, factor, count, bands = case
    path = str(shared_data / relative)
    library = corv.read_library_csv(path) if reader == "csv" else corv.read_envi_library(path)
    names, wavelengths, spectra = peer(shared_data / peer_file)
    assert (library.size, library.bands) == (count, bands)
    assert library.labels() == [name.strip() for name in names]
    assert np.allclose(library.wavelengths(), wavelengths * factor, rtol=1e-6)

    values = library.endmembers()
    missing = np.isnan(values)
    if "s07_AV95" in relative:
        # The header's data ignore value marks deleted points.
        assert np.array_equal(missing, spectra == np.float32(-1.23e34))
    else:
        assert not missing.any()
    assert np.array_equal(values[~missing], spectra[~missing].astype(np.float32))

    name = tmp_path / "real.slz"
    if missing.any():
        # Saving them whole is refused: see `corv library from-sli` below.
        library = corv.read_envi_library(path, drop_incomplete=True)
        complete = ~missing.any(axis=0)
        assert library.size == complete.sum()
        assert library.labels() == [n.strip() for n, keep in zip(names, complete) if keep]
        values = library.endmembers()
        assert np.array_equal(values, spectra[:, complete].astype(np.float32))

    library.save(str(name))
    back = corv.spectral_library()
    back.load(str(name))
    assert back.labels() == library.labels()
    with h5py.File(name, "r") as f:
        assert_within_one_step(back.endmembers(), values, step_of(f["Endmembers"]))
        assert_within_one_step(back.wavelengths(), library.wavelengths(),
                               step_of(f["HDR/wavelength"]))
        assert step_of(f["Endmembers"]) < (np.nanmax(values) - np.nanmin(values)) / 65000


# `corv library`


def test_library_info_from_csv_and_slz(run_corv, tmp_path):
    csv_file = tmp_path / "lib.csv"
    csv_file.write_text("wavelength,a,\"b, c\"\n400,0.1,0.2\n500,0.3,\n600,0.5,0.6\n")
    info = run_corv("library", "info", csv_file)
    assert (info.returncode, info.stderr) == (0, "")
    assert info.stdout == (
        f"file:        {csv_file}\n"
        "format:      CSV\n"
        "endmembers:  2\n"
        "bands:       3\n"
        "wavelengths: 400 - 600 nm\n"
        "colours:     yes\n"
        "missing:     1 endmembers with missing values\n"
        "labels:\n"
        "  1  a\n"
        "  2  b, c\n"
    )

    slz = tmp_path / "lib.slz"
    refused = run_corv("library", "from-csv", csv_file, slz)
    assert (refused.returncode, refused.stdout, refused.stderr) == (
        1, "", "spectral_library: Cannot save, endmember 2 'b, c' has missing values\n")
    assert sorted(os.listdir(tmp_path)) == ["lib.csv"]

    csv_file.write_text("wavelength,a,\"b, c\"\n400,0.1,0.2\n500,0.3,0.4\n600,0.5,0.6\n")
    assert run_corv("library", "from-csv", csv_file, slz).returncode == 0
    info = run_corv("library", "info", slz)
    assert info.stdout.startswith(f"file:        {slz}\nformat:      SLZ\nendmembers:  2\n")
    assert "missing:     0 endmembers with missing values\n" in info.stdout

    out = tmp_path / "back.csv"
    assert run_corv("library", "to-csv", slz, out).returncode == 0
    back = corv.read_library_csv(str(out))
    assert back.labels() == ["a", "b, c"]
    assert np.allclose(back.endmembers(), [[0.1, 0.2], [0.3, 0.4], [0.5, 0.6]],
                       atol=0.5 / 65535 + 1e-7)


def test_library_merge_and_re_evaluate(run_corv, tmp_path):
    fine = tmp_path / "fine.csv"
    fine.write_text("wavelength,a\n450,1\n550,2\n650,3\n")
    coarse = tmp_path / "coarse.csv"
    coarse.write_text("wavelength,b\n400,10\n700,40\n")
    out = tmp_path / "merged.slz"
    refused = run_corv("library", "merge", fine, coarse, "-o", out)
    assert (refused.returncode, refused.stderr) == (
        1, "spectral_library: New Library has incorrect dimensions, try re_evaluate option.\n")
    assert not out.exists()

    merged = run_corv("library", "merge", fine, coarse, "--re-evaluate", "-o", out)
    assert (merged.returncode, merged.stdout, merged.stderr) == (0, "", "")
    library = corv.spectral_library()
    library.load(str(out))
    assert library.labels() == ["a", "b"]
    assert library.sources() == [str(out)] * 2
    assert library.endmembers().shape == (3, 2)

    as_csv = tmp_path / "merged.csv"
    assert run_corv("library", "merge", fine, fine, "--output", as_csv).returncode == 0
    assert as_csv.read_text().splitlines()[0] == "wavelength,a,a"


def test_library_from_sli_keeps_or_drops_incomplete_spectra(run_corv, shared_data, tmp_path):
    sli = shared_data / "usgs-aster-spectra-and-aviris" / "s07_AV95_envi.sli"
    out = tmp_path / "usgs.slz"
    kept = run_corv("library", "from-sli", sli, out)
    assert (kept.returncode, kept.stdout) == (1, "")
    assert kept.stderr == ("spectral_library: Cannot save, endmember 5 "
                           "'Actinolite HS116.1B          ASDFRb AREF' has missing values\n")
    assert not out.exists()
    dropped = run_corv("-v", "library", "from-sli", sli.with_suffix(".hdr"), out,
                       "--drop-incomplete")
    assert dropped.returncode == 0
    assert dropped.stdout == (f"read_envi_library: left out 2079 of 3139 spectra with missing "
                              f"points from {sli}\n")
    info = run_corv("library", "info", out)
    assert "endmembers:  1060\nbands:       224\nwavelengths: 383.15 - 2508.2 nm\n" in info.stdout


def test_library_usage_errors_exit_2(run_corv, tmp_path):
    lib = tmp_path / "lib.csv"
    lib.write_text("wavelength,a\n400,1\n")
    subcommands = ("expects a subcommand: info LIB, merge A B -o OUT [--re-evaluate], "
                   "to-csv LIB OUT.csv, from-csv IN.csv OUT.slz, "
                   "from-sli IN.sli|IN.hdr OUT.slz [--drop-incomplete]")
    cases = [
        ([], subcommands),
        (["list"], f"unknown subcommand 'list'; {subcommands}"),
        (["info"], "info expects one LIB"),
        (["to-csv", lib, tmp_path / "x.slz"],
         f"to-csv writes a .csv file, not '{tmp_path / 'x.slz'}'"),
        (["merge", lib, lib], "merge needs -o OUT"),
        (["merge", lib, lib, "-o", tmp_path / "x.txt"],
         f"cannot tell the output format of '{tmp_path / 'x.txt'}': end it in .slz or .csv"),
        (["from-sli", lib, tmp_path / "x.slz", "--drop"], "unknown option --drop"),
    ]
    for args, message in cases:
        result = run_corv("library", *args)
        assert (result.returncode, result.stdout, result.stderr) == (
            2, "", f"corv library: {message}\n{TRY_HELP}"), args
    assert sorted(os.listdir(tmp_path)) == ["lib.csv"]
