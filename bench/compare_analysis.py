#!/usr/bin/python3
"""PCA, Wiener filter and spectral smoothing: the corv module beside Spectral Python and scipy.

One 512 x 512 x 128 float32 cube (a few spectral directions of random strength
plus noise) and, in this one process, side by side:

- PCA to 10 components: corv.pca against spectral.principal_components(img)
  reduced to 10 components, then .transform(img).
- Wiener filter, 5 x 5, every band: the pipeline's filter stage (method 1)
  against scipy.signal.wiener on each band in a Python loop. corv.wiener_filter
  called band by band from Python is shown as well.
- Savitzky-Golay (window 5 and 9) and the moving average (window 5 and 15):
  corv.savitzky_golay / corv.moving_average against scipy.signal.savgol_filter
  and scipy.ndimage.uniform_filter1d along the bands, mode "nearest".

Each side gets the cube in its own layout, made before timing: corv a
band-sequential (Fortran-order) array, which its conversion copies once; the
peers a pixel-interleaved (C-order) array, which numpy reads without a copy.
The one copy corv's functions make of their input is timed with them; its cost
alone is printed (a band maths formula of a number converts the cube and
nothing else). The pipeline's filter stage works on the image it holds, so its
figures (the Wiener comparison, and a line under each smoothing comparison)
have no conversion in them.

Prints the median and best wall-clock time of the repeats for each, the ratio
peer / corv of the medians against the goal, and how far the results agree.

    PYTHONPATH=build/python /usr/bin/python3 bench/compare_analysis.py [--repeats 3]
        [--only pca,wiener,smoothing]

corv's filters run on OpenMP threads (OMP_NUM_THREADS); the peers on one.
"""

import argparse
import os
import statistics
import time

import corv
import numpy as np
import scipy.ndimage
import scipy.signal
import spectral

ROWS, COLS, BANDS = 512, 512, 128


def make_cube():
    rng = np.random.default_rng(21)
    directions = rng.random((12, BANDS), dtype=np.float32)
    weights = rng.random((ROWS * COLS, 12), dtype=np.float32) ** 3
    pixels = weights @ directions + np.float32(0.02) * rng.standard_normal(
        (ROWS * COLS, BANDS), dtype=np.float32
    )
    return pixels.reshape(ROWS, COLS, BANDS)


def timed(run, repeats):
    """(median, best) wall-clock seconds, and the last result."""
    times, result = [], None
    for _ in range(repeats):
        start = time.perf_counter()
        result = run()
        times.append(time.perf_counter() - start)
    return statistics.median(times), min(times), result


def line(name, timing, note=""):
    print(f"  {name:24s} median {timing[0] * 1e3:9.1f} ms   best {timing[1] * 1e3:9.1f} ms{note}")


def report(title, corv_name, corv_time, peer_name, peer_time, goal):
    ratio = peer_time[0] / corv_time[0]
    verdict = "meets" if ratio >= goal else "MISSES"
    print(title)
    line(corv_name, corv_time)
    line(peer_name, peer_time)
    print(f"  ratio {ratio:.2f}x (goal {goal:g}x: {verdict})")
    return ratio >= goal


def sign_aligned_difference(components, reference):
    """Largest difference of each component from the peer's, relative to the
    peer's largest value, after matching signs."""
    worst = 0.0
    for k in range(reference.shape[2]):
        a, b = components[:, :, k].astype(np.float64), reference[:, :, k].astype(np.float64)
        sign = 1.0 if np.sum(a * b) >= 0 else -1.0
        worst = max(worst, float(np.abs(sign * a - b).max() / np.abs(b).max()))
    return worst


def spectral_pca(image, k):
    pc = spectral.principal_components(image).reduce(num=k)
    return pc.transform(image), pc.eigenvalues


def scipy_wiener(image):
    out = np.empty(image.shape, dtype=np.float64)
    for b in range(image.shape[2]):
        out[:, :, b] = scipy.signal.wiener(image[:, :, b], (5, 5))
    return out


def corv_wiener_per_band(bands):
    return [corv.wiener_filter(band, 5, 5) for band in bands]


def compare_pca(image, band_sequential, repeats):
    corv_time = timed(lambda: corv.pca(band_sequential, 10), repeats)
    corv_c_time = timed(lambda: corv.pca(image, 10), repeats)
    peer_time = timed(lambda: spectral_pca(image, 10), repeats)
    met = report("PCA, 10 components", "corv.pca", corv_time, "spectral PCA+transform", peer_time,
                 1.5)
    line("corv.pca, C-order input", corv_c_time)
    components, values = corv_time[2]
    transformed, eigenvalues = peer_time[2]
    # Spectral Python's eigenvalues are those of the covariance (divided by N - 1),
    # and its transform leaves the mean in; both are put on corv's footing here.
    peer_values = np.sqrt(np.asarray(eigenvalues[:10]) * (ROWS * COLS - 1))
    peer_components = np.asarray(transformed, dtype=np.float64)
    peer_components -= peer_components.reshape(-1, 10).mean(axis=0)
    print(f"  singular values: largest relative difference "
          f"{np.abs(values / peer_values - 1).max():.1e}")
    difference = sign_aligned_difference(components, peer_components)
    print(f"  components: largest difference {difference:.1e} of each component's range\n")
    return met


def compare_wiener(image, band_sequential, waves, repeats):
    filtered = corv.pipeline()
    filtered.set_I(band_sequential, waves)

    def pipeline_wiener():
        filtered.filter(1, 5)

    corv_time = timed(pipeline_wiener, repeats)
    bands = [np.asfortranarray(image[:, :, b]) for b in range(BANDS)]
    per_band_time = timed(lambda: corv_wiener_per_band(bands), repeats)
    peer_time = timed(lambda: scipy_wiener(image), repeats)
    met = report("Wiener filter 5 x 5, every band", "pipeline filter(1, 5)", corv_time,
                 "scipy.signal.wiener", peer_time, 2)
    line("corv.wiener_filter loop", per_band_time, "   (one band per call, one thread)")
    ours = np.stack(per_band_time[2], axis=2)
    difference = np.abs(ours - peer_time[2]).max() / np.abs(peer_time[2]).max()
    print(f"  largest difference {difference:.1e} of the data's range\n")
    return met


def pipeline_filter_time(band_sequential, method, window, repeats):
    """The pipeline's filter stage alone: the image is set (converted) once, outside the timing."""
    held = corv.pipeline()
    held.set_I(band_sequential, np.linspace(400.0, 1000.0, BANDS, dtype=np.float32))
    return timed(lambda: held.filter(method, window), repeats)


def compare_smoothing(image, band_sequential, repeats):
    met = []
    for window in [5, 9]:
        corv_time = timed(lambda: corv.savitzky_golay(band_sequential, window), repeats)
        peer_time = timed(
            lambda: scipy.signal.savgol_filter(image, window, 2, axis=2, mode="nearest"),
            repeats,
        )
        met.append(report(f"Savitzky-Golay, window {window}", "corv.savitzky_golay", corv_time,
                          "scipy savgol_filter", peer_time, 1))
        line(f"pipeline filter(0, {window})", pipeline_filter_time(band_sequential, 0, window,
                                                                  repeats))
        print(f"  largest difference {np.abs(corv_time[2] - peer_time[2]).max():.1e}\n")
    for window in [5, 15]:
        corv_time = timed(lambda: corv.moving_average(band_sequential, window), repeats)
        peer_time = timed(
            lambda: scipy.ndimage.uniform_filter1d(image, window, axis=2, mode="nearest"),
            repeats,
        )
        met.append(report(f"moving average, window {window}", "corv.moving_average", corv_time,
                          "scipy uniform_filter1d", peer_time, 1))
        line(f"pipeline filter(2, {window})", pipeline_filter_time(band_sequential, 2, window,
                                                                  repeats))
        print(f"  largest difference {np.abs(corv_time[2] - peer_time[2]).max():.1e}\n")
    return met


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--repeats", type=int, default=3)
    parser.add_argument("--only", default="pca,wiener,smoothing",
                        help="comma-separated subset of pca, wiener, smoothing")
    args = parser.parse_args()
    only = set(args.only.split(","))
    corv.logger.instance().echo = False

    image = make_cube()  # C order: what the peers read directly
    band_sequential = np.asfortranarray(image)  # corv's own layout
    waves = np.linspace(400.0, 1000.0, BANDS, dtype=np.float32)
    threads = os.environ.get("OMP_NUM_THREADS", f"all {os.cpu_count()}")
    print(f"cube {ROWS} x {COLS} x {BANDS} float32, {args.repeats} repeats each, "
          f"corv threads: {threads}\n")
    met = []

    conversion = timed(lambda: corv.band_maths([band_sequential], "1"), args.repeats)
    conversion_c = timed(lambda: corv.band_maths([image], "1"), args.repeats)
    print("conversion of the cube into corv (inside every corv.* figure below)")
    line("band-sequential array", conversion)
    line("C-order array", conversion_c, "   (not used below)")
    print()

    if "pca" in only:
        met.append(compare_pca(image, band_sequential, args.repeats))
    if "wiener" in only:
        met.append(compare_wiener(image, band_sequential, waves, args.repeats))
    if "smoothing" in only:
        met.extend(compare_smoothing(image, band_sequential, args.repeats))
    return 0 if all(met) else 1


if __name__ == "__main__":
    raise SystemExit(main())
