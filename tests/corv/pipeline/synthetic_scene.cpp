#include "tests/corv/pipeline/synthetic_scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <stdexcept>
#include <string>

#include "corv/io/envi_library.h"
#include "corv/io/spectral_library.h"

namespace corv::test {
namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double full_scale = 4095.0;
constexpr arma::uword scene_size = 120;
constexpr arma::uword tile = 40;
constexpr arma::uword cell = 20;
constexpr double dome_rim = 0.45;
constexpr float highlight_peak = 0.3f;
constexpr double highlight_sigma = 3.0;

// The nine materials, in tile order: saturated and pale colours, man-made and
// natural, none of them close to grey. USGS labels pad their fields with runs
// of blanks, so their distinctive start is matched; ECOSTRESS labels end with
// the spectrum's number and are compared whole.
struct material_source {
  bool usgs;
  const char* label;
};
constexpr std::array<material_source, 9> tile_materials{{
    {true, "Plastic_Vinyl GDS398 Red Toy"},
    {true, "Plastic_Pipe GDS344 Blue"},
    {true, "Plastic_HDPE GDS386 Yelopaqu"},
    {true, "Malachite GDS801 synthetic"},
    {true, "Fiberglass GDS374 Pnk Insul"},
    {false, "ecostress_library_with_mixtures 416"},  // vegetation
    {false, "ecostress_library_with_mixtures 765"},  // soil
    {true, "Wood_Beam GDS363 Nw Pine 2X4"},
    {false, "ecostress_library_with_mixtures 340"},  // red leaf
}};

// Linear interpolation onto the scenes' grid. Where a library's channels
// overlap (two spectrometers list a few wavelengths twice, out of order), a
// channel is used only when its wavelength is above every one before it;
// non-finite points are skipped.
vector resample(const vector& wavelengths, const vector& values) {
  std::vector<double> x;
  std::vector<double> y;
  for (arma::uword i = 0; i < wavelengths.n_elem; ++i) {
    if (std::isfinite(values(i)) && std::isfinite(wavelengths(i)) &&
        (x.empty() || wavelengths(i) > x.back())) {
      x.push_back(wavelengths(i));
      y.push_back(values(i));
    }
  }
  const arma::vec onto = arma::conv_to<arma::vec>::from(scene_wavelengths());
  arma::vec result;
  arma::interp1(arma::vec(x), arma::vec(y), onto, result, "linear", arma::datum::nan);
  if (!result.is_finite()) {
    throw std::runtime_error("resample: The library does not cover 400..720 nm.");
  }
  return arma::conv_to<vector>::from(result);
}

// Reflectances, one column per material, read once per process.
const matrix& reflectances() {
  static const matrix S = [] {
    const std::string root = CORV_SHARED_DATA;
    const spectral_library usgs =
        read_envi_library(root + "/usgs-aster-spectra-and-aviris/s07_AV95_envi.sli");
    const spectral_library ecostress =
        read_envi_library(root + "/ecostress-library/ecostress_library_with_mixtures");
    matrix result(scene_wavelengths().n_elem, tile_materials.size());
    for (arma::uword j = 0; j < tile_materials.size(); ++j) {
      const spectral_library& library = tile_materials[j].usgs ? usgs : ecostress;
      const std::string wanted = tile_materials[j].label;
      const auto& labels = library.labels();
      const auto found = std::find_if(labels.begin(), labels.end(), [&](const std::string& label) {
        return tile_materials[j].usgs ? label.compare(0, wanted.size(), wanted) == 0
                                      : label == wanted;
      });
      if (found == labels.end()) {
        throw std::runtime_error("reflectances: No spectrum labelled " + wanted + ".");
      }
      const vector values = library.endmembers().col(found - labels.begin());
      result.col(j) = resample(library.wavelengths(), values);
    }
    return result;
  }();
  return S;
}

vector black_body(double kelvin, double c2, const vector& wavelengths) {
  vector result(wavelengths.n_elem);
  for (arma::uword i = 0; i < wavelengths.n_elem; ++i) {
    const double w = wavelengths(i);
    result(i) =
        static_cast<float>(100.0 * std::pow(560.0 / w, 5.0) * std::expm1(c2 / (kelvin * 560.0)) /
                           std::expm1(c2 / (kelvin * w)));
  }
  return result;
}

// Adds a Gaussian highlight centred at (row, col) to k.
void add_highlight(matrix& k, double row, double col, float peak) {
  const double two_variance = 2.0 * highlight_sigma * highlight_sigma;
  for (arma::uword c = 0; c < k.n_cols; ++c) {
    for (arma::uword r = 0; r < k.n_rows; ++r) {
      const double dr = static_cast<double>(r) - row;
      const double dc = static_cast<double>(c) - col;
      k(r, c) += static_cast<float>(peak * std::exp(-(dr * dr + dc * dc) / two_variance));
    }
  }
}

// Renders the specular scene, with a highlight of `extra_peak` added to the
// cell at row 1, column 4 after the exposure is set.
scene render(const vector& illuminant, float extra_peak) {
  const matrix& S = reflectances();
  arma::umat which(scene_size, scene_size);
  matrix g(scene_size, scene_size);
  matrix k(scene_size, scene_size, arma::fill::zeros);
  const double tile_centre = (static_cast<double>(tile) - 1.0) / 2.0;
  for (arma::uword c = 0; c < scene_size; ++c) {
    for (arma::uword r = 0; r < scene_size; ++r) {
      which(r, c) = ((r / tile) * (scene_size / tile) + c / tile) % S.n_cols;
      const double dr = static_cast<double>(r % tile) - tile_centre;
      const double dc = static_cast<double>(c % tile) - tile_centre;
      const double fall = (dr * dr + dc * dc) / (2.0 * tile_centre * tile_centre);
      g(r, c) = static_cast<float>(dome_rim + (1.0 - dome_rim) * (1.0 - fall));
    }
  }
  const double cell_centre = (static_cast<double>(cell) - 1.0) / 2.0;
  for (arma::uword top = 0; top < scene_size; top += cell) {
    for (arma::uword left = 0; left < scene_size; left += cell) {
      add_highlight(k, static_cast<double>(top) + cell_centre,
                    static_cast<double>(left) + cell_centre, highlight_peak);
    }
  }
  const auto body = [&](arma::uword r, arma::uword c, arma::uword b) {
    return static_cast<double>(g(r, c)) * S(b, which(r, c)) + k(r, c);
  };
  double brightest = 0.0;
  for (arma::uword b = 0; b < illuminant.n_elem; ++b) {
    for (arma::uword i = 0; i < g.n_elem; ++i) {
      brightest = std::max(brightest, body(i % scene_size, i / scene_size, b) * illuminant(b));
    }
  }
  const double exposure = 0.8 * full_scale / brightest;
  if (extra_peak > 0.0f) {
    add_highlight(k, static_cast<double>(cell) + cell_centre,
                  4.0 * static_cast<double>(cell) + cell_centre, extra_peak);
  }
  scene s;
  s.illuminant = arma::conv_to<vector>::from(exposure * arma::conv_to<arma::vec>::from(illuminant));
  s.I.set_size(scene_size, scene_size, illuminant.n_elem);
  for (arma::uword b = 0; b < illuminant.n_elem; ++b) {
    const double L = static_cast<double>(illuminant(b)) * exposure;
    for (arma::uword c = 0; c < scene_size; ++c) {
      for (arma::uword r = 0; r < scene_size; ++r) {
        s.I(r, c, b) = static_cast<float>(std::min(body(r, c, b) * L, full_scale));
      }
    }
  }
  return s;
}

}  // namespace

vector scene_wavelengths() {
  return arma::regspace<vector>(400.0f, 10.0f, 720.0f);
}

vector cie_d65() {
  // CIE standard illuminant D65, relative spectral power, 400..720 nm every 10 nm.
  return vector{82.7549f,  91.4860f,  93.4318f,  86.6823f,  104.8650f, 117.0080f, 117.8120f,
                114.8610f, 115.9230f, 108.8110f, 109.3540f, 107.8020f, 104.7900f, 107.6890f,
                104.4050f, 104.0460f, 100.0000f, 96.3342f,  95.7880f,  88.6856f,  90.0062f,
                89.5991f,  87.6987f,  83.2886f,  83.6992f,  80.0268f,  80.2146f,  82.2778f,
                78.2842f,  69.7213f,  71.6091f,  74.3490f,  61.6040f};
}

vector cie_a(const vector& wavelengths) {
  return black_body(2848.0, 1.435e7, wavelengths);  // c2 in nm K
}

vector planck(double kelvin, const vector& wavelengths) {
  return black_body(kelvin, 6.62607015e-34 * 299792458.0 / 1.380649e-23 * 1e9, wavelengths);
}

scene specular_scene(const vector& illuminant) {
  return render(illuminant, 0.0f);
}

scene noisy_scene(const vector& illuminant, float sigma) {
  scene s = specular_scene(illuminant);
  // Box-Muller on the raw output of mt19937, whose sequence the standard fixes,
  // so that the noise is the same with every standard library.
  std::mt19937 engine(20261121u);
  const auto uniform = [&engine] {
    return (static_cast<double>(engine()) + 0.5) / 4294967296.0;  // in (0, 1)
  };
  for (arma::uword i = 0; i < s.I.n_elem; i += 2) {
    const double radius = std::sqrt(-2.0 * std::log(uniform()));
    const double angle = 2.0 * pi * uniform();
    const std::array<double, 2> normal{radius * std::cos(angle), radius * std::sin(angle)};
    for (arma::uword j = 0; j < 2 && i + j < s.I.n_elem; ++j) {
      const double value = s.I(i + j) + sigma * normal[j];
      s.I(i + j) = static_cast<float>(std::clamp(value, 0.0, full_scale));
    }
  }
  return s;
}

scene saturated_scene(const vector& illuminant) {
  return render(illuminant, 0.6f);
}

}  // namespace corv::test
