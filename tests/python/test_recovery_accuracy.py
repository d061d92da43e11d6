"""Recovery on ground-truth scenes: glossy objects made of real library spectra
(scripts/make_scenes.py, at their full size) and the bundled sample, with the
pipeline's default settings. docs/accuracy.md gives the full-size figures."""

import sys

import numpy as np
import pytest

from conftest import corv
from corv_testing import SAMPLE_HEADER, SHARED_DATA, SHARED_DATA_ABSENT, SOURCE_DIR

sys.path.insert(0, str(SOURCE_DIR / "scripts"))
import make_sample  # noqa: E402
import make_scenes  # noqa: E402

pytestmark = pytest.mark.skipif(not SHARED_DATA.is_dir(), reason=SHARED_DATA_ABSENT)

ROWS, COLS = 240, 320
ILLUMINANT_TOLERANCE = 1.5  # degrees


def angle(a, b):
    cosine = np.dot(a, b) / (np.linalg.norm(a) * np.linalg.norm(b))
    return float(np.degrees(np.arccos(np.clip(cosine, -1.0, 1.0))))


@pytest.fixture(scope="module")
def library():
    return make_scenes.libraries(str(SHARED_DATA))


def pipeline_over(counts):
    image = corv.pipeline()
    image.set_I(counts.astype(np.float32), make_scenes.WAVELENGTHS.astype(np.float32))
    return image


def illuminant_error(counts, truth, method):
    image = pipeline_over(counts)
    image.set_illuminant_method(method)
    image.process_recover_illuminant(True)
    return angle(image.illuminant(), truth["illuminant"])


def materials_found(image, wiener=False):
    if wiener:  # what the viewer does before its first recovery
        image.filter(1, 5, False)
    image.process_recover_illuminant(True)
    image.process_recover_dichromatic_parameters()
    image.process_recover_materials()
    return image.material_elements().shape[1]


@pytest.mark.parametrize("layout", ["objects4", "objects8"])
def test_glossy_objects_give_their_light_and_their_materials(library, layout):
    for light in make_scenes.ILLUMINANTS:
        counts, truth = make_scenes.scene(library, layout, light, ROWS, COLS)
        fit = illuminant_error(counts, truth, corv.ILLUMINANT_ORBEK)
        others = {method: illuminant_error(counts, truth, method)
                  for method in (corv.ILLUMINANT_GRAY_EDGE, corv.ILLUMINANT_WHITE_PATCH)}
        assert fit < ILLUMINANT_TOLERANCE, (light, fit)
        assert fit < min(others.values()), (light, fit, others)
        true_count = truth["materials"].shape[1]
        assert abs(materials_found(pipeline_over(counts)) - true_count) <= 1, light


def test_the_sample_gives_each_material_its_own_element():
    # Seven materials, three of them greys 6 to 10 degrees apart, the concrete
    # floor fifteen times the white sphere: each material's pixels are mostly
    # one element of its own, from the command line and the viewer.
    names = [name for name in np.genfromtxt(SAMPLE_HEADER.with_name("sample_truth.csv"),
                                            delimiter=",", names=True).dtype.names[2:]]
    labels = make_sample.render(names)[2]
    for wiener in (False, True):
        image = corv.pipeline(corv.hdr_input(str(SAMPLE_HEADER)))
        found = materials_found(image, wiener)
        material_map = image.material_map()
        owners = {np.bincount(material_map[labels == m].astype(int)).argmax()
                  for m in range(len(names))}
        assert len(owners) == len(names) and 6 <= found <= 8, (wiener, found, owners)
