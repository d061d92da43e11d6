"""Every real ENVI and TIFF file of the shared data folder, read by `corv` and by GDAL.

Each file is one case. `corv info --json` either describes it or refuses it with
the message this table expects; a file that opens must give, through the Python
module, exactly GDAL's cube and the wavelengths its header lists.
"""

import json
import re
from dataclasses import dataclass
from pathlib import Path

import corv
import numpy as np
import pytest
from osgeo import gdal

from corv_testing import SHARED_DATA, SHARED_DATA_ABSENT

gdal.UseExceptions()

SPECTRAL_LIBRARY = (
    "hdr_input: {header} is an ENVI spectral library, not an image; "
    "import it as a spectral library."
)
NO_WAVELENGTHS = "hdr_input: No wavelengths in {header}."
NO_DATA_FILE = "hdr_input: No Datafile found!"

# Real files that `corv` must refuse, by path under the data folder. Headers whose
# data file is absent are found by looking beside them and expect NO_DATA_FILE.
REFUSED = {
    "enmap-box/gamsberg_field_library.hdr": SPECTRAL_LIBRARY,
    "enmap-box/library_berlin.hdr": SPECTRAL_LIBRARY,
    "usgs-aster-spectra-and-aviris/s07_AV95_envi.hdr": SPECTRAL_LIBRARY,
    # Geometry and location layers: bands named "Path length (m)", "Latitude (WGS-84)", ...
    "envi-oddities/aviris-ng-obs-loc/ang20170323t202244_loc_7000-7010.hdr": NO_WAVELENGTHS,
    "envi-oddities/aviris-ng-obs-loc/ang20170323t202244_obs_7000-7010.hdr": NO_WAVELENGTHS,
    # A classification map: classes, no bands of light.
    "envi-oddities/envi-classification/"
    "ang20150422t163638_corr_v1e_img_4000-4010_550-560_class.hdr": NO_WAVELENGTHS,
}

# Extensions a raw ENVI data file is found under (the header's stem, no extension at all included).
DATA_EXTENSIONS = {"", ".dat", ".img", ".raw", ".fla", ".sli", ".bsq", ".bil", ".bip", ".dem"}


@dataclass
class real_file:
    path: Path
    kind: str  # "envi", "headers-only" or "tiff"
    data_file: Path = None

    @property
    def name(self):
        return self.path.relative_to(SHARED_DATA).as_posix()


def data_files_beside(header):
    return sorted(
        other
        for other in header.parent.iterdir()
        if other.is_file() and other.stem == header.stem and other != header
        and other.suffix.lower() in DATA_EXTENSIONS
    )


def discover():
    found = []
    for path in sorted(SHARED_DATA.rglob("*")):
        if not path.is_file():
            continue
        suffix = path.suffix.lower()
        if suffix == ".hdr":
            data = data_files_beside(path)
            assert len(data) <= 1, f"{path}: several data files {data}"
            if data:
                found.append(real_file(path, "envi", data[0]))
            else:
                found.append(real_file(path, "headers-only"))
        elif suffix in (".tif", ".tiff"):
            found.append(real_file(path, "tiff", path))
    return found


def cases():
    if not SHARED_DATA.is_dir():
        absent = pytest.mark.skip(reason=SHARED_DATA_ABSENT)
        return [pytest.param(None, id="shared-data", marks=absent)]
    return [pytest.param(case, id=case.name) for case in discover()]


def header_wavelengths(text):
    """The header's wavelength list; failing that, the numbers of band names such as
    "376.44 Nanometers"; None when the header has neither."""
    listed = re.search(r"^[ \t]*wavelength[ \t]*=[ \t]*\{(.*?)\}", text, re.I | re.M | re.S)
    if listed:
        items = [item.strip() for item in listed.group(1).split(",")]
        if items and items[-1] == "":
            items.pop()  # a trailing comma
        return np.float32([float(item) for item in items])
    names = re.search(r"^[ \t]*band names[ \t]*=[ \t]*\{(.*?)\}", text, re.I | re.M | re.S)
    if names:
        numbers = []
        for name in names.group(1).split(","):
            number = re.fullmatch(r"\s*([-+]?[0-9]*\.?[0-9]+)\s*(nm|nanometers?)?\s*", name, re.I)
            if not number:
                return None
            numbers.append(float(number.group(1)))
        return np.float32(numbers)
    return None


def header_description(text):
    found = re.search(r"^[ \t]*description[ \t]*=[ \t]*\{(.*?)\}", text, re.I | re.M | re.S)
    return found.group(1) if found else ""


def gdal_cube(data_file):
    """GDAL's reading of the whole raster as float32 (rows, cols, bands)."""
    dataset = gdal.Open(str(data_file))
    array = dataset.ReadAsArray()
    if array.ndim == 2:
        array = array[np.newaxis]
    assert array.shape == (dataset.RasterCount, dataset.RasterYSize, dataset.RasterXSize)
    return array.astype(np.float32).transpose(1, 2, 0), dataset


def gdal_wavelength_lists(dataset):
    """The wavelengths GDAL lists, each way it lists them for every band: the bands'
    "wavelength" items, and the dataset's "Band_<n>=<number> <unit>" items. Dataset
    items that are not about a band (wavelength_units=...) are not looked at."""
    bands = dataset.RasterCount
    lists = {}
    items = [dataset.GetRasterBand(band + 1).GetMetadataItem("wavelength") for band in range(bands)]
    if all(item is not None for item in items):
        lists["band items"] = np.float32([float(item) for item in items])
    numbered = {}
    for key, value in (dataset.GetMetadata() or {}).items():
        band = re.fullmatch(r"Band_([0-9]+)", key)
        number = re.match(r"\s*([-+]?[0-9]*\.?[0-9]+(?:[eE][-+]?[0-9]+)?)(\s|$)", value)
        if band and number:
            numbered[int(band.group(1))] = float(number.group(1))
    if sorted(numbered) == list(range(1, bands + 1)):
        lists["dataset items"] = np.float32([numbered[band] for band in range(1, bands + 1)])
    return lists


def expected_refusal(case):
    if case.kind == "headers-only":
        return NO_DATA_FILE
    template = REFUSED.get(case.name)
    return template.format(header=case.path) if template else None


@pytest.mark.parametrize("case", cases())
def test_real_file(case, run_corv):
    result = run_corv("info", case.path, "--json")
    refusal = expected_refusal(case)
    if refusal is not None:
        assert (result.returncode, result.stdout, result.stderr) == (1, "", refusal + "\n")
        with pytest.raises(RuntimeError) as caught:
            corv.open_input(str(case.path))
        assert str(caught.value) == refusal
        return
    assert result.returncode == 0, result.stderr
    assert result.stderr == ""
    summary = json.loads(result.stdout)

    cube, dataset = gdal_cube(case.data_file)
    rows, cols, bands = cube.shape
    if case.kind == "tiff":
        # A multi-band TIFF's wavelengths are its band indexes, whatever GDAL lists per band.
        wavelengths = np.arange(bands, dtype=np.float32)
        reflectance = False
    else:
        header_text = case.path.read_text(errors="replace")
        wavelengths = header_wavelengths(header_text)
        assert wavelengths is not None, "the header lists no wavelengths, yet corv opened it"
        for listed_as, from_gdal in gdal_wavelength_lists(dataset).items():
            np.testing.assert_array_equal(from_gdal, wavelengths, err_msg=f"GDAL's {listed_as}")
        reflectance = "REFLECTANCE" in header_description(header_text)
    assert wavelengths.size == bands

    assert summary["file"] == str(case.path)
    kind = ("TIFF", 4) if case.kind == "tiff" else ("ENVI", 0)
    assert (summary["format"], summary["input_kind"]) == kind
    assert (summary["lines"], summary["samples"], summary["bands"]) == (rows, cols, bands)
    assert summary["content"] == ("reflectance" if reflectance else "irradiance")
    assert summary["components"] == ["s" if reflectance else "I", "wavelengths"]
    np.testing.assert_array_equal(np.float32(summary["wavelengths"]), wavelengths)

    source = corv.open_input(str(case.path))
    assert (source.height, source.width, source.bands) == (rows, cols, bands)
    if case.kind == "envi":
        assert isinstance(source, corv.hdr_input)
        assert (source.header_file, source.data_file) == (str(case.path), str(case.data_file))
        assert source.is_reflectance == reflectance
    else:
        assert isinstance(source, corv.tif_input)
    np.testing.assert_array_equal(source.wavelengths(), wavelengths)
    read = source.s() if reflectance else source.I()
    assert read.dtype == np.float32 and read.shape == cube.shape
    np.testing.assert_array_equal(read, cube)  # NaN equals NaN here

