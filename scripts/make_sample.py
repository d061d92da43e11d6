#!/usr/bin/python3
"""Build the bundled visible-range sample cube ``data/sample/sample.{hdr,fla}``.

The sample is a small synthetic hyperspectral radiance image (300 columns x
200 rows x 33 bands, 400..720 nm every 10 nm) of a few objects lying on a
flat floor, lit by CIE standard illuminant D65.  Every material is a real
laboratory reflectance spectrum from the USGS Spectral Library Version 7
(splib07, public domain), read from the ENVI spectral library
``s07_AV95_envi.sli`` (splib07 convolved to the 1995 AVIRIS channels).

Image formation follows the dichromatic reflection model::

    I(x, lambda) = L(lambda) * (g(x) * S(x, lambda) + k(x))

    L  illuminant spectral power (D65, relative, 560 nm = 100)
    S  reflectance of the material seen at pixel x
    g  Lambertian shading, ambient + (1 - ambient) * max(n . l, 0),
       or just the ambient term where another object casts a shadow
    k  specular (interface) reflection, a Phong lobe on curved objects only

Gaussian noise with a standard deviation of 0.5 % of the signal is then
added (fixed seed), the cube is scaled so that its maximum becomes 65535 and
truncated to unsigned 16-bit integers.  The result is written as an ENVI
band-sequential little-endian pair (``.hdr`` + ``.fla``).

Beside it, ``sample_truth.csv`` holds the ground truth needed to check
algorithms against the sample: the illuminant and every material
reflectance on the output wavelength grid.

The script needs numpy only and is deterministic: running it twice gives
byte-identical output.  Regenerate from the repository root with::

    /usr/bin/python3 scripts/make_sample.py

(see ``--help`` for the source and output paths).
"""

import argparse
import os
import re
import sys

import numpy as np

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DEFAULT_SOURCE = os.path.join(
    REPO, "..", "shared", "data", "usgs-aster-spectra-and-aviris", "s07_AV95_envi.sli"
)
DEFAULT_OUT = os.path.join(REPO, "data", "sample")

# Output geometry and wavelength grid.
WIDTH = 300
HEIGHT = 200
WAVELENGTHS = np.arange(400.0, 721.0, 10.0)  # nm, 33 bands

# CIE standard illuminant D65, relative spectral power distribution
# (normalised to 100 at 560 nm), 400..720 nm every 10 nm.  Values typed in
# from the CIE D65 table of CIE 15 (Colorimetry), Table T.1, which is also
# ISO 11664-2 / CIE S 014-2.
D65 = np.array([
    82.7549,   # 400
    91.4860,   # 410
    93.4318,   # 420
    86.6823,   # 430
    104.8650,  # 440
    117.0080,  # 450
    117.8120,  # 460
    114.8610,  # 470
    115.9230,  # 480
    108.8110,  # 490
    109.3540,  # 500
    107.8020,  # 510
    104.7900,  # 520
    107.6890,  # 530
    104.4050,  # 540
    104.0460,  # 550
    100.0000,  # 560
    96.3342,   # 570
    95.7880,   # 580
    88.6856,   # 590
    90.0062,   # 600
    89.5991,   # 610
    87.6987,   # 620
    83.2886,   # 630
    83.6992,   # 640
    80.0268,   # 650
    80.2146,   # 660
    82.2778,   # 670
    78.2842,   # 680
    69.7213,   # 690
    71.6091,   # 700
    74.3490,   # 710
    61.6040,   # 720
])
assert D65.shape == WAVELENGTHS.shape

# Materials: short label (used as CSV column name) -> spectrum name exactly
# as it appears in the library's "spectra names" list (inner blanks are
# compared after collapsing runs of whitespace).
MATERIALS = [
    ("concrete", "Concrete GDS375 Lt Gry Road  ASDFRa AREF"),      # mid grey
    ("lawn_grass", "Lawn_Grass GDS91 green        BECKa AREF"),    # vegetation
    ("brick", "Brick GDS353 Building MedRed ASDFRa AREF"),         # red-brown
    ("red_vinyl", "Plastic_Vinyl GDS398 Red Toy ASDFRa AREF"),     # saturated red
    ("blue_tarp", "Plastic_Tarp GDS340 Blu_Wovn ASDFRa AREF"),     # blue
    ("white_hdpe", "Plastic_HDPE GDS384 Wht Opaq ASDFRa AREF"),    # white
    ("black_pipe", "Plastic_Pipe GDS342 Black    ASDFRa AREF"),    # dark
]

# Scene, in pixel units: x = column (to the right), y = row (downwards),
# z = height above the floor (towards the camera).  Orthographic camera
# looking straight down, so the viewing direction is v = (0, 0, 1).
LIGHT = np.array([-0.45, -0.55, 0.70])  # towards the light: upper left, above
LIGHT = LIGHT / np.linalg.norm(LIGHT)
AMBIENT = 0.15  # shading floor: g = AMBIENT in full shadow, 1 facing the light
PHONG_EXPONENT = 40.0
NOISE_FRACTION = 0.005
SEED = 20240607

FLOOR = "concrete"
# Flat tiles lying on the floor: (material, x0, x1, y0, y1), half-open ranges.
TILES = [
    ("lawn_grass", 20, 140, 115, 190),
    ("brick", 165, 288, 12, 88),
]
# Spheres resting on the floor: (material, cx, cy, radius, specular weight).
SPHERES = [
    ("red_vinyl", 72, 62, 42, 0.45),
    ("white_hdpe", 90, 152, 26, 0.30),
    ("blue_tarp", 222, 50, 30, 0.45),
]
# Cylinders lying on the floor: (material, cx, cy, length, axis angle in
# degrees from the x axis (positive turns towards +y), radius, specular
# weight).  A cylinder only shows a highlight if its axis is nearly
# perpendicular to the light's direction in the image plane, hence -35 deg.
CYLINDERS = [
    ("black_pipe", 226, 150, 100, -35.0, 18, 0.40),
]

ENVI_TYPES = {1: "u1", 2: "i2", 3: "i4", 4: "f4", 5: "f8", 12: "u2", 13: "u4", 14: "i8", 15: "u8"}


# --------------------------------------------------------------------------
# Reading the spectral library
# --------------------------------------------------------------------------

def read_envi_header(path):
    """Parse an ENVI header into a dict of lower-case key -> raw string value.

    Values in braces may span several lines; they are returned without the
    braces.  Only the first line must be ``ENVI``.
    """
    with open(path, "r", encoding="latin-1") as f:
        text = f.read()
    if not text.startswith("ENVI"):
        raise ValueError(f"{path}: not an ENVI header")
    fields = {}
    pos = text.index("\n") + 1
    key_re = re.compile(r"\s*([^=\n]+?)\s*=\s*")
    while pos < len(text):
        m = key_re.match(text, pos)
        if not m:
            nl = text.find("\n", pos)
            pos = len(text) if nl < 0 else nl + 1
            continue
        key = m.group(1).strip().lower()
        pos = m.end()
        if text.startswith("{", pos):
            end = text.index("}", pos)
            fields[key] = text[pos + 1:end]
            pos = end + 1
        else:
            nl = text.find("\n", pos)
            nl = len(text) if nl < 0 else nl
            fields[key] = text[pos:nl].strip()
            pos = nl + 1
    return fields


def split_list(value):
    return [item.strip() for item in value.split(",")]


def read_spectral_library(sli_path):
    """Return (names, wavelengths_nm, spectra[lines, samples], ignore_value)."""
    hdr_path = os.path.splitext(sli_path)[0] + ".hdr"
    h = read_envi_header(hdr_path)
    samples, lines, bands = int(h["samples"]), int(h["lines"]), int(h.get("bands", "1"))
    if bands != 1:
        raise ValueError(f"{hdr_path}: a spectral library has bands = 1, got {bands}")
    dtype = np.dtype(ENVI_TYPES[int(h["data type"])])
    dtype = dtype.newbyteorder(">" if int(h.get("byte order", "0")) == 1 else "<")
    offset = int(h.get("header offset", "0"))
    count = samples * lines
    expected = offset + count * dtype.itemsize
    actual = os.path.getsize(sli_path)
    if actual != expected:
        raise ValueError(f"{sli_path}: {actual} bytes, header implies {expected}")
    data = np.fromfile(sli_path, dtype=dtype, count=count, offset=offset)
    data = data.reshape(lines, samples).astype(np.float64)

    names = split_list(h["spectra names"])
    if len(names) != lines:
        raise ValueError(f"{hdr_path}: {len(names)} spectra names for {lines} lines")
    wavelengths = np.array([float(v) for v in split_list(h["wavelength"])])
    if wavelengths.size != samples:
        raise ValueError(f"{hdr_path}: {wavelengths.size} wavelengths for {samples} samples")
    units = h.get("wavelength units", "").strip().lower()
    if units in ("micrometers", "microns", "um"):
        wavelengths = wavelengths * 1000.0
    elif units not in ("nanometers", "nm"):
        raise ValueError(f"{hdr_path}: unexpected wavelength units {units!r}")
    ignore = float(h["data ignore value"]) if "data ignore value" in h else None
    return names, wavelengths, data, ignore


def monotonic_channels(wavelengths):
    """Indices of the channels kept to get a strictly increasing grid.

    The library's channel list restarts below its previous maximum where
    one spectrometer hands over to the next (the 1995 AVIRIS channels
    overlap around 664..687 nm and 1252..1269 nm).  In each overlap the
    channels of the earlier spectrometer are kept and those of the later
    one dropped until its wavelengths exceed the earlier ones.
    """
    keep, top = [], -np.inf
    for i, w in enumerate(wavelengths):
        if w > top:
            keep.append(i)
            top = w
    return np.array(keep)


def resample_material(name, names, wavelengths, data, ignore):
    """Reflectance of the library spectrum `name`, linearly interpolated
    onto WAVELENGTHS; fails if any channel used is missing or outside 0..1."""
    key = " ".join(name.split())
    rows = [i for i, n in enumerate(names) if " ".join(n.split()) == key]
    if len(rows) != 1:
        raise ValueError(f"spectrum {name!r}: {len(rows)} matches in the library")
    row = rows[0]
    keep = monotonic_channels(wavelengths)
    wl, refl = wavelengths[keep], data[row, keep]
    # Channels that take part in the interpolation onto 400..720 nm.
    lo = np.searchsorted(wl, WAVELENGTHS[0], side="right") - 1
    hi = np.searchsorted(wl, WAVELENGTHS[-1], side="left")
    if lo < 0 or hi >= wl.size:
        raise ValueError(f"spectrum {name!r} does not cover {WAVELENGTHS[0]}..{WAVELENGTHS[-1]} nm")
    used = refl[lo:hi + 1]
    if ignore is not None and np.any(np.isclose(used, ignore, rtol=1e-6)):
        raise ValueError(f"spectrum {name!r} has missing channels in the visible range")
    if used.min() < 0.0 or used.max() > 1.0:
        raise ValueError(f"spectrum {name!r} leaves 0..1 in the visible range")
    return row, np.interp(WAVELENGTHS, wl, refl)


# --------------------------------------------------------------------------
# Scene rendering
# --------------------------------------------------------------------------

def ray_hits_sphere(px, py, pz, cx, cy, cz, r):
    """True where the ray p + t * LIGHT (t > 0) meets the sphere."""
    ox, oy, oz = px - cx, py - cy, pz - cz
    b = ox * LIGHT[0] + oy * LIGHT[1] + oz * LIGHT[2]
    c = ox * ox + oy * oy + oz * oz - r * r
    disc = b * b - c
    # Roots t = -b +- sqrt(disc); the far root must be in front of p.
    return (disc > 0) & (-b + np.sqrt(np.maximum(disc, 0)) > 1e-6)


def cylinder_frame(px, py, cx, cy, angle):
    """Coordinates (u along the axis, w across it) of image points relative
    to a cylinder centred on (cx, cy) whose axis makes `angle` deg with x."""
    ca, sa = np.cos(np.radians(angle)), np.sin(np.radians(angle))
    dx, dy = px - cx, py - cy
    return dx * ca + dy * sa, -dx * sa + dy * ca, (ca, sa)


def ray_hits_cylinder(px, py, pz, cx, cy, cz, length, angle, r):
    """True where the ray p + t * LIGHT (t > 0) meets the finite cylinder of
    radius r whose horizontal axis passes through (cx, cy, cz)."""
    u, w, (ca, sa) = cylinder_frame(px, py, cx, cy, angle)
    lu = LIGHT[0] * ca + LIGHT[1] * sa
    lw = -LIGHT[0] * sa + LIGHT[1] * ca
    oz = pz - cz
    a = lw * lw + LIGHT[2] ** 2
    b = w * lw + oz * LIGHT[2]
    c = w * w + oz * oz - r * r
    disc = b * b - a * c
    sq = np.sqrt(np.maximum(disc, 0))
    hit = np.zeros(np.broadcast(u, w).shape, dtype=bool)
    for t in ((-b - sq) / a, (-b + sq) / a):
        hit |= (disc > 0) & (t > 1e-6) & (np.abs(u + t * lu) <= length / 2)
    return hit


def render(labels):
    """Return the shading g, the specular term k and the material of every
    pixel (an index into `labels`, the material labels in CSV order)."""
    yy, xx = np.mgrid[0:HEIGHT, 0:WIDTH].astype(np.float64) + 0.5  # pixel centres

    # Floor and tiles: height 0, normal (0, 0, 1), no specular term.
    material = np.full((HEIGHT, WIDTH), labels.index(FLOOR))
    for label, x0, x1, y0, y1 in TILES:
        inside = (xx >= x0) & (xx < x1) & (yy >= y0) & (yy < y1)
        material[inside] = labels.index(label)
    height = np.zeros((HEIGHT, WIDTH))
    nx, ny, nz = np.zeros_like(xx), np.zeros_like(xx), np.ones_like(xx)
    ks = np.zeros_like(xx)
    owner = np.full((HEIGHT, WIDTH), -1)  # which curved object a pixel shows

    # Curved objects, each with a shadow test for rays towards the light,
    # drawn with a height buffer so that the nearer surface wins where
    # objects overlap in the image.
    occluders = []

    def paint(mask, z, nvec, label, specular):
        win = mask & (z > height)
        height[win] = z[win]
        nx[win], ny[win], nz[win] = nvec[0][win], nvec[1][win], nvec[2][win]
        material[win] = labels.index(label)
        ks[win] = specular
        owner[win] = len(occluders)

    for label, cx, cy, r, specular in SPHERES:
        d2 = (xx - cx) ** 2 + (yy - cy) ** 2
        h = np.sqrt(np.maximum(r * r - d2, 0))
        paint(d2 < r * r, r + h, ((xx - cx) / r, (yy - cy) / r, h / r), label, specular)
        occluders.append(lambda z, cx=cx, cy=cy, r=r: ray_hits_sphere(xx, yy, z, cx, cy, r, r))
    for label, cx, cy, length, angle, r, specular in CYLINDERS:
        u, w, (ca, sa) = cylinder_frame(xx, yy, cx, cy, angle)
        mask = (w * w < r * r) & (np.abs(u) < length / 2)
        h = np.sqrt(np.maximum(r * r - w * w, 0))
        paint(mask, r + h, (-sa * w / r, ca * w / r, h / r), label, specular)
        occluders.append(lambda z, cx=cx, cy=cy, length=length, angle=angle, r=r:
                         ray_hits_cylinder(xx, yy, z, cx, cy, r, length, angle, r))

    # Cast shadows: a surface point is in shadow if the ray from it towards
    # the light meets another object (self-shadowing is the n . l <= 0 side).
    shadow = np.zeros((HEIGHT, WIDTH), dtype=bool)
    for i, hits in enumerate(occluders):
        shadow |= (owner != i) & hits(height)

    n_dot_l = nx * LIGHT[0] + ny * LIGHT[1] + nz * LIGHT[2]
    g = AMBIENT + (1.0 - AMBIENT) * np.clip(n_dot_l, 0.0, None)
    g[shadow] = AMBIENT

    # Phong lobe: mirror direction r = 2 (n . l) n - l against v = (0, 0, 1),
    # only where the light reaches the surface.
    r_dot_v = 2.0 * n_dot_l * nz - LIGHT[2]
    k = ks * np.clip(r_dot_v, 0.0, None) ** PHONG_EXPONENT
    k[(n_dot_l <= 0) | shadow] = 0.0
    return g, k, material


# --------------------------------------------------------------------------
# Output
# --------------------------------------------------------------------------

def envi_header(width, height, wavelengths):
    lines = [
        "ENVI",
        "description = {",
        "IRRADIANCE",
        "}",
        "sensor type = unknown",
        "file type = ENVI Standard",
        "header offset = 0",
        f"samples = {width}",
        f"lines = {height}",
        f"bands = {len(wavelengths)}",
        "data type = 12",
        "interleave = bsq",
        "byte order = 0",
        "wavelength = {",
    ]
    values = [f" {w:.4f}" for w in wavelengths]
    lines += [v + "," for v in values[:-1]]
    lines.append(values[-1] + "}")
    return "\n".join(lines) + "\n"


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--source", default=DEFAULT_SOURCE,
                        help="splib07 ENVI spectral library .sli (its .hdr must sit beside it)")
    parser.add_argument("--out", default=DEFAULT_OUT, help="output directory")
    args = parser.parse_args(argv)

    names, lib_wl, lib, ignore = read_spectral_library(args.source)
    reflectance = {}
    for label, name in MATERIALS:
        row, spectrum = resample_material(name, names, lib_wl, lib, ignore)
        reflectance[label] = spectrum
        print(f"{label:11s} <- spectrum {row:4d} {' '.join(names[row].split())!r}")

    g, k, material = render([label for label, _ in MATERIALS])
    S = np.stack([reflectance[label] for label, _ in MATERIALS])  # (materials, bands)
    # Band-sequential cube, (bands, rows, columns).
    cube = D65[:, None, None] * (g[None] * np.moveaxis(S[material], -1, 0) + k[None])
    rng = np.random.default_rng(SEED)
    cube = cube * (1.0 + NOISE_FRACTION * rng.standard_normal(cube.shape))
    cube = np.maximum(cube, 0.0)
    peak = cube.max()
    counts = np.floor(cube * (65535.0 / peak)).astype("<u2")
    if counts.min() == 0:
        raise RuntimeError("some values truncate to 0; the scene is too dark")

    os.makedirs(args.out, exist_ok=True)
    with open(os.path.join(args.out, "sample.hdr"), "w", newline="\n") as f:
        f.write(envi_header(WIDTH, HEIGHT, WAVELENGTHS))
    counts.tofile(os.path.join(args.out, "sample.fla"))

    with open(os.path.join(args.out, "sample_truth.csv"), "w", newline="\n") as f:
        f.write(",".join(["wavelength_nm", "illuminant_d65"] + [m for m, _ in MATERIALS]) + "\n")
        for b, w in enumerate(WAVELENGTHS):
            row = [f"{w:.1f}", f"{D65[b]:.4f}"] + [f"{reflectance[m][b]:.6f}" for m, _ in MATERIALS]
            f.write(",".join(row) + "\n")

    print(f"cube {WIDTH} x {HEIGHT} x {len(WAVELENGTHS)}, counts {counts.min()}..{counts.max()}, "
          f"scale {65535.0 / peak:.6f} counts per unit (peak radiance {peak:.4f})")
    print(f"g {g.min():.3f}..{g.max():.3f}, k {k.min():.3f}..{k.max():.3f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
