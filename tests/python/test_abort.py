"""A long library call, run on a thread, stopped from another through corv.logger.

The pipeline's long calls let go of the interpreter while they compute, so the
calling thread keeps running: it watches the logger's stage and progress and
requests an abort, and the call raises "Processing was aborted!".
"""

import threading
import time

import numpy as np
import pytest

from conftest import corv

ABORTED = "Processing was aborted!"
WIENER = 1  # the pipeline's code of the Wiener filter


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
        lambda: logger.stage == corv.logger.stage_filter and logger.progress > 0,
    )
    assert error == ABORTED
    # The request is used up: the same call runs to its end afterwards.
    assert not logger.abort_requested()
    p.filter(WIENER, 5)
    assert logger.progress == 100
    assert not np.array_equal(p.I(), image)


def test_nurbs_encoding_aborted_from_another_thread(logger):
    waves = np.linspace(400, 800, 40, dtype=np.float32)
    shapes = np.stack([np.sin(waves / 60 + k) for k in range(4)])
    weights = np.random.default_rng(1).random((100, 100, 4))
    image = (weights @ shapes + 2).astype(np.float32)
    begun = time.monotonic()
    error = run_and_abort(lambda: corv.generate_nurbs(image, None, waves), logger,
                          lambda: time.monotonic() - begun > 0.3)
    assert error == ABORTED
    assert not logger.abort_requested()


def test_illuminant_recovery_aborted_from_another_thread(logger):
    # A scene big enough to take seconds: smooth shading over a few materials.
    rows, cols, bands = 400, 400, 61
    waves = np.linspace(400, 700, bands, dtype=np.float32)
    materials = np.stack([0.3 + 0.2 * np.sin(waves / (40 + 15 * k) + k) for k in range(5)])
    label = (np.add.outer(np.arange(rows) // 80, np.arange(cols) // 80) % 5)
    y, x = np.mgrid[0:rows, 0:cols]
    shading = 0.5 + 0.5 * np.cos(x / 90.0) * np.cos(y / 110.0)
    light = 1.0 + 0.5 * (waves - 400) / 300
    cube = (materials[label] * light * shading[..., None]).astype(np.float32)
    p = corv.pipeline()
    p.set_I(np.asfortranarray(cube), waves)
    begun = time.monotonic()
    error = run_and_abort(lambda: p.process_recover_illuminant(True), logger,
                          lambda: logger.progress > 0 or time.monotonic() - begun > 0.5)
    assert error == ABORTED
    # A stage that fails leaves what it was to produce empty.
    with pytest.raises(RuntimeError, match="^pipeline: illuminant does not exist"):
        p.illuminant()
