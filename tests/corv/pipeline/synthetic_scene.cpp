#include "tests/corv/pipeline/synthetic_scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <sstream>
#include <stdexcept>

#include "corv/io/envi_library.h"
#include "corv/io/spectral_library.h"

namespace corv::test {
namespace {

constexpr double pi = 3.14159265358979323846;

std::string number(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

// Where each material comes from: its library and the start of its label
// (USGS labels pad their fields with runs of blanks, so the distinctive start
// is matched rather than the whole label).
struct material_source {
  const char* name;
  const char* library;  // "usgs" or "ecostress"
  const char* label;
};

constexpr std::array<material_source, 10> material_sources{{
    {"red_vinyl", "usgs", "Plastic_Vinyl GDS398 Red Toy"},
    {"blue_pipe", "usgs", "Plastic_Pipe GDS344 Blue"},
    {"yellow_hdpe", "usgs", "Plastic_HDPE GDS386 Yelopaqu"},
    {"malachite", "usgs", "Malachite GDS801 synthetic"},
    {"pink_fiberglass", "usgs", "Fiberglass GDS374 Pnk Insul"},
    {"pine_wood", "usgs", "Wood_Beam GDS363 Nw Pine 2X4"},
    {"white_hdpe", "usgs", "Plastic_HDPE GDS384 Wht Opaq"},
    {"soil", "ecostress", "ecostress_library_with_mixtures 765"},
    {"vegetation", "ecostress", "ecostress_library_with_mixtures 416"},
    {"red_leaf", "ecostress", "ecostress_library_with_mixtures 340"},
}};

const spectral_library& library(const std::string& which) {
  static const spectral_library usgs = read_envi_library(
      std::string(CORV_SHARED_DATA) + "/usgs-aster-spectra-and-aviris/s07_AV95_envi.sli");
  static const spectral_library ecostress = read_envi_library(
      std::string(CORV_SHARED_DATA) + "/ecostress-library/ecostress_library_with_mixtures");
  return which == "usgs" ? usgs : ecostress;
}

// The nine materials of the tiled scenes, in tile order: saturated and pale
// colours, man-made and natural, none of them close to grey.
const std::vector<std::string>& tile_materials() {
  static const std::vector<std::string> names{"red_vinyl", "blue_pipe",       "yellow_hdpe",
                                              "malachite", "pink_fiberglass", "vegetation",
                                              "soil",      "pine_wood",       "red_leaf"};
  return names;
}

constexpr arma::uword scene_size = 120;
constexpr arma::uword scene_tile = 40;
constexpr double scene_exposure_fraction = 0.8;
constexpr float dome_rim = 0.45f;
constexpr float highlight_peak = 0.3f;
constexpr float highlight_sigma = 3.0f;

scene_layout domed_layout() {
  scene_layout layout =
      tiled_layout(scene_size, scene_size, scene_tile, tile_materials().size(), 1.0f);
  add_domes(layout, scene_tile, dome_rim);
  return layout;
}

scene render_scene(const std::string& name, const scene_layout& layout, const vector& illuminant) {
  const std::vector<material> materials = library_materials(tile_materials());
  return render(name, layout, materials, illuminant,
                exposure_for(layout, materials, illuminant, scene_exposure_fraction));
}

}  // namespace

vector scene_wavelengths() {
  return arma::regspace<vector>(400.0f, 10.0f, 720.0f);
}

vector resample_spectrum(const vector& wavelengths, const vector& values, const vector& onto) {
  if (wavelengths.n_elem != values.n_elem) {
    throw std::runtime_error("resample_spectrum: " + number(wavelengths.n_elem) +
                             " wavelengths for " + number(values.n_elem) + " values.");
  }
  std::vector<double> x;
  std::vector<double> y;
  for (arma::uword i = 0; i < wavelengths.n_elem; ++i) {
    if (!std::isfinite(values(i)) || !std::isfinite(wavelengths(i))) {
      continue;
    }
    if (x.empty() || wavelengths(i) > x.back()) {
      x.push_back(wavelengths(i));
      y.push_back(values(i));
    }
  }
  if (x.size() < 2) {
    throw std::runtime_error("resample_spectrum: Fewer than two usable points.");
  }
  vector result(onto.n_elem);
  for (arma::uword i = 0; i < onto.n_elem; ++i) {
    const double w = onto(i);
    if (w < x.front() || w > x.back()) {
      throw std::runtime_error("resample_spectrum: " + number(w) + " nm is outside " +
                               number(x.front()) + ".." + number(x.back()) + " nm.");
    }
    const auto upper = std::upper_bound(x.begin(), x.end(), w);
    const std::size_t j =
        upper == x.end() ? x.size() - 1 : static_cast<std::size_t>(upper - x.begin());
    const std::size_t j0 = j - 1;
    const double t = (w - x[j0]) / (x[j] - x[j0]);
    result(i) = static_cast<float>(y[j0] + t * (y[j] - y[j0]));
  }
  return result;
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
  // The defining formula of illuminant A, wavelengths in nm.
  const double c2 = 1.435e7;  // nm K
  const double t = 2848.0;
  vector result(wavelengths.n_elem);
  for (arma::uword i = 0; i < wavelengths.n_elem; ++i) {
    const double w = wavelengths(i);
    result(i) = static_cast<float>(100.0 * std::pow(560.0 / w, 5.0) * std::expm1(c2 / (t * 560.0)) /
                                   std::expm1(c2 / (t * w)));
  }
  return result;
}

vector planck(double kelvin, const vector& wavelengths) {
  // c2 = h c / k from the exact SI values of h, c and k, in nm K.
  const double c2 = 6.62607015e-34 * 299792458.0 / 1.380649e-23 * 1e9;
  vector result(wavelengths.n_elem);
  for (arma::uword i = 0; i < wavelengths.n_elem; ++i) {
    const double w = wavelengths(i);
    result(i) =
        static_cast<float>(100.0 * std::pow(560.0 / w, 5.0) * std::expm1(c2 / (kelvin * 560.0)) /
                           std::expm1(c2 / (kelvin * w)));
  }
  return result;
}

material library_material(const std::string& name) {
  const auto source =
      std::find_if(material_sources.begin(), material_sources.end(),
                   [&](const material_source& entry) { return name == entry.name; });
  if (source == material_sources.end()) {
    throw std::runtime_error("library_material: Unknown material " + name + ".");
  }
  const spectral_library& lib = library(source->library);
  const std::string wanted = source->label;
  for (arma::uword i = 0; i < lib.size(); ++i) {
    const std::string& label = lib.labels()[i];
    // The ECOSTRESS labels end with the spectrum's number: compare them whole.
    const bool match = std::string(source->library) == "ecostress"
                           ? label == wanted
                           : label.compare(0, wanted.size(), wanted) == 0;
    if (match) {
      const vector values = arma::conv_to<vector>::from(lib.endmembers().col(i));
      return {name, label, resample_spectrum(lib.wavelengths(), values, scene_wavelengths())};
    }
  }
  throw std::runtime_error("library_material: No spectrum labelled " + wanted + ".");
}

std::vector<material> library_materials(const std::vector<std::string>& names) {
  std::vector<material> result;
  for (const std::string& name : names) {
    result.push_back(library_material(name));
  }
  return result;
}

scene_layout tiled_layout(arma::uword height, arma::uword width, arma::uword tile,
                          arma::uword materials, float shading) {
  scene_layout layout;
  layout.material_index.set_size(height, width);
  const arma::uword across = (width + tile - 1) / tile;
  for (arma::uword c = 0; c < width; ++c) {
    for (arma::uword r = 0; r < height; ++r) {
      layout.material_index(r, c) = ((r / tile) * across + c / tile) % materials;
    }
  }
  layout.g.set_size(height, width);
  layout.g.fill(shading);
  layout.k.zeros(height, width);
  return layout;
}

void add_domes(scene_layout& layout, arma::uword tile, float rim) {
  const double centre = (static_cast<double>(tile) - 1.0) / 2.0;
  const double reach = 2.0 * centre * centre;  // squared distance of a corner
  for (arma::uword c = 0; c < layout.g.n_cols; ++c) {
    for (arma::uword r = 0; r < layout.g.n_rows; ++r) {
      const double dr = static_cast<double>(r % tile) - centre;
      const double dc = static_cast<double>(c % tile) - centre;
      const double fall = (dr * dr + dc * dc) / reach;
      layout.g(r, c) = static_cast<float>(rim + (1.0 - rim) * (1.0 - fall));
    }
  }
}

void add_highlight(scene_layout& layout, double row, double col, float peak, float sigma) {
  const double two_variance = 2.0 * static_cast<double>(sigma) * sigma;
  for (arma::uword c = 0; c < layout.k.n_cols; ++c) {
    for (arma::uword r = 0; r < layout.k.n_rows; ++r) {
      const double dr = static_cast<double>(r) - row;
      const double dc = static_cast<double>(c) - col;
      layout.k(r, c) += static_cast<float>(peak * std::exp(-(dr * dr + dc * dc) / two_variance));
    }
  }
}

void add_highlights(scene_layout& layout, arma::uword spacing, float peak, float sigma) {
  const double centre = (static_cast<double>(spacing) - 1.0) / 2.0;
  for (arma::uword top = 0; top + spacing <= layout.k.n_rows; top += spacing) {
    for (arma::uword left = 0; left + spacing <= layout.k.n_cols; left += spacing) {
      add_highlight(layout, static_cast<double>(top) + centre, static_cast<double>(left) + centre,
                    peak, sigma);
    }
  }
}

double exposure_for(const scene_layout& layout, const std::vector<material>& materials,
                    const vector& illuminant, double fraction) {
  double brightest = 0.0;
  for (arma::uword c = 0; c < layout.g.n_cols; ++c) {
    for (arma::uword r = 0; r < layout.g.n_rows; ++r) {
      const vector& S = materials[layout.material_index(r, c)].reflectance;
      for (arma::uword b = 0; b < illuminant.n_elem; ++b) {
        const double value =
            (static_cast<double>(layout.g(r, c)) * S(b) + layout.k(r, c)) * illuminant(b);
        brightest = std::max(brightest, value);
      }
    }
  }
  return fraction * sensor_full_scale / brightest;
}

scene render(const std::string& name, const scene_layout& layout,
             const std::vector<material>& materials, const vector& illuminant, double exposure) {
  scene s;
  s.name = name;
  s.wavelengths = scene_wavelengths();
  if (illuminant.n_elem != s.wavelengths.n_elem) {
    throw std::runtime_error("render: The illuminant has " + number(illuminant.n_elem) +
                             " bands, the scene " + number(s.wavelengths.n_elem) + ".");
  }
  s.illuminant = arma::conv_to<vector>::from(exposure * arma::conv_to<arma::vec>::from(illuminant));
  s.k = layout.k;
  s.g = layout.g;
  s.material_index = layout.material_index;
  s.materials = materials;
  const arma::uword height = layout.g.n_rows;
  const arma::uword width = layout.g.n_cols;
  const arma::uword bands = s.wavelengths.n_elem;
  s.I.set_size(height, width, bands);
  for (arma::uword b = 0; b < bands; ++b) {
    const double L = static_cast<double>(illuminant(b)) * exposure;
    for (arma::uword c = 0; c < width; ++c) {
      for (arma::uword r = 0; r < height; ++r) {
        const double S = materials[layout.material_index(r, c)].reflectance(b);
        double value = (static_cast<double>(layout.g(r, c)) * S + layout.k(r, c)) * L;
        if (value >= sensor_full_scale) {
          value = sensor_full_scale;
          ++s.saturated;
        }
        s.I(r, c, b) = static_cast<float>(value);
      }
    }
  }
  return s;
}

void add_noise(scene& s, float sigma, unsigned seed) {
  // Box-Muller on the raw output of mt19937, whose sequence the standard fixes,
  // so that the noise is the same with every standard library.
  std::mt19937 engine(seed);
  const auto uniform = [&engine] {
    return (static_cast<double>(engine()) + 0.5) / 4294967296.0;  // in (0, 1)
  };
  s.saturated = 0;
  for (arma::uword i = 0; i < s.I.n_elem; i += 2) {
    const double radius = std::sqrt(-2.0 * std::log(uniform()));
    const double angle = 2.0 * pi * uniform();
    const std::array<double, 2> normal{radius * std::cos(angle), radius * std::sin(angle)};
    for (arma::uword j = 0; j < 2 && i + j < s.I.n_elem; ++j) {
      double value = s.I(i + j) + sigma * normal[j];
      if (value >= sensor_full_scale) {
        value = sensor_full_scale;
        ++s.saturated;
      }
      s.I(i + j) = static_cast<float>(std::max(0.0, value));
    }
  }
  s.noise_sigma = sigma;
}

scene specular_scene(const vector& illuminant, arma::uword patch) {
  scene_layout layout = domed_layout();
  add_highlights(layout, patch, highlight_peak, highlight_sigma);
  return render_scene("specular", layout, illuminant);
}

scene noisy_scene(const vector& illuminant, float sigma, arma::uword patch) {
  scene s = specular_scene(illuminant, patch);
  s.name = "noisy";
  add_noise(s, sigma, 20261121u);
  return s;
}

scene saturated_scene(const vector& illuminant, float peak, arma::uword patch) {
  scene_layout layout = domed_layout();
  add_highlights(layout, patch, highlight_peak, highlight_sigma);
  const std::vector<material> materials = library_materials(tile_materials());
  // The exposure of the specular scene, so that only the extra highlight clips.
  const double exposure = exposure_for(layout, materials, illuminant, scene_exposure_fraction);
  const double centre = (static_cast<double>(patch) - 1.0) / 2.0;
  add_highlight(layout, static_cast<double>(patch) + centre,
                4.0 * static_cast<double>(patch) + centre, peak, highlight_sigma);
  return render("saturated", layout, materials, illuminant, exposure);
}

double angle_degrees(const vector& a, const vector& b) {
  const arma::vec x = arma::conv_to<arma::vec>::from(a);
  const arma::vec y = arma::conv_to<arma::vec>::from(b);
  const double cosine = arma::dot(x, y) / (arma::norm(x) * arma::norm(y));
  return std::acos(std::clamp(cosine, -1.0, 1.0)) * 180.0 / pi;
}

}  // namespace corv::test
