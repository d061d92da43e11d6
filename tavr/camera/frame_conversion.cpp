#include "tavr/camera/frame_conversion.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <string>

#include "tavr/image/channel_weights.h"

namespace tavr {

namespace {

inline QRgb grey(int level) {
  return 0xff000000u | (static_cast<QRgb>(level) * 0x010101u);
}

inline int clamp_level(float value) {
  return value <= 0.0f ? 0 : value >= 255.0f ? 255 : static_cast<int>(value + 0.5f);
}

// Makes `picture` an RGB32 picture of this size, keeping its memory when it can.
bool prepare(QImage& picture, int width, int height) {
  if (width <= 0 || height <= 0) {
    picture = QImage();
    return false;
  }
  if (picture.width() != width || picture.height() != height ||
      picture.format() != QImage::Format_RGB32) {
    picture = QImage(width, height, QImage::Format_RGB32);
  }
  return !picture.isNull();
}

template <typename Pixel>
void raw_rows(const Pixel* pixels, int width, int height, int shift, QImage& picture) {
#pragma omp parallel for schedule(static)
  for (int y = 0; y < height; ++y) {
    const Pixel* in = pixels + static_cast<std::size_t>(y) * width;
    auto* out = reinterpret_cast<QRgb*>(picture.scanLine(y));
    for (int x = 0; x < width; ++x) {
      out[x] = grey(std::min(in[x] >> shift, 255));
    }
  }
}

}  // namespace

bool mosaic_layout::fits(const frame_view& frame) const {
  return frame.pixels != nullptr && width > 0 && height > 0 && bands > 0 &&
         bands <= width * height && frame.width >= width && frame.height >= height;
}

colour_mix colour_mix_for(const std::vector<float>& wavelengths, bool sixteen_bit) {
  colour_mix mix;
  mix.full_scale = sixteen_bit ? 1023.0f : 255.0f;
  const auto bands = static_cast<arma::uword>(wavelengths.size());
  for (std::vector<float>& row : mix.weights) {
    row.assign(bands, 0.0f);
  }
  if (bands == 0) {
    return mix;
  }
  const auto [lowest, highest] = std::minmax_element(wavelengths.begin(), wavelengths.end());
  if (*lowest <= 550.0f && *highest >= 550.0f) {
    // The renderer's weighted colour is linear in the bands: render one unit
    // spectrum per band and read the weights off.
    corv::cube units(1, bands, bands, arma::fill::zeros);
    for (arma::uword b = 0; b < bands; ++b) {
      units(0, b, b) = 1.0f;
    }
    const corv::vector nm(wavelengths);
    const corv::cube channels = spectrum_to_colour(units, nm, corv::vector());
    for (arma::uword c = 0; c < 3; ++c) {
      for (arma::uword b = 0; b < bands; ++b) {
        mix.weights[c][b] = channels(0, b, c);
      }
    }
    return mix;
  }
  std::vector<std::size_t> order(bands);
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return wavelengths[a] < wavelengths[b]; });
  mix.weights[0][order.front()] = 1.0f;
  mix.weights[1][order[order.size() / 2]] = 1.0f;
  mix.weights[2][order.back()] = 1.0f;
  return mix;
}

void raw_picture(const frame_view& frame, QImage& picture) {
  if (frame.pixels == nullptr || !prepare(picture, frame.width, frame.height)) {
    picture = QImage();
    return;
  }
  if (frame.sixteen_bit) {
    raw_rows(static_cast<const std::uint16_t*>(frame.pixels), frame.width, frame.height, 2,
             picture);
  } else {
    raw_rows(static_cast<const std::uint8_t*>(frame.pixels), frame.width, frame.height, 0, picture);
  }
}

void band_picture(const frame_view& frame, const mosaic_layout& mosaic, int band, QImage& picture) {
  if (!mosaic.fits(frame) || band < 0 || band >= mosaic.bands ||
      !prepare(picture, frame.width / mosaic.width, frame.height / mosaic.height)) {
    picture = QImage();
    return;
  }
  const int column = band % mosaic.width;
  const int row = band / mosaic.width;
  const int shift = frame.sixteen_bit ? 2 : 0;
  const int cells_x = picture.width();
  const int cells_y = picture.height();
#pragma omp parallel for schedule(static)
  for (int y = 0; y < cells_y; ++y) {
    auto* out = reinterpret_cast<QRgb*>(picture.scanLine(y));
    const int sensor_y = y * mosaic.height + row;
    for (int x = 0; x < cells_x; ++x) {
      const int value = static_cast<int>(frame.value(x * mosaic.width + column, sensor_y));
      out[x] = grey(std::min(value >> shift, 255));
    }
  }
}

void colour_picture(const frame_view& frame, const mosaic_layout& mosaic, const colour_mix& mix,
                    QImage& picture) {
  const auto bands = static_cast<std::size_t>(mosaic.bands);
  if (!mosaic.fits(frame) || mix.weights[0].size() != bands ||
      !prepare(picture, frame.width / mosaic.width, frame.height / mosaic.height)) {
    picture = QImage();
    return;
  }
  // Per band: its place in the cell and its weights scaled to display levels.
  std::vector<int> column(bands), row(bands);
  std::vector<float> scaled(3 * bands);
  const float to_level = 255.0f / mix.full_scale;
  for (std::size_t b = 0; b < bands; ++b) {
    column[b] = static_cast<int>(b) % mosaic.width;
    row[b] = static_cast<int>(b) / mosaic.width;
    for (std::size_t c = 0; c < 3; ++c) {
      scaled[3 * b + c] = mix.weights[c][b] * to_level;
    }
  }
  const int cells_x = picture.width();
  const int cells_y = picture.height();
#pragma omp parallel for schedule(static)
  for (int y = 0; y < cells_y; ++y) {
    auto* out = reinterpret_cast<QRgb*>(picture.scanLine(y));
    for (int x = 0; x < cells_x; ++x) {
      float blue = 0.0f, green = 0.0f, red = 0.0f;
      for (std::size_t b = 0; b < bands; ++b) {
        const float v = frame.value(x * mosaic.width + column[b], y * mosaic.height + row[b]);
        blue += scaled[3 * b] * v;
        green += scaled[3 * b + 1] * v;
        red += scaled[3 * b + 2] * v;
      }
      out[x] = qRgb(clamp_level(red), clamp_level(green), clamp_level(blue));
    }
  }
}

corv::cube capture_cube(const frame_view& frame, const mosaic_layout& mosaic) {
  if (!mosaic.fits(frame)) {
    throw std::runtime_error(
        "capture_cube: A " + std::to_string(frame.width) + " x " + std::to_string(frame.height) +
        " frame cannot be split into " + std::to_string(mosaic.bands) + " bands by a " +
        std::to_string(mosaic.width) + " x " + std::to_string(mosaic.height) + " mosaic.");
  }
  const int cells_x = frame.width / mosaic.width;
  const int cells_y = frame.height / mosaic.height;
  corv::cube cube(static_cast<arma::uword>(cells_y), static_cast<arma::uword>(cells_x),
                  static_cast<arma::uword>(mosaic.bands));
#pragma omp parallel for schedule(static)
  for (int b = 0; b < mosaic.bands; ++b) {
    const int column = b % mosaic.width;
    const int row = b / mosaic.width;
    float* slice = cube.slice_memptr(static_cast<arma::uword>(b));
    for (int x = 0; x < cells_x; ++x) {
      float* out = slice + static_cast<std::size_t>(x) * cells_y;
      for (int y = 0; y < cells_y; ++y) {
        out[y] = frame.value(x * mosaic.width + column, y * mosaic.height + row);
      }
    }
  }
  return cube;
}

}  // namespace tavr
