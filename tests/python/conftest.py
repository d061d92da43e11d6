"""Shared fixtures: the `corv` module, the `corv` tool, the bundled sample and the real data."""

import importlib.util
import subprocess
import sys

import pytest

from corv_testing import CORV_BIN, MODULE_DIR, SAMPLE_HEADER, SHARED_DATA, SHARED_DATA_ABSENT


def _import_corv():
    # Without PYTHONPATH the package comes from the default build folder. The
    # C++ source folder corv/ would import as an empty namespace package, so a
    # package without a file is not the built one.
    found = importlib.util.find_spec("corv")
    if found is None or found.origin is None:
        sys.path.insert(0, str(MODULE_DIR))
        sys.modules.pop("corv", None)
    import corv

    if getattr(corv, "__file__", None) is None or not hasattr(corv, "pipeline"):
        raise ImportError(
            f"the corv Python module is not built: looked in PYTHONPATH and {MODULE_DIR}"
        )
    return corv


corv = _import_corv()


def pytest_report_header(config):
    return [f"corv module: {corv.__file__}", f"corv tool: {CORV_BIN}"]


@pytest.fixture(scope="session", autouse=True)
def quiet_logger():
    """The library's log stays off the terminal; tests read its entries instead."""
    logger = corv.logger.instance()
    echo = logger.echo
    logger.echo = False
    yield
    logger.echo = echo


@pytest.fixture
def logger():
    """The process-wide logger, emptied, with no stage, progress or abort request."""
    log = corv.logger.instance()
    log.clear_entries()
    log.clear_progress()
    yield log
    log.clear_progress()


@pytest.fixture(scope="session")
def corv_bin():
    if not CORV_BIN.is_file():
        pytest.fail(f"the corv tool {CORV_BIN} is not built (build it, or set CORV_BIN)")
    return CORV_BIN


@pytest.fixture
def run_corv(corv_bin):
    """Runs the tool with the given arguments; returns the completed process (text output)."""

    def run(*args, cwd=None):
        return subprocess.run(
            [str(corv_bin), *map(str, args)],
            capture_output=True,
            text=True,
            timeout=300,
            cwd=cwd,
        )

    return run


@pytest.fixture(scope="session")
def shared_data():
    if not SHARED_DATA.is_dir():
        pytest.skip(SHARED_DATA_ABSENT)
    return SHARED_DATA


@pytest.fixture(scope="session")
def sample_header():
    assert SAMPLE_HEADER.is_file(), f"the bundled sample {SAMPLE_HEADER} is missing"
    return SAMPLE_HEADER
