#!/usr/bin/python3
"""Writing and reading back an HSZ file: the corv module against h5py and numpy.

Makes a processed image in memory (illuminant, k, g, material elements, and per
pixel the abundances and element numbers of a few of them), then times in rounds,
every round running every path once so that a change in the machine's load falls
on all of them alike:

- corv write: corv.hsz_output().write() from a pipeline holding the components;
- h5py write: numpy quantising the same arrays by the same rules and h5py writing
  them in the same layout (one whole-extent chunk per dataset, deflate 6, MAX and
  MIN of one element, the header numbers and strings);
- corv read: corv.hsz_input() over the corv file, then k, g, illuminant, the
  elements, the abundances and their element numbers as numpy arrays;
- h5py read: h5py reading the same file, every array de-quantised with numpy.

Prints the median and best wall-clock time of each path, the ratio of corv's
median to h5py's for writing, reading and both, and checks that both writers'
files hold the same DATA.

    PYTHONPATH=build/python /usr/bin/python3 bench/compare_hsz.py [--size 1024]
        [--bands 128] [--elements 20] [--per-pixel 5] [--rounds 5]
"""

import argparse
import os
import statistics
import tempfile
import time
from pathlib import Path

import corv
import h5py
import numpy as np

LEVELS = 65535.0
TINY = np.finfo(np.float64).tiny
HUGE = np.finfo(np.float64).max
EPSILON = np.finfo(np.float64).eps
ARRAYS = ["ElementAbundanceIndexes", "ElementAbundances", "Elements", "ElementKnots", "ElementCP",
          "EndmemberAbundanceIndexes", "EndmemberAbundances", "Endmembers", "Factor"]
HEADER_NUMBERS = ["EndmemberIndexedL", "EndmemberIndexedS", "IndexedK", "IndexedL", "IndexedS",
                  "bands", "byteorder", "datatype", "header_offset", "lines", "numElementsK",
                  "numElementsL", "numElementsS", "numEndmembersL", "numEndmembersS", "numGMMsK",
                  "numGMMsL", "numGMMsS", "reflectance_scaler", "samples"]


def scene(size, bands, elements, per_pixel):
    rng = np.random.default_rng(5)
    indexes = np.empty((size, size, per_pixel), np.float32)
    for j in range(per_pixel):  # distinct element numbers per pixel
        indexes[:, :, j] = (rng.integers(0, elements // per_pixel, (size, size)) * per_pixel + j)
    return dict(
        wavelengths=np.linspace(400.0, 1000.0, bands, dtype=np.float32),
        illuminant=rng.uniform(0.5, 1.5, bands).astype(np.float32),
        k=rng.uniform(0.0, 0.3, (size, size)).astype(np.float32),
        g=rng.uniform(0.2, 1.0, (size, size)).astype(np.float32),
        elements=rng.uniform(0.0, 1.0, (bands, elements)).astype(np.float32),
        abundances=rng.dirichlet(np.ones(per_pixel), (size, size)).astype(np.float32),
        indexes=indexes)


def corv_pipeline(parts):
    source = corv.data_input()
    source.set_wavelengths(parts["wavelengths"])
    source.set_illuminant(parts["illuminant"])
    source.set_k(parts["k"])
    source.set_g(parts["g"])
    source.set_elements(parts["elements"])
    source.set_element_abundances(parts["abundances"])
    source.set_element_abundance_indexes(parts["indexes"])
    return corv.pipeline(source)


# --- h5py and numpy: the same rules and layout -------------------------------------------------

def quantised_group(parent, name, data, top, bottom):
    group = parent.create_group(name)
    if data.size:
        group.create_dataset("DATA", data=data, chunks=data.shape, compression="gzip",
                             compression_opts=6)
    else:
        group.create_dataset("DATA", shape=data.shape, dtype=np.uint16)
    for member, value in (("MAX", top), ("MIN", bottom)):
        group.create_dataset(member, data=np.array([value]), chunks=(1,), compression="gzip",
                             compression_opts=6)


def low_16_bits(values):
    return np.mod(np.trunc(values), 65536).astype(np.uint16)


def write_block(parent, name, values=None):
    """A block: the scan starts from the tiny MAX and the huge MIN."""
    if values is None:
        quantised_group(parent, name, np.zeros((0, 0, 0), np.uint16), TINY, HUGE)
        return
    values = np.asarray(values, dtype=np.float64)
    top, bottom = max(values.max(), TINY), min(values.min(), HUGE)
    span = top - bottom
    if span == 0:
        data = low_16_bits(values)
    else:
        data = np.trunc((values - bottom) / span * LEVELS).astype(np.uint16)
    quantised_group(parent, name, data, top, bottom)


def write_indexes(parent, name, indexes):
    values = np.asarray(indexes, dtype=np.int64)
    quantised_group(parent, name, (values & 0xFFFF).astype(np.uint16),
                    max(float(values.max()), TINY), min(float(values.min()), HUGE))


def write_vector(parent, name, values):
    values = np.asarray(values, dtype=np.float64)
    top, bottom = values.max(), values.min()
    span = top - bottom
    data = low_16_bits(values) if abs(span) < EPSILON else np.trunc(
        (values - bottom) / span * LEVELS).astype(np.uint16)
    quantised_group(parent, name, data[:, None], top, bottom)


def write_scalar(parent, name, value):
    quantised_group(parent, name, low_16_bits(np.array([value], np.float64)), float(value),
                    float(value))


def write_fixed_string(attrs, name, value):
    attrs.create(name, np.array(value.encode(), dtype=f"S{len(value)}"))


def write_h5py(parts, name):
    size = parts["k"].shape
    bands = parts["wavelengths"].size
    numbers = dict.fromkeys(HEADER_NUMBERS, 0)
    numbers.update(IndexedK=1, IndexedL=1, IndexedS=1, bands=bands, datatype=12, lines=size[0],
                   samples=size[1], numElementsK=1, numElementsL=1,
                   numElementsS=parts["abundances"].shape[2])
    ones = np.ones(size)
    with h5py.File(name, "w") as f:
        hdr = f.create_group("HDR")
        for key, value in [("interleave", "bsq"), ("method", "Dichromatic"),
                           ("description", "Corvantis HSZ"), ("EncodingK", "RAW"),
                           ("EncodingL", "RAW"), ("EncodingS", "RAW")]:
            write_fixed_string(hdr.attrs, key, value)
        for key in HEADER_NUMBERS:
            write_scalar(hdr, key, numbers[key])
        write_vector(hdr, "wavelength", parts["wavelengths"])
        for header in ("HDREndmembersL", "HDREndmembersS"):
            group = f.create_group(header)
            quantised_group(group, "wavelength", np.zeros((0, 1), np.uint16), 0.0, 0.0)
            write_scalar(group, "numEndmembers", 0)
            write_fixed_string(group.attrs, "wavelength_unit", "Nanometers")
        arrays = {
            "K": {"ElementAbundanceIndexes": ones, "ElementAbundances": ones,
                  "Elements": parts["illuminant"][:, None], "Factor": parts["k"]},
            "L": {"ElementAbundanceIndexes": ones, "ElementAbundances": ones,
                  "Elements": parts["illuminant"][:, None]},
            "S": {"ElementAbundanceIndexes": parts["indexes"] + 1,
                  "ElementAbundances": parts["abundances"], "Elements": parts["elements"],
                  "Factor": parts["g"]},
        }
        for part, values in arrays.items():
            group = f.create_group(part)
            for array in ARRAYS:
                if array.endswith("Indexes") and array in values:
                    write_indexes(group, array, values[array])
                else:
                    write_block(group, array, values.get(array))


def dequantised(group):
    data = group["DATA"][()]
    top, bottom = group["MAX"][0], group["MIN"][0]
    if abs(top - bottom) < EPSILON:
        return data.astype(np.float64)
    return data * ((top - bottom) / LEVELS) + bottom


def read_h5py(name):
    with h5py.File(name, "r") as f:
        out = dict(wavelengths=dequantised(f["HDR/wavelength"])[:, 0],
                   illuminant=dequantised(f["L/Elements"])[:, 0],
                   k=dequantised(f["K/Factor"]), g=dequantised(f["S/Factor"]),
                   elements=dequantised(f["S/Elements"]),
                   abundances=dequantised(f["S/ElementAbundances"]),
                   indexes=f["S/ElementAbundanceIndexes/DATA"][()].astype(np.int32) - 1)
        for part in ("K", "L"):
            dequantised(f[f"{part}/ElementAbundances"])
            f[f"{part}/ElementAbundanceIndexes/DATA"][()]
    return out


# --- corv ---------------------------------------------------------------------------------------

def write_corv(image, name):
    corv.hsz_output().write(image, str(name))


def read_corv(name):
    source = corv.hsz_input(str(name))
    return dict(wavelengths=source.wavelengths(), illuminant=source.illuminant(), k=source.k(),
                g=source.g(), elements=source.elements(), abundances=source.element_abundances(),
                indexes=source.element_abundance_indexes())


def timed(call):
    start = time.perf_counter()
    call()
    return time.perf_counter() - start


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--size", type=int, default=1024)
    parser.add_argument("--bands", type=int, default=128)
    parser.add_argument("--elements", type=int, default=20)
    parser.add_argument("--per-pixel", type=int, default=5)
    parser.add_argument("--rounds", type=int, default=5)
    args = parser.parse_args()

    corv.logger.instance().echo = False
    parts = scene(args.size, args.bands, args.elements, args.per_pixel)
    image = corv_pipeline(parts)
    with tempfile.TemporaryDirectory(prefix="corv-compare-hsz-") as folder:
        ours, theirs = Path(folder) / "corv.hsz", Path(folder) / "h5py.hsz"
        # Untimed round: warms memory and the pipeline's copies of the components.
        write_corv(image, ours)
        write_h5py(parts, theirs)
        with h5py.File(ours, "r") as a, h5py.File(theirs, "r") as b:
            for path in ("K/Factor", "S/Factor", "S/ElementAbundances",
                         "S/ElementAbundanceIndexes", "S/Elements", "HDR/wavelength"):
                assert np.array_equal(a[path + "/DATA"][()], b[path + "/DATA"][()]), path
        read_a, read_b = read_corv(ours), read_h5py(theirs)
        for key in read_b:
            assert np.allclose(read_a[key], read_b[key], atol=1e-6), key

        paths = {"corv write": lambda: write_corv(image, ours),
                 "h5py write": lambda: write_h5py(parts, theirs),
                 "corv read": lambda: read_corv(ours), "h5py read": lambda: read_h5py(theirs)}
        times = {path: [] for path in paths}
        for _ in range(args.rounds):
            for path, call in paths.items():
                times[path].append(timed(call))
        sizes = {"corv": os.path.getsize(ours), "h5py": os.path.getsize(theirs)}

    print(f"HSZ of {args.size} x {args.size} pixels, {args.bands} bands, {args.elements} "
          f"elements, {args.per_pixel} per pixel; {args.rounds} rounds; file sizes "
          f"corv {sizes['corv'] / 2**20:.1f} MiB, h5py {sizes['h5py'] / 2**20:.1f} MiB")
    print(f"{'path':>12} {'median ms':>10} {'best ms':>9}")
    medians = {}
    for path, values in times.items():
        medians[path] = statistics.median(values)
        print(f"{path:>12} {medians[path] * 1e3:>10.1f} {min(values) * 1e3:>9.1f}")
    write = medians["corv write"] / medians["h5py write"]
    read = medians["corv read"] / medians["h5py read"]
    both = (medians["corv write"] + medians["corv read"]) / (
        medians["h5py write"] + medians["h5py read"])
    print(f"corv / h5py: write {write:.2f}, read {read:.2f}, write and read {both:.2f} "
          f"(goal: at most 1.5) {'PASS' if both <= 1.5 else 'FAIL'}")


if __name__ == "__main__":
    main()
