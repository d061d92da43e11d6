#include "tavr/image/image_loading.h"

#include <algorithm>
#include <cmath>
#include <exception>

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

QImage first_picture(corv::input& source, const rendering_options& options) {
  const corv::vector wavelengths = source.wavelengths();
  const std::array<unsigned, 3> bands = first_picture_bands(wavelengths, options);
  // Each band once, in increasing order: the reader's fastest path.
  corv::band_list wanted(bands.begin(), bands.end());
  std::sort(wanted.begin(), wanted.end());
  wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
  const corv::cube read = source.I(wanted);

  const bool weighted = options.auto_rgb && spans_550(wavelengths);
  const auto ignored = static_cast<float>(options.data_ignore_val);
  corv::cube channels(read.n_rows, read.n_cols, 3);
  arma::umat keep(read.n_rows, read.n_cols, arma::fill::ones);
  for (arma::uword c = 0; c < 3; ++c) {
    const auto slot = static_cast<arma::uword>(std::find(wanted.begin(), wanted.end(), bands[c]) -
                                               wanted.begin());
    channels.slice(c) = read.slice(slot);
    keep %= arma::conv_to<arma::umat>::from(read.slice(slot) != ignored);
    if (weighted) {
      channels.slice(c) *= static_cast<float>(channel_scale[c]);
    }
  }
  return colour_renderer::to_image(colour_renderer(options).finish_channels(channels, keep));
}

full_picture_result full_picture(
    corv::input& source, const rendering_options& options, bool hold,
    const std::function<bool(unsigned done, unsigned total)>& progress) {
  full_picture_result result;
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
