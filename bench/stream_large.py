#!/usr/bin/python3
"""An ENVI cube larger than memory through the corv tool, beside a plain copy of its bytes.

Makes a 32 GiB float32 BSQ cube (32768 lines x 2048 samples x 128 bands) as a sparse file:
every band holds random values in its first 256 lines and zeros (holes, which take no disk)
after them. Then, each timed with its peak resident memory (from the kernel's accounting of
the child process):

- plain copy: the cube's bytes read and 16 GiB written, in 8 MiB reads and writes: what
  `corv convert --data-type 12` must at least do (read 32 GiB, write 16 GiB);
- `corv convert CUBE OUT.fla --data-type 12`: unsigned 16-bit, scaled by the largest value
  (two passes over the input: the largest value, then the conversion);
- `corv bandmath "(I1[100]-I1[20])/(I1[100]+I1[20])" CUBE -o RATIO.fla`: a band ratio, which
  reads two bands.

Goals: peak memory under 2 GiB, and the conversion's throughput at least half the plain
copy's. Disk: the outputs take 16.3 GiB at most at once (the copy's output is removed before
the conversion runs); the folder (--folder, default a temporary one beside the build) is
removed at the end.

    /usr/bin/python3 bench/stream_large.py [--corv build/bin/corv] [--folder DIR]
"""

import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time

import numpy as np

LINES, SAMPLES, BANDS = 32768, 2048, 128
FILLED_LINES = 256
CHUNK = 8 << 20


def make_cube(folder):
    data = os.path.join(folder, "large.fla")
    band_bytes = LINES * SAMPLES * 4
    rng = np.random.default_rng(1)
    with open(data, "wb") as f:
        f.truncate(band_bytes * BANDS)
        for b in range(BANDS):
            f.seek(b * band_bytes)
            rng.random((FILLED_LINES, SAMPLES), dtype=np.float32).tofile(f)
    with open(os.path.join(folder, "large.hdr"), "w") as f:
        f.write(f"ENVI\nsamples = {SAMPLES}\nlines = {LINES}\nbands = {BANDS}\n"
                "header offset = 0\nfile type = ENVI Standard\ndata type = 4\n"
                "interleave = bsq\nbyte order = 0\nwavelength = {"
                + ", ".join(str(400 + 4 * b) for b in range(BANDS)) + "}\n")
    return data


def timed(arguments, environment=None):
    """(seconds, peak resident bytes) of a child process."""
    start = time.perf_counter()
    child = subprocess.Popen(arguments, stdout=subprocess.DEVNULL, env=environment)
    _, status, usage = os.wait4(child.pid, 0)
    elapsed = time.perf_counter() - start
    if os.waitstatus_to_exitcode(status) != 0:
        raise SystemExit(f"failed: {' '.join(arguments)}")
    return elapsed, usage.ru_maxrss * 1024


PLAIN_COPY = """
import os, sys
source, target, written = sys.argv[1], sys.argv[2], int(sys.argv[3])
buffer = bytearray(%d)
view = memoryview(buffer)
with open(source, 'rb', buffering=0) as f, open(target, 'wb', buffering=0) as out:
    left = written
    while True:
        n = f.readinto(buffer)
        if not n:
            break
        if left > 0:
            part = min(left, n // 2)
            out.write(view[:part])
            left -= part
""" % CHUNK


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--corv", default=os.path.join("build", "bin", "corv"))
    parser.add_argument("--folder", default=None)
    args = parser.parse_args()
    folder = tempfile.mkdtemp(prefix="corv-large-", dir=args.folder or "build")
    try:
        data = make_cube(folder)
        size = os.path.getsize(data)
        out16 = os.path.join(folder, "large16.fla")
        copy = timed([sys.executable, "-c", PLAIN_COPY, data, out16, str(size // 2)])
        os.remove(out16)
        convert = timed([args.corv, "convert", data, out16, "--data-type", "12"])
        os.remove(out16)
        ratio = timed([args.corv, "bandmath", "(I1[100]-I1[20])/(I1[100]+I1[20])", data, "-o",
                       os.path.join(folder, "ratio.fla")])
    finally:
        shutil.rmtree(folder, ignore_errors=True)

    gib = float(1 << 30)
    print(f"cube: {LINES} lines x {SAMPLES} samples x {BANDS} bands, float32 BSQ, "
          f"{size / gib:.0f} GiB (sparse); load average {os.getloadavg()[0]:.1f}\n")
    print("| run | seconds | GiB/s of input | peak memory |")
    print("|---|---|---|---|")
    for name, (seconds, peak) in (("plain copy: read 32 GiB, write 16 GiB", copy),
                                  ("corv convert --data-type 12", convert),
                                  ("corv bandmath band ratio", ratio)):
        print(f"| {name} | {seconds:.1f} | {size / gib / seconds:.2f} | {peak / gib:.2f} GiB |")
    throughput = copy[0] / convert[0]
    peak_ok = max(convert[1], ratio[1]) < 2 * gib
    print(f"\nconvert throughput / plain copy: {throughput:.2f} (goal >= 0.5: "
          f"{'met' if throughput >= 0.5 else 'NOT MET'}); peak memory under 2 GiB: "
          f"{'met' if peak_ok else 'NOT MET'}")
    return 0 if throughput >= 0.5 and peak_ok else 1


if __name__ == "__main__":
    sys.exit(main())
