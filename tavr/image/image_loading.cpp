#include "tavr/image/image_loading.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>

#include "corv/io/input.h"
#include "tavr/image/channel_weights.h"

namespace tavr {

namespace {

// Wavelengths where the channel weights peak, channel 0 first.
constexpr std::array<float, 3> weight_peaks{470.0f, 530.0f, 600.0f};

bool spans_550(const corv::vector& wavelengths) {
  return !wavelengths.empty() && wavelengths.min() <= 550.0f && wavelengths.max() >= 550.0f;
}

unsigned nearest_band(const corv::vector& wavelengths, float nm) {
  return static_cast<unsigned>(arma::abs(wavelengths - nm).index_min());
}

// The band-copy rule of images that do not span 550 nm, channel 0 first.
std::array<unsigned, 3> copied_bands(unsigned bands) {
  if (bands < 11) {
    return {bands - 1, bands / 2, 0};
  }
  const unsigned half = bands / 2;
  const unsigned quarter = bands / 4;
  return {half + quarter, half, half - quarter};
}

// The rendering of three weighted bands (black where one holds the ignore
// value, shifted to a minimum of 0, the sine tone curve) from every step-th
// pixel, in parallel, with the value range from a sample and the tone curve from
// a table: the first picture must not take much longer than reading its bands.
QImage quick_picture(const corv::cube& read, const std::array<arma::uword, 3>& layers,
                     const std::array<float, 3>& scales, float ignored, long step) {
  const long rows = static_cast<long>(read.n_rows);
  const long out_rows = (rows + step - 1) / step;
  const long out_cols = (static_cast<long>(read.n_cols) + step - 1) / step;
  const float* band[3] = {read.slice_memptr(layers[0]), read.slice_memptr(layers[1]),
                          read.slice_memptr(layers[2])};
  // The sample of picture pixel (row, col).
  auto at = [rows, step](long row, long col) { return col * step * rows + row * step; };
  auto kept = [&](long i) {
    return band[0][i] != ignored && band[1][i] != ignored && band[2][i] != ignored;
  };
  // The range of the values from every fourth picture pixel each way: a sixteenth
  // of the reading, for a picture that is replaced by the full one in a moment.
  constexpr long range_step = 4;
  float lowest = std::numeric_limits<float>::infinity();
  float highest = -std::numeric_limits<float>::infinity();
#pragma omp parallel for reduction(min : lowest) reduction(max : highest)
  for (long col = 0; col < out_cols; col += range_step) {
    for (long row = 0; row < out_rows; row += range_step) {
      const long i = at(row, col);
      const bool keep = kept(i);
      for (int c = 0; c < 3; ++c) {
        const float v = keep ? band[c][i] * scales[static_cast<std::size_t>(c)] : 0.0f;
        lowest = v < lowest ? v : lowest;
        highest = v > highest ? v : highest;
      }
    }
  }
  const float shift = lowest < 0.0f ? -lowest : 0.0f;
  const float top = highest + shift;
  QImage picture(static_cast<int>(out_cols), static_cast<int>(out_rows), QImage::Format_RGB32);
  if (!(top > 0.0f) || !std::isfinite(top)) {
    picture.fill(Qt::black);
    return picture;
  }
  constexpr int steps = 4096;
  static const std::array<int, steps> curve = [] {
    std::array<int, steps> levels{};
    for (int i = 0; i < steps; ++i) {
      levels[static_cast<std::size_t>(i)] =
          static_cast<int>(std::lround(255.0 * std::sin(M_PI / 2.0 * i / (steps - 1))));
    }
    return levels;
  }();
  const float position = (steps - 1) / top;
  auto level = [&](float v) {
    const float where = (v + shift) * position;
    return where > 0.0f ? curve[static_cast<std::size_t>(std::min(where + 0.5f, steps - 1.0f))] : 0;
  };
  // Blocks of picture rows, each read down its columns: the bands are column-major.
  constexpr long block = 64;
  const long blocks = (out_rows + block - 1) / block;
  uchar* bits = picture.bits();
  const auto line_bytes = static_cast<long>(picture.bytesPerLine());
#pragma omp parallel for schedule(dynamic)
  for (long b = 0; b < blocks; ++b) {
    const long last = std::min(out_rows, (b + 1) * block);
    for (long col = 0; col < out_cols; ++col) {
      for (long row = b * block; row < last; ++row) {
        const long i = at(row, col);
        const bool keep = kept(i);
        int level_of[3];
        for (int c = 0; c < 3; ++c) {
          level_of[c] = level(keep ? band[c][i] * scales[static_cast<std::size_t>(c)] : 0.0f);
        }
        reinterpret_cast<QRgb*>(bits + row * line_bytes)[col] =
            qRgb(level_of[2], level_of[1], level_of[0]);
      }
    }
  }
  return picture;
}

float finite_maximum(const corv::cube& data) {
  float highest = 0.0f;
  bool found = false;
  for (const float v : data) {
    if (std::isfinite(v) && (!found || v > highest)) {
      highest = v;
      found = true;
    }
  }
  return highest;
}

}  // namespace

std::array<unsigned, 3> first_picture_bands(const corv::vector& wavelengths,
                                            const rendering_options& options) {
  const auto bands = static_cast<unsigned>(wavelengths.n_elem);
  if (!options.auto_rgb) {
    // Channel 0 shows blue: the third manual band.
    auto band = [bands](int chosen) {
      return static_cast<unsigned>(std::clamp(chosen, 0, static_cast<int>(bands) - 1));
    };
    return {band(options.rgb_bands[2]), band(options.rgb_bands[1]), band(options.rgb_bands[0])};
  }
  if (!spans_550(wavelengths)) {
    return copied_bands(bands);
  }
  return {nearest_band(wavelengths, weight_peaks[0]), nearest_band(wavelengths, weight_peaks[1]),
          nearest_band(wavelengths, weight_peaks[2])};
}

unsigned first_picture_step(unsigned height, unsigned width) {
  const unsigned longest = std::max(height, width);
  return std::max(1u, (longest + first_picture_side - 1) / first_picture_side);
}

QImage first_picture(corv::input& source, const rendering_options& options, unsigned step) {
  const corv::vector wavelengths = source.wavelengths();
  const std::array<unsigned, 3> bands = first_picture_bands(wavelengths, options);
  // Each band once, in increasing order: the reader's fastest path.
  corv::band_list wanted(bands.begin(), bands.end());
  std::sort(wanted.begin(), wanted.end());
  wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
  const corv::cube read = source.I(wanted);

  const bool weighted = options.auto_rgb && spans_550(wavelengths);
  std::array<arma::uword, 3> layers{};
  std::array<float, 3> scales{1.0f, 1.0f, 1.0f};
  for (std::size_t c = 0; c < 3; ++c) {
    layers[c] = static_cast<arma::uword>(std::find(wanted.begin(), wanted.end(), bands[c]) -
                                         wanted.begin());
    if (weighted) {
      scales[c] = static_cast<float>(channel_scale[c]);
    }
  }
  const auto ignored = static_cast<float>(options.data_ignore_val);
  if (!options.contrast_enhancement) {
    return quick_picture(read, layers, scales, ignored, std::max(1L, static_cast<long>(step)));
  }
  corv::cube channels(read.n_rows, read.n_cols, 3);
  arma::umat keep(read.n_rows, read.n_cols, arma::fill::ones);
  for (arma::uword c = 0; c < 3; ++c) {
    channels.slice(c) = read.slice(layers[c]) * scales[c];
    keep %= arma::conv_to<arma::umat>::from(read.slice(layers[c]) != ignored);
  }
  return colour_renderer::to_image(colour_renderer(options).finish_channels(channels, keep));
}

full_picture_result full_picture(
    corv::input& source, const rendering_options& options, bool hold,
    const std::function<bool(unsigned done, unsigned total)>& progress) {
  full_picture_result result;
  result.options = options;
  try {
    const corv::vector wavelengths = source.wavelengths();
    const unsigned bands = source.bands();
    const colour_renderer renderer(options);
    if (hold || !options.auto_rgb || !spans_550(wavelengths)) {
      // Three bands make the picture when it is copied; a held cube is read anyway.
      if (!hold) {
        result.picture = first_picture(source, options);
        return result;
      }
      result.I = source.I();
      result.maximum = finite_maximum(result.I);
      result.picture = colour_renderer::to_image(
          renderer.render_channels(result.I, wavelengths, corv::vector()));
      return result;
    }
    // channel c = K_c / S_c x sum_b w_c(nm_b) band b, with S_c = sum_b w_c(nm_b).
    corv::cube channels(source.height(), source.width(), 3, arma::fill::zeros);
    std::array<double, 3> sums{};
    arma::umat keep;
    for (unsigned first = 0; first < bands; first += streamed_block_bands) {
      corv::band_list block;
      for (unsigned b = first; b < std::min(bands, first + streamed_block_bands); ++b) {
        block.push_back(b);
      }
      const corv::cube read = source.I(block);
      if (first == 0) {
        keep = renderer.keep_mask(read);
      }
      result.maximum = std::max(result.maximum, finite_maximum(read));
      for (arma::uword i = 0; i < read.n_slices; ++i) {
        const std::array<float, 3> w = channel_weights(wavelengths(block[i]));
        for (arma::uword c = 0; c < 3; ++c) {
          if (w[c] != 0.0f) {
            channels.slice(c) += w[c] * read.slice(i);
            sums[c] += w[c];
          }
        }
      }
      if (progress && !progress(block.back() + 1, bands)) {
        result.cancelled = true;
        return result;
      }
    }
    for (arma::uword c = 0; c < 3; ++c) {
      channels.slice(c) *= static_cast<float>(channel_scale[c] / sums[c]);
    }
    result.picture = colour_renderer::to_image(renderer.finish_channels(channels, keep));
  } catch (const std::exception& error) {
    result.message = QString::fromStdString(error.what());
  }
  return result;
}

}  // namespace tavr
