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

// The display conversions run on the acquisition thread once per frame, next to
// the GUI thread and the camera's own work: they stay on one core.
template <typename Pixel>
void raw_rows(const Pixel* pixels, int width, int height, int shift, QImage& picture) {
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

namespace {

template <typename Pixel>
void band_rows(const Pixel* pixels, int width, const mosaic_layout& mosaic, int band, int shift,
               QImage& picture) {
  const int column = band % mosaic.width;
  const int row = band / mosaic.width;
  for (int y = 0; y < picture.height(); ++y) {
    auto* out = reinterpret_cast<QRgb*>(picture.scanLine(y));
    const Pixel* in = pixels + static_cast<std::size_t>(y * mosaic.height + row) * width + column;
    for (int x = 0; x < picture.width(); ++x) {
      out[x] = grey(std::min(in[x * mosaic.width] >> shift, 255));
    }
  }
}

}  // namespace

void band_picture(const frame_view& frame, const mosaic_layout& mosaic, int band, QImage& picture) {
  if (!mosaic.fits(frame) || band < 0 || band >= mosaic.bands ||
      !prepare(picture, frame.width / mosaic.width, frame.height / mosaic.height)) {
    picture = QImage();
    return;
  }
  if (frame.sixteen_bit) {
    band_rows(static_cast<const std::uint16_t*>(frame.pixels), frame.width, mosaic, band, 2,
              picture);
  } else {
    band_rows(static_cast<const std::uint8_t*>(frame.pixels), frame.width, mosaic, band, 0,
              picture);
  }
}

namespace {

template <typename Pixel>
void colour_rows(const Pixel* pixels, int width, const mosaic_layout& mosaic,
                 const std::vector<float>& scaled, QImage& picture) {
  const int cells = picture.width();
  // Each channel is summed band by band over a whole row of cells, which the
  // compiler turns into vector instructions.
  std::vector<float> sums(3 * static_cast<std::size_t>(cells));
  float* blue = sums.data();
  float* green = blue + cells;
  float* red = green + cells;
  for (int y = 0; y < picture.height(); ++y) {
    std::fill(sums.begin(), sums.end(), 0.0f);
    for (int b = 0; b < mosaic.bands; ++b) {
      const Pixel* in = pixels +
                        static_cast<std::size_t>(y * mosaic.height + b / mosaic.width) * width +
                        b % mosaic.width;
      const float wb = scaled[3 * b];
      const float wg = scaled[3 * b + 1];
      const float wr = scaled[3 * b + 2];
      for (int x = 0; x < cells; ++x) {
        const auto v = static_cast<float>(in[x * mosaic.width]);
        blue[x] += wb * v;
        green[x] += wg * v;
        red[x] += wr * v;
      }
    }
    auto* out = reinterpret_cast<QRgb*>(picture.scanLine(y));
    for (int x = 0; x < cells; ++x) {
      out[x] = qRgb(clamp_level(red[x]), clamp_level(green[x]), clamp_level(blue[x]));
    }
  }
}

}  // namespace

void colour_picture(const frame_view& frame, const mosaic_layout& mosaic, const colour_mix& mix,
                    QImage& picture) {
  const auto bands = static_cast<std::size_t>(mosaic.bands);
  if (!mosaic.fits(frame) || mix.weights[0].size() != bands ||
      !prepare(picture, frame.width / mosaic.width, frame.height / mosaic.height)) {
    picture = QImage();
    return;
  }
  // Per band, its weights scaled to display levels.
  std::vector<float> scaled(3 * bands);
  const float to_level = 255.0f / mix.full_scale;
  for (std::size_t b = 0; b < bands; ++b) {
    for (std::size_t c = 0; c < 3; ++c) {
      scaled[3 * b + c] = mix.weights[c][b] * to_level;
    }
  }
  if (frame.sixteen_bit) {
    colour_rows(static_cast<const std::uint16_t*>(frame.pixels), frame.width, mosaic, scaled,
                picture);
  } else {
    colour_rows(static_cast<const std::uint8_t*>(frame.pixels), frame.width, mosaic, scaled,
                picture);
  }
}

namespace {

template <typename Pixel>
void split_cells(const Pixel* pixels, int width, const mosaic_layout& mosaic,
                 const std::vector<int>& order, corv::cube& cube) {
  const int cells_x = static_cast<int>(cube.n_cols);
  const int cells_y = static_cast<int>(cube.n_rows);
  // Blocks of 8 cell rows: the sensor rows they read stay in cache while every
  // band's column of 8 values is written (8 measured fastest of 1 to 32). One
  // core, like the display conversions: a capture runs beside live view.
  constexpr int block = 8;
  for (int first = 0; first < cells_y; first += block) {
    const int last = std::min(cells_y, first + block);
    for (int k = 0; k < mosaic.bands; ++k) {
      const int b = order[static_cast<std::size_t>(k)];
      const int column = b % mosaic.width;
      const int row = b / mosaic.width;
      float* slice = cube.slice_memptr(static_cast<arma::uword>(k));
      for (int x = 0; x < cells_x; ++x) {
        float* out = slice + static_cast<std::size_t>(x) * cells_y;
        const Pixel* in = pixels + x * mosaic.width + column;
        for (int y = first; y < last; ++y) {
          out[y] = in[static_cast<std::size_t>(y * mosaic.height + row) * width];
        }
      }
    }
  }
}

}  // namespace

corv::cube capture_cube(const frame_view& frame, const mosaic_layout& mosaic,
                        const std::vector<int>& order) {
  if (!mosaic.fits(frame)) {
    throw std::runtime_error(
        "capture_cube: A " + std::to_string(frame.width) + " x " + std::to_string(frame.height) +
        " frame cannot be split into " + std::to_string(mosaic.bands) + " bands by a " +
        std::to_string(mosaic.width) + " x " + std::to_string(mosaic.height) + " mosaic.");
  }
  std::vector<int> bands = order;
  if (bands.empty()) {
    bands.resize(static_cast<std::size_t>(mosaic.bands));
    std::iota(bands.begin(), bands.end(), 0);
  }
  std::vector<int> sorted = bands;
  std::sort(sorted.begin(), sorted.end());
  if (static_cast<int>(bands.size()) != mosaic.bands || sorted.front() != 0 ||
      std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end() ||
      sorted.back() != mosaic.bands - 1) {
    throw std::runtime_error("capture_cube: The band order does not list each of the " +
                             std::to_string(mosaic.bands) + " bands once.");
  }
  corv::cube cube(static_cast<arma::uword>(frame.height / mosaic.height),
                  static_cast<arma::uword>(frame.width / mosaic.width),
                  static_cast<arma::uword>(mosaic.bands));
  if (frame.sixteen_bit) {
    split_cells(static_cast<const std::uint16_t*>(frame.pixels), frame.width, mosaic, bands, cube);
  } else {
    split_cells(static_cast<const std::uint8_t*>(frame.pixels), frame.width, mosaic, bands, cube);
  }
  return cube;
}

}  // namespace tavr
