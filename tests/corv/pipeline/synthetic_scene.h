#ifndef CORV_TESTS_PIPELINE_SYNTHETIC_SCENE_H
#define CORV_TESTS_PIPELINE_SYNTHETIC_SCENE_H

// Ground-truth scenes for the recovery routines: images rendered under the
// dichromatic model I = (g * S + k) * L from real laboratory reflectances and
// illuminants whose values are known exactly, so that every recovered quantity
// can be compared with the one that made the image.

#include <string>
#include <vector>

#include "corv/io/types.h"

namespace corv::test {

// Full scale of the simulated 12-bit sensor.
constexpr float sensor_full_scale = 4095.0f;

// The scenes' wavelength grid: 33 bands, 400 to 720 nm every 10 nm.
vector scene_wavelengths();

// Linear interpolation of a spectrum onto other wavelengths. Where the source
// channels overlap (instruments with two spectrometers list a few wavelengths
// twice, out of order), a channel is used only when its wavelength is above
// every channel before it; non-finite points are skipped. Throws
// "resample_spectrum: <w> nm is outside <first>..<last> nm." rather than
// extrapolate.
vector resample_spectrum(const vector& wavelengths, const vector& values, const vector& onto);

// CIE standard illuminant D65 on scene_wavelengths() (560 nm = 100), from the
// published 10 nm table.
vector cie_d65();
// CIE standard illuminant A at any wavelengths (560 nm = 100), computed from its
// defining formula (Planck's law at 2848 K with c2 = 1.435e-2 m K).
vector cie_a(const vector& wavelengths);
// A black body at the given temperature (560 nm = 100), Planck's law with the
// exact second radiation constant c2 = h c / k.
vector planck(double kelvin, const vector& wavelengths);

// A real reflectance spectrum resampled onto scene_wavelengths().
struct material {
  std::string name;   // short name used in the scenes and the tables
  std::string label;  // the spectrum's label in its library
  vector reflectance;
};

// The materials the scenes are made of, by short name: "red_vinyl",
// "blue_pipe", "yellow_hdpe", "malachite", "pink_fiberglass", "pine_wood" and
// "white_hdpe" (USGS splib07), "soil", "vegetation" and "red_leaf" (ECOSTRESS).
// Reads the libraries in the shared data folder once per process; throws
// "library_material: ..." when a name or a spectrum is unknown.
material library_material(const std::string& name);
std::vector<material> library_materials(const std::vector<std::string>& names);

// A rendered scene and everything that made it.
struct scene {
  std::string name;
  cube I;                     // height x width x bands, sensor counts
  vector wavelengths;         // nm
  vector illuminant;          // L as rendered (the exposure included)
  matrix k;                   // height x width, specular coefficient
  matrix g;                   // height x width, shading factor
  arma::umat material_index;  // height x width, index into materials
  std::vector<material> materials;
  float noise_sigma = 0.0f;   // standard deviation of the added noise
  arma::uword saturated = 0;  // number of samples clipped at full scale
};

// How a scene is laid out, before rendering.
struct scene_layout {
  arma::umat material_index;
  matrix g;
  matrix k;
};

// Tiles of side `tile` pixels, material numbers cycling row by row through
// `materials` values; g = shading, k = 0.
scene_layout tiled_layout(arma::uword height, arma::uword width, arma::uword tile,
                          arma::uword materials, float shading);
// Replaces the shading by a dome on every tile: brightest (1) at the tile's
// centre, falling smoothly to `rim` at its corners.
void add_domes(scene_layout& layout, arma::uword tile, float rim);
// Adds a Gaussian highlight of the given peak and width (standard deviation,
// pixels) to k at the centre of every cell of side `spacing`.
void add_highlights(scene_layout& layout, arma::uword spacing, float peak, float sigma);
// Adds one Gaussian highlight centred at (row, col).
void add_highlight(scene_layout& layout, double row, double col, float peak, float sigma);

// The exposure that makes the brightest sample of the noise-free image equal
// to `fraction` of the sensor's full scale.
double exposure_for(const scene_layout& layout, const std::vector<material>& materials,
                    const vector& illuminant, double fraction);
// Renders I = (g * S + k) * (exposure * L), then clips at the full scale.
scene render(const std::string& name, const scene_layout& layout,
             const std::vector<material>& materials, const vector& illuminant, double exposure);
// Adds zero-mean Gaussian noise (deterministic for a seed, on every platform),
// then clips at 0 and the full scale.
void add_noise(scene& s, float sigma, unsigned seed);

// The suite's scenes, all 120 x 120 x 33 on 40-pixel tiles of nine materials,
// the brightest sample at 80 % of the full scale (before any clipping): a
// shading dome on every tile and one highlight centred in every cell of
// `patch` pixels, so that every patch of that grid holds specular variation.
scene specular_scene(const vector& illuminant, arma::uword patch = 20);
// The specular scene with Gaussian noise of `sigma` counts.
scene noisy_scene(const vector& illuminant, float sigma, arma::uword patch = 20);
// The specular scene with a second highlight of the given peak in patch (1, 4)
// of that grid, on the brightest material, clipped at the full scale.
scene saturated_scene(const vector& illuminant, float peak = 0.6f, arma::uword patch = 20);

// Angle in degrees between two spectra (0 for parallel ones).
double angle_degrees(const vector& a, const vector& b);

}  // namespace corv::test

#endif
