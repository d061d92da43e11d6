#!/usr/bin/env python3
"""Builds what the simulated camera serves: its calibration and its scene.

The calibration is the flat "sens_calib.dat" XML layout of a 4x4 visible mosaic
(16 bands, 2048 x 1088 sensor). Its filter responses come from a vendor
calibration file of a real 4x4 sensor when one is given (each band's measured
response times the measured band-pass filter in front of the sensor), and
otherwise from Gaussian bands at the same peaks and widths.

The scene is the bundled sample cube seen through those responses: one value
per mosaic band for every sample pixel, and the same for a white tile under
the sample's illuminant. Written as a small binary file (see write_scene).
"""
import argparse
import os
import struct
import xml.etree.ElementTree as ElementTree

import numpy as np

# Mosaic position, peak (nm), full width at half maximum (nm) and peak quantum
# efficiency of the 16 bands of a 4x4 visible sensor, row by row through the cell.
BANDS = [
    (570.49, 12.54, 0.274), (576.95, 16.26, 0.229), (586.94, 17.93, 0.220), (594.88, 16.26, 0.280),
    (532.00, 12.54, 0.284), (544.39, 17.38, 0.203), (550.79, 10.87, 0.295), (559.96, 16.63, 0.187),
    (496.03, 15.89, 0.240), (503.01, 18.31, 0.272), (513.27, 13.84, 0.302), (524.09, 17.38, 0.245),
    (460.14, 10.87, 0.229), (468.50, 9.19, 0.296), (475.45, 17.00, 0.205), (484.51, 10.12, 0.302),
]
MOSAIC = 4
FIRST_NM, LAST_NM = 400, 1000
GRID = np.arange(FIRST_NM, LAST_NM + 1, dtype=float)


def vendor_responses(path):
    """Bands x GRID responses, peaks and widths from a vendor calibration file."""
    root = ElementTree.parse(path).getroot()
    samples = np.array(root.find(".//calibration_info/sample_points_nm").attrib["values"].split(),
                       float)
    zone = root.find(".//filter_zone")
    if int(zone.findtext("pattern_width")) != MOSAIC or int(zone.findtext("pattern_height")) != MOSAIC:
        raise SystemExit(f"{path}: not a {MOSAIC}x{MOSAIC} mosaic")
    bandpass = np.ones_like(GRID)
    component = root.find(".//optical_component")
    if component is not None and component.findtext("type") == "bandpass_filter":
        nm = np.array(component.find("sample_points_nm").attrib["values"].split(), float)
        transmission = np.array(component.find("response").attrib["values"].split(), float)
        bandpass = np.interp(GRID, nm, transmission, left=0.0, right=0.0)
    responses, peaks = [], []
    for band in sorted(zone.find("bands"), key=lambda b: int(b.attrib["index"])):
        values = np.array(band.find("response").attrib["values"].split(), float)
        responses.append(np.interp(GRID, samples, values, left=0.0, right=0.0) * bandpass)
        peak = band.find("peaks/peak")
        peaks.append((float(peak.findtext("wavelength_nm")), float(peak.findtext("fwhm_nm"))))
    return np.array(responses), peaks


def gaussian_responses():
    responses = []
    for peak, fwhm, qe in BANDS:
        sigma = fwhm / 2.3548
        responses.append(qe * np.exp(-0.5 * ((GRID - peak) / sigma) ** 2))
    return np.array(responses), [(p, w) for p, w, _ in BANDS]


def calibration_xml(responses, peaks):
    bands = len(peaks)
    lines = ['<?xml version="1.0" encoding="UTF-8"?>', "<sens_calib>",
             f"  <nr_bands>{bands}</nr_bands>",
             "  <offset_x>0</offset_x>", "  <offset_y>0</offset_y>",
             f"  <mosaic_pattern_width>{MOSAIC}</mosaic_pattern_width>",
             f"  <mosaic_pattern_height>{MOSAIC}</mosaic_pattern_height>", "  <bands>"]
    lines += [f"    <band>{p:.2f},{w:.2f}</band>" for p, w in peaks]
    lines += ["  </bands>", "  <fwhm>"]
    lines += [f"    <band>{w:.2f}</band>" for _, w in peaks]
    lines += ["  </fwhm>", f"  <start_calibration_range>{FIRST_NM}</start_calibration_range>",
              f"  <end_calibration_range>{LAST_NM}</end_calibration_range>"]
    # Sample-major: all bands at the first wavelength, then all at the next, ...
    values = ",".join(f"{v:.5g}" for v in responses.T.ravel())
    lines += [f"  <filter_responses>{values}</filter_responses>", "</sens_calib>", ""]
    return "\n".join(lines)


def read_sample(header):
    text = open(header, encoding="ascii").read()

    def number(key):
        for line in text.splitlines():
            if line.split("=")[0].strip() == key:
                return int(line.split("=")[1])
        raise SystemExit(f"{header}: no '{key}'")

    samples, lines, bands = number("samples"), number("lines"), number("bands")
    if number("data type") != 12 or "bsq" not in text:
        raise SystemExit(f"{header}: expected unsigned 16-bit band-sequential data")
    listed = text[text.index("wavelength = {") + 14:]
    wavelengths = np.array(listed[:listed.index("}")].replace(",", " ").split(), float)
    data = np.fromfile(os.path.splitext(header)[0] + ".fla", dtype="<u2")
    cube = data.reshape(bands, lines, samples).astype(np.float64)
    return cube, wavelengths


def read_illuminant(truth_csv):
    table = np.genfromtxt(truth_csv, delimiter=",", names=True)
    return table["wavelength_nm"], table["illuminant_d65"]


def write_scene(path, scene, white):
    """"XSIM", then width, height, bands (uint32), the white tile (bands float32)
    and the scene (height x width x bands uint16, 65535 = the white tile's largest band)."""
    height, width, bands = scene.shape
    with open(path, "wb") as f:
        f.write(b"XSIM" + struct.pack("<3I", width, height, bands))
        f.write(white.astype("<f4").tobytes())
        f.write(np.clip(np.round(scene * 65535.0), 0, 65535).astype("<u2").tobytes())


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--vendor", help="vendor calibration XML of a 4x4 visible sensor")
    parser.add_argument("--sample", required=True, help="ENVI header of the bundled sample")
    parser.add_argument("--out", required=True, help="output folder")
    args = parser.parse_args()

    if args.vendor and os.path.exists(args.vendor):
        responses, peaks = vendor_responses(args.vendor)
    else:
        responses, peaks = gaussian_responses()
    os.makedirs(args.out, exist_ok=True)
    with open(os.path.join(args.out, "sens_calib.xml"), "w", encoding="ascii") as f:
        f.write(calibration_xml(responses, peaks))

    cube, wavelengths = read_sample(args.sample)
    # Radiance on the 1 nm grid of the responses (zero beyond the sample's range),
    # by the linear interpolation matrix from the sample's bands to the grid.
    to_grid = np.stack([np.interp(GRID, wavelengths, row, left=0.0, right=0.0)
                        for row in np.eye(len(wavelengths))], axis=1)
    pixels = cube.reshape(len(wavelengths), -1).T
    scene = (pixels @ (responses @ to_grid).T).reshape(cube.shape[1], cube.shape[2], len(peaks))
    truth = os.path.join(os.path.dirname(args.sample), "sample_truth.csv")
    nm, illuminant = read_illuminant(truth)
    white = responses @ np.interp(GRID, nm, illuminant, left=0.0, right=0.0)
    # A white tile in the scene's light is as bright as the scene's brightest pixels.
    scale = scene.max() / white.max()
    white *= scale
    write_scene(os.path.join(args.out, "scene.bin"), scene / white.max(), white / white.max())


if __name__ == "__main__":
    main()
