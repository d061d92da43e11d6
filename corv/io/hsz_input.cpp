#include "corv/io/hsz_input.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "corv/io/huge_pages.h"
#include "corv/io/memory_budget.h"
#include "corv/spectral/nurbs.h"

namespace corv {

namespace {

[[noreturn]] void refuse(const std::string& text) {
  throw std::runtime_error("hsz_input: " + text);
}

// Conversions run on one thread: they are bound by memory, and on a busy
// machine a second thread's wait at the end of the loop costs more than it saves.
matrix to_matrix(const quantised::value_block& values) {
  matrix out(values.rows(), values.cols(), arma::fill::none);
  advise_huge_pages(out.memptr(), out.n_elem * sizeof(float));
  std::transform(values.values().begin(), values.values().end(), out.begin(),
                 [](double x) { return static_cast<float>(x); });
  return out;
}

template <typename T, typename Convert>
cube to_cube(const quantised::block<T>& values, Convert convert) {
  cube out(values.rows(), values.cols(), values.slices(), arma::fill::none);
  advise_huge_pages(out.memptr(), out.n_elem * sizeof(float));
  std::transform(values.values().begin(), values.values().end(), out.begin(), convert);
  return out;
}

cube values_cube(const quantised::value_block& values) {
  return to_cube(values, [](double x) { return static_cast<float>(x); });
}

// The file counts elements from 1, the library from 0.
cube zero_based_cube(const quantised::index_block& indexes) {
  return to_cube(indexes, [](std::int32_t index) { return static_cast<float>(index - 1); });
}

}  // namespace

hsz_input::hsz_input(const std::string& file_name, bool hold, int nurbs_degree)
    : file_name_(file_name), hold_(hold), nurbs_degree_(nurbs_degree) {
  bool read = false;
  try {
    read = record_.load(file_name);
  } catch (const std::exception& error) {
    throw std::runtime_error(std::string("Error constructing HSZ: ") + error.what());
  }
  if (!read) {
    throw std::runtime_error("Error reading in HSZ file.");
  }
  const hsz_header& header = record_.header;
  height_ = static_cast<std::uint32_t>(header.lines);
  width_ = static_cast<std::uint32_t>(header.samples);
  bands_ = static_cast<std::uint32_t>(header.bands);
}

void hsz_input::set_nurbs_degree(int degree) {
  nurbs_degree_ = degree;
  // What was composed with curves of another degree no longer holds.
  held_I_.reset();
  held_s_.reset();
}

void hsz_input::set_hold(bool hold) {
  hold_ = hold;
  if (!hold_) {
    held_I_.reset();
    held_s_.reset();
  }
}

void hsz_input::check_pixels(const quantised::value_block& values, std::uint32_t slices,
                             const std::string& name) const {
  if (values.empty()) {
    refuse(name + " contains no data.");
  }
  if (values.shape() != quantised::block_shape{height_, width_, slices}) {
    refuse("Data size mismatch: " + name + " is incorrect size.");
  }
}

void hsz_input::check_pixels(const quantised::index_block& indexes, std::uint32_t slices,
                             const std::string& name) const {
  if (indexes.empty()) {
    refuse(name + " contains no data.");
  }
  if (indexes.shape() != quantised::block_shape{height_, width_, slices}) {
    refuse("Data size mismatch: " + name + " is incorrect size.");
  }
}

void hsz_input::check_elements(const quantised::value_block& elements,
                               const std::string& part) const {
  if (elements.empty()) {
    refuse(part + "->Elements contains no data.");
  }
  if (elements.rows() != bands_ || elements.slices() != 1) {
    refuse("Data size mismatch: " + part + "->Elements contains incorrect number of bands.");
  }
}

std::vector<double> hsz_input::curve_spectra(const hsz_part& part, std::int32_t stored_degree,
                                             const std::string& name, std::size_t& count) const {
  if (part.element_knots.empty() || part.element_cp.empty()) {
    refuse(name + "->NURBS Knots or Control Points contain no data.");
  }
  const std::int32_t wanted = stored_degree >= 0 ? stored_degree : nurbs_degree_;
  const std::size_t degree = wanted < 2 ? 2 : static_cast<std::size_t>(wanted);
  const std::size_t knots = part.element_knots.rows();
  const std::size_t controls = part.element_cp.rows();
  count = part.element_cp.cols();
  if (part.element_knots.cols() != 1 || part.element_knots.slices() != 1 ||
      part.element_cp.slices() != 2 || controls < degree + 1 || knots != controls + degree + 1) {
    refuse("Data size mismatch: " + name +
           "->NURBS Knots and Control Points do not fit curves of degree " +
           std::to_string(degree) + ".");
  }
  const std::vector<double>& stored_waves = record_.header.wavelengths;
  if (stored_waves.size() != bands_ || bands_ < 2) {
    refuse("Data size mismatch: HDR->wavelength contains incorrect number of bands.");
  }
  // The 16-bit storage moves every number by up to a step of its array's
  // range: the clamped ends are put back exactly and the interior kept inside
  // them, in order.
  const std::vector<double>& stored = part.element_knots.values();
  vector knot_vector(knots);
  for (std::size_t i = 0; i < knots; ++i) {
    float knot = 0.0f;
    if (i + degree + 1 >= knots) {
      knot = 1.0f;
    } else if (i > degree) {
      knot = std::min(std::max(static_cast<float>(stored[i]), 1e-7f), 1.0f - 1e-7f);
      knot = std::max(knot, knot_vector(i - 1));
    }
    knot_vector(i) = knot;
  }
  nurbs_control_points points;
  points.wavelengths.set_size(1, count, controls);
  points.values.set_size(1, count, controls);
  const std::vector<double>& cp = part.element_cp.values();
  for (std::size_t j = 0; j < count; ++j) {
    for (std::size_t i = 0; i < controls; ++i) {
      points.wavelengths(0, j, i) = static_cast<float>(cp[j * controls + i]);
      points.values(0, j, i) = static_cast<float>(cp[(count + j) * controls + i]);
    }
  }
  cube read;
  try {
    read = nurbs_evaluate(knot_vector, points, static_cast<std::uint32_t>(degree),
                          arma::conv_to<vector>::from(stored_waves));
  } catch (const std::exception& error) {
    refuse(name + "->NURBS curves cannot be read back: " + error.what());
  }
  std::vector<double> spectra(bands_ * count);
  for (std::size_t j = 0; j < count; ++j) {
    for (std::size_t b = 0; b < bands_; ++b) {
      spectra[j * bands_ + b] = read(0, j, b);
    }
  }
  return spectra;
}

std::vector<double> hsz_input::element_spectra(const hsz_part& part, const std::string& encoding,
                                               std::int32_t stored_degree, const std::string& name,
                                               std::size_t& count) const {
  if (encoding == "NURBS") {
    return curve_spectra(part, stored_degree, name, count);
  }
  check_elements(part.elements, name);
  count = part.elements.cols();
  return part.elements.values();
}

vector hsz_input::wavelengths() {
  const std::vector<double>& stored = record_.header.wavelengths;
  if (stored.size() != bands_) {
    refuse("Data size mismatch: HDR->wavelength contains incorrect number of bands.");
  }
  return arma::conv_to<vector>::from(stored);
}

vector hsz_input::illuminant() {
  const hsz_header& header = record_.header;
  std::size_t count = 0;
  const std::vector<double> spectra =
      element_spectra(record_.l, header.encoding_l, header.degree_nurbs_l, "L", count);
  vector light(bands_);
  std::transform(spectra.begin(), spectra.begin() + bands_, light.begin(),
                 [](double x) { return static_cast<float>(x); });
  return light;
}

matrix hsz_input::k() {
  const hsz_part& part = record_.k;
  const auto elements = static_cast<std::uint32_t>(record_.header.num_elements_k);
  check_pixels(part.factor, 1, "K->Factor");
  check_pixels(part.element_abundances, elements, "K->Element Abundances");
  check_pixels(part.element_abundance_indexes, elements, "K->Element Abundance Indexes");
  if (record_.header.encoding_k == "NURBS") {
    std::size_t count = 0;
    curve_spectra(part, record_.header.degree_nurbs_k, "K", count);
  } else if (part.elements.rows() != bands_) {
    refuse("Data size mismatch: K->Elements contains incorrect number of bands.");
  }
  return to_matrix(part.factor);
}

matrix hsz_input::g() {
  check_pixels(record_.s.factor, 1, "S->Factor (g)");
  return to_matrix(record_.s.factor);
}

matrix hsz_input::elements() {
  const hsz_header& header = record_.header;
  std::size_t count = 0;
  const std::vector<double> spectra =
      element_spectra(record_.s, header.encoding_s, header.degree_nurbs_s, "S", count);
  matrix out(bands_, count);
  std::transform(spectra.begin(), spectra.end(), out.begin(),
                 [](double x) { return static_cast<float>(x); });
  return out;
}

cube hsz_input::element_abundances() {
  const auto elements = static_cast<std::uint32_t>(record_.header.num_elements_s);
  check_pixels(record_.s.element_abundances, elements, "S->Element Abundances");
  return values_cube(record_.s.element_abundances);
}

cube hsz_input::element_abundance_indexes() {
  const auto elements = static_cast<std::uint32_t>(record_.header.num_elements_s);
  check_pixels(record_.s.element_abundance_indexes, elements, "S->Element Abundances Indexes");
  return zero_based_cube(record_.s.element_abundance_indexes);
}

matrix hsz_input::endmembers() {
  if (record_.s.endmembers.empty()) {
    refuse("S->Endmembers contains no data.");
  }
  return to_matrix(record_.s.endmembers);
}

labels hsz_input::endmember_labels() {
  if (record_.endmembers_s.labels.empty()) {
    refuse("S->Endmember labels contains no data.");
  }
  return record_.endmembers_s.labels;
}

cube hsz_input::endmember_abundances() {
  if (record_.s.endmember_abundances.empty()) {
    refuse("S->Endmember abundances contains no data.");
  }
  return values_cube(record_.s.endmember_abundances);
}

cube hsz_input::endmember_abundance_indexes() {
  if (record_.s.endmember_abundance_indexes.empty()) {
    refuse("S->Endmember abundance indexes contains no data.");
  }
  return zero_based_cube(record_.s.endmember_abundance_indexes);
}

cube hsz_input::compose_s() const {
  const hsz_part& part = record_.s;
  const auto count = static_cast<std::uint32_t>(record_.header.num_elements_s);
  check_pixels(part.element_abundance_indexes, count, "S->Element Abundances Indexes");
  check_pixels(part.element_abundances, count, "S->Element Abundances");
  std::size_t elements = 0;
  const std::vector<double> element_values = element_spectra(
      part, record_.header.encoding_s, record_.header.degree_nurbs_s, "S", elements);

  for (const std::int32_t index : part.element_abundance_indexes.values()) {
    if (index < 1 || static_cast<std::size_t>(index) > elements) {
      refuse("S->Element Abundances Indexes refers to element " + std::to_string(index) +
             ", but S->Elements holds " + std::to_string(elements) + ".");
    }
  }

  require_memory(checked_product({height_, width_, bands_, sizeof(float)}), "hsz_input",
                 "The reflectance cube of " + file_name_);
  const std::size_t rows = height_;
  const std::size_t bands = bands_;
  const std::size_t pixels = rows * width_;
  const double* abundances = part.element_abundances.values().data();
  const std::int32_t* indexes = part.element_abundance_indexes.values().data();
  const double* spectra = element_values.data();
  // No huge pages for the cube, unlike the arrays it is made from: at this size
  // (a 1024 x 1024 x 128 cube is 512 MiB) their first touch in a fresh process
  // cost twice the time of ordinary pages, as the kernel compacts memory for them.
  cube reflectance(height_, width_, bands_, arma::fill::none);
  // Pixels in runs of up to 64 along an image column: each pixel's spectrum is
  // summed over its elements in order, whole spectra at a time (contiguous, so
  // the sums vectorise), then the run is spread over the band slices.
  constexpr std::size_t run = 64;
  const std::size_t runs_per_column = (rows + run - 1) / run;
  const auto runs = static_cast<std::ptrdiff_t>(runs_per_column * width_);
#pragma omp parallel
  {
    std::vector<double> sums(run * bands);
#pragma omp for schedule(static)
    for (std::ptrdiff_t i = 0; i < runs; ++i) {
      const std::size_t col = static_cast<std::size_t>(i) / runs_per_column;
      const std::size_t first_row = static_cast<std::size_t>(i) % runs_per_column * run;
      const std::size_t length = std::min(run, rows - first_row);
      const std::size_t first = col * rows + first_row;
      std::fill(sums.begin(), sums.end(), 0.0);
      for (std::size_t r = 0; r < length; ++r) {
        double* sum = sums.data() + r * bands;
        for (std::size_t j = 0; j < count; ++j) {
          const double weight = abundances[j * pixels + first + r];
          const double* element =
              spectra + bands * static_cast<std::size_t>(indexes[j * pixels + first + r] - 1);
          for (std::size_t b = 0; b < bands; ++b) {
            sum[b] += weight * element[b];
          }
        }
      }
      for (std::size_t b = 0; b < bands; ++b) {
        float* out = reflectance.slice_memptr(b) + first;
        for (std::size_t r = 0; r < length; ++r) {
          out[r] = static_cast<float>(sums[r * bands + b]);
        }
      }
    }
  }
  return reflectance;
}

cube hsz_input::compose_I() {
  require_memory(checked_product({height_, width_, bands_, 2 * sizeof(float)}), "hsz_input",
                 "The image cube of " + file_name_);
  const vector light = illuminant();
  const matrix specular = k();
  const matrix shading = g();
  const cube reflectance = hold_ ? *held_s() : compose_s();
  cube image(height_, width_, bands_, arma::fill::none);
#pragma omp parallel for
  for (std::ptrdiff_t b = 0; b < static_cast<std::ptrdiff_t>(bands_); ++b) {
    const arma::uword band = static_cast<arma::uword>(b);
    image.slice(band) = light(band) * (shading % reflectance.slice(band) + specular);
  }
  return image;
}

cube_ptr hsz_input::held_s() {
  if (!held_s_) {
    held_s_ = std::make_shared<cube>(compose_s());
  }
  return held_s_;
}

cube_ptr hsz_input::held_I() {
  if (!held_I_) {
    held_I_ = std::make_shared<cube>(compose_I());
  }
  return held_I_;
}

cube hsz_input::s() {
  return hold_ ? *held_s() : compose_s();
}

cube_ptr hsz_input::s_ptr() {
  if (!hold_) {
    refuse("tried to access s pointer when data is not stored (turn on hold flag)");
  }
  return held_s();
}

cube hsz_input::I() {
  return hold_ ? *held_I() : compose_I();
}

cube_ptr hsz_input::I_ptr() {
  if (!hold_) {
    refuse("tried to access I pointer when data is not stored (turn on hold flag)");
  }
  return held_I();
}

}  // namespace corv
