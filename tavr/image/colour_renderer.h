#ifndef TAVR_IMAGE_COLOUR_RENDERER_H
#define TAVR_IMAGE_COLOUR_RENDERER_H

#include <QImage>
#include <array>
#include <vector>

#include "corv/io/types.h"

namespace corv {
class pipeline;
}

namespace tavr {

// What the image view shows of an image.
enum class component_view {
  colour,        // I in colour ("Color")
  irradiance,    // I: one band in grey, or in colour for band -1
  reflectance,   // s: one band in grey, or in colour for band -1
  specularity,   // k in grey
  shading,       // g in grey
  material_map,  // each pixel's material in its palette colour
  // Drawn by the main window from the image object's results, not by the renderer:
  class_map,            // each pixel's class in its legend colour
  endmember_abundances  // the checked endmembers' abundances over the colour picture
};

// How a single band is scaled to grey levels ("Normalize Band").
enum class band_normalisation {
  by_cube,  // divided by the largest value of the cube
  by_band   // divided by the largest value of the band
};

// The choices of the image rendering dialog, kept per image.
struct rendering_options {
  double data_ignore_val = -9999.0;       // pixels whose first band equals it are black
  bool auto_rgb = true;                   // colour from the whole spectrum, else rgb_bands
  std::array<int, 3> rgb_bands{0, 0, 0};  // red, green, blue band indexes (manual mode)
  bool contrast_enhancement = false;
  double min_cum_val = 0.01;  // cut-offs of the cumulative distribution (0..1)
  double max_cum_val = 0.99;

  bool operator==(const rendering_options& other) const;
  bool operator!=(const rendering_options& other) const { return !(*this == other); }
};

// Turns the components of an image into pictures for the image view.
//
// Three-channel cubes are in the channel order of the weight table: channel 0
// holds the short wavelengths and is shown as blue, channel 2 the long ones and
// is shown as red.
class colour_renderer {
 public:
  colour_renderer() = default;
  explicit colour_renderer(const rendering_options& options) : options_(options) {}

  const rendering_options& options() const { return options_; }
  void set_options(const rendering_options& options) { options_ = options; }

  // A cube as three channels of 0..255: colour from the spectrum (weighted by
  // `weighting`, empty for ones; see spectrum_to_colour) or the three manual
  // bands; pixels at the data-ignore value black; the sine tone curve; the
  // contrast enhancement when chosen. Throws std::invalid_argument for a manual
  // band outside the cube, and Armadillo's "Cube::min(): object has no
  // elements" for an empty cube.
  corv::cube render_channels(const corv::cube& source, const corv::vector& wavelengths,
                             const corv::vector& weighting) const;

  // Rendering steps after the colour: pixels not kept (0 in `keep`) black, the
  // sine tone curve, and the contrast enhancement when chosen.
  corv::cube finish_channels(corv::cube channels, const arma::umat& keep) const;
  // The pixels to keep: those whose first band is not the data-ignore value.
  arma::umat keep_mask(const corv::cube& source) const;

  // The picture of three channels (rows x columns x 3, 0..255): red from
  // channel 2, green from channel 1, blue from channel 0.
  static QImage to_image(const corv::cube& channels);

  // The colour picture of an image: I weighted by the illuminant when the
  // pipeline has one of the right length; an image without I shows its
  // reflectance instead.
  QImage render_colour(corv::pipeline& image) const;

  // A view of an image (`band` only for the irradiance and reflectance views,
  // -1 for colour). Missing components propagate the pipeline's
  // "does not exist" errors.
  QImage render(corv::pipeline& image, component_view view, int band = -1,
                band_normalisation normalisation = band_normalisation::by_cube) const;

  // One band in grey: 255 x value / the cube's or the band's maximum,
  // negative values and NaN black; all black when that maximum is not positive.
  static QImage band_image(const corv::cube& data, int band, band_normalisation normalisation);
  // A one-layer component (k, g) in grey: 255 x value / the 99.5th percentile
  // of its finite values, brighter values white, negative values and NaN black.
  static QImage grey_image(const corv::matrix& values);
  // The reflectance as the reflectance views show it: every value clamped to
  // 0..1. The recovered reflectance is a unit spectrum per pixel, whose values
  // lie in 0..1; the few pixels where the split divides by a shading near zero
  // or leaves a negative remainder would otherwise set the tone curve's range
  // and wash every material out to the same grey.
  static corv::cube displayed_reflectance(const corv::cube& s);
  // A layer in grey scaled by a given maximum (255 x value / maximum).
  static QImage grey_image(const corv::matrix& values, float maximum);
  // Element numbers (0-based) in the colours of `colours` (one red, green, blue
  // row of 0..255 per element); numbers without a colour, and NaN, black.
  static QImage material_map_image(const corv::matrix& map, const corv::matrix& colours);
  // The picture with the abundances of the chosen elements laid over it: each
  // pixel is blended towards the colour of each chosen element by that
  // element's abundance there (abundances and 0-based element indexes are rows
  // x columns x materials per pixel).
  static QImage overlay_abundances(const QImage& base, const corv::cube& abundances,
                                   const corv::cube& indexes, const std::vector<int>& elements,
                                   const corv::matrix& colours);

 private:
  rendering_options options_;
};

}  // namespace tavr

#endif
