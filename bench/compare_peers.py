#!/usr/bin/python3
"""ENVI read and write speed of corv beside its peers, on one float32 BSQ cube.

Makes the cube in a temporary folder (removed at the end), warms the page cache,
then times each path in rounds: every round runs every path once, so that a change
in the machine's load falls on all of them alike. Prints the median of each path,
its throughput, its ratio to the reference its goal names, and PASS or FAIL.

corv's figures come from the corv_envi_probe helper (bench/probe/envi_probe.cpp),
which times the library call itself in C++; the raw figures come from the same
helper, so both sides pay the same process and allocator. Peers run here in Python.
A first, untimed round (and an untimed run inside each helper call) warms memory:
see the helper's comment on why that matters on a virtual machine.

    /usr/bin/python3 bench/compare_peers.py [--build build] [--rounds 5]
"""

import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import numpy as np
import spectral
from osgeo import gdal

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def write_cube(folder, lines, samples, bands):
    """A random float32 BSQ cube with its header; returns (header, data) names."""
    data = os.path.join(folder, "cube.img")
    header = os.path.join(folder, "cube.hdr")
    rng = np.random.default_rng(20)
    with open(data, "wb") as out:
        for _ in range(bands):
            rng.random((lines, samples), dtype=np.float32).tofile(out)
    wavelengths = ",\n".join(" %.4f" % (400.0 + 600.0 * b / max(bands - 1, 1))
                             for b in range(bands))
    with open(header, "w") as out:
        out.write("ENVI\ndescription = {\nIRRADIANCE\n}\nfile type = ENVI Standard\n"
                  "header offset = 0\nsamples = %d\nlines = %d\nbands = %d\n"
                  "data type = 4\ninterleave = bsq\nbyte order = 0\n"
                  "wavelength = {\n%s}\n" % (samples, lines, bands, wavelengths))
    return header, data


def warm(name):
    with open(name, "rb", buffering=0) as source:
        while source.read(64 << 20):
            pass


def probe(binary, *arguments, threads=None):
    """Runs the helper once; returns the numbers it printed."""
    environment = dict(os.environ)
    if threads is not None:
        environment["OMP_NUM_THREADS"] = str(threads)
    done = subprocess.run([binary, *arguments], check=True, capture_output=True, text=True,
                          env=environment)
    return [float(word) for word in done.stdout.split()]


def timed(call):
    start = time.perf_counter()
    result = call()
    elapsed = time.perf_counter() - start
    del result
    return elapsed


def peak_of_python(code, header):
    """Peak resident size (bytes) a Python snippet adds, in a fresh process."""
    script = (
        "import sys\n"
        "import numpy, spectral\n"
        "def kib(key):\n"
        "    for line in open('/proc/self/status'):\n"
        "        if line.startswith(key + ':'):\n"
        "            return int(line.split()[1])\n"
        "hdr = sys.argv[1]\n"
        "before = kib('VmRSS')\n"
        "open('/proc/self/clear_refs', 'w').write('5')\n"
        + code + "\n"
        "print(before, kib('VmHWM'))\n")
    done = subprocess.run([sys.executable, "-c", script, header], check=True,
                          capture_output=True, text=True)
    before, after = (int(word) for word in done.stdout.split())
    return (after - before) * 1024


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", default=os.path.join(REPO, "build"),
                        help="build folder holding bin/corv_envi_probe (default: build)")
    parser.add_argument("--rounds", type=int, default=5, help="timed runs of each path (default 5)")
    parser.add_argument("--lines", type=int, default=1024)
    parser.add_argument("--samples", type=int, default=1024)
    parser.add_argument("--bands", type=int, default=128)
    parser.add_argument("--no-gdal", action="store_true",
                        help="skip GDAL's default reading")
    options = parser.parse_args()

    binary = os.path.join(os.path.abspath(options.build), "bin", "corv_envi_probe")
    if not os.access(binary, os.X_OK):
        sys.exit("compare_peers: %s is missing; build the target corv_envi_probe first" % binary)
    gdal.UseExceptions()
    folder = tempfile.mkdtemp(prefix="corv-peers-")
    try:
        header, data = write_cube(folder, options.lines, options.samples, options.bands)
        size = os.path.getsize(data)
        out = os.path.join(folder, "written.fla")
        raw_out = os.path.join(folder, "written.raw")
        spectral_out = os.path.join(folder, "spectral.hdr")
        warm(data)

        paths = {
            "raw_read": lambda: probe(binary, "raw-read", data, "1")[0],
            "raw_reread": lambda: probe(binary, "raw-reread", data, "1")[0],
            "corv_read": lambda: probe(binary, "read", header, "1")[0],
            "corv_read_one_thread": lambda: probe(binary, "read", header, "1", threads=1)[0],
            "spectral_read": lambda: timed(lambda: spectral.open_image(header).load()),
            "numpy_fromfile": lambda: timed(lambda: np.fromfile(data, dtype=np.float32)),
            "raw_write": lambda: probe(binary, "raw-write", data, raw_out, "1")[0],
            "corv_write": lambda: probe(binary, "write", header, out, "1")[0],
        }
        if not options.no_gdal:
            paths["gdal_read"] = lambda: timed(lambda: gdal.Open(data).ReadAsArray())
        cube = spectral.open_image(header).load()

        def spectral_write():
            seconds = timed(lambda: spectral.envi.save_image(
                spectral_out, cube, dtype=np.float32, interleave="bsq", force=True))
            for name in os.listdir(folder):
                if name.startswith("spectral."):
                    os.remove(os.path.join(folder, name))
            return seconds

        paths["spectral_write"] = spectral_write

        times = {name: [] for name in paths}
        for round_number in range(options.rounds + 1):
            for name, run in paths.items():
                seconds = run()
                if round_number > 0:  # the first round only warms up
                    times[name].append(seconds)
        del cube
        median = {name: statistics.median(values) for name, values in times.items()}

        before, after = probe(binary, "peak", header)
        corv_peak = (after - before) * 1024
        spectral_peak = peak_of_python("image = spectral.open_image(hdr).load()", header)
    finally:
        shutil.rmtree(folder, ignore_errors=True)

    gib = size / float(1 << 30)
    print("cube: %d lines x %d samples x %d bands, float32 BSQ, %.0f MiB; %d rounds, median; "
          "%d CPUs, load average %.1f" % (options.lines, options.samples, options.bands,
                                          size / float(1 << 20), options.rounds,
                                          os.cpu_count(), os.getloadavg()[0]))
    print()
    print("%-44s %9s %9s" % ("path", "seconds", "GiB/s"))
    labels = [
        ("raw_read", "raw read() into a new buffer"),
        ("raw_reread", "raw read() into a reused buffer"),
        ("corv_read", "corv hdr_input(name, true) + I_ptr()"),
        ("corv_read_one_thread", "  the same on one thread (OMP_NUM_THREADS=1)"),
        ("spectral_read", "Spectral Python open_image().load()"),
        ("gdal_read", "GDAL Dataset.ReadAsArray() (block cache)"),
        ("numpy_fromfile", "numpy.fromfile"),
        ("raw_write", "raw write() of the same bytes"),
        ("corv_write", "corv hdr_output(false, 4)"),
        ("spectral_write", "Spectral Python envi.save_image()"),
    ]
    for name, label in labels:
        if name in median:
            print("%-44s %9.3f %9.2f" % (label, median[name], gib / median[name]))
    print()

    goals = [
        ("read at least as fast as Spectral Python", median["spectral_read"] / median["corv_read"],
         1.0, "x"),
        ("read at least half the raw read's speed", median["raw_read"] / median["corv_read"],
         0.5, "x"),
        ("write at least half the raw write's speed", median["raw_write"] / median["corv_write"],
         0.5, "x"),
        ("held read's extra peak memory <= 1.2 x cube", corv_peak / float(size), 1.2, "x<="),
    ]
    print("%-44s %9s %9s %s" % ("goal", "measured", "needed", "result"))
    failed = 0
    for label, value, needed, kind in goals:
        met = value <= needed if kind == "x<=" else value >= needed
        failed += not met
        print("%-44s %8.2fx %8s %s" % (label, value, ("<= " if kind == "x<=" else ">= ") +
                                        "%.1f" % needed, "PASS" if met else "FAIL"))
    print()
    print("for information: corv read / raw read into a reused buffer: %.2fx; "
          "Spectral Python's extra peak memory: %.2f x cube"
          % (median["raw_reread"] / median["corv_read"], spectral_peak / float(size)))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
