#!/usr/bin/python3
"""Measure illuminant recovery and material discovery on ground-truth scenes.

Runs on the scenes that ``scripts/make_scenes.py`` writes (and on the bundled
sample, whose truth is ``data/sample/sample_truth.csv``), with the pipeline's
default settings, the ones ``corv process`` and the viewer use:

- the angular error, in degrees, of every illuminant method (codes 0 to 5)
  against the true illuminant;
- the number of materials that the default pipeline (illuminant code 0, the
  dichromatic split, material discovery) finds, and for every true material
  the angle to its nearest element.

Prints markdown tables. Needs the built ``corv`` module:

    PYTHONPATH=build/python /usr/bin/python3 scripts/measure_recovery.py [--scenes build/scenes]
"""

import argparse
import csv
import glob
import os
import sys
import time

import numpy as np

import corv

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
METHODS = ["0 iterative fit", "1 Finlayson and Schaefer", "2 gray edge", "3 gray world",
           "4 shade of gray", "5 white patch"]


def angle(a, b):
    cosine = np.dot(a, b) / (np.linalg.norm(a) * np.linalg.norm(b))
    return float(np.degrees(np.arccos(np.clip(cosine, -1.0, 1.0))))


def sample_truth():
    with open(os.path.join(REPO, "data", "sample", "sample_truth.csv"), newline="") as f:
        rows = list(csv.reader(f))
    values = np.array([[float(v) for v in row[1:]] for row in rows[1:]])
    return dict(illuminant=values[:, 0], materials=values[:, 1:], names=rows[0][2:])


def scenes(folder):
    """(name, ENVI header, truth) of the sample and of every scene in the folder."""
    yield "sample", os.path.join(REPO, "data", "sample", "sample.hdr"), sample_truth()
    for header in sorted(glob.glob(os.path.join(folder, "*.hdr"))):
        name = os.path.basename(header)[:-4]
        yield name, header, dict(np.load(os.path.join(folder, name + "_truth.npz")))


def illuminant_errors(header, truth):
    errors = []
    for method in range(6):
        image = corv.pipeline(corv.hdr_input(header))
        image.set_illuminant_method(method)
        try:
            image.process_recover_illuminant(True)
            errors.append(f"{angle(image.illuminant(), truth['illuminant']):.2f}")
        except RuntimeError as error:
            errors.append(f"refused: {error}")
    return errors


def materials(header, truth, wiener=False):
    """Materials found by the default pipeline, the worst angle from a true material to its
    nearest element, and the seconds the discovery took. With `wiener`, the image is first
    smoothed by the 5 x 5 Wiener filter, as the viewer does before its first recovery."""
    image = corv.pipeline(corv.hdr_input(header))
    if wiener:
        image.filter(1, 5, False)
    image.process_recover_illuminant(True)
    image.process_recover_dichromatic_parameters()
    start = time.perf_counter()
    image.process_recover_materials()
    seconds = time.perf_counter() - start
    elements = image.material_elements()
    true = truth["materials"]
    nearest = [min(angle(true[:, m], elements[:, e]) for e in range(elements.shape[1]))
               for m in range(true.shape[1])]
    return elements.shape[1], max(nearest), seconds


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--scenes", default=os.path.join(REPO, "build", "scenes"))
    args = parser.parse_args(argv)
    corv.logger.instance().echo = False
    found = list(scenes(args.scenes))

    print("| scene | " + " | ".join(METHODS) + " |")
    print("| --- " * (len(METHODS) + 1) + "|")
    for name, header, truth in found:
        print(f"| {name} | " + " | ".join(illuminant_errors(header, truth)) + " |", flush=True)

    print("\n| scene | true materials | found | worst true material to its element (degrees) |"
          " discovery (s) | found after the Wiener filter |")
    print("| --- | --- | --- | --- | --- | --- |")
    for name, header, truth in found:
        count, worst, seconds = materials(header, truth)
        filtered = materials(header, truth, wiener=True)[0]
        print(f"| {name} | {truth['materials'].shape[1]} | {count} | {worst:.1f} | "
              f"{seconds:.2f} | {filtered} |", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
