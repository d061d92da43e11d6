#!/usr/bin/python3
"""The corv Python module against what a Python user would use instead.

One 512 x 512 x 128 float32 cube in numpy's default (C) order, as a user's
own array would be, and in this one process, side by side (medians of
--repeats runs, every path once per round so that a change in the machine's
load falls on all alike):

| work | peer | corv |
|---|---|---|
| read an ENVI cube | Spectral Python `open_image().load()` | `hdr_input(f).I()` |
| write it as float ENVI | the cube's bytes written with `tofile` | `pipeline.save(hdr_output(data_type=4))` |
| Savitzky-Golay 5 | `scipy.signal.savgol_filter` | `corv.savitzky_golay` |
| moving average 5 | `scipy.ndimage.uniform_filter1d` | `corv.moving_average` |
| gray world | numpy mean over the pixels | `corv.recover_illuminant_WP` |
| white patch | numpy maximum over the pixels | `corv.recover_illuminant_GW` |
| SAM, 20 references, 5 best | `spectral.spectral_angles` and numpy's ranking | `corv.sam` |

The reads' peak memory (what the read adds to the process at its highest, in
a fresh process, as a multiple of the cube) is measured too. Prints the table
with the ratios peer / corv (above 1: corv is faster) of wall-clock time and of
processor time (every thread's, the kernel's included), and whether each goal
is met by wall-clock time; the exit status is 1 when one is not. On a machine
that other work keeps busy, the processor-time ratio is the steadier one.

    PYTHONPATH=build/python /usr/bin/python3 bench/compare_python.py [--repeats 5]
"""

import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time

import corv
import numpy as np
import scipy.ndimage
import scipy.signal
import spectral
import spectral.io.envi

ROWS, COLS, BANDS, REFERENCES = 512, 512, 128, 20


def make_cube():
    rng = np.random.default_rng(5)
    references = rng.random((REFERENCES, BANDS), dtype=np.float32)
    weights = rng.random((ROWS * COLS, REFERENCES), dtype=np.float32) ** 4
    pixels = weights @ references + np.float32(0.01) * rng.standard_normal(
        (ROWS * COLS, BANDS), dtype=np.float32)
    return pixels.reshape(ROWS, COLS, BANDS), references


def write_envi(folder, cube, waves):
    """The cube as a band-sequential float ENVI pair, written by numpy."""
    data = os.path.join(folder, "cube.fla")
    np.ascontiguousarray(cube.transpose(2, 0, 1)).tofile(data)
    with open(os.path.join(folder, "cube.hdr"), "w") as header:
        header.write("ENVI\nsamples = %d\nlines = %d\nbands = %d\nheader offset = 0\n"
                     "file type = ENVI Standard\ndata type = 4\ninterleave = bsq\n"
                     "byte order = 0\nwavelength = {%s}\n"
                     % (COLS, ROWS, BANDS, ", ".join("%.4f" % w for w in waves)))
    return os.path.join(folder, "cube.hdr")


def peak_of(code, header):
    """What a snippet adds to a fresh process's resident size at its peak, in bytes."""
    script = (
        "import sys, numpy, spectral, spectral.io.envi, corv\n"
        "def kib(key):\n"
        "    for line in open('/proc/self/status'):\n"
        "        if line.startswith(key + ':'):\n"
        "            return int(line.split()[1])\n"
        "hdr = sys.argv[1]\n"
        "corv.logger.instance().echo = False\n"
        "before = kib('VmRSS')\n"
        "open('/proc/self/clear_refs', 'w').write('5')\n"
        + code + "\n"
        "print(before, kib('VmHWM'))\n")
    done = subprocess.run([sys.executable, "-c", script, header], check=True,
                          capture_output=True, text=True, env=dict(os.environ))
    before, after = (int(word) for word in done.stdout.split())
    return (after - before) * 1024


def spy_sam(cube, references):
    angles = spectral.spectral_angles(cube, references)
    order = np.argsort(angles, axis=2)[:, :, :5]
    return np.take_along_axis(angles, order, axis=2), order + 1


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--repeats", type=int, default=5)
    args = parser.parse_args()

    cube, references = make_cube()
    fortran = np.asfortranarray(cube)
    waves = np.linspace(400.0, 1000.0, BANDS, dtype=np.float32)
    nbytes = cube.nbytes
    holder = corv.pipeline()
    holder.set_I(fortran, waves)
    corv.logger.instance().echo = False

    with tempfile.TemporaryDirectory() as folder:
        header = write_envi(folder, cube, waves)
        raw_target = os.path.join(folder, "raw.bin")
        corv_target = os.path.join(folder, "out.fla")
        # (name, peer name, peer, corv, corv on a Fortran-ordered cube or None, goal)
        rows = [
            ("read an ENVI cube", "SPy open_image().load()",
             lambda: spectral.io.envi.open(header, header[:-4] + ".fla").load(),
             lambda: corv.hdr_input(header).I(), None, 3.0),
            ("write it as float ENVI", "raw write",
             lambda: cube.tofile(raw_target),
             lambda: holder.save(corv.hdr_output(data_type=4), corv_target), None, 0.5),
            ("Savitzky-Golay 5", "scipy",
             lambda: scipy.signal.savgol_filter(cube, 5, 2, axis=2, mode="nearest"),
             lambda: corv.savitzky_golay(cube, 5), lambda: corv.savitzky_golay(fortran, 5), 1.5),
            ("moving average 5", "scipy",
             lambda: scipy.ndimage.uniform_filter1d(cube, 5, axis=2, mode="nearest"),
             lambda: corv.moving_average(cube, 5), lambda: corv.moving_average(fortran, 5), 1.5),
            ("gray world", "numpy mean",
             lambda: cube.mean(axis=(0, 1)),
             lambda: corv.recover_illuminant_WP(cube), lambda: corv.recover_illuminant_WP(fortran),
             0.5),
            ("white patch", "numpy max",
             lambda: cube.max(axis=(0, 1)),
             lambda: corv.recover_illuminant_GW(cube), lambda: corv.recover_illuminant_GW(fortran),
             0.5),
            ("SAM, 20 references, 5 best", "SPy",
             lambda: spy_sam(cube, references),
             lambda: corv.sam(cube, waves, references), lambda: corv.sam(fortran, waves, references),
             4.0),
        ]
        # Per row and path: (wall-clock, processor) seconds of each timed round.
        times = {row[0]: ([], [], []) for row in rows}
        for round_number in range(args.repeats + 1):
            for name, _, peer, mine, mine_fortran, _ in rows:
                for slot, run in enumerate((peer, mine, mine_fortran)):
                    if run is None:
                        continue
                    if name.startswith("write"):
                        # Each write starts with no dirty pages of the one before it,
                        # whose writeback would otherwise slow it down.
                        os.sync()
                    start, start_cpu = time.perf_counter(), time.process_time()
                    result = run()
                    elapsed = time.perf_counter() - start
                    elapsed_cpu = time.process_time() - start_cpu
                    del result
                    if round_number > 0:  # the first round only warms up
                        times[name][slot].append((elapsed, elapsed_cpu))

        peaks = (peak_of("spectral.io.envi.open(hdr, hdr[:-4] + '.fla').load()", header) / nbytes,
                 peak_of("corv.hdr_input(hdr).I()", header) / nbytes)

    load = os.getloadavg()[0]
    print(f"{ROWS} x {COLS} x {BANDS} float32 cube ({nbytes / 2**20:.0f} MiB), numpy C order; "
          f"medians of {args.repeats}; load average {load:.1f}\n")
    print("| work | peer | corv through Python | ratio (>1: corv faster) | processor-time ratio "
          "| goal |")
    print("|---|---|---|---|---|---|")
    failed = False
    for name, peer_name, _, _, mine_fortran, goal in rows:
        (peer_time, corv_time, fortran_time), (peer_cpu, corv_cpu, fortran_cpu) = (
            [statistics.median(t[kind] for t in path) if path else None for path in times[name]]
            for kind in (0, 1))
        ratio = peer_time / corv_time
        corv_text = f"{corv_time:.3f} s"
        ratio_text = f"{ratio:.2f}"
        cpu_text = f"{peer_cpu / corv_cpu:.2f}"
        if fortran_time is not None:
            corv_text += f" (Fortran order: {fortran_time:.3f} s)"
            ratio_text += f" ({peer_time / fortran_time:.2f})"
            cpu_text += f" ({peer_cpu / fortran_cpu:.2f})"
        peer_text = f"{peer_name} {peer_time:.3f} s"
        if name.startswith("read"):
            peer_text += f", peak {peaks[0]:.1f}x cube"
            corv_text += f", peak {peaks[1]:.1f}x cube"
        met = ratio >= goal and (not name.startswith("read") or peaks[1] <= 1.2)
        failed |= not met
        goal_text = f"{goal:g}x" + (", peak <= 1.2x" if name.startswith("read") else "")
        print(f"| {name} | {peer_text} | {corv_text} | {ratio_text} | {cpu_text} | "
              f"{goal_text}: {'met' if met else 'NOT MET'} |")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
