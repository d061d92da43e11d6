"""Component files through the Python module: every real image of the shared data
folder that `corv` opens is written as a component set through a pipeline and read
back bit for bit."""

import corv
import numpy as np
import pytest

from corv_testing import SHARED_DATA, SHARED_DATA_ABSENT
from test_real_data import discover, expected_refusal


def real_images():
    """The real images `corv` opens (test_real_data checks which it refuses and why)."""
    if not SHARED_DATA.is_dir():
        return [pytest.param(None, id="shared-data", marks=pytest.mark.skip(SHARED_DATA_ABSENT))]
    return [pytest.param(case.path, id=case.name) for case in discover()
            if expected_refusal(case) is None]


def same_bits(a, b):
    """Equal shapes and identical float32 bit patterns (NaN included)."""
    a = np.ascontiguousarray(a, dtype=np.float32)
    b = np.ascontiguousarray(b, dtype=np.float32)
    return a.shape == b.shape and np.array_equal(a.view(np.uint32), b.view(np.uint32))


def missing(member):
    return f"corv::component_input: Member '{member}' does not exist for this input."


@pytest.mark.parametrize("path", real_images())
def test_a_real_image_comes_back_unchanged_from_component_files(path, tmp_path, logger):
    source = corv.open_input(str(path))
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
    assert (back.directory, back.prefix, back.input_kind()) == (str(directory), "scene", 3)
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

