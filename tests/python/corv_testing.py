"""Where the Python tests find the source tree, the build and the real data, and how they read
the quantised arrays of HSZ and SLZ files.

ctest passes CORV_SOURCE_DIR, CORV_BIN and PYTHONPATH. Run by hand, the tests
take the source tree this file lives in and its default build folder `build/`.
"""

import os
from pathlib import Path

import numpy as np

SOURCE_DIR = Path(os.environ.get("CORV_SOURCE_DIR") or Path(__file__).resolve().parents[2])
DEFAULT_BUILD_DIR = SOURCE_DIR / "build"
CORV_BIN = Path(os.environ.get("CORV_BIN") or DEFAULT_BUILD_DIR / "bin" / "corv")
MODULE_DIR = DEFAULT_BUILD_DIR / "python"

# Real third-party files, kept beside the repository, never inside it.
SHARED_DATA = Path(os.path.normpath(SOURCE_DIR / ".." / "shared" / "data"))
SHARED_DATA_ABSENT = f"real test data folder {SHARED_DATA} is absent"

SAMPLE_HEADER = SOURCE_DIR / "data" / "sample" / "sample.hdr"
SAMPLE_DATA = SOURCE_DIR / "data" / "sample" / "sample.fla"

# HSZ and SLZ files store each array as 16-bit DATA scaled between MAX and MIN.
LEVELS = 65535.0


def dequantised(group):
    """What the quantisation rules give back for an h5py DATA/MAX/MIN group."""
    data = group["DATA"][()].astype(np.float64)
    top, bottom = group["MAX"][0], group["MIN"][0]
    if abs(top - bottom) < np.finfo(np.float64).eps:
        return data
    return data * ((top - bottom) / LEVELS) + bottom


def step_of(group):
    return (group["MAX"][0] - group["MIN"][0]) / LEVELS


def assert_within_one_step(back, original, step):
    """Every value within one quantisation step, plus the rounding of a float32 read back."""
    back = np.asarray(back, dtype=np.float64)
    original = np.asarray(original, dtype=np.float64)
    assert back.shape == original.shape
    slack = np.spacing(np.float32(np.nanmax(np.abs(original))))
    assert np.nanmax(np.abs(back - original)) <= step + slack
