"""Long library calls, run on a thread, stopped from another through corv.logger.

The module's long calls let go of the interpreter while they compute, so the
calling thread keeps running: it watches the logger's stage and progress and
requests an abort, and the call raises "Processing was aborted!". Which stages
honour an abort is tested in C++; here each binding's part.
"""

import threading
import time

import numpy as np
import pytest
from conftest import corv

ABORTED = "Processing was aborted!"
WIENER = 1  # the pipeline's code of the Wiener filter
FILTER_STAGE = 7  # the logger's number of the preprocessing filter stage
REFLECTANCE_STAGE = 1


def run_and_abort(call, logger, started):
    """Runs call() on a thread and requests an abort once started() says it is under way.

    Returns the text of the RuntimeError the call raised, or None if it returned.
    """
    outcome = {}

    def work():
        try:
            call()
        except RuntimeError as error:
            outcome["error"] = str(error)

    worker = threading.Thread(target=work)
    worker.start()
    deadline = time.monotonic() + 120
    # This loop only turns while the worker computes if the call released the
    # interpreter; otherwise the call has long returned when it first runs.
    while worker.is_alive() and not started() and time.monotonic() < deadline:
        time.sleep(0.001)
    assert worker.is_alive(), "the call ended before it could be aborted"
    logger.request_abort()
    worker.join(timeout=300)
    assert not worker.is_alive()
    return outcome.get("error")


def flat_image(rows, cols, bands):
    image = np.zeros((rows, cols, bands), dtype=np.float32, order="F")
    image[::7, ::5, :] = 1.0
    p = corv.pipeline()
    p.set_I(image, np.linspace(400, 700, bands, dtype=np.float32))
    return p, image


def test_wiener_filter_aborted_from_another_thread(logger):
    p, image = flat_image(600, 600, 60)
    error = run_and_abort(
        lambda: p.filter(WIENER, 5),
        logger,
        lambda: logger.stage == FILTER_STAGE and logger.progress > 0,
    )
    assert error == ABORTED
    # The request is used up: the same call runs to its end afterwards.
    assert not logger.abort_requested()
    p.filter(WIENER, 5)
    assert logger.progress == 100
    assert not np.array_equal(p.I(), image)


def random_cube():
    return np.random.default_rng(1).random((500, 500, 33), dtype=np.float32) + np.float32(0.1)


@pytest.mark.parametrize("call, started", [
    pytest.param(lambda I: corv.recover_dichromatic_parameters(
        I, np.ones(33, np.float32), np.arange(33, dtype=np.float32)),
        lambda log: log.stage == REFLECTANCE_STAGE, id="dichromatic"),
    pytest.param(lambda I: corv.recover_illuminant_HRK(I, second_switch=False),
                 lambda log: log.progress > 0, id="illuminant"),
])
def test_recoveries_aborted_from_another_thread(logger, call, started):
    I = random_cube()
    assert run_and_abort(lambda: call(I), logger, lambda: started(logger)) == ABORTED
    assert not logger.abort_requested()
