#include "corv/io/spectral_library.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <sstream>
#include <stdexcept>

#include "corv/io/logger.h"
#include "corv/io/slz_file.h"

namespace corv {

namespace {

// Tableau's ten qualitative colours: distinct on screen and in print.
constexpr float palette[10][3] = {{31, 119, 180},  {255, 127, 14}, {44, 160, 44},   {214, 39, 40},
                                  {148, 103, 189}, {140, 86, 75},  {227, 119, 194}, {127, 127, 127},
                                  {188, 189, 34},  {23, 190, 207}};

std::string number_text(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

// One spectrum given at `from` (ascending, at least two points) evaluated at
// `to` by linear interpolation. Every wavelength of `to` lies in the range of `from`.
vector interpolate_linear(const std::vector<double>& from, const std::vector<double>& values,
                          const vector& to) {
  vector out(to.n_elem);
  for (arma::uword i = 0; i < to.n_elem; ++i) {
    const double x = to(i);
    auto upper = std::upper_bound(from.begin(), from.end(), x);
    if (upper == from.end()) {
      --upper;  // x is the last wavelength itself
    }
    if (upper == from.begin()) {
      ++upper;
    }
    const std::size_t right = static_cast<std::size_t>(upper - from.begin());
    const std::size_t left = right - 1;
    // A wavelength met exactly takes that point alone, so that a missing
    // neighbour does not spread to it.
    if (x == from[right]) {
      out(i) = static_cast<float>(values[right]);
    } else if (x == from[left]) {
      out(i) = static_cast<float>(values[left]);
    } else {
      const double weight = (x - from[left]) / (from[right] - from[left]);
      out(i) = static_cast<float>(values[left] + weight * (values[right] - values[left]));
    }
  }
  return out;
}

// The other library's spectra at this library's wavelengths.
matrix resampled(const spectral_library& other, const vector& onto) {
  const vector& source = other.wavelengths();
  std::vector<arma::uword> order(source.n_elem);
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&](arma::uword a, arma::uword b) { return source(a) < source(b); });
  std::vector<double> from(order.size());
  for (std::size_t i = 0; i < order.size(); ++i) {
    from[i] = source(order[i]);
  }
  const double low = onto.min(), high = onto.max();
  if (from.size() < 2 || low < from.front() || high > from.back()) {
    throw std::runtime_error("spectral_library: Cannot re-evaluate, the new library covers " +
                             number_text(from.front()) + " to " + number_text(from.back()) +
                             " nm but this library needs " + number_text(low) + " to " +
                             number_text(high) + " nm.");
  }
  const matrix& spectra = other.endmembers();
  matrix out(onto.n_elem, spectra.n_cols);
  std::vector<double> values(order.size());
  for (arma::uword c = 0; c < spectra.n_cols; ++c) {
    for (std::size_t i = 0; i < order.size(); ++i) {
      values[i] = spectra(order[i], c);
    }
    out.col(c) = interpolate_linear(from, values, onto);
  }
  return out;
}

}  // namespace

spectral_library::spectral_library(const matrix& endmembers, const std::vector<std::string>& labels,
                                   const vector& wavelengths) {
  if (endmembers.n_cols != labels.size() || endmembers.n_rows != wavelengths.n_elem) {
    throw std::runtime_error("spectral_library: Error: Incompatible dimensions.");
  }
  wavelengths_ = wavelengths;
  append(endmembers, labels, std::vector<std::string>(labels.size(), "nofile"), matrix());
}

void spectral_library::append(const matrix& spectra, const std::vector<std::string>& labels,
                              const std::vector<std::string>& sources, const matrix& colours) {
  if (spectra.n_cols == 0) {
    return;
  }
  const bool coloured = empty() || has_colours();
  const arma::uword first = size();
  endmembers_ = empty() ? spectra : matrix(arma::join_rows(endmembers_, spectra));
  labels_.insert(labels_.end(), labels.begin(), labels.end());
  sources_.insert(sources_.end(), sources.begin(), sources.end());
  if (coloured) {
    const matrix added = colours.empty() ? palette_colours(first, spectra.n_cols) : colours;
    colours_ = colours_.empty() ? added : matrix(arma::join_cols(colours_, added));
  }
}

void spectral_library::add_endmembers(const matrix& spectra, const std::vector<std::string>& labels,
                                      const std::string& source) {
  if (spectra.n_rows != bands() || bands() == 0) {
    throw std::runtime_error("add_endmembers: New endmembers have incorrect dimensions.");
  }
  if (spectra.n_cols != labels.size()) {
    throw std::runtime_error("add_endmembers: Unmatching arrays! :O");
  }
  append(spectra, labels,
         std::vector<std::string>(labels.size(), source.empty() ? "nofile" : source), matrix());
}

void spectral_library::merge(const spectral_library& other, bool re_evaluate) {
  if (other.empty()) {
    return;
  }
  if (bands() == 0 && empty()) {
    const std::string kept = metadata_;
    *this = other;
    if (!kept.empty()) {
      metadata_ = kept;
    }
    return;
  }
  matrix spectra;
  if (re_evaluate) {
    spectra = resampled(other, wavelengths());
  } else if (other.bands() != bands()) {
    throw std::runtime_error(
        "spectral_library: New Library has incorrect dimensions, try re_evaluate option.");
  } else {
    spectra = other.endmembers();
  }
  append(spectra, other.labels(), other.sources(), other.colours());
}

const matrix& spectral_library::endmembers() const {
  if (endmembers_.empty()) {
    throw std::runtime_error("spectral_library: No endmembers set.");
  }
  return endmembers_;
}

const std::vector<std::string>& spectral_library::labels() const {
  if (labels_.empty()) {
    throw std::runtime_error("spectral_library: No labels set.");
  }
  return labels_;
}

const vector& spectral_library::wavelengths() const {
  if (wavelengths_.empty()) {
    throw std::runtime_error("spectral_library: No wavelengths set.");
  }
  return wavelengths_;
}

void spectral_library::set_wavelengths(const vector& wavelengths) {
  if (wavelengths.n_elem != wavelengths_.n_elem && !empty()) {
    endmembers_.reset();
    labels_.clear();
    sources_.clear();
    colours_.reset();
    logger::instance()
        << "spectral_library: Cleared endmembers due to new wavelength vector having different "
           "number of bands"
        << "EOL";
  }
  wavelengths_ = wavelengths;
}

void spectral_library::set_labels(const std::vector<std::string>& labels) {
  if (labels.size() != size()) {
    throw std::runtime_error("spectral_library: Error: Incompatible dimensions.");
  }
  labels_ = labels;
}

void spectral_library::set_colours(const matrix& colours) {
  if (!colours.empty() && (colours.n_rows != size() || colours.n_cols != 3)) {
    throw std::runtime_error(
        "spectral_library: Colours need one row of red, green and blue per endmember.");
  }
  colours_ = colours;
}

void spectral_library::set_sources(const std::vector<std::string>& sources) {
  if (sources.size() != size()) {
    throw std::runtime_error("spectral_library: Error: Incompatible dimensions.");
  }
  sources_ = sources;
}

std::vector<arma::uword> spectral_library::incomplete_endmembers() const {
  std::vector<arma::uword> found;
  for (arma::uword c = 0; c < endmembers_.n_cols; ++c) {
    if (!endmembers_.col(c).is_finite()) {
      found.push_back(c);
    }
  }
  return found;
}

matrix spectral_library::palette_colours(arma::uword first, arma::uword count) {
  matrix colours(count, 3);
  for (arma::uword i = 0; i < count; ++i) {
    for (arma::uword channel = 0; channel < 3; ++channel) {
      colours(i, channel) = palette[(first + i) % 10][channel];
    }
  }
  return colours;
}

void spectral_library::load(const std::string& file_name) {
  logger::instance() << "spectral_library: Loading file: " << file_name << "EOL";
  slz_file file;
  try {
    file.load(file_name);
  } catch (const std::exception& error) {
    logger::instance() << error.what() << "EOL";
    log_and_throw("spectral_library: Error loading file: " + file_name,
                  "spectral_library: Error loading file.");
  }
  spectral_library loaded;
  loaded.wavelengths_ = arma::conv_to<vector>::from(file.wavelengths());
  loaded.endmembers_ = file.take_endmembers();
  loaded.labels_ = file.labels();
  loaded.sources_.assign(loaded.labels_.size(), file_name);
  loaded.colours_ = arma::conv_to<matrix>::from(file.colours());
  loaded.metadata_ = file.metadata();
  *this = std::move(loaded);
}

void spectral_library::save(const std::string& file_name) const {
  if (endmembers_.empty() || labels_.empty() || wavelengths_.empty()) {
    throw std::runtime_error("spectral_library: Cannot save, one or more data members is not set");
  }
  const auto incomplete = incomplete_endmembers();
  if (!incomplete.empty()) {
    throw std::runtime_error("spectral_library: Cannot save, endmember " +
                             std::to_string(incomplete.front() + 1) + " '" +
                             labels_[incomplete.front()] + "' has missing values");
  }
  slz_file file;
  file.set_wavelengths(arma::conv_to<arma::vec>::from(wavelengths_));
  file.set_endmember_count(static_cast<int>(size()));
  file.set_endmembers(endmembers_);
  file.set_labels(labels_);
  file.set_metadata(metadata_);
  file.set_colours(arma::conv_to<arma::mat>::from(colours_));
  try {
    file.save(file_name, true);
  } catch (const std::exception&) {
    logger::instance() << "spectral_library: Warning - Overwriting file " << file_name << "EOL";
    file.save(file_name, true);
  }
}

}  // namespace corv
