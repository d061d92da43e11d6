"""The batch runner on a real Dask scheduler with two workers, started here on 127.0.0.1."""

import os
import socket
import subprocess
import sys
from pathlib import Path

import corv
import distributed
import numpy as np
import pytest

from test_classify_cli import write_envi_image

# Dask's client, on Debian 12's tornado, warns of an event loop call it makes itself.
pytestmark = pytest.mark.filterwarnings("ignore::DeprecationWarning")

WAVES = np.linspace(450.0, 800.0, 8, dtype=np.float32)


@pytest.fixture(scope="module")
def environment():
    """Subprocesses import the same corv package as the tests."""
    env = dict(os.environ)
    env["PYTHONPATH"] = os.pathsep.join(
        [str(Path(corv.__file__).parents[1])] + env.get("PYTHONPATH", "").split(os.pathsep))
    return env


@pytest.fixture(scope="module")
def scheduler(tmp_path_factory, environment):
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        port = s.getsockname()[1]
    address = f"tcp://127.0.0.1:{port}"
    work = tmp_path_factory.mktemp("dask")
    quiet = dict(stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, cwd=work, env=environment)
    processes = [subprocess.Popen([sys.executable, "-m", "distributed.cli.dask_scheduler",
                                   "--host", "127.0.0.1", "--port", str(port), "--no-dashboard"],
                                  **quiet)]
    processes += [subprocess.Popen([sys.executable, "-m", "distributed.cli.dask_worker", address,
                                    "--host", "127.0.0.1", "--nthreads", "1", "--no-dashboard",
                                    "--local-directory", str(work), "--death-timeout", "60"],
                                   **quiet) for _ in range(2)]
    try:
        with distributed.Client(address, timeout=60) as client:
            client.wait_for_workers(2, timeout=60)
        yield address
    finally:
        for process in processes:
            process.terminate()
        for process in processes:
            try:
                process.wait(timeout=20)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()


def test_batch_runs_every_file_skips_what_is_done_and_reports_failures(
        scheduler, environment, corv_bin, tmp_path):
    rng = np.random.default_rng(2)
    cubes = {name: rng.random((6, 5, 8), dtype=np.float32) for name in ("a", "b", "c")}
    files = [write_envi_image(tmp_path / name, cube, WAVES) for name, cube in cubes.items()]
    broken = tmp_path / "broken.hdr"
    broken.write_text(open(files[0]).read())  # a header without its data file
    out = tmp_path / "out"
    command = [sys.executable, "-m", "corv.batch", "prepare", *files, str(broken), "-d", str(out),
               "--scheduler", scheduler, "--corv", str(corv_bin), "--",
               "--crop", "1,1,4,3", "--filter", "mavg:3"]

    first = subprocess.run(command, capture_output=True, text=True, timeout=300, env=environment)
    assert first.returncode == 1, first.stderr
    assert first.stdout.startswith("done 3, skipped 0, failed 1 (")
    assert f"corv-batch: {broken}: hdr_input: No Datafile found!\n" in first.stderr
    # Every output of a file or none, and no working folder left behind.
    assert sorted(os.listdir(out)) == sorted(f"{n}.{e}" for n in cubes for e in ("fla", "hdr"))
    p = corv.pipeline(corv.hdr_input(files[1]))
    p.crop(1, 1, 4, 3)
    p.filter(2, 3)
    written = np.fromfile(out / "b.fla", dtype="<f4").reshape(8, 4, 3).transpose(1, 2, 0)
    np.testing.assert_array_equal(written, p.I())

    os.remove(out / "c.hdr")  # c is no longer complete: it runs again
    again = subprocess.run(command, capture_output=True, text=True, timeout=300, env=environment)
    assert again.returncode == 1
    assert again.stdout.startswith("done 1, skipped 2, failed 1 (")
