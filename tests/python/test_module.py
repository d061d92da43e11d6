"""The `corv` Python module through numpy: inputs, ENVI and TIFF files, the pipeline, the logger."""

import datetime
import os
import re
import threading

import corv
import numpy as np
import pytest
from osgeo import gdal

gdal.UseExceptions()

ENVI_TYPES = {1: ("<u1", 255), 2: ("<i2", 32767), 4: ("<f4", None), 12: ("<u2", 65535)}


def coded_cube(rows, cols, bands):
    """A cube whose every element tells where it is: 1 + row + 10 column + 100 band."""
    r, c, b = np.meshgrid(np.arange(rows), np.arange(cols), np.arange(bands), indexing="ij")
    return (1 + r + 10 * c + 100 * b).astype(np.float32)


def error_text(call, kind=RuntimeError):
    with pytest.raises(kind) as caught:
        call()
    return str(caught.value)


def last_line(logger):
    entries = logger.entries()
    assert entries, "nothing was logged"
    return entries[-1][1]


def written_header(rows, cols, bands, data_type, wavelengths, reflectance=False):
    head = [
        "ENVI",
        "description = {",
        "REFLECTANCE" if reflectance else "IRRADIANCE",
        "}",
        "sensor type = unknown",
        "file type = ENVI Standard",
        "header offset = 0",
        f"samples = {cols}",
        f"lines = {rows}",
        f"bands = {bands}",
        f"data type = {data_type}",
        "interleave = bsq",
        "byte order = 0",
        "wavelength = {",
    ]
    return "\n".join(head) + "\n" + ",\n".join(f" {w:.4f}" for w in wavelengths) + "}\n"


def raw_cube(data_file, data_type, shape):
    """The band-sequential data file read by numpy alone, as (rows, cols, bands)."""
    rows, cols, bands = shape
    values = np.fromfile(data_file, dtype=ENVI_TYPES[data_type][0])
    assert values.size == rows * cols * bands
    return values.reshape(bands, rows, cols).transpose(1, 2, 0)


def write_envi_pair(directory, stem, header_lines, data, data_name=None):
    """A hand-written ENVI header and a float32 BSQ data file (data as rows, cols, bands)."""
    header = directory / f"{stem}.hdr"
    header.write_text("\n".join(header_lines) + "\n")
    if data is not None:
        data.transpose(2, 0, 1).astype("<f4").tofile(directory / (data_name or f"{stem}.dat"))
    return header


def plain_header(rows, cols, bands, *extra):
    return [
        "ENVI",
        f"samples = {cols}",
        f"lines = {rows}",
        f"bands = {bands}",
        "header offset = 0",
        "file type = ENVI Standard",
        "data type = 4",
        "interleave = bsq",
        "byte order = 0",
        *extra,
    ]


def write_tiff(path, cube, data_type=gdal.GDT_Float32, options=()):
    rows, cols, bands = cube.shape
    dataset = gdal.GetDriverByName("GTiff").Create(
        str(path), cols, rows, bands, data_type, options=list(options)
    )
    for band in range(bands):
        dataset.GetRasterBand(band + 1).WriteArray(cube[:, :, band])
    dataset.FlushCache()
    dataset = None
    return path


# ---------------------------------------------------------------------------------------------
# data_input


def test_data_input_keeps_every_component_in_numpy_layout():
    source = corv.data_input()
    assert source.input_kind() == 2
    assert (source.height, source.width, source.bands) == (0, 0, 0)

    image = coded_cube(2, 3, 4)
    given = image.copy(order="C")  # numpy's default order: converted on the way in
    source.set_I(given)
    given[0, 0, 0] = -1.0  # the input holds its own copy
    assert (source.height, source.width, source.bands) == (2, 3, 4)
    served = source.I()
    assert served.dtype == np.float32 and served.shape == (2, 3, 4)
    np.testing.assert_array_equal(served, image)
    served[1, 2, 3] = -5.0  # and serves copies
    np.testing.assert_array_equal(source.I(), image)

    # float64 and non-contiguous views are converted, element by element.
    source.set_s(image[:, ::-1, :].astype(np.float64))
    np.testing.assert_array_equal(source.s(), image[:, ::-1, :])

    wavelengths = np.array([400.5, 410.25, 420.0, 430.125], dtype=np.float32)
    source.set_wavelengths(wavelengths)
    np.testing.assert_array_equal(source.wavelengths(), wavelengths)
    source.set_illuminant(wavelengths / 2)
    np.testing.assert_array_equal(source.illuminant(), wavelengths / 2)

    k = np.arange(6, dtype=np.float32).reshape(2, 3)
    source.set_k(k)
    source.set_g(k.T * 3)
    np.testing.assert_array_equal(source.k(), k)
    np.testing.assert_array_equal(source.g(), k.T * 3)
    elements = np.arange(8, dtype=np.float32).reshape(4, 2)
    source.set_elements(elements)
    source.set_endmembers(elements + 1)
    np.testing.assert_array_equal(source.elements(), elements)
    np.testing.assert_array_equal(source.endmembers(), elements + 1)
    source.set_endmember_labels(["grass", "red brick"])
    assert source.endmember_labels() == ["grass", "red brick"]

    abundances = coded_cube(2, 3, 2) / 1000
    source.set_element_abundances(abundances)
    source.set_element_abundance_indexes(abundances * 2)
    source.set_endmember_abundances(abundances * 3)
    source.set_endmember_abundance_indexes(abundances * 4)
    np.testing.assert_array_equal(source.element_abundances(), abundances)
    np.testing.assert_array_equal(source.element_abundance_indexes(), abundances * 2)
    np.testing.assert_array_equal(source.endmember_abundances(), abundances * 3)
    np.testing.assert_array_equal(source.endmember_abundance_indexes(), abundances * 4)


def test_data_input_names_the_component_that_was_never_set():
    source = corv.data_input()
    expected = {
        "I": "data_input: I has not been set.",
        "s": "data_input: s has not been set.",
        "wavelengths": "data_input: wavelengths has not been set.",
        "illuminant": "data_input: illuminant has not been set.",
        "k": "data_input: k has not been set.",
        "g": "data_input: g has not been set.",
        "elements": "data_input: elements has not been set.",
        "endmembers": "data_input: endmembers has not been set.",
        "endmember_labels": "data_input: endmember_labels has not been set.",
        "element_abundances": "data_input: element_abundances has not been set.",
        "element_abundance_indexes": "data_input: element_abundance_indexes has not been set.",
        "endmember_abundances": "data_input: endmember_element_abundances has not been set.",
        "endmember_abundance_indexes": (
            "data_input: endmember_element_abundance_indexes has not been set."
        ),
    }
    for getter, text in expected.items():
        assert error_text(getattr(source, getter)) == text, getter

    # Only the ENVI input serves crops and band selections.
    source.set_I(coded_cube(2, 2, 2))
    refused = "corv::data_input: Member 'I' does not exist for this input."
    assert error_text(lambda: source.I([0])) == refused
    assert error_text(lambda: source.I(0, 0, 1, 1)) == refused
    assert error_text(lambda: source.I([0], 0, 0, 1, 1)) == refused


def test_data_input_refuses_sizes_that_disagree_with_earlier_components():
    # A fresh input takes wavelengths of any length, which then fix the band count.
    source = corv.data_input()
    source.set_wavelengths(np.arange(5, dtype=np.float32))
    assert source.bands == 5
    assert (
        error_text(lambda: source.set_I(coded_cube(2, 3, 4)))
        == "data_input: I does not match bands of previously set components!"
    )

    source = corv.data_input()
    source.set_I(coded_cube(2, 3, 4))
    prefix = "data_input: s does not match "
    suffix = " of previously set components!"
    # Height is checked before width, width before bands.
    assert error_text(lambda: source.set_s(coded_cube(3, 4, 5))) == prefix + "height" + suffix
    assert error_text(lambda: source.set_s(coded_cube(2, 4, 5))) == prefix + "width" + suffix
    assert error_text(lambda: source.set_s(coded_cube(2, 3, 5))) == prefix + "bands" + suffix
    assert (
        error_text(lambda: source.set_I(coded_cube(1, 3, 4)))
        == "data_input: I does not match height of previously set components!"
    )
    assert (
        error_text(lambda: source.set_wavelengths(np.ones(3, dtype=np.float32)))
        == "data_input: wavelengths does not match bands of previously set components!"
    )
    # Refused values leave the input as it was.
    np.testing.assert_array_equal(source.I(), coded_cube(2, 3, 4))
    assert error_text(source.s) == "data_input: s has not been set."
    source.set_s(coded_cube(2, 3, 4) / 7)
    np.testing.assert_array_equal(source.s(), coded_cube(2, 3, 4) / 7)


def test_arrays_of_the_wrong_rank_are_refused_before_the_library_sees_them():
    source = corv.data_input()
    assert (
        error_text(lambda: source.set_I(np.zeros((2, 3), np.float32)), ValueError)
        == "expected a 3-D array (rows, columns, bands), got 2-D"
    )
    assert (
        error_text(lambda: source.set_k(np.zeros(3, np.float32)), ValueError)
        == "expected a 2-D array (rows, columns), got 1-D"
    )
    assert (
        error_text(lambda: source.set_wavelengths(np.zeros((1, 3), np.float32)), ValueError)
        == "expected a 1-D array, got 2-D"
    )
    assert (source.height, source.width, source.bands) == (0, 0, 0)


# ---------------------------------------------------------------------------------------------
# ENVI output and input


def scaled_test_cube(with_negatives):
    """Values whose scaling truncates visibly; the largest element is 4 so that x / 4 is exact."""
    cube = (coded_cube(3, 4, 5) * 0.0091).astype(np.float32)  # at most 3.94
    cube[1, 2, 3] = 4.0
    if with_negatives:
        cube[0, 1, 0] = -1.3
        cube[2, 0, 4] = -0.01
    return cube


@pytest.mark.parametrize("data_type", [1, 2, 12])
def test_integer_types_store_the_truncated_share_of_the_largest_element(
    tmp_path, data_type, logger
):
    cube = scaled_test_cube(with_negatives=data_type == 2)
    wavelengths = np.array([400.5, 410.25, 420.0, 1000.0625, 2500.0], dtype=np.float32)
    image = corv.pipeline()
    image.set_I(cube, wavelengths)
    image.save(corv.hdr_output(data_type=data_type), str(tmp_path / "cube.fla"))

    assert sorted(os.listdir(tmp_path)) == ["cube.fla", "cube.hdr"]
    assert (tmp_path / "cube.hdr").read_text() == written_header(3, 4, 5, data_type, wavelengths)

    type_max = ENVI_TYPES[data_type][1]
    scaled = cube.astype(np.float64) / 4.0 * type_max
    expected = np.trunc(scaled)
    # Truncation, not rounding, and toward zero for negative values.
    assert (np.round(scaled) != expected).any()
    np.testing.assert_array_equal(raw_cube(tmp_path / "cube.fla", data_type, cube.shape), expected)
    assert raw_cube(tmp_path / "cube.fla", data_type, cube.shape)[1, 2, 3] == type_max

    back = corv.hdr_input(str(tmp_path / "cube.hdr"))
    assert (back.height, back.width, back.bands) == (3, 4, 5)
    np.testing.assert_array_equal(back.I(), expected.astype(np.float32))
    np.testing.assert_array_equal(back.wavelengths(), wavelengths)


def test_float_type_stores_the_cube_unchanged(tmp_path, logger):
    cube = coded_cube(4, 3, 2) / 3
    cube[0, 0, 0] = np.nan
    cube[1, 2, 1] = -7.25e-30
    cube[3, 0, 1] = 3.0e38
    wavelengths = np.array([550.0, 551.5], dtype=np.float32)
    image = corv.pipeline()
    image.set_I(cube, wavelengths)
    output = corv.hdr_output()
    assert (output.reflectance, output.data_type) == (False, 4)
    image.save(output, str(tmp_path / "cube.raw"))

    assert sorted(os.listdir(tmp_path)) == ["cube.hdr", "cube.raw"]
    assert (tmp_path / "cube.hdr").read_text() == written_header(4, 3, 2, 4, wavelengths)
    np.testing.assert_array_equal(raw_cube(tmp_path / "cube.raw", 4, cube.shape), cube)
    back = corv.open_input(str(tmp_path / "cube.raw"))
    assert isinstance(back, corv.hdr_input) and back.input_kind() == 0
    assert back.data_file == str(tmp_path / "cube.raw")
    assert back.header_file == str(tmp_path / "cube.hdr")
    np.testing.assert_array_equal(back.I(), cube)
    assert logger.entries()[-1][1] == f"hdr_input: Datafile {tmp_path / 'cube.raw'} found."


def test_reflectance_images_serve_s_and_refuse_I(tmp_path, logger):
    cube = coded_cube(3, 2, 4) / 500
    wavelengths = np.array([450.0, 500.0, 550.0, 600.0], dtype=np.float32)
    source = corv.data_input()
    source.set_s(cube)
    source.set_wavelengths(wavelengths)
    output = corv.hdr_output(reflectance=True, data_type=4)
    assert output.reflectance
    corv.pipeline(source).save(output, str(tmp_path / "reflectance.hdr"))
    # A header name puts the data beside it in a ".fla" file.
    assert last_line(logger) == "HDR_Output: Datafile extension supplied as '.hdr', using '.fla'"
    assert sorted(os.listdir(tmp_path)) == ["reflectance.fla", "reflectance.hdr"]
    assert (tmp_path / "reflectance.hdr").read_text() == written_header(
        3, 2, 4, 4, wavelengths, reflectance=True
    )

    back = corv.hdr_input(str(tmp_path / "reflectance.fla"))
    assert back.is_reflectance
    assert back.description == "REFLECTANCE"
    np.testing.assert_array_equal(back.s(), cube)
    loaded_as = (
        "hdr_input: Member 'I' does not exist for this input, image was loaded as Reflectance"
    )
    assert error_text(back.I) == loaded_as
    assert error_text(lambda: back.I([0])) == loaded_as
    assert error_text(lambda: back.I(0, 0, 1, 1)) == loaded_as
    assert error_text(lambda: back.I([0], 0, 0, 1, 1)) == loaded_as

    # Through a pipeline: s is served, I is missing and the reason is logged.
    image = corv.pipeline(back)
    np.testing.assert_array_equal(image.s(), cube)
    assert error_text(image.I) == "pipeline: I does not exist in pipeline or input."
    assert last_line(logger) == "pipeline: " + loaded_as

    # An irradiance image is the other way round.
    plain = corv.pipeline()
    plain.set_I(cube, wavelengths)
    plain.save(corv.hdr_output(), str(tmp_path / "irradiance.dat"))
    irradiance = corv.hdr_input(str(tmp_path / "irradiance.hdr"))
    assert not irradiance.is_reflectance
    assert irradiance.description == "IRRADIANCE"
    assert (
        error_text(irradiance.s)
        == "hdr_input: Member 's' does not exist for this input, image was loaded as Irradiance"
    )


def test_refused_writes_leave_no_file(tmp_path, logger):
    cube = coded_cube(2, 2, 3)
    wavelengths = np.array([1.0, 2.0, 3.0], dtype=np.float32)
    image = corv.pipeline()
    image.set_I(cube, wavelengths)
    without_wavelengths = corv.data_input()
    without_wavelengths.set_I(cube)
    missing = tmp_path / "missing"

    cases = [
        (image, corv.hdr_output(data_type=3), "cube.fla",
         "Data type not valid for writing HDR!", "Data type not valid for writing HDR!"),
        (image, corv.hdr_output(), "",
         "HDR_Output: Oops, looks like you forgot to set a filename!",
         "No filename set for HDR file save."),
        (image, corv.hdr_output(), "cube",
         "HDR_Output: Error, no file extension.",
         "No file extension on file chosen for HDR save."),
        (image, corv.hdr_output(reflectance=True), "cube.fla",
         "HDR_Output: Error reading I.", "Image not present when saving HDR file."),
        (corv.pipeline(without_wavelengths), corv.hdr_output(), "cube.fla",
         "HDR_Output: Error reading Wavelengths.",
         "Wavelengths not present when saving HDR file."),
        (image, corv.hdr_output(), str(missing / "cube.fla"),
         f"HDR_Output: Error Opening {missing / 'cube.hdr'} for writing.",
         f"Cannot open file {missing / 'cube.hdr'} for writing."),
    ]
    for source, output, name, logged, thrown in cases:
        target = name if name == "" or os.path.isabs(name) else str(tmp_path / name)
        assert error_text(lambda: source.save(output, target)) == thrown, name
        assert last_line(logger) == logged, name
        assert os.listdir(tmp_path) == [], name

    assert (
        error_text(lambda: image.save(None, str(tmp_path / "cube.fla")))
        == "pipeline: No output object available for saving."
    )
    assert os.listdir(tmp_path) == []


@pytest.mark.parametrize("hold", [False, True], ids=["from-disc", "held"])
def test_envi_crops_and_band_lists(tmp_path, hold):
    cube = coded_cube(4, 5, 3)
    wavelengths = np.array([400.0, 500.0, 600.0], dtype=np.float32)
    image = corv.pipeline()
    image.set_I(cube, wavelengths)
    image.save(corv.hdr_output(), str(tmp_path / "cube.fla"))

    source = corv.hdr_input(str(tmp_path / "cube.hdr"), hold=hold)
    assert source.hold == hold
    np.testing.assert_array_equal(source.I(), cube)
    np.testing.assert_array_equal(source.I([2, 0]), cube[:, :, [2, 0]])
    np.testing.assert_array_equal(source.I([1, 1]), cube[:, :, [1, 1]])
    # Crops are inclusive: first row, first column, last row, last column.
    np.testing.assert_array_equal(source.I(1, 2, 3, 4), cube[1:4, 2:5, :])
    np.testing.assert_array_equal(
        source.I(first_row=0, first_col=0, last_row=0, last_col=0), cube[0:1, 0:1, :]
    )
    np.testing.assert_array_equal(source.I([2], 3, 1, 3, 2), cube[3:4, 1:3, [2]])
    np.testing.assert_array_equal(source.I(), cube)

    for crop in [(-1, 0, 1, 1), (0, -1, 1, 1), (0, 0, 4, 1), (0, 0, 1, 5), (2, 0, 1, 1),
                 (0, 3, 1, 2)]:
        assert error_text(lambda: source.I(*crop)) == "hdr_input: Crop out of range.", crop
        assert error_text(lambda: source.I([0], *crop)) == "hdr_input: Crop out of range.", crop
    for bands in [[3], [0, 3]]:
        assert error_text(lambda: source.I(bands)) == "hdr_input: Bands requested out of range."
        assert (
            error_text(lambda: source.I(bands, 0, 0, 1, 1))
            == "hdr_input: Bands requested out of range."
        )

    source.hold = not hold
    assert source.hold == (not hold)
    np.testing.assert_array_equal(source.I(1, 1, 2, 2), cube[1:3, 1:3, :])


@pytest.mark.parametrize("interleave", ["bsq", "bil", "bip"])
def test_envi_interleaves_read_the_same_cube(tmp_path, interleave):
    rows, cols, bands = 4, 5, 3
    cube = coded_cube(rows, cols, bands)
    order = {"bsq": (2, 0, 1), "bil": (0, 2, 1), "bip": (0, 1, 2)}[interleave]
    (tmp_path / "cube.hdr").write_text(
        "\n".join(plain_header(rows, cols, bands, "wavelength = {500, 600, 700}"))
        .replace("interleave = bsq", f"interleave = {interleave}") + "\n"
    )
    cube.transpose(order).astype("<f4").tofile(tmp_path / "cube.img")

    for hold in (False, True):
        source = corv.hdr_input(str(tmp_path / "cube.hdr"), hold=hold)
        np.testing.assert_array_equal(source.I(), cube)
        np.testing.assert_array_equal(source.I([2, 1]), cube[:, :, [2, 1]])
        np.testing.assert_array_equal(source.I(1, 1, 3, 2), cube[1:4, 1:3, :])
        np.testing.assert_array_equal(source.I([0], 0, 0, 3, 4), cube[:, :, [0]])


def test_envi_headers_that_cannot_be_read_as_images(tmp_path, logger):
    data = coded_cube(2, 3, 2)
    assert error_text(lambda: corv.hdr_input(str(tmp_path / "none.hdr"))) == (
        "hdr_input: No Header found!"
    )
    lonely = write_envi_pair(tmp_path, "lonely", plain_header(2, 3, 2), None)
    assert error_text(lambda: corv.hdr_input(str(lonely))) == "hdr_input: No Datafile found!"

    library = write_envi_pair(
        tmp_path, "library", plain_header(2, 3, 2)[:5] + ["file type = ENVI Spectral Library"],
        data, "library.sli",
    )
    expected = (
        f"hdr_input: {library} is an ENVI spectral library, not an image; "
        "import it as a spectral library."
    )
    assert error_text(lambda: corv.hdr_input(str(library))) == expected
    assert last_line(logger) == expected

    nameless = write_envi_pair(tmp_path, "nameless", plain_header(2, 3, 2), data)
    assert error_text(lambda: corv.hdr_input(str(nameless))) == (
        f"hdr_input: No wavelengths in {nameless}."
    )
    assert last_line(logger) == f"{nameless}, cannot parse wavelengths."

    short = write_envi_pair(
        tmp_path, "short", plain_header(2, 3, 2, "wavelength = {500.0}"), data
    )
    assert error_text(lambda: corv.hdr_input(str(short))) == (
        f"hdr_input: Cannot parse the wavelengths of {short} (2 bands)."
    )


def test_envi_wavelengths_from_lists_and_band_names(tmp_path):
    data = coded_cube(2, 3, 3)
    spread = write_envi_pair(
        tmp_path, "spread",
        plain_header(2, 3, 3, "wavelength = {", " 450.25 ,", "  500.5,", "  650.125 ,", "}"),
        data,
    )
    trailing = write_envi_pair(
        tmp_path, "trailing", plain_header(2, 3, 3, "wavelength = {450.25, 500.5, 650.125,}"), data
    )
    named = write_envi_pair(
        tmp_path, "named",
        plain_header(2, 3, 3, "band names = {", "450.25 Nanometers,", "500.5 Nanometers,",
                     "650.125 Nanometers}"),
        data,
    )
    for header in (spread, trailing, named):
        source = corv.hdr_input(str(header))
        np.testing.assert_array_equal(
            source.wavelengths(), np.array([450.25, 500.5, 650.125], dtype=np.float32)
        )
        np.testing.assert_array_equal(source.I(), data)


# ---------------------------------------------------------------------------------------------
# pipeline


def test_pipeline_getters_say_what_is_missing(logger):
    empty = corv.pipeline()
    assert (empty.height, empty.width, empty.bands) == (0, 0, 0)
    getters = ["I", "wavelengths", "illuminant", "k", "s", "g", "material_elements",
               "material_element_abundances", "material_element_abundance_indexes",
               "material_map"]
    for getter in getters:
        assert (
            error_text(getattr(empty, getter))
            == f"pipeline: {getter} does not exist in pipeline or input."
        )

    # With an input, the input's refusal is logged before the pipeline's own is thrown.
    source = corv.data_input()
    source.set_I(coded_cube(2, 3, 4))
    source.set_wavelengths(np.arange(4, dtype=np.float32) + 400)
    image = corv.pipeline(source)
    assert (image.height, image.width, image.bands) == (2, 3, 4)
    np.testing.assert_array_equal(image.I(), coded_cube(2, 3, 4))
    np.testing.assert_array_equal(image.wavelengths(), np.arange(4, dtype=np.float32) + 400)
    assert error_text(image.k) == "pipeline: k does not exist in pipeline or input."
    assert last_line(logger) == "pipeline: data_input: k has not been set."
    assert error_text(image.material_map) == (
        "pipeline: material_map does not exist in pipeline or input."
    )
    assert last_line(logger) == "pipeline: data_input: element_abundance_indexes has not been set."

    # The material map is the first slice of the element indexes.
    indexes = coded_cube(2, 3, 2)
    source.set_element_abundance_indexes(indexes)
    np.testing.assert_array_equal(image.material_map(), indexes[:, :, 0])
    np.testing.assert_array_equal(image.material_element_abundance_indexes(), indexes)


def test_pipeline_setters_check_sizes_and_reset_clears_components():
    image = corv.pipeline()
    assert error_text(lambda: image.set_I(coded_cube(2, 3, 4), np.ones(3, np.float32))) == (
        "pipeline: set_I:  wavelengths must match I! (Dimensions incompatible)"
    )
    image.set_I(coded_cube(2, 3, 4), np.arange(4, dtype=np.float32))
    assert (image.height, image.width, image.bands) == (2, 3, 4)
    assert error_text(lambda: image.set_illuminant(np.ones(3, np.float32))) == (
        "set_illuminant: Incorrect number of elements (must be same as number of bands in I)."
    )
    assert error_text(lambda: image.set_s(coded_cube(2, 4, 4))) == (
        "set_s: Incorrect number of elements (must be same dimensions as I)."
    )

    illuminant = np.array([1.0, 0.5, 0.25, 0.125], dtype=np.float32)
    k = np.arange(6, dtype=np.float32).reshape(2, 3) / 10
    image.set_illuminant(illuminant)
    image.set_k(k)
    image.set_g(k + 1)
    image.set_s(coded_cube(2, 3, 4) / 1000)
    np.testing.assert_array_equal(image.illuminant(), illuminant)
    np.testing.assert_array_equal(image.k(), k)
    np.testing.assert_array_equal(image.g(), k + 1)

    image.reset_components()
    for getter in ("illuminant", "k", "g"):
        assert (
            error_text(getattr(image, getter))
            == f"pipeline: {getter} does not exist in pipeline or input."
        )
    np.testing.assert_array_equal(image.s(), coded_cube(2, 3, 4) / 1000)
    np.testing.assert_array_equal(image.I(), coded_cube(2, 3, 4))
    image.reset_components(reflectance=True)
    assert error_text(image.s) == "pipeline: s does not exist in pipeline or input."
    np.testing.assert_array_equal(image.I(), coded_cube(2, 3, 4))


def test_pipeline_prefers_its_own_components_to_the_input():
    source = corv.data_input()
    source.set_I(coded_cube(2, 2, 2))
    source.set_wavelengths(np.array([1.0, 2.0], dtype=np.float32))
    image = corv.pipeline(source)
    np.testing.assert_array_equal(image.I(), coded_cube(2, 2, 2))
    image.set_I(coded_cube(3, 1, 2) * 2, np.array([5.0, 6.0], dtype=np.float32))
    np.testing.assert_array_equal(image.I(), coded_cube(3, 1, 2) * 2)
    np.testing.assert_array_equal(image.wavelengths(), [5.0, 6.0])
    assert (image.height, image.width, image.bands) == (3, 1, 2)
    assert re.fullmatch(r"\[\d+\.\d+\.\d+\]", corv.pipeline.version())


# ---------------------------------------------------------------------------------------------
# logger


def test_logger_builds_lines_until_EOL(logger):
    # The module's logger is the library's: the library's own lines show up in it.
    assert logger.entries() == []
    logger.append("hdr_input: ").append("Datafile ").append("x.fla")
    assert logger.entries() == []
    before = datetime.datetime.now().replace(microsecond=0)
    logger.append("EOL")
    after = datetime.datetime.now()
    stamp, line = logger.entries()[-1]
    assert line == "hdr_input: Datafile x.fla"
    assert re.fullmatch(r"\d{8}_\d{6}", stamp)
    assert before <= datetime.datetime.strptime(stamp, "%Y%m%d_%H%M%S") <= after

    # Only exactly "EOL" ends a line; an empty line is a line too.
    corv.logger.instance().append("EOL ").append("eol").append("EOL")
    logger.append("EOL")
    assert [text for _, text in logger.entries()] == ["hdr_input: Datafile x.fla", "EOL eol", ""]
    logger.clear_entries()
    assert logger.entries() == []

    # A refusal inside the library is logged where Python reads it.
    with pytest.raises(RuntimeError):
        corv.pipeline().save(corv.hdr_output(), "")
    assert [text for _, text in corv.logger().entries()] == [
        "HDR_Output: Oops, looks like you forgot to set a filename!"
    ]


def test_logger_carries_abort_requests_stage_and_progress(logger):
    assert not logger.abort_requested()
    logger.check_abort()  # nothing requested: no exception

    requester = threading.Thread(target=corv.logger.instance().request_abort)
    requester.start()
    requester.join()
    assert logger.abort_requested()
    assert error_text(logger.check_abort) == "Processing was aborted!"
    # One request, one abort.
    assert not logger.abort_requested()
    logger.check_abort()

    logger.stage = 2
    logger.progress = 45
    logger.request_abort()
    assert (corv.logger().stage, corv.logger().progress) == (2, 45)
    logger.clear_progress()
    assert (logger.stage, logger.progress, logger.abort_requested()) == (0, 0, False)
    logger.check_abort()


# ---------------------------------------------------------------------------------------------
# TIFF


def test_tiff_written_by_gdal_reads_back_with_band_index_wavelengths(tmp_path):
    cube = coded_cube(4, 5, 3) / 3
    path = write_tiff(tmp_path / "cube.tif", cube)
    for hold in (False, True):
        source = corv.tif_input(str(path), hold=hold)
        assert source.hold == hold
        assert source.input_kind() == 4
        assert (source.height, source.width, source.bands) == (4, 5, 3)
        np.testing.assert_array_equal(source.I(), cube)
        np.testing.assert_array_equal(source.I(), cube)  # a held cube is served again
        np.testing.assert_array_equal(source.wavelengths(), np.array([0, 1, 2], np.float32))

    # Pixel-interleaved unsigned 16-bit, chosen by suffix whatever its case.
    counts = (coded_cube(3, 2, 4) * 100).astype(np.uint16)
    upper = write_tiff(tmp_path / "counts.TIFF", counts, gdal.GDT_UInt16, ["INTERLEAVE=PIXEL"])
    source = corv.open_input(str(upper))
    assert isinstance(source, corv.tif_input)
    np.testing.assert_array_equal(source.I(), counts.astype(np.float32))
    np.testing.assert_array_equal(source.wavelengths(), np.arange(4, dtype=np.float32))

    # Only I, wavelengths and the dataset are served.
    assert error_text(source.k) == "corv::tif_input: Member 'k' does not exist for this input."
    assert error_text(source.s) == "corv::tif_input: Member 's' does not exist for this input."
    assert error_text(lambda: source.I([0])) == (
        "corv::tif_input: Member 'I' does not exist for this input."
    )
    assert error_text(lambda: source.I(0, 0, 1, 1)) == (
        "corv::tif_input: Member 'I' does not exist for this input."
    )


def test_single_band_tiff_takes_its_wavelength_from_a_companion_header(tmp_path, logger):
    band = coded_cube(3, 4, 1)
    alone = write_tiff(tmp_path / "alone.tif", band)
    source = corv.tif_input(str(alone))
    np.testing.assert_array_equal(source.wavelengths(), [0.0])
    assert last_line(logger) == f"TIF Input: {alone}, cannot find header file."
    np.testing.assert_array_equal(source.I(), band)

    paired = write_tiff(tmp_path / "paired.tif", band)
    (tmp_path / "paired.hdr").write_text("ENVI\nbands = 1\nwavelength = {\n 550.5 }\n")
    np.testing.assert_array_equal(corv.tif_input(str(paired)).wavelengths(), [550.5])

    # Two or more bands never look at a header.
    several = write_tiff(tmp_path / "several.tif", coded_cube(3, 4, 2))
    (tmp_path / "several.hdr").write_text("ENVI\nbands = 2\nwavelength = {500, 600}\n")
    np.testing.assert_array_equal(corv.tif_input(str(several)).wavelengths(), [0.0, 1.0])


def test_tiff_refusals(tmp_path, logger):
    missing = tmp_path / "missing.tif"
    assert error_text(lambda: corv.tif_input(str(missing))) == "tif_input: No file found!"
    assert error_text(lambda: corv.open_input(str(missing))) == "tif_input: No file found!"
    broken = tmp_path / "broken.tif"
    broken.write_text("not a TIFF at all\n")
    assert error_text(lambda: corv.tif_input(str(broken))) == (
        f"Error constructing TIF Input: {broken}"
    )
    assert last_line(logger) == f"Error constructing TIF Input: {broken}, The file is invalid."


def test_arrays_cross_the_boundary_without_copies_and_in_either_order():
    rng = np.random.default_rng(12)
    c_order = rng.random((9, 7, 12), dtype=np.float32)
    waves = np.linspace(400, 700, 12, dtype=np.float32)
    references = c_order[0, :3]
    layouts = (c_order, np.asfortranarray(c_order), c_order.astype(np.float64),
               c_order[:, :, ::-1][:, :, ::-1])  # a view that is neither order
    calls = {
        "savitzky_golay": lambda I: corv.savitzky_golay(I, 7),
        "moving_average": lambda I: corv.moving_average(I, 5),
        "sam": lambda I: corv.sam(I, waves, references, None, 2),
        "unmix_by_spectra": lambda I: corv.unmix_by_spectra(I, waves, references, None, 2),
        "gray world": corv.recover_illuminant_WP,
        "white patch": corv.recover_illuminant_GW,
        "shade of gray": lambda I: corv.recover_illuminant_SG(I, 3),
    }
    for name, call in calls.items():
        results = [call(I) for I in layouts]
        for other in results[1:]:
            pairs = zip(results[0], other) if isinstance(other, tuple) else [(results[0], other)]
            for a, b in pairs:
                np.testing.assert_allclose(a, b, rtol=1e-6, err_msg=name)

    # A result owns the library's memory; the filters keep the input's order.
    angles, _ = corv.sam(c_order, waves, references, None, 2)
    assert angles.flags.f_contiguous and angles.base is not None and angles.flags.writeable
    assert corv.savitzky_golay(c_order, 5).flags.c_contiguous
    assert corv.savitzky_golay(np.asfortranarray(c_order), 5).flags.f_contiguous
    # Read in place is read only: the input is never changed.
    before = c_order.copy()
    corv.moving_average(c_order, 3)
    corv.resize_cube(np.asfortranarray(c_order), 4, 4)
    np.testing.assert_array_equal(c_order, before)
