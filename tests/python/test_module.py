"""The `corv` Python module's bindings: numpy layouts in and out, the inputs and outputs, the
pipeline and the logger. The rules behind them (refusals, scaling, file layouts) are tested
in C++; here each family is checked once for what the binding adds."""

import re

import corv
import numpy as np
import pytest
from osgeo import gdal

gdal.UseExceptions()


def coded_cube(rows, cols, bands):
    """A cube whose every element tells where it is: 1 + row + 10 column + 100 band."""
    r, c, b = np.meshgrid(np.arange(rows), np.arange(cols), np.arange(bands), indexing="ij")
    return (1 + r + 10 * c + 100 * b).astype(np.float32)


def error_text(call, kind=RuntimeError):
    with pytest.raises(kind) as caught:
        call()
    return str(caught.value)


def test_data_input_converts_any_layout_and_keeps_its_own_copies():
    source = corv.data_input()
    assert source.input_kind() == 2
    image = coded_cube(2, 3, 4)
    given = image.copy(order="C")
    source.set_I(given)
    given[0, 0, 0] = -1.0  # the input holds its own copy
    served = source.I()
    assert served.dtype == np.float32 and served.shape == (2, 3, 4)
    np.testing.assert_array_equal(served, image)
    served[1, 2, 3] = -5.0  # and serves copies
    np.testing.assert_array_equal(source.I(), image)
    assert (source.height, source.width, source.bands) == (2, 3, 4)

    # float64 and views that are neither C nor Fortran order, element by element.
    source.set_s(image[:, ::-1, :].astype(np.float64))
    np.testing.assert_array_equal(source.s(), image[:, ::-1, :])
    k = np.arange(6, dtype=np.float32).reshape(2, 3)
    source.set_k(k.T.copy().T)
    np.testing.assert_array_equal(source.k(), k)
    source.set_elements(np.arange(8, dtype=np.float32).reshape(4, 2))
    source.set_endmembers(np.ones((4, 3)))
    np.testing.assert_array_equal(source.elements(), np.arange(8).reshape(4, 2))
    np.testing.assert_array_equal(source.endmembers(), np.ones((4, 3)))
    source.set_endmember_labels(["grass", "red brick"])
    assert source.endmember_labels() == ["grass", "red brick"]

    # The library's refusals arrive as RuntimeError with their text.
    assert error_text(source.g) == "data_input: g has not been set."
    assert (
        error_text(lambda: source.set_s(coded_cube(2, 4, 4)))
        == "data_input: s does not match width of previously set components!"
    )
    # Arrays of the wrong rank never reach the library.
    for setter, array, text in [
        (source.set_I, np.zeros((2, 3), np.float32),
         "expected a 3-D array (rows, columns, bands), got 2-D"),
        (source.set_k, np.zeros(3, np.float32), "expected a 2-D array (rows, columns), got 1-D"),
        (source.set_wavelengths, np.zeros((1, 3), np.float32), "expected a 1-D array, got 2-D"),
    ]:
        assert error_text(lambda: setter(array), ValueError) == text
    np.testing.assert_array_equal(source.I(), image)


@pytest.mark.parametrize("hold", [False, True], ids=["from-disc", "held"])
def test_envi_files_through_the_module(tmp_path, hold, logger):
    cube = coded_cube(4, 5, 3) / 3
    cube[0, 0, 0] = np.nan
    wavelengths = np.array([400.5, 500.25, 600.0], dtype=np.float32)
    image = corv.pipeline()
    image.set_I(cube, wavelengths)
    output = corv.hdr_output()
    assert (output.reflectance, output.data_type) == (False, 4)
    image.save(output, str(tmp_path / "cube.raw"))

    source = corv.open_input(str(tmp_path / "cube.raw"))
    assert isinstance(source, corv.hdr_input) and source.input_kind() == 0
    assert (source.data_file, source.header_file) == (
        str(tmp_path / "cube.raw"), str(tmp_path / "cube.hdr"))
    assert not source.is_reflectance and source.description == "IRRADIANCE"
    assert logger.entries()[-1][1] == f"hdr_input: Datafile {tmp_path / 'cube.raw'} found."

    # The four reads of I, with keywords; crops are inclusive.
    source = corv.hdr_input(str(tmp_path / "cube.hdr"), hold=hold)
    assert source.hold == hold
    np.testing.assert_array_equal(source.I(), cube)
    np.testing.assert_array_equal(source.wavelengths(), wavelengths)
    np.testing.assert_array_equal(source.I([2, 0]), cube[:, :, [2, 0]])
    np.testing.assert_array_equal(
        source.I(first_row=1, first_col=2, last_row=3, last_col=4), cube[1:4, 2:5, :])
    np.testing.assert_array_equal(source.I([2], 3, 1, 3, 2), cube[3:4, 1:3, [2]])
    source.hold = not hold
    assert source.hold == (not hold)
    np.testing.assert_array_equal(source.I(1, 1, 2, 2), cube[1:3, 1:3, :])


def test_tiff_input_through_the_module(tmp_path):
    counts = (coded_cube(3, 2, 4) * 100).astype(np.uint16)
    path = tmp_path / "counts.TIFF"
    dataset = gdal.GetDriverByName("GTiff").Create(str(path), 2, 3, 4, gdal.GDT_UInt16,
                                                   options=["INTERLEAVE=PIXEL"])
    for band in range(4):
        dataset.GetRasterBand(band + 1).WriteArray(counts[:, :, band])
    dataset = None
    source = corv.open_input(str(path))  # chosen by suffix, whatever its case
    assert isinstance(source, corv.tif_input) and source.input_kind() == 4
    np.testing.assert_array_equal(source.I(), counts.astype(np.float32))
    np.testing.assert_array_equal(source.wavelengths(), np.arange(4, dtype=np.float32))
    assert error_text(source.k) == "corv::tif_input: Member 'k' does not exist for this input."


def test_pipeline_over_an_input_prefers_its_own_components():
    source = corv.data_input()
    source.set_I(coded_cube(2, 3, 4))
    source.set_wavelengths(np.arange(4, dtype=np.float32) + 400)
    indexes = coded_cube(2, 3, 2)
    source.set_element_abundance_indexes(indexes)
    image = corv.pipeline(source)
    assert (image.height, image.width, image.bands) == (2, 3, 4)
    np.testing.assert_array_equal(image.I(), coded_cube(2, 3, 4))
    # The material map is the first slice of the element indexes.
    np.testing.assert_array_equal(image.material_map(), indexes[:, :, 0])

    image.set_I(coded_cube(3, 1, 2) * 2, np.array([5.0, 6.0], dtype=np.float32))
    np.testing.assert_array_equal(image.I(), coded_cube(3, 1, 2) * 2)
    np.testing.assert_array_equal(image.wavelengths(), [5.0, 6.0])
    image.set_illuminant(np.array([1.0, 0.5], dtype=np.float32))
    image.reset_components()
    assert error_text(image.illuminant) == "pipeline: illuminant does not exist in pipeline or input."
    assert re.fullmatch(r"\[\d+\.\d+\.\d+\]", corv.pipeline.version())


def test_logger_lines_and_abort_requests(logger):
    # The module's logger is the library's: the library's own lines show up in it.
    logger.append("hdr_input: ").append("Datafile ").append("x.fla")
    assert logger.entries() == []
    corv.logger.instance().append("EOL")
    assert logger.entries()[-1][1] == "hdr_input: Datafile x.fla"
    with pytest.raises(RuntimeError):
        corv.pipeline().save(corv.hdr_output(), "")
    assert logger.entries()[-1][1] == "HDR_Output: Oops, looks like you forgot to set a filename!"

    logger.request_abort()
    assert logger.abort_requested()
    assert error_text(logger.check_abort) == "Processing was aborted!"
    logger.stage = 2
    logger.progress = 45
    assert (corv.logger().stage, corv.logger().progress) == (2, 45)
    logger.clear_progress()
    assert (logger.stage, logger.progress, logger.abort_requested()) == (0, 0, False)


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
