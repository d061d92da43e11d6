"""Component files through the Python module: every real image of the shared data
folder that `corv` opens is written as a component set through a pipeline and read
back bit for bit, and a processed set comes back whole."""

import corv
import numpy as np
import pytest

from corv_testing import SHARED_DATA, SHARED_DATA_ABSENT


def real_images():
    if not SHARED_DATA.is_dir():
        return [pytest.param(None, id="shared-data", marks=pytest.mark.skip(SHARED_DATA_ABSENT))]
    paths = sorted(
        path
        for path in SHARED_DATA.rglob("*")
        if path.is_file() and path.suffix.lower() in (".hdr", ".tif", ".tiff")
    )
    return [pytest.param(path, id=path.relative_to(SHARED_DATA).as_posix()) for path in paths]


def same_bits(a, b):
    """Equal shapes and identical float32 bit patterns (NaN included)."""
    a = np.ascontiguousarray(a, dtype=np.float32)
    b = np.ascontiguousarray(b, dtype=np.float32)
    return a.shape == b.shape and np.array_equal(a.view(np.uint32), b.view(np.uint32))


def missing(member):
    return f"corv::component_input: Member '{member}' does not exist for this input."


@pytest.mark.parametrize("path", real_images())
def test_a_real_image_comes_back_unchanged_from_component_files(path, tmp_path, logger):
    try:
        source = corv.open_input(str(path))
    except RuntimeError as refusal:
        pytest.skip(f"corv does not open {path.name}: {refusal}")
    image = corv.pipeline(source)
    reflectance = isinstance(source, corv.hdr_input) and source.is_reflectance
    cube = image.s() if reflectance else image.I()
    wavelengths = image.wavelengths()

    # An image is written as I; its cube is set as s too, so that the reflectance
    # file is exercised on real data as well.
    names = ["s"] if reflectance else ["I", "s"]
    if not reflectance:
        image.set_s(cube)
    directory = tmp_path / "set"
    image.save(corv.component_output(), str(directory / "scene"))
    assert sorted(f.name for f in directory.iterdir()) == sorted(
        f"scene_{name}{suffix}" for name in names for suffix in (".fla", ".hdr")
    )
    lines = [line for _, line in logger.entries()]
    for name in names:
        assert f"component_output: Saved {name} to {directory}/scene_{name}.hdr" in lines

    back = corv.component_input(str(directory), "scene")
    assert back.input_kind() == 3
    assert (back.height, back.width, back.bands) == cube.shape
    assert same_bits(back.s(), cube)
    if reflectance:
        with pytest.raises(RuntimeError) as refusal:
            back.I()
        assert str(refusal.value) == missing("I")
    else:
        assert same_bits(back.I(), cube)
    # Headers keep four decimals of each wavelength.
    tolerance = 5e-5 + np.spacing(np.abs(wavelengths))
    assert np.all(np.abs(back.wavelengths() - wavelengths) <= tolerance)


def test_a_processed_image_comes_back_whole(tmp_path, logger):
    rng = np.random.default_rng(7)
    rows, cols, bands = 4, 5, 3
    source = corv.data_input()
    source.set_I(rng.random((rows, cols, bands), dtype=np.float32))
    source.set_s(rng.random((rows, cols, bands), dtype=np.float32))
    source.set_wavelengths(np.array([450.5, 550.25, 650.125], dtype=np.float32))
    source.set_illuminant(np.array([1.0, 0.5, 0.25], dtype=np.float32))
    source.set_k(rng.random((rows, cols), dtype=np.float32))
    source.set_g(rng.random((rows, cols), dtype=np.float32))
    source.set_elements(rng.random((bands, 6), dtype=np.float32))
    source.set_element_abundances(rng.random((rows, cols, 2), dtype=np.float32))
    source.set_element_abundance_indexes(rng.integers(0, 6, (rows, cols, 2)).astype(np.float32))
    source.set_endmember_abundances(rng.random((rows, cols, 3), dtype=np.float32))
    source.set_endmember_abundance_indexes(rng.integers(0, 9, (rows, cols, 3)).astype(np.float32))

    writer = corv.component_output(setting=5)
    assert writer.setting == 5
    writer.write(corv.pipeline(source), str(tmp_path / "scene"))
    assert len(list(tmp_path.iterdir())) == 20

    back = corv.component_input(str(tmp_path), "scene")
    assert (back.directory, back.prefix) == (str(tmp_path), "scene")
    for component in (
        "I", "s", "wavelengths", "illuminant", "k", "g", "elements", "element_abundances",
        "element_abundance_indexes", "endmember_abundances", "endmember_abundance_indexes",
    ):
        assert same_bits(getattr(back, component)(), getattr(source, component)()), component

    # The pipeline binding attaches no library: the set's library file is written
    # beside it here and served as the endmembers.
    with pytest.raises(RuntimeError) as refusal:
        back.endmembers()
    assert str(refusal.value) == missing("endmembers")
    endmembers = np.array([[0.0, 1.0], [0.5, 0.25], [1.0, 0.0]], dtype=np.float32)
    corv.spectral_library(endmembers, ["grass", "soil"], source.wavelengths()).save(
        str(tmp_path / "scene_spectral_library.slz")
    )
    back = corv.component_input(str(tmp_path), "scene")
    assert back.endmember_labels() == ["grass", "soil"]
    np.testing.assert_allclose(back.endmembers(), endmembers, rtol=0, atol=1e-4)

    with pytest.raises(RuntimeError) as refusal:
        corv.component_input(str(tmp_path), "other")
    assert str(refusal.value) == "component_input: Didn't load any components."
    with pytest.raises(RuntimeError) as refusal:
        writer.write(corv.pipeline(source), "scene")
    assert str(refusal.value) == "component_output: Output directory required!"
