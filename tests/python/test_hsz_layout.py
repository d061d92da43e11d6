"""The HSZ container as h5py sees it: paths, types, shapes, chunking, deflate, the
quantisation of every array and header number, the string attributes, and the
writing order; then the same file read back through `corv.hsz_input`."""

import corv
import h5py
import numpy as np
import pytest

from corv_testing import assert_within_one_step, dequantised, step_of

TINY = np.finfo(np.float64).tiny  # 2.2250738585072014e-308
HUGE = np.finfo(np.float64).max
ARRAYS = ["ElementAbundanceIndexes", "ElementAbundances", "Elements", "ElementKnots", "ElementCP",
          "EndmemberAbundanceIndexes", "EndmemberAbundances", "Endmembers", "Factor"]
INDEX_ARRAYS = {"ElementAbundanceIndexes", "EndmemberAbundanceIndexes"}
HEADER_NUMBERS = ["EndmemberIndexedL", "EndmemberIndexedS", "IndexedK", "IndexedL", "IndexedS",
                  "bands", "byteorder", "datatype", "header_offset", "lines", "numElementsK",
                  "numElementsL", "numElementsS", "numEndmembersL", "numEndmembersS", "numGMMsK",
                  "numGMMsL", "numGMMsS", "reflectance_scaler", "samples"]

HEIGHT, WIDTH, BANDS, ELEMENTS, PER_PIXEL = 5, 7, 6, 4, 3


def scene():
    """A processed image: every component a pipeline writes to HSZ, k all non-positive."""
    rng = np.random.default_rng(7)
    wavelengths = np.linspace(420.0, 670.0, BANDS).astype(np.float32)
    illuminant = rng.uniform(0.5, 1.5, BANDS).astype(np.float32)
    k = -rng.uniform(0.0, 0.2, (HEIGHT, WIDTH)).astype(np.float32)
    g = rng.uniform(0.3, 1.0, (HEIGHT, WIDTH)).astype(np.float32)
    elements = rng.uniform(0.0, 1.0, (BANDS, ELEMENTS)).astype(np.float32)
    abundances = rng.dirichlet(np.ones(PER_PIXEL), (HEIGHT, WIDTH)).astype(np.float32)
    indexes = np.argsort(rng.uniform(size=(HEIGHT, WIDTH, ELEMENTS)), axis=2)[:, :, :PER_PIXEL]
    indexes = indexes.astype(np.float32)
    s = np.zeros((HEIGHT, WIDTH, BANDS), np.float64)
    for j in range(PER_PIXEL):
        s += abundances[:, :, j, None] * elements.T[indexes[:, :, j].astype(int)]
    return dict(wavelengths=wavelengths, illuminant=illuminant, k=k, g=g, elements=elements,
                abundances=abundances, indexes=indexes, s=s.astype(np.float32))


def pipeline_of(parts):
    source = corv.data_input()
    source.set_s(parts["s"])
    source.set_wavelengths(parts["wavelengths"])
    source.set_illuminant(parts["illuminant"])
    source.set_k(parts["k"])
    source.set_g(parts["g"])
    source.set_elements(parts["elements"])
    source.set_element_abundances(parts["abundances"])
    source.set_element_abundance_indexes(parts["indexes"])
    return source, corv.pipeline(source)


def assert_group_within_one_step(group, written):
    assert_within_one_step(dequantised(group), written, step_of(group))


def assert_quantised_group(group, shape):
    assert sorted(group.keys()) == ["DATA", "MAX", "MIN"], group.name
    data = group["DATA"]
    assert data.dtype == np.dtype("<u2"), group.name
    assert data.shape == shape, group.name
    if data.size:
        assert data.chunks == shape, group.name  # one chunk, the whole extent
        assert (data.compression, data.compression_opts) == ("gzip", 6), group.name
    else:
        assert data.chunks is None, group.name  # an empty dataset cannot be chunked
    for member in ("MAX", "MIN"):
        assert group[member].dtype == np.dtype("<f8"), group.name
        assert group[member].shape == (1,) and group[member].chunks == (1,), group.name
        assert group[member].compression_opts == 6, group.name


def assert_fixed_string(attrs, name, value):
    attribute = attrs.get_id(name)
    assert attribute.shape == ()  # scalar dataspace
    assert not attribute.get_type().is_variable_str()
    assert attribute.get_type().get_size() == len(value)
    assert attrs[name] == value.encode()


def write_scene(tmp_path, library):
    parts = scene()
    source, image = pipeline_of(parts)
    if library:
        endmember_abundances = np.random.default_rng(3).uniform(0, 1, (HEIGHT, WIDTH, 2))
        endmember_abundances = endmember_abundances.astype(np.float32)
        endmember_indexes = np.stack([np.zeros((HEIGHT, WIDTH)), np.ones((HEIGHT, WIDTH))], axis=2)
        source.set_endmember_abundances(endmember_abundances)
        source.set_endmember_abundance_indexes(endmember_indexes.astype(np.float32))
        library_spectra = np.array([[0.1, 0.5], [0.2, 0.6], [0.3, 0.7]], np.float32)
        image.set_library(corv.spectral_library(library_spectra, ["soil", "leaf"],
                                                np.array([450.0, 550.0, 650.0], np.float32)))
        parts.update(endmember_abundances=endmember_abundances,
                     endmember_indexes=endmember_indexes, library_spectra=library_spectra)
    image.set_endmember_setting(3)
    name = tmp_path / "scene.hsz"
    corv.hsz_output().write(image, str(name))
    return name, parts


@pytest.fixture(params=["without library", "with library"])
def written(request, tmp_path, logger):
    library = request.param == "with library"
    name, parts = write_scene(tmp_path, library)
    parts["library"] = library
    return name, parts


def test_hsz_layout_as_h5py_reads_it(written):
    name, parts = written
    with h5py.File(name, "r") as f:
        assert list(f.keys()) == ["HDR", "HDREndmembersL", "HDREndmembersS", "K", "L", "S"]

        hdr = f["HDR"]
        assert sorted(hdr.attrs.keys()) == sorted(
            ["interleave", "method", "description", "EncodingK", "EncodingL", "EncodingS"])
        for key, value in [("interleave", "bsq"), ("method", "Dichromatic"),
                           ("description", "Corvantis HSZ"), ("EncodingK", "RAW"),
                           ("EncodingL", "RAW"), ("EncodingS", "RAW")]:
            assert_fixed_string(hdr.attrs, key, value)
        assert sorted(hdr.keys()) == sorted(HEADER_NUMBERS + ["wavelength"])
        expected_numbers = dict.fromkeys(HEADER_NUMBERS, 0)
        library = parts["library"]
        expected_numbers.update(EndmemberIndexedS=3 if library else 0, IndexedK=1, IndexedL=1,
                                IndexedS=1, bands=BANDS, datatype=12, lines=HEIGHT,
                                samples=WIDTH, numElementsK=1, numElementsL=1,
                                numElementsS=PER_PIXEL)
        for key, value in expected_numbers.items():
            assert_quantised_group(hdr[key], (1,))
            assert (hdr[key]["DATA"][0], hdr[key]["MAX"][0], hdr[key]["MIN"][0]) == (
                value, value, value), key
        # The wavelength vector: n x 1, its range scan starting from its first element.
        assert_quantised_group(hdr["wavelength"], (BANDS, 1))
        assert hdr["wavelength/MAX"][0] == pytest.approx(670.0)
        assert hdr["wavelength/MIN"][0] == pytest.approx(420.0)
        assert_group_within_one_step(hdr["wavelength"], parts["wavelengths"][:, None])

        endmember_headers = [(f["HDREndmembersL"], 0, np.zeros((0, 1)), [])]
        if library:
            endmember_headers.append((f["HDREndmembersS"], 2, np.array([[450.0], [550.0], [650.0]]),
                                      ["soil", "leaf"]))
        else:
            endmember_headers.append((f["HDREndmembersS"], 0, np.zeros((0, 1)), []))
        for header, count, wavelengths, labels in endmember_headers:
            assert sorted(header.keys()) == ["numEndmembers", "wavelength"]
            assert_quantised_group(header["numEndmembers"], (1,))
            assert header["numEndmembers/DATA"][0] == count
            assert_quantised_group(header["wavelength"], wavelengths.shape)
            if count:
                assert_group_within_one_step(header["wavelength"], wavelengths)
            assert sorted(header.attrs.keys()) == sorted(
                [f"MAT{i}" for i in range(count)] + ["wavelength_unit"])
            assert_fixed_string(header.attrs, "wavelength_unit", "Nanometers")
            for i, label in enumerate(labels):
                assert_fixed_string(header.attrs, f"MAT{i}", label)

        single = np.ones((HEIGHT, WIDTH))
        written_arrays = {
            "L": {"ElementAbundanceIndexes": single, "ElementAbundances": single,
                  "Elements": parts["illuminant"][:, None]},
            "K": {"ElementAbundanceIndexes": single, "ElementAbundances": single,
                  "Elements": parts["illuminant"][:, None], "Factor": parts["k"]},
            "S": {"ElementAbundanceIndexes": parts["indexes"] + 1,  # 1-based in the file
                  "ElementAbundances": parts["abundances"], "Elements": parts["elements"],
                  "Factor": parts["g"]},
        }
        if library:
            written_arrays["S"].update(
                Endmembers=parts["library_spectra"],
                EndmemberAbundances=parts["endmember_abundances"],
                EndmemberAbundanceIndexes=parts["endmember_indexes"] + 1)
        for part, arrays in written_arrays.items():
            assert sorted(f[part].keys()) == sorted(ARRAYS)
            for array in ARRAYS:
                group = f[part][array]
                if array not in arrays:
                    assert_quantised_group(group, (0, 0, 0))
                    assert (group["MAX"][0], group["MIN"][0]) == (TINY, HUGE)
                    continue
                values = np.asarray(arrays[array], dtype=np.float64)
                assert_quantised_group(group, values.shape)
                if array in INDEX_ARRAYS:
                    assert np.array_equal(group["DATA"][()], values), (part, array)
                    assert group["MAX"][0] == max(values.max(), TINY)
                    assert group["MIN"][0] == values.min()
                else:
                    assert_group_within_one_step(group, values)

        # All equal positive values: no range, DATA holds them unscaled.
        assert (f["L/ElementAbundances/MAX"][0], f["L/ElementAbundances/MIN"][0]) == (1.0, 1.0)
        assert np.all(f["L/ElementAbundances/DATA"][()] == 1)
        # All non-positive: the scan's tiny positive starting MAX stays.
        assert f["K/Factor/MAX"][0] == TINY
        assert f["K/Factor/MIN"][0] == pytest.approx(parts["k"].min())

        # Written in the order of the layout: the datasets' object headers follow
        # one another (small group headers may fill earlier gaps, so they are left out).
        order = [f"HDR/{key}" for key in HEADER_NUMBERS] + [
            "HDR/wavelength", "HDREndmembersL/wavelength", "HDREndmembersL/numEndmembers",
            "HDREndmembersS/wavelength", "HDREndmembersS/numEndmembers"] + [
            f"{part}/{array}" for part in "KLS" for array in ARRAYS]
        for member in ("DATA", "MAX", "MIN"):
            addresses = [h5py.h5o.get_info(f[f"{path}/{member}"].id).addr for path in order]
            assert addresses == sorted(addresses), member


def test_hsz_input_serves_what_the_file_holds(written, logger):
    """Read back as h5py reads the file, and the library the pipeline attached."""
    name, parts = written
    source = corv.hsz_input(str(name))
    assert source.input_kind() == 1
    assert (source.height, source.width, source.bands) == (HEIGHT, WIDTH, BANDS)
    with h5py.File(name, "r") as f:
        assert np.allclose(source.k(), dequantised(f["K/Factor"]), atol=1e-7)
        assert np.allclose(source.g(), dequantised(f["S/Factor"]), atol=1e-7)
        assert np.allclose(source.wavelengths(), dequantised(f["HDR/wavelength"])[:, 0])
        assert np.array_equal(source.element_abundance_indexes(),
                              f["S/ElementAbundanceIndexes/DATA"][()] - 1)
    # The composed components and the refusals without a library are checked in C++.
    if parts["library"]:
        assert source.endmember_labels() == ["soil", "leaf"]
        assert np.allclose(source.endmember_abundance_indexes(), parts["endmember_indexes"])
        assert np.allclose(source.endmembers(), parts["library_spectra"], atol=1e-5)
    assert isinstance(corv.open_input(str(name)), corv.hsz_input)


def test_nurbs_encoded_parts_as_h5py_reads_them(tmp_path, logger):
    parts = scene()
    _, image = pipeline_of(parts)
    image.set_nurbs_encoding(True)
    image.set_nurbs_alpha(0.02)
    name = tmp_path / "curves.hsz"
    corv.hsz_output().write(image, str(name))
    assert logger.entries()[-1][1] == f"hsz_output: Saved {name}"
    wavelengths = parts["wavelengths"].astype(np.float64)
    curves, storage = {}, {}
    with h5py.File(name, "r") as f:
        hdr = f["HDR"]
        for key, value in [("EncodingK", "RAW"), ("EncodingL", "NURBS"), ("EncodingS", "NURBS")]:
            assert_fixed_string(hdr.attrs, key, value)
        assert sorted(hdr.keys()) == sorted(HEADER_NUMBERS + ["wavelength", "degreeNURBSL",
                                                              "degreeNURBSS"])
        assert_quantised_group(hdr["degreeNURBSL"], (1,))
        assert hdr["degreeNURBSL/DATA"][0] == 2 and hdr["degreeNURBSS/MAX"][0] == 2.0
        assert_quantised_group(f["L/Elements"], (0, 0, 0))
        assert_quantised_group(f["S/Elements"], (0, 0, 0))
        assert_group_within_one_step(f["K/Elements"], parts["illuminant"][:, None])
        for part, count in (("L", 1), ("S", ELEMENTS)):
            # Control points: one row per point, one column per curve, their
            # wavelengths in slice 0 and values in slice 1.
            cp = dequantised(f[f"{part}/ElementCP"])
            controls = cp.shape[0]
            assert cp.shape == (controls, count, 2) and 3 <= controls <= BANDS
            knots = dequantised(f[f"{part}/ElementKnots"])[:, 0]
            assert knots.shape == (controls + 3,)
            step = step_of(f[f"{part}/ElementKnots"])
            assert np.allclose(knots[:3], 0, atol=step) and np.allclose(knots[-3:], 1, atol=step)
            storage[part] = step_of(f[f"{part}/ElementCP"])
            assert np.allclose(cp[0, :, 0], wavelengths[0], atol=storage[part])
            assert np.allclose(cp[-1, :, 0], wavelengths[-1], atol=storage[part])
            points = np.transpose(cp, (1, 0, 2))[None].astype(np.float32)
            clean = np.clip(knots, 0, 1)
            clean[:3], clean[-3:] = 0, 1
            curves[part] = corv.nurbs_evaluate(clean.astype(np.float32), points, 2,
                                               parts["wavelengths"])[0].T

    source = corv.hsz_input(str(name))
    # Read back through the library's reader: the curves the file holds, ...
    assert np.allclose(source.illuminant(), curves["L"][:, 0], atol=1e-5)
    assert np.allclose(source.elements(), curves["S"], atol=1e-5)
    # ... within the bound of the spectra written, plus the 16-bit storage.
    light = parts["illuminant"]
    assert np.abs(source.illuminant() - light).max() <= 0.02 * np.ptp(light) + 2 * storage["L"]
    bound = 0.02 * np.ptp(parts["elements"]) + 2 * storage["S"]
    assert np.abs(source.elements() - parts["elements"]).max() <= bound
    assert np.abs(source.s() - parts["s"]).max() <= bound
