"""The camera's frame conversions checked against numpy on small synthetic mosaics."""
import os
import subprocess

import numpy as np
import pytest

HELPER = os.environ.get("TAVR_FRAME_CONVERT", "")
pytestmark = pytest.mark.skipif(not os.path.exists(HELPER), reason="TAVR_FRAME_CONVERT not built")

# bits, width, height, mosaic width, mosaic height, bands (frames not a whole number of cells)
LAYOUTS = [(16, 37, 22, 4, 4, 16), (8, 30, 17, 3, 3, 9), (16, 26, 14, 5, 5, 25), (16, 21, 9, 4, 2, 7)]


def run(tmp_path, what, frame, bits, mosaic, wavelengths, band=None):
    height, width = frame.shape
    source = tmp_path / "frame.bin"
    frame.astype("<u2" if bits == 16 else "u1").tofile(source)
    out = tmp_path / f"{what}.bin"
    args = [HELPER, what, str(source), str(width), str(height), str(bits), str(mosaic[0]),
            str(mosaic[1]), str(mosaic[2]), ",".join(f"{w:g}" for w in wavelengths), str(out)]
    if band is not None:
        args.append(str(band))
    subprocess.run(args, check=True)
    return out


def picture(path, width, height):
    argb = np.fromfile(path, dtype="<u4").reshape(height, width)
    assert np.all(argb >> 24 == 0xFF)
    return np.stack([(argb >> 16) & 0xFF, (argb >> 8) & 0xFF, argb & 0xFF], axis=-1)


def cells(frame, mw, mh, bands):
    """cells[y, x, b] = the sample of band b in cell (x, y)."""
    rows, cols = frame.shape[0] // mh, frame.shape[1] // mw
    return np.stack([frame[b // mw::mh, b % mw::mw][:rows, :cols] for b in range(bands)], axis=-1)


@pytest.mark.parametrize("bits,width,height,mw,mh,bands", LAYOUTS)
def test_conversions_match_numpy(tmp_path, bits, width, height, mw, mh, bands):
    rng = np.random.default_rng(width * height)
    top = 1023 if bits == 16 else 255
    frame = rng.integers(0, top + 1, size=(height, width))
    wavelengths = np.linspace(460, 600, bands)[rng.permutation(bands)]
    mosaic = (mw, mh, bands)
    levels = (frame >> 2) if bits == 16 else frame

    raw = picture(run(tmp_path, "raw", frame, bits, mosaic, wavelengths), width, height)
    assert np.array_equal(raw, np.repeat(levels[..., None], 3, axis=-1))

    expected = cells(frame, mw, mh, bands)
    rows, cols = height // mh, width // mw
    for band in (0, bands // 2, bands - 1):
        grey = picture(run(tmp_path, "band", frame, bits, mosaic, wavelengths, band), cols, rows)
        shown = (expected[..., band] >> 2) if bits == 16 else expected[..., band]
        assert np.array_equal(grey[..., 0], shown) and np.array_equal(grey[..., 2], shown)

    cube = np.fromfile(run(tmp_path, "cube", frame, bits, mosaic, wavelengths), dtype="<f4")
    cube = cube.reshape(bands, cols, rows).transpose(2, 1, 0)
    assert np.array_equal(cube, expected.astype(np.float32))

    weights = np.fromfile(run(tmp_path, "mix", frame, bits, mosaic, wavelengths),
                          dtype="<f4").reshape(3, bands)
    blue_green_red = expected @ weights.T * (255.0 / top)
    rgb = np.clip(np.floor(blue_green_red[..., ::-1] + 0.5), 0, 255)
    colour = picture(run(tmp_path, "colour", frame, bits, mosaic, wavelengths), cols, rows)
    assert np.max(np.abs(colour - rgb)) <= 1


def test_colour_mix_shows_a_flat_spectrum_in_the_viewers_white(tmp_path):
    frame = np.zeros((8, 8), dtype=np.uint16)
    wavelengths = np.linspace(460, 600, 16)[::-1]
    weights = np.fromfile(run(tmp_path, "mix", frame, 16, (4, 4, 16), wavelengths),
                          dtype="<f4").reshape(3, 16)
    np.testing.assert_allclose(weights.sum(axis=1), [0.74744, 1.003742, 1.071787], rtol=1e-5)
    # Without a band on each side of 550 nm: the shortest, middle and longest band.
    red_only = np.linspace(600, 700, 9)[::-1]
    weights = np.fromfile(run(tmp_path, "mix", frame, 16, (3, 3, 9), red_only),
                          dtype="<f4").reshape(3, 9)
    assert [int(np.argmax(row)) for row in weights] == [8, 4, 0]
    assert np.array_equal(weights.sum(axis=1), [1, 1, 1])


def test_frames_the_mosaic_does_not_fit_give_no_picture(tmp_path):
    frame = np.zeros((3, 3), dtype=np.uint16)
    for mosaic in [(4, 4, 16), (2, 2, 5), (0, 0, 3)]:
        with pytest.raises(subprocess.CalledProcessError):
            run(tmp_path, "band", frame, 16, mosaic, range(mosaic[2]))
