#!/usr/bin/python3
"""Build ground-truth scenes for measuring how well recovery finds what a scene is made of.

Every scene is rendered under the dichromatic reflection model, band by band,

    I = exposure * L * (g * S + k)

from real laboratory reflectances S and illuminants L computed from their
published definitions, so that the illuminant, the shading g, the specular
coefficient k and the material of every pixel are known exactly.

Reflectances come from three libraries in the shared data folder:

- USGS splib07 convolved to AVIRIS-1995 (``s07_AV95_envi.sli``), by name;
- ECOSTRESS, stored as an ENVI image of one spectrum per line
  (``ecostress_library_with_mixtures``), by line number;
- hylite's rock library (``library.csv``), by sample name.

Each is linearly interpolated onto 400..720 nm every 10 nm (33 bands); where a
library lists a few wavelengths twice (two spectrometers overlapping), the
earlier channel is used.

Illuminants: CIE D65 (the published 10 nm table), CIE A (Planck's law at
2848 K with c2 = 1.435e-2 m K, its defining formula) and a 10000 K black body
(Planck's law with c2 = h c / k).

Scenes (none shares a material or a layout with the bundled sample):

- ``objects4``: three glossy objects (two spheres and a cylinder) on a matte
  rock floor, 4 materials;
- ``objects8``: seven glossy objects (spheres and cylinders) on a matte soil
  floor, 8 materials;
- ``chart24``: a chart of 24 matte patches in 4 rows of 6 on a black frame,
  under a light that falls off across it, 24 materials (25 with the frame,
  which is dark and takes part like any other material);

each under CIE A, D65 and a 10000 K black body. Objects are lit from one
direction with Lambertian shading and a Blinn-Phong specular lobe; the
camera looks straight down (orthographic). The exposure puts the brightest
sample at 90 % of a 12-bit sensor's full scale; Gaussian noise at a
signal-to-noise ratio of 40 dB (its standard deviation is the image's mean
signal / 100) is added, and the result is rounded to whole counts.

Every scene is written as an ENVI pair ``<name>.hdr`` + ``<name>.fla``
(unsigned 16-bit, band-sequential) and ``<name>_truth.npz`` holding
``wavelengths``, ``illuminant`` (the exposed L), ``materials`` (bands x m),
``names``, ``labels`` (rows x columns, index into materials), ``g`` and ``k``.
The script needs numpy only and is deterministic.

    /usr/bin/python3 scripts/make_scenes.py [--out build/scenes] [--size 240x320]
"""

import argparse
import csv
import os
import sys

import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import make_sample  # noqa: E402  (the library reader and the D65 table)

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DATA = os.path.join(REPO, "..", "shared", "data")
WAVELENGTHS = make_sample.WAVELENGTHS
FULL_SCALE = 4095.0
BRIGHTEST = 0.9  # of the full scale
SNR_DB = 40.0

# Materials by library: ("usgs", spectrum name), ("ecostress", line), ("hylite", sample).
OBJECTS4 = {
    "floor": ("usgs", "Asphalt GDS376 Blck_Road old ASDFRa AREF"),
    "objects": [("usgs", "Nylon_Fabric GDS432 Grn RpSt ASDFRa AREF"),
                ("usgs", "Flower Pansy-1 Yellow ASDFRa AREF"),
                ("usgs", "Plastic_Pipe GDS344 Blue ASDFRa AREF")],
}
OBJECTS8 = {
    "floor": ("ecostress", 765),
    "objects": [("usgs", "Flower Geranium-1 Red-Orange ASDFRa AREF"),
                ("usgs", "Plastic_HDPE GDS391 Blu-Grn ASDFRa AREF"),
                ("usgs", "Terrycloth_Fabric GDS537 Yel ASDFRa AREF"),
                ("usgs", "Nylon_Fabric GDS433 Blu RpSt ASDFRa AREF"),
                ("usgs", "Flower Petunia-2 Purple ASDFRa AREF"),
                ("ecostress", 416),
                ("hylite", "2016_AM-14")],
}
CHART_FRAME = ("usgs", "Plastic_LDPE GDS405 Black ASDFRa AREF")
CHART_MIN_ANGLE = 5.0  # degrees between any two chart patches: the default split angle

# Geometry: light from the upper left, camera straight down.
LIGHT = np.array([-0.4, -0.5, 0.77])
LIGHT = LIGHT / np.linalg.norm(LIGHT)
VIEW = np.array([0.0, 0.0, 1.0])
HALFWAY = (LIGHT + VIEW) / np.linalg.norm(LIGHT + VIEW)
AMBIENT = 0.2


# --------------------------------------------------------------------------
# Libraries
# --------------------------------------------------------------------------

def on_grid(name, wavelengths, values):
    """A spectrum interpolated onto WAVELENGTHS, after dropping repeated channels."""
    wavelengths, values = np.asarray(wavelengths, float), np.asarray(values, float)
    keep = make_sample.monotonic_channels(wavelengths)
    wavelengths, values = wavelengths[keep], values[keep]
    if wavelengths[0] > WAVELENGTHS[0] or wavelengths[-1] < WAVELENGTHS[-1]:
        raise ValueError(f"{name}: does not cover {WAVELENGTHS[0]}..{WAVELENGTHS[-1]} nm")
    used = (wavelengths >= WAVELENGTHS[0] - 20) & (wavelengths <= WAVELENGTHS[-1] + 20)
    if not np.all(np.isfinite(values[used])) or values[used].min() <= 0 or values[used].max() > 1:
        raise ValueError(f"{name}: missing or out-of-range values in the visible range")
    return np.interp(WAVELENGTHS, wavelengths, values)


class libraries:
    """The three reflectance libraries, read once."""

    def __init__(self, data=DATA):
        usgs = os.path.join(data, "usgs-aster-spectra-and-aviris", "s07_AV95_envi.sli")
        self.usgs_names, self.usgs_wl, self.usgs, self.usgs_ignore = \
            make_sample.read_spectral_library(usgs)
        self.usgs_names = [" ".join(n.split()) for n in self.usgs_names]

        eco = os.path.join(data, "ecostress-library", "ecostress_library_with_mixtures")
        header = make_sample.read_envi_header(eco + ".hdr")
        lines, bands = int(header["lines"]), int(header["bands"])
        self.eco_wl = np.array([float(v) for v in make_sample.split_list(header["wavelength"])])
        # One sample per line, so the band-interleaved-by-line layout is lines x bands.
        self.eco = np.fromfile(eco, dtype="<f4").reshape(lines, bands).astype(float)

        with open(os.path.join(data, "hylite-spectra", "library.csv"), newline="") as f:
            rows = list(csv.reader(f))
        self.hylite_wl = np.array([float(v) for v in rows[0][1:]])
        self.hylite = {row[0]: np.array([float(v) for v in row[1:]]) for row in rows[1:]}

    def spectrum(self, source):
        kind, key = source
        if kind == "usgs":
            row = self.usgs_names.index(" ".join(key.split()))
            values = np.where(np.isclose(self.usgs[row], self.usgs_ignore, rtol=1e-6), np.nan,
                              self.usgs[row])
            return f"USGS {key}", on_grid(key, self.usgs_wl, values)
        if kind == "ecostress":
            return f"ECOSTRESS line {key}", on_grid(f"line {key}", self.eco_wl, self.eco[key])
        if kind == "hylite":
            return f"hylite {key}", on_grid(key, self.hylite_wl, self.hylite[key])
        raise ValueError(f"unknown library {kind!r}")

    def candidates(self):
        """Every spectrum of the three libraries usable in the visible range, as sources."""
        found = []
        for kind, keys in (("usgs", self.usgs_names[2:]), ("ecostress", range(len(self.eco))),
                           ("hylite", sorted(self.hylite))):
            for key in keys:
                try:
                    self.spectrum((kind, key))
                except ValueError:
                    continue
                found.append((kind, key))
        return found


def angle(a, b):
    cosine = np.dot(a, b) / (np.linalg.norm(a) * np.linalg.norm(b))
    return float(np.degrees(np.arccos(np.clip(cosine, -1.0, 1.0))))


def chart_sources(library, count=24, min_angle=CHART_MIN_ANGLE):
    """`count` spectra from all three libraries, greedily farthest apart in angle, starting from
    the frame's; refuses when they cannot all be `min_angle` apart."""
    pool = library.candidates()
    spectra = np.array([library.spectrum(s)[1] for s in pool])
    unit = spectra / np.linalg.norm(spectra, axis=1, keepdims=True)
    frame = library.spectrum(CHART_FRAME)[1]
    nearest = np.degrees(np.arccos(np.clip(unit @ (frame / np.linalg.norm(frame)), -1, 1)))
    chosen = []
    for _ in range(count):
        pick = int(np.argmax(nearest))
        if nearest[pick] < min_angle:
            raise ValueError(f"only {len(chosen)} spectra are {min_angle} degrees apart")
        chosen.append(pool[pick])
        nearest = np.minimum(nearest, np.degrees(np.arccos(np.clip(unit @ unit[pick], -1, 1))))
    return chosen


# --------------------------------------------------------------------------
# Illuminants
# --------------------------------------------------------------------------

def planck(kelvin, wavelengths=WAVELENGTHS, c2=0.014387768775039337):
    """Black-body spectral power, 560 nm = 100 (c2 in m K; the default is h c / k)."""
    metres = np.asarray(wavelengths) * 1e-9
    power = metres ** -5 / np.expm1(c2 / (metres * kelvin))
    at_560 = 560e-9 ** -5 / np.expm1(c2 / (560e-9 * kelvin))
    return 100.0 * power / at_560


ILLUMINANTS = {
    "A": planck(2848.0, c2=1.435e-2),
    "D65": make_sample.D65,
    "10000K": planck(10000.0),
}


# --------------------------------------------------------------------------
# Layouts
# --------------------------------------------------------------------------

def surfaces(rows, cols, objects, floor_material, shininess):
    """Shading g, specular k and material labels of spheres and cylinders on a flat floor.

    objects: (kind, material, centre row, centre col, radius, [length, angle in degrees],
    specular weight) in pixels; nearer surfaces win where objects overlap."""
    y, x = np.mgrid[0:rows, 0:cols].astype(float) + 0.5
    labels = np.full((rows, cols), floor_material)
    height = np.zeros((rows, cols))
    normal = np.zeros((rows, cols, 3))
    normal[..., 2] = 1.0
    weight = np.zeros((rows, cols))
    for kind, material, cy, cx, radius, *rest in objects:
        specular = rest[-1]
        if kind == "sphere":
            d2 = (x - cx) ** 2 + (y - cy) ** 2
            inside = d2 < radius ** 2
            h = np.sqrt(np.maximum(radius ** 2 - d2, 0.0))
            n = np.stack([(x - cx) / radius, (y - cy) / radius, h / radius], axis=-1)
        else:
            length, turn = rest[0], np.radians(rest[1])
            along = (x - cx) * np.cos(turn) + (y - cy) * np.sin(turn)
            across = -(x - cx) * np.sin(turn) + (y - cy) * np.cos(turn)
            inside = (np.abs(across) < radius) & (np.abs(along) < length / 2)
            h = np.sqrt(np.maximum(radius ** 2 - across ** 2, 0.0))
            n = np.stack([-np.sin(turn) * across / radius, np.cos(turn) * across / radius,
                          h / radius], axis=-1)
        win = inside & (radius + h > height)
        height[win] = (radius + h)[win]
        normal[win] = n[win]
        labels[win] = material
        weight[win] = specular
    n_dot_l = normal @ LIGHT
    g = AMBIENT + (1.0 - AMBIENT) * np.clip(n_dot_l, 0.0, None)
    k = weight * np.clip(normal @ HALFWAY, 0.0, None) ** shininess
    k[n_dot_l <= 0] = 0.0
    return g, k, labels


def objects4_layout(rows, cols):
    s = min(rows, cols) / 240.0
    objects = [("sphere", 1, 0.35 * rows, 0.3 * cols, 52 * s, 0.5),
               ("sphere", 2, 0.62 * rows, 0.72 * cols, 44 * s, 0.4),
               ("cylinder", 3, 0.78 * rows, 0.3 * cols, 20 * s, 130 * s, -30.0, 0.45)]
    return surfaces(rows, cols, objects, 0, shininess=60.0)


def objects8_layout(rows, cols):
    s = min(rows, cols) / 240.0
    objects = [("sphere", 1, 0.25 * rows, 0.18 * cols, 34 * s, 0.5),
               ("sphere", 2, 0.27 * rows, 0.5 * cols, 30 * s, 0.4),
               ("sphere", 3, 0.3 * rows, 0.82 * cols, 36 * s, 0.35),
               ("sphere", 4, 0.72 * rows, 0.2 * cols, 32 * s, 0.5),
               ("cylinder", 5, 0.6 * rows, 0.55 * cols, 16 * s, 110 * s, -35.0, 0.45),
               ("sphere", 6, 0.78 * rows, 0.78 * cols, 30 * s, 0.3),
               ("cylinder", 7, 0.9 * rows, 0.5 * cols, 12 * s, 90 * s, 10.0, 0.4)]
    return surfaces(rows, cols, objects, 0, shininess=60.0)


def chart_layout(rows, cols, patches=24):
    """4 x 6 patches on a dark frame (material 0); the light falls off from the upper left."""
    y, x = np.mgrid[0:rows, 0:cols].astype(float) + 0.5
    labels = np.zeros((rows, cols), dtype=int)
    border = 0.06
    cell_r, cell_c = rows * (1 - 2 * border) / 4, cols * (1 - 2 * border) / 6
    gap = 0.12
    for i in range(patches):
        r0 = rows * border + (i // 6) * cell_r
        c0 = cols * border + (i % 6) * cell_c
        inside = ((y > r0 + gap * cell_r) & (y < r0 + (1 - gap) * cell_r) &
                  (x > c0 + gap * cell_c) & (x < c0 + (1 - gap) * cell_c))
        labels[inside] = i + 1
    g = 1.0 - 0.35 * np.hypot(y / rows, x / cols) / np.sqrt(2.0)
    return g, np.zeros((rows, cols)), labels


# --------------------------------------------------------------------------
# Rendering and output
# --------------------------------------------------------------------------

def render(g, k, labels, materials, illuminant, seed):
    """Counts of a 12-bit sensor (rows x columns x bands) and the exposed illuminant."""
    clean = illuminant[None, None, :] * (g[..., None] * materials.T[labels] + k[..., None])
    exposure = BRIGHTEST * FULL_SCALE / clean.max()
    clean *= exposure
    sigma = clean.mean() / 10.0 ** (SNR_DB / 20.0)
    noisy = clean + np.random.default_rng(seed).normal(0.0, sigma, clean.shape)
    return np.clip(np.rint(noisy), 0, FULL_SCALE), illuminant * exposure


def write_scene(out, name, counts, truth):
    rows, cols, bands = counts.shape
    with open(os.path.join(out, name + ".hdr"), "w", newline="\n") as f:
        f.write(make_sample.envi_header(cols, rows, WAVELENGTHS))
    np.moveaxis(counts, -1, 0).astype("<u2").tofile(os.path.join(out, name + ".fla"))
    np.savez_compressed(os.path.join(out, name + "_truth.npz"), **truth)


LAYOUTS = ("objects4", "objects8", "chart24")


def layout(library, name, rows, cols):
    """(g, k, labels, material names, materials bands x m) of a layout."""
    if name == "objects4":
        parts, sources = objects4_layout(rows, cols), [OBJECTS4["floor"]] + OBJECTS4["objects"]
    elif name == "objects8":
        parts, sources = objects8_layout(rows, cols), [OBJECTS8["floor"]] + OBJECTS8["objects"]
    elif name == "chart24":
        parts, sources = chart_layout(rows, cols), [CHART_FRAME] + chart_sources(library)
    else:
        raise ValueError(f"unknown layout {name!r}")
    found = [library.spectrum(s) for s in sources]
    return (*parts, [f[0] for f in found], np.array([f[1] for f in found]).T)


def scene(library, name, light, rows=240, cols=320):
    """The counts (rows x columns x bands) of a layout under one of ILLUMINANTS, and its truth
    (the arrays of ``<name>_truth.npz``)."""
    g, k, labels, names, materials = layout(library, name, rows, cols)
    seed = 1000 * LAYOUTS.index(name) + len(light)
    counts, exposed = render(g, k, labels, materials, ILLUMINANTS[light], seed)
    return counts, dict(wavelengths=WAVELENGTHS, illuminant=exposed, materials=materials,
                        names=np.array(names), labels=labels, g=g, k=k)


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--out", default=os.path.join(REPO, "build", "scenes"))
    parser.add_argument("--size", default="240x320", help="rows x columns")
    parser.add_argument("--data", default=DATA, help="the shared data folder")
    args = parser.parse_args(argv)
    rows, cols = (int(v) for v in args.size.lower().split("x"))
    os.makedirs(args.out, exist_ok=True)
    library = libraries(args.data)
    for name in LAYOUTS:
        g, k, labels, names, materials = layout(library, name, rows, cols)
        closest = min(angle(materials[:, i], materials[:, j])
                      for i in range(len(names)) for j in range(i))
        print(f"{name}: {len(names)} materials, closest pair {closest:.1f} degrees apart, "
              f"highlights (k > 0.02) on {100.0 * np.mean(k > 0.02):.1f} % of the pixels")
        for light in ILLUMINANTS:
            counts, truth = scene(library, name, light, rows, cols)
            write_scene(args.out, f"{name}_{light}", counts, truth)
            print(f"  {name}_{light}: counts {int(counts.min())}..{int(counts.max())}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
