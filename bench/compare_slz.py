#!/usr/bin/python3
"""Reading an SLZ spectral library: the corv module against h5py.

Makes a library of random spectra with the corv module, then times, in this one
process, (a) corv.spectral_library.load() followed by endmembers(), labels() and
wavelengths(), and (b) h5py reading the same file and de-quantising it with numpy
(DATA * (MAX - MIN) / 65535 + MIN for the endmembers, the wavelengths and the
colours, and the labels decoded to str). Prints the median and the best
wall-clock time and the median processor time of the repeats for each, and
checks that both read the same values.

    PYTHONPATH=build/python /usr/bin/python3 bench/compare_slz.py [--spectra 3000]
        [--bands 224 2151] [--repeats 30]
"""

import argparse
import statistics
import tempfile
import time
from pathlib import Path

import corv
import h5py
import numpy as np

LEVELS = 65535.0


def make_library(name, spectra, bands):
    rng = np.random.default_rng(11)
    endmembers = rng.random((bands, spectra), dtype=np.float32)
    labels = [f"mineral sample {i + 1} AREF" for i in range(spectra)]
    wavelengths = np.linspace(350.0, 2500.0, bands, dtype=np.float32)
    corv.spectral_library(endmembers, labels, wavelengths).save(str(name))


def read_corv(name):
    library = corv.spectral_library()
    library.load(str(name))
    return library.endmembers(), library.labels(), library.wavelengths()


def dequantised(group):
    data = group["DATA"][()]
    top, bottom = group["MAX"][0], group["MIN"][0]
    if abs(top - bottom) < np.finfo(np.float64).eps:
        return data.astype(np.float64)
    return data * ((top - bottom) / LEVELS) + bottom


def read_h5py(name):
    with h5py.File(name, "r") as f:
        endmembers = dequantised(f["Endmembers"])
        labels = [label.decode() for label in f["Labels/DATA"][()]]
        wavelengths = dequantised(f["HDR/wavelength"])[:, 0]
        if "RGB" in f["HDR"]:
            dequantised(f["HDR/RGB"])
    return endmembers, labels, wavelengths


def timed(read, name, repeats):
    """Median and best wall-clock time, and median processor time, in seconds.
    On a busy machine the processor time is the steadier figure."""
    read(name)  # warm the page cache and the imports
    wall, cpu = [], []
    for _ in range(repeats):
        start, start_cpu = time.perf_counter(), time.process_time()
        read(name)
        wall.append(time.perf_counter() - start)
        cpu.append(time.process_time() - start_cpu)
    return statistics.median(wall), min(wall), statistics.median(cpu)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--spectra", type=int, default=3000)
    parser.add_argument("--bands", type=int, nargs="+", default=[224, 2151])
    parser.add_argument("--repeats", type=int, default=30)
    args = parser.parse_args()

    corv.logger.instance().echo = False
    print(f"{'spectra x bands':>16} {'reader':>8} {'median ms':>10} {'best ms':>9} "
          f"{'cpu ms':>8}")
    with tempfile.TemporaryDirectory(prefix="corv-compare-slz-") as folder:
        for bands in args.bands:
            name = Path(folder) / f"{args.spectra}x{bands}.slz"
            make_library(name, args.spectra, bands)
            ours, theirs = read_corv(name), read_h5py(name)
            assert ours[1] == theirs[1]
            assert np.allclose(ours[0], theirs[0], atol=1e-6)
            assert np.allclose(ours[2], theirs[2], atol=1e-3)
            for reader_name, read in (("corv", read_corv), ("h5py", read_h5py)):
                median, best, cpu = timed(read, name, args.repeats)
                print(f"{args.spectra:>8} x {bands:<5} {reader_name:>8} {median * 1e3:>10.2f} "
                      f"{best * 1e3:>9.2f} {cpu * 1e3:>8.2f}")


if __name__ == "__main__":
    main()
