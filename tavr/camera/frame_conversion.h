#ifndef TAVR_CAMERA_FRAME_CONVERSION_H
#define TAVR_CAMERA_FRAME_CONVERSION_H

#include <QImage>
#include <QString>
#include <array>
#include <cstdint>
#include <vector>

#include "corv/io/types.h"

namespace tavr {

// A raw frame as a camera hands it over: `height` rows of `width` pixels, `width`
// apart, 8-bit values or 10-bit values in 16 bits.
struct frame_view {
  const void* pixels = nullptr;
  int width = 0;
  int height = 0;
  bool sixteen_bit = true;

  float value(int x, int y) const {
    const std::size_t at = static_cast<std::size_t>(y) * width + x;
    return sixteen_bit ? static_cast<const std::uint16_t*>(pixels)[at]
                       : static_cast<const std::uint8_t*>(pixels)[at];
  }
};

// The repeating filter mosaic: band b lies at row b / width, column b % width of
// every cell (bands numbered row by row through the cell).
struct mosaic_layout {
  int width = 0;
  int height = 0;
  int bands = 0;

  // Whether a frame can be split by this mosaic: a pattern with room for every
  // band and a frame at least one cell large.
  bool fits(const frame_view& frame) const;
};

// How "Color" mixes the mosaic's bands: three rows (blue, green, red) of one
// weight per band, and the level that shows as full white.
struct colour_mix {
  std::array<std::vector<float>, 3> weights;
  float full_scale = 1023.0f;
};
// The viewer's colour weights for these wavelengths (a flat spectrum shows as
// the viewer's white); without a wavelength on each side of 550 nm, the
// shortest, middle and longest band are shown as blue, green and red.
colour_mix colour_mix_for(const std::vector<float>& wavelengths, bool sixteen_bit);

// The display pictures (RGB32). Each writes into `picture`, reusing its memory
// when it has the right size, and leaves it null when the frame is empty or the
// mosaic does not fit the frame.
// "Raw": one grey level per sensor pixel, 8-bit values as they are, 16-bit values
// shifted right by 2.
void raw_picture(const frame_view& frame, QImage& picture);
// "band": one grey pixel per mosaic cell, the cell's sample of `band`.
void band_picture(const frame_view& frame, const mosaic_layout& mosaic, int band, QImage& picture);
// "Color": one pixel per mosaic cell, its bands mixed by `mix`.
void colour_picture(const frame_view& frame, const mosaic_layout& mosaic, const colour_mix& mix,
                    QImage& picture);

// The capture: every mosaic cell becomes a pixel of a (height / mosaic height) x
// (width / mosaic width) x bands cube, values unscaled. Slice k holds band
// order[k] of the mosaic, or band k when `order` is empty. Throws
// std::runtime_error "capture_cube: <what>" when the mosaic does not fit the
// frame or `order` is not a list of the mosaic's bands.
corv::cube capture_cube(const frame_view& frame, const mosaic_layout& mosaic,
                        const std::vector<int>& order = {});

}  // namespace tavr

#endif
