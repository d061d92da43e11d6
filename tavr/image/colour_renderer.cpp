#include "tavr/image/colour_renderer.h"

#include <QPainter>
#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "corv/io/spectral_library.h"
#include "corv/pipeline/pipeline.h"
#include "tavr/image/channel_weights.h"
#include "tavr/image/contrast_stretch.h"
#include "tavr/image/tone_curve.h"

namespace tavr {

namespace {

int grey_level(float value, float scale) {
  if (!(value > 0.0f)) {  // negative and NaN
    return 0;
  }
  return static_cast<int>(std::lround(std::min(value * scale, 255.0f)));
}

QImage grey_picture(const corv::matrix& values, float maximum) {
  QImage picture(static_cast<int>(values.n_cols), static_cast<int>(values.n_rows),
                 QImage::Format_RGB32);
  const float scale = maximum > 0.0f ? 255.0f / maximum : 0.0f;
  for (arma::uword row = 0; row < values.n_rows; ++row) {
    auto* line = reinterpret_cast<QRgb*>(picture.scanLine(static_cast<int>(row)));
    for (arma::uword col = 0; col < values.n_cols; ++col) {
      const int level = grey_level(values(row, col), scale);
      line[col] = qRgb(level, level, level);
    }
  }
  return picture;
}

// The largest finite value, or 0 when there is none.
float finite_maximum(const float* begin, const float* end) {
  float maximum = 0.0f;
  bool found = false;
  for (const float* value = begin; value != end; ++value) {
    if (std::isfinite(*value) && (!found || *value > maximum)) {
      maximum = *value;
      found = true;
    }
  }
  return maximum;
}

// The level shown as white in a single-component view: the 99.5th percentile
// of the finite values, so that a few extreme pixels (a division by a shading
// near zero, a clipped highlight) do not turn everything else black.
float robust_maximum(const float* begin, const float* end) {
  std::vector<float> values;
  values.reserve(static_cast<std::size_t>(end - begin));
  for (const float* value = begin; value != end; ++value) {
    if (std::isfinite(*value)) {
      values.push_back(*value);
    }
  }
  if (values.empty()) {
    return 0.0f;
  }
  const auto at =
      values.begin() + static_cast<long>(0.995 * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

// A component of the pipeline, or null when it has none.
template <typename T>
const T* component_or_null(corv::pipeline& image, const T& (corv::pipeline::*getter)()) {
  try {
    const T& component = (image.*getter)();
    return component.empty() ? nullptr : &component;
  } catch (const std::exception&) {
    return nullptr;
  }
}

}  // namespace

corv::cube colour_renderer::render_channels(const corv::cube& source,
                                            const corv::vector& wavelengths,
                                            const corv::vector& weighting) const {
  corv::cube channels;
  if (options_.auto_rgb) {
    channels = spectrum_to_colour(source, wavelengths, weighting);
  } else {
    channels.set_size(source.n_rows, source.n_cols, 3);
    // The blue band goes to channel 0, so that the picture shows red as red.
    for (int c = 2; c >= 0; --c) {
      const int band = options_.rgb_bands[static_cast<std::size_t>(2 - c)];
      if (band < 0 || static_cast<arma::uword>(band) >= source.n_slices) {
        throw std::invalid_argument("colour_renderer: Band " + std::to_string(band) +
                                    " does not exist; the image has " +
                                    std::to_string(source.n_slices) + " bands.");
      }
      channels.slice(static_cast<arma::uword>(c)) = source.slice(static_cast<arma::uword>(band));
    }
  }

  return finish_channels(std::move(channels), keep_mask(source));
}

arma::umat colour_renderer::keep_mask(const corv::cube& source) const {
  arma::umat keep(source.n_rows, source.n_cols, arma::fill::ones);
  const auto ignored = static_cast<float>(options_.data_ignore_val);
  if (source.n_slices > 0) {
    keep = source.slice(0) != ignored;
  }
  return keep;
}

corv::cube colour_renderer::finish_channels(corv::cube channels, const arma::umat& keep) const {
  const arma::uvec dropped = arma::find(keep == 0);
  for (arma::uword c = 0; c < channels.n_slices; ++c) {
    channels.slice(c).elem(dropped).zeros();
  }

  apply_sine_tone_curve(channels);

  if (options_.contrast_enhancement) {
    stretch_contrast(channels, keep, options_.min_cum_val, options_.max_cum_val);
  }
  return channels;
}

QImage colour_renderer::to_image(const corv::cube& channels) {
  if (channels.n_slices != 3) {
    throw std::invalid_argument("colour_renderer: A picture needs three channels, not " +
                                std::to_string(channels.n_slices) + ".");
  }
  QImage picture(static_cast<int>(channels.n_cols), static_cast<int>(channels.n_rows),
                 QImage::Format_RGB32);
  const auto level = [](float value) {
    if (!(value > 0.0f)) {
      return 0;
    }
    return static_cast<int>(std::lround(std::min(value, 255.0f)));
  };
  for (arma::uword row = 0; row < channels.n_rows; ++row) {
    auto* line = reinterpret_cast<QRgb*>(picture.scanLine(static_cast<int>(row)));
    for (arma::uword col = 0; col < channels.n_cols; ++col) {
      line[col] = qRgb(level(channels(row, col, 2)), level(channels(row, col, 1)),
                       level(channels(row, col, 0)));
    }
  }
  return picture;
}

QImage colour_renderer::render_colour(corv::pipeline& image) const {
  const corv::cube* irradiance = component_or_null(image, &corv::pipeline::I);
  if (irradiance == nullptr) {
    return to_image(render_channels(image.s(), image.wavelengths(), corv::vector()));
  }
  const corv::vector& wavelengths = image.wavelengths();
  const corv::vector* illuminant = component_or_null(image, &corv::pipeline::illuminant);
  const bool usable = illuminant != nullptr && illuminant->n_elem == irradiance->n_slices;
  return to_image(render_channels(*irradiance, wavelengths, usable ? *illuminant : corv::vector()));
}

QImage colour_renderer::render(corv::pipeline& image, component_view view, int band,
                               band_normalisation normalisation) const {
  switch (view) {
    case component_view::colour:
      return render_colour(image);
    case component_view::irradiance:
      if (band < 0) {
        return render_colour(image);
      }
      return band_image(image.I(), band, normalisation);
    case component_view::reflectance: {
      const corv::cube shown = displayed_reflectance(image.s());
      if (band < 0) {
        return to_image(render_channels(shown, image.wavelengths(), corv::vector()));
      }
      return band_image(shown, band, normalisation);
    }
    case component_view::specularity:
      return grey_image(image.k());
    case component_view::shading:
      return grey_image(image.g());
    case component_view::material_map: {
      const corv::matrix& map = image.material_map();
      const float highest = finite_maximum(map.memptr(), map.memptr() + map.n_elem);
      const auto count = static_cast<arma::uword>(std::max(highest, 0.0f)) + 1;
      return material_map_image(map, corv::spectral_library::palette_colours(0, count));
    }
    case component_view::class_map:
    case component_view::endmember_abundances:
      throw std::invalid_argument(
          "colour_renderer: Class and endmember views need the image's "
          "classification results.");
  }
  return QImage();
}

QImage colour_renderer::band_image(const corv::cube& data, int band,
                                   band_normalisation normalisation) {
  if (band < 0 || static_cast<arma::uword>(band) >= data.n_slices) {
    throw std::invalid_argument("colour_renderer: Band " + std::to_string(band) +
                                " does not exist; the image has " + std::to_string(data.n_slices) +
                                " bands.");
  }
  const corv::matrix values = data.slice(static_cast<arma::uword>(band));
  const float maximum = normalisation == band_normalisation::by_cube
                            ? finite_maximum(data.memptr(), data.memptr() + data.n_elem)
                            : finite_maximum(values.memptr(), values.memptr() + values.n_elem);
  return grey_picture(values, maximum);
}

bool rendering_options::operator==(const rendering_options& other) const {
  return data_ignore_val == other.data_ignore_val && auto_rgb == other.auto_rgb &&
         rgb_bands == other.rgb_bands && contrast_enhancement == other.contrast_enhancement &&
         min_cum_val == other.min_cum_val && max_cum_val == other.max_cum_val;
}

QImage colour_renderer::grey_image(const corv::matrix& values, float maximum) {
  return grey_picture(values, maximum);
}

QImage colour_renderer::grey_image(const corv::matrix& values) {
  return grey_picture(values, robust_maximum(values.memptr(), values.memptr() + values.n_elem));
}

corv::cube colour_renderer::displayed_reflectance(const corv::cube& s) {
  corv::cube shown = s;
  shown.transform([](float value) { return value > 0.0f ? std::min(value, 1.0f) : 0.0f; });
  return shown;
}

QImage colour_renderer::material_map_image(const corv::matrix& map, const corv::matrix& colours) {
  QImage picture(static_cast<int>(map.n_cols), static_cast<int>(map.n_rows), QImage::Format_RGB32);
  picture.fill(Qt::black);
  for (arma::uword row = 0; row < map.n_rows; ++row) {
    auto* line = reinterpret_cast<QRgb*>(picture.scanLine(static_cast<int>(row)));
    for (arma::uword col = 0; col < map.n_cols; ++col) {
      const float element = map(row, col);
      if (!(element >= 0.0f) || element >= static_cast<float>(colours.n_rows)) {
        continue;
      }
      const auto e = static_cast<arma::uword>(element);
      line[col] = qRgb(static_cast<int>(colours(e, 0)), static_cast<int>(colours(e, 1)),
                       static_cast<int>(colours(e, 2)));
    }
  }
  return picture;
}

QImage colour_renderer::overlay_abundances(const QImage& base, const corv::cube& abundances,
                                           const corv::cube& indexes,
                                           const std::vector<int>& elements,
                                           const corv::matrix& colours) {
  QImage picture = base.convertToFormat(QImage::Format_RGB32);
  if (abundances.empty() || arma::size(abundances) != arma::size(indexes)) {
    return picture;
  }
  const int rows = std::min(picture.height(), static_cast<int>(abundances.n_rows));
  const int cols = std::min(picture.width(), static_cast<int>(abundances.n_cols));
  for (int row = 0; row < rows; ++row) {
    auto* line = reinterpret_cast<QRgb*>(picture.scanLine(row));
    for (int col = 0; col < cols; ++col) {
      double red = qRed(line[col]), green = qGreen(line[col]), blue = qBlue(line[col]);
      for (arma::uword j = 0; j < abundances.n_slices; ++j) {
        const auto r = static_cast<arma::uword>(row);
        const auto c = static_cast<arma::uword>(col);
        const float index = indexes(r, c, j);
        const float weight = std::clamp(abundances(r, c, j), 0.0f, 1.0f);
        if (!(index >= 0.0f) || !(weight > 0.0f)) {
          continue;
        }
        const int element = static_cast<int>(index);
        if (static_cast<arma::uword>(element) >= colours.n_rows ||
            std::find(elements.begin(), elements.end(), element) == elements.end()) {
          continue;
        }
        const auto e = static_cast<arma::uword>(element);
        red += weight * (colours(e, 0) - red);
        green += weight * (colours(e, 1) - green);
        blue += weight * (colours(e, 2) - blue);
      }
      line[col] = qRgb(static_cast<int>(std::lround(red)), static_cast<int>(std::lround(green)),
                       static_cast<int>(std::lround(blue)));
    }
  }
  return picture;
}

}  // namespace tavr
