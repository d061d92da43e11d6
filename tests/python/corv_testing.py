"""Where the Python tests find the source tree, the build and the real data.

ctest passes CORV_SOURCE_DIR, CORV_BIN and PYTHONPATH. Run by hand, the tests
take the source tree this file lives in and its default build folder `build/`.
"""

import os
from pathlib import Path

SOURCE_DIR = Path(os.environ.get("CORV_SOURCE_DIR") or Path(__file__).resolve().parents[2])
DEFAULT_BUILD_DIR = SOURCE_DIR / "build"
CORV_BIN = Path(os.environ.get("CORV_BIN") or DEFAULT_BUILD_DIR / "bin" / "corv")
MODULE_DIR = DEFAULT_BUILD_DIR / "python"

# Real third-party files, kept beside the repository, never inside it.
SHARED_DATA = Path(os.path.normpath(SOURCE_DIR / ".." / "shared" / "data"))
SHARED_DATA_ABSENT = f"real test data folder {SHARED_DATA} is absent"

SAMPLE_HEADER = SOURCE_DIR / "data" / "sample" / "sample.hdr"
SAMPLE_DATA = SOURCE_DIR / "data" / "sample" / "sample.fla"
