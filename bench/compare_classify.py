#!/usr/bin/python3
"""Classification and unmixing: the corv module against Spectral Python, scipy and scikit-learn.

One 512 x 512 x 128 float32 cube (every pixel a random non-negative mixture of
20 random references, plus noise) and, in this one process, side by side:

- SAM, 20 references, 5 results per pixel: corv.sam against
  spectral.spectral_angles followed by numpy's ranking (argsort along the
  references, the 5 best angles and their numbers taken).
- Unmixing over 5 references: corv.unmix_by_spectra (k = 5) against a Python
  loop of scipy.optimize.nnls over the pixels, each result divided by its sum.
  The scipy loop is timed on a subset of the pixels (--nnls-pixels) and scaled
  to the whole cube; the figure printed says so.
- SVM, 20 classes: corv.svm (training and labelling) against scikit-learn's
  SVC(kernel="linear") fit on the same references and predicting every pixel.

Every peer and corv get the same numpy array, in numpy's default (C) order;
corv's conversion to its band-sequential cube is part of its time. For
reference, corv is also timed on the same cube in its own layout (Fortran
order, as the module returns cubes), which it reads without a copy.

Prints the median and best wall-clock time and the median processor time of
the repeats for each, the ratio peer / corv of the wall-clock medians (and of
the processor times), and how far the results agree.

    PYTHONPATH=build/python /usr/bin/python3 bench/compare_classify.py [--repeats 3]
        [--nnls-pixels 4096]
"""

import argparse
import statistics
import time

import corv
import numpy as np
import scipy.optimize
import sklearn.svm
import spectral

ROWS, COLS, BANDS, REFERENCES = 512, 512, 128, 20


def make_scene():
    rng = np.random.default_rng(3)
    references = rng.random((REFERENCES, BANDS), dtype=np.float32)
    weights = rng.random((ROWS * COLS, REFERENCES), dtype=np.float32) ** 4
    pixels = weights @ references + np.float32(0.01) * rng.standard_normal(
        (ROWS * COLS, BANDS), dtype=np.float32
    )
    # numpy's own (C) order: corv's conversion to its band-sequential cube is timed with it.
    image = pixels.reshape(ROWS, COLS, BANDS)
    waves = np.linspace(400.0, 1000.0, BANDS, dtype=np.float32)
    return image, waves, references


def timed(run, repeats):
    """(median wall-clock, best wall-clock, median processor time) in seconds, and
    the last result. The processor time adds up every thread of the process: on a
    busy machine it is the steadier figure, though it counts corv's two threads
    both."""
    wall, cpu, result = [], [], None
    for _ in range(repeats):
        start, start_cpu = time.perf_counter(), time.process_time()
        result = run()
        wall.append(time.perf_counter() - start)
        cpu.append(time.process_time() - start_cpu)
    return statistics.median(wall), min(wall), statistics.median(cpu), result


def report(name, corv_time, peer_name, peer_time, goal, note=""):
    ratio = peer_time[0] / corv_time[0]
    verdict = "meets" if ratio >= goal else "MISSES"
    print(f"{name}")
    for who, t in (("corv", corv_time), (peer_name, peer_time)):
        print(f"  {who:11s} median {t[0] * 1e3:9.1f} ms   best {t[1] * 1e3:9.1f} ms   "
              f"processor {t[2] * 1e3:9.1f} ms")
    if note:
        print(f"  {note}")
    print(f"  ratio of wall-clock medians {ratio:.1f}x (goal {goal:g}x: {verdict}); "
          f"of processor times {peer_time[2] / corv_time[2]:.1f}x")
    return ratio >= goal


def print_native(native_time, peer_time):
    print(f"  corv, cube in its own layout: median {native_time[0] * 1e3:.1f} ms, "
          f"ratio {peer_time[0] / native_time[0]:.1f}x")


def spy_sam(image, references, k):
    angles = spectral.spectral_angles(image, references)
    order = np.argsort(angles, axis=2)[:, :, :k]
    return np.degrees(np.take_along_axis(angles, order, axis=2)), order + 1


def scipy_unmix(pixels, references):
    A = references.T.astype(np.float64)
    out = np.empty((pixels.shape[0], references.shape[0]))
    for p in range(pixels.shape[0]):
        x, _ = scipy.optimize.nnls(A, pixels[p].astype(np.float64))
        out[p] = x / x.sum()
    return out


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--repeats", type=int, default=3)
    parser.add_argument("--nnls-pixels", type=int, default=4096)
    args = parser.parse_args()
    corv.logger.instance().echo = False

    image, waves, references = make_scene()
    print(f"cube {ROWS} x {COLS} x {BANDS} float32, {args.repeats} repeats each\n")
    met = []

    native = np.asfortranarray(image)

    # SAM
    corv_time = timed(lambda: corv.sam(image, waves, references, None, 5), args.repeats)
    native_time = timed(lambda: corv.sam(native, waves, references, None, 5), args.repeats)
    peer_time = timed(lambda: spy_sam(image, references, 5), args.repeats)
    values, indexes = corv_time[3]
    peer_values, peer_indexes = peer_time[3]
    met.append(report("SAM, 20 references, 5 results", corv_time, "spectral", peer_time, 3))
    print_native(native_time, peer_time)
    print(f"  largest angle difference {np.abs(values - peer_values).max():.2e} degrees, "
          f"rankings equal for {(indexes == peer_indexes).mean() * 100:.3f} % of entries\n")

    # Unmixing
    five = references[:5].copy()
    corv_time = timed(lambda: corv.unmix_by_spectra(image, waves, five, None, 5), args.repeats)
    native_time = timed(lambda: corv.unmix_by_spectra(native, waves, five, None, 5), args.repeats)
    pixels = image.reshape(-1, BANDS)
    subset = np.random.default_rng(1).choice(pixels.shape[0], args.nnls_pixels, replace=False)
    sub_pixels = np.ascontiguousarray(pixels[subset])
    scale = pixels.shape[0] / args.nnls_pixels
    sub_time = timed(lambda: scipy_unmix(sub_pixels, five), args.repeats)
    peer_time = (sub_time[0] * scale, sub_time[1] * scale, sub_time[2] * scale)
    fractions, numbers = corv_time[3]
    got = np.zeros((pixels.shape[0], 5))
    flat_fractions = fractions.reshape(-1, 5)
    flat_numbers = numbers.reshape(-1, 5).astype(int) - 1
    np.put_along_axis(got, flat_numbers, flat_fractions, axis=1)
    met.append(report("NNLS unmixing, 5 references", corv_time, "scipy loop", peer_time, 20,
                      f"scipy timed on {args.nnls_pixels} of the {pixels.shape[0]} pixels, "
                      f"scaled by {scale:.0f}"))
    print_native(native_time, peer_time)
    print(f"  largest fraction difference on the timed pixels "
          f"{np.abs(got[subset] - sub_time[3]).max():.2e}\n")

    # SVM
    labels = np.arange(1, REFERENCES + 1, dtype=np.float32)
    corv_time = timed(lambda: corv.svm(image, waves, references, None, labels), args.repeats)
    native_time = timed(lambda: corv.svm(native, waves, references, None, labels), args.repeats)

    def sklearn_svm():
        model = sklearn.svm.SVC(kernel="linear", C=1.0).fit(references, labels.astype(int))
        return model.predict(pixels).reshape(ROWS, COLS)

    peer_time = timed(sklearn_svm, args.repeats)
    met.append(report("SVM, 20 classes, train and label", corv_time, "sklearn", peer_time, 1))
    print_native(native_time, peer_time)
    print(f"  labels equal for {(corv_time[3][1] == peer_time[3]).mean() * 100:.3f} % of pixels\n")
    return 0 if all(met) else 1


if __name__ == "__main__":
    raise SystemExit(main())
