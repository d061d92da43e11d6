#include "corv/io/component_input.h"

#include <cmath>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "corv/io/file_path.h"
#include "corv/io/hdr_input.h"
#include "corv/io/logger.h"
#include "corv/io/spectral_library.h"

namespace corv {

namespace {

constexpr std::array<const char*, 10> suffixes = {
    "_I",        "_illuminant", "_k",       "_g",          "_s",
    "_elements", "_abundances", "_indexes", "_endindexes", "_endabundances",
};

[[noreturn]] void size_mismatch(const std::string& what) {
  throw std::runtime_error("component_input: data size mismatch: " + what);
}

std::string dimensions_text(const cube& c) {
  std::ostringstream text;
  text << c.n_rows << " x " << c.n_cols << " x " << c.n_slices;
  return text.str();
}

// I(:,:,b) = L(b) * (g % s(:,:,b) + k)
cube dichromatic_image(const vector& illuminant, const matrix& k, const matrix& g,
                       const cube& reflectance) {
  cube image(arma::size(reflectance), arma::fill::none);
  for (arma::uword b = 0; b < reflectance.n_slices; ++b) {
    image.slice(b) = illuminant(b) * (g % reflectance.slice(b) + k);
  }
  return image;
}

// s(:,:,b) = (I(:,:,b) / L(b) - k) / g; where L(b) or g is 0 the value is not a
// reflectance at all, and 0 is stored instead.
cube reflectance_from_image(const cube& image, const vector& illuminant, const matrix& k,
                            const matrix& g) {
  cube reflectance(arma::size(image), arma::fill::none);
  for (arma::uword b = 0; b < image.n_slices; ++b) {
    matrix band = (image.slice(b) / illuminant(b) - k) / g;
    band.elem(arma::find_nonfinite(band)).zeros();
    reflectance.slice(b) = band;
  }
  return reflectance;
}

// s(r,c,:) = sum_j abundance(r,c,j) * elements(:, index(r,c,j))
cube reflectance_from_elements(const matrix& elements, const cube& abundances,
                               const cube& indexes) {
  cube reflectance(abundances.n_rows, abundances.n_cols, elements.n_rows, arma::fill::zeros);
  for (arma::uword j = 0; j < abundances.n_slices; ++j) {
    for (arma::uword c = 0; c < abundances.n_cols; ++c) {
      for (arma::uword r = 0; r < abundances.n_rows; ++r) {
        const float index = indexes(r, c, j);
        if (!(index >= 0.0f) || index >= static_cast<float>(elements.n_cols) ||
            index != std::floor(index)) {
          std::ostringstream text;
          text << "component_input: Invalid element index " << index << " (" << elements.n_cols
               << " elements loaded).";
          throw std::runtime_error(text.str());
        }
        const float weight = abundances(r, c, j);
        const arma::uword column = static_cast<arma::uword>(index);
        for (arma::uword b = 0; b < elements.n_rows; ++b) {
          reflectance(r, c, b) += weight * elements(b, column);
        }
      }
    }
  }
  return reflectance;
}

cube whole(hdr_input& file) {
  return file.is_reflectance() ? file.s() : file.I();
}

}  // namespace

component_input::component_input(const std::string& directory, const std::string& prefix)
    : directory_(directory), prefix_(prefix) {
  if (directory_.empty()) {
    throw std::runtime_error("Error constructing component_input: Directory not given.");
  }
  if (prefix_.empty()) {
    throw std::runtime_error("Error constructing component_input: Filename prefix not given.");
  }
  logger::instance() << "Loading files from " << directory_ << " with prefix " << prefix_ << "EOL";
  open_files();
  check_sizes();
  bool loaded = static_cast<bool>(library_);
  for (const auto& file : files_) {
    loaded = loaded || static_cast<bool>(file);
  }
  if (!loaded) {
    throw std::runtime_error("component_input: Didn't load any components.");
  }
}

component_input::~component_input() = default;

void component_input::open_files() {
  const std::filesystem::path base = std::filesystem::path(directory_) / prefix_;
  for (std::size_t p = 0; p < part_count; ++p) {
    const std::string name = base.string() + suffixes[p] + ".hdr";
    if (file_exists(name)) {
      files_[p] = std::make_unique<hdr_input>(name);
      logger::instance() << "component_input: Loaded " << name << "EOL";
    } else {
      logger::instance() << "component_input: Couldn't find " << name << "EOL";
    }
  }
  const std::string library_file = base.string() + "_spectral_library.slz";
  if (file_exists(library_file)) {
    auto library = std::make_shared<spectral_library>();
    library->load(library_file);
    library_ = std::move(library);
    logger::instance() << "component_input: Loaded " << library_file << "EOL";
  } else {
    logger::instance() << "component_input: Couldn't find " << library_file << "EOL";
  }
}

// What each file must agree with is whatever of the image plane (height x
// width) and the band count was already found in the files before it.
void component_input::check_sizes() {
  std::optional<std::pair<std::uint32_t, std::uint32_t>> plane;
  std::optional<std::uint32_t> band_count;
  const auto plane_of = [this](part p) {
    return std::make_pair(files_[p]->height(), files_[p]->width());
  };
  const auto agrees = [&](part p) { return !plane || *plane == plane_of(p); };

  if (has(part_I)) {
    plane = plane_of(part_I);
    band_count = files_[part_I]->bands();
  }
  if (has(part_s)) {
    if (has(part_I) && (!agrees(part_s) || files_[part_s]->bands() != *band_count)) {
      size_mismatch("I and s");
    }
    plane = plane_of(part_s);
    band_count = files_[part_s]->bands();
  }
  if (has(part_illuminant)) {
    const hdr_input& file = *files_[part_illuminant];
    if (file.height() != 1 || file.width() != 1 || (band_count && file.bands() != *band_count)) {
      size_mismatch("I and illuminant");
    }
    band_count = file.bands();
  }
  if (has(part_k)) {
    if (!agrees(part_k) || files_[part_k]->bands() != 1) {
      size_mismatch("I/s and k");
    }
    plane = plane_of(part_k);
  }
  if (has(part_g)) {
    if (!agrees(part_g) || files_[part_g]->bands() != 1) {
      size_mismatch("I/s/k and g");
    }
    plane = plane_of(part_g);
  }
  if (has(part_elements)) {
    const hdr_input& file = *files_[part_elements];
    if (file.height() != 1 || (band_count && file.bands() != *band_count)) {
      size_mismatch("I/s/illuminant and elements");
    }
    band_count = file.bands();
  }
  if (has(part_abundances)) {
    if (!agrees(part_abundances)) {
      size_mismatch("I/s/k/g and abundances");
    }
    plane = plane_of(part_abundances);
  }
  if (has(part_indexes)) {
    if (!agrees(part_indexes) || (has(part_abundances) && files_[part_indexes]->bands() !=
                                                              files_[part_abundances]->bands())) {
      size_mismatch("I/s/k/g/abundances and indexes");
    }
    plane = plane_of(part_indexes);
  }

  if (plane) {
    height_ = plane->first;
    width_ = plane->second;
  }
  bands_ = band_count.value_or(0);
}

cube component_input::read(part p, const char* member) {
  if (!has(p)) {
    missing_member(member);
  }
  return whole(*files_[p]);
}

bool component_input::can_rebuild_s_from_elements() const {
  return has(part_elements) && has(part_abundances) && has(part_indexes);
}

cube_ptr component_input::image(const char* member) {
  if (I_) {
    return I_;
  }
  if (has(part_I)) {
    auto loaded = std::make_shared<cube>(whole(*files_[part_I]));
    if (loaded->n_rows != height_ || loaded->n_cols != width_ || loaded->n_slices != bands_) {
      throw std::runtime_error("component_input: Cannot load I with different data dimensions " +
                               dimensions_text(*loaded));
    }
    I_ = loaded;
  } else if (has(part_illuminant) && has(part_k) && has(part_g) &&
             (has(part_s) || can_rebuild_s_from_elements())) {
    I_ = std::make_shared<cube>(dichromatic_image(illuminant(), k(), g(), *reflectance(member)));
    logger::instance() << "component_input: reconstructed I"
                       << "EOL";
  } else {
    missing_member(member);
  }
  return I_;
}

cube_ptr component_input::reflectance(const char* member) {
  if (s_) {
    return s_;
  }
  if (has(part_s)) {
    s_ = std::make_shared<cube>(whole(*files_[part_s]));
  } else if (has(part_I) && has(part_illuminant) && has(part_k) && has(part_g)) {
    s_ = std::make_shared<cube>(reflectance_from_image(*image(member), illuminant(), k(), g()));
    logger::instance() << "component_input: reconstructed s from I, illuminant, k and g."
                       << "EOL";
  } else if (can_rebuild_s_from_elements()) {
    s_ = std::make_shared<cube>(
        reflectance_from_elements(elements(), element_abundances(), element_abundance_indexes()));
    logger::instance() << "component_input: reconstructed s from elements, abundances and indexes."
                       << "EOL";
  } else {
    missing_member(member);
  }
  return s_;
}

cube component_input::I() {
  return *image("I");
}

cube_ptr component_input::I_ptr() {
  return image("I_ptr");
}

cube component_input::s() {
  return *reflectance("s");
}

cube_ptr component_input::s_ptr() {
  return reflectance("s_ptr");
}

vector component_input::illuminant() {
  const cube spectrum = read(part_illuminant, "illuminant");
  return vector(spectrum.memptr(), spectrum.n_elem);
}

matrix component_input::k() {
  return read(part_k, "k").slice(0);
}

matrix component_input::g() {
  return read(part_g, "g").slice(0);
}

// The file holds one element spectrum per sample of its single line.
matrix component_input::elements() {
  const cube spectra = read(part_elements, "elements");
  matrix columns(spectra.n_slices, spectra.n_cols, arma::fill::none);
  for (arma::uword b = 0; b < spectra.n_slices; ++b) {
    columns.row(b) = spectra.slice(b).row(0);
  }
  return columns;
}

matrix component_input::endmembers() {
  if (!library_) {
    missing_member("endmembers");
  }
  return library_->endmembers();
}

labels component_input::endmember_labels() {
  if (!library_) {
    missing_member("endmember_labels");
  }
  return library_->labels();
}

cube component_input::element_abundances() {
  return read(part_abundances, "element_abundances");
}

cube component_input::element_abundance_indexes() {
  return read(part_indexes, "element_abundance_indexes");
}

cube component_input::endmember_abundances() {
  return read(part_endabundances, "endmember_abundances");
}

cube component_input::endmember_abundance_indexes() {
  return read(part_endindexes, "endmember_abundance_indexes");
}

// The spectral components carry the image's wavelengths; the others only band numbers.
vector component_input::wavelengths() {
  for (const part p : {part_I, part_s, part_illuminant, part_elements}) {
    if (has(p)) {
      return files_[p]->wavelengths();
    }
  }
  missing_member("wavelengths");
}

}  // namespace corv
