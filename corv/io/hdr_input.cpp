#include "corv/io/hdr_input.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <stdexcept>

#include "corv/io/envi_header.h"
#include "corv/io/file_path.h"
#include "corv/io/gdal_raster.h"
#include "corv/io/logger.h"
#include "corv/io/transpose.h"

namespace corv {

namespace {

constexpr std::array<const char*, 10> data_extensions = {".fla", ".FLA", ".raw", ".RAW", ".dat",
                                                         ".DAT", ".img", ".IMG", ".dem", ".DEM"};
constexpr std::array<const char*, 10> never_data_extensions = {
    ".hdr", ".HDR", ".jpg", ".JPG", ".hsz", ".HSZ", ".png", ".PNG", ".txt", ".TXT"};

template <std::size_t N>
bool listed(const std::string& extension, const std::array<const char*, N>& list) {
  return std::find(list.begin(), list.end(), extension) != list.end();
}

}  // namespace

hdr_input::hdr_input(const std::string& file_name, bool hold) : hold_(hold) {
  find_files(file_name);

  const std::string header_text = read_text_file(header_file_);
  const envi_header header = envi_header::parse(header_text);
  if (const auto description = header.braced_text("description")) {
    description_ = *description;
    reflectance_ = description_.find("REFLECTANCE") != std::string::npos;
  }
  if (lower_case(header.value("file type")).find("spectral library") != std::string::npos) {
    log_and_throw("hdr_input: " + header_file_ +
                  " is an ENVI spectral library, not an image; import it as a spectral library.");
  }
  if (trimmed(header.value("file compression")) == "1") {
    log_and_throw("hdr_input: " + header_file_ +
                  " declares a compressed data file (file compression = 1), which is not "
                  "supported.");
  }

  raster_ = std::make_unique<gdal_raster>(data_file_);
  if (!raster_->is_open()) {
    throw std::runtime_error("Error constructing HDR Input: " + data_file_ +
                             ", The file is invalid.");
  }
  height_ = raster_->height();
  width_ = raster_->width();
  bands_ = raster_->bands();
  // GDAL reads past the end of a short data file as zeros: refuse it instead.
  envi_extent extent;
  extent.lines = height_;
  extent.samples = width_;
  extent.bands = bands_;
  extent.value_bytes = raster_->value_bytes();
  const long long offset =
      std::strtoll(trimmed(header.value("header offset")).c_str(), nullptr, 10);
  extent.header_offset = offset > 0 ? static_cast<std::uint64_t>(offset) : 0;
  check_envi_data_file(extent, header_file_, data_file_);
  read_wavelengths(header_text);
}

hdr_input::~hdr_input() = default;

void hdr_input::find_files(const std::string& file_name) {
  const file_path given = file_path::split(file_name);
  header_file_ = given.with_extension(".hdr");
  if (!file_exists(header_file_)) {
    throw std::runtime_error("hdr_input: No Header found!");
  }

  std::vector<std::string> candidates;
  for (const auto& name : files_in(given.directory)) {
    const file_path other = file_path::split(name);
    if (other.stem == given.stem && other.extension != ".hdr") {
      candidates.push_back(name);
    }
  }

  std::string chosen;
  if (candidates.size() == 1) {
    chosen = candidates.front();
  } else {
    for (const auto& name : candidates) {
      if (chosen.empty() && listed(file_path::split(name).extension, data_extensions)) {
        chosen = name;
      } else {
        logger::instance() << "hdr_input: Ignoring file " << name << "EOL";
      }
    }
  }
  if (chosen.empty() && !candidates.empty()) {
    logger::instance() << "hdr_input: Fallback protocol enacted!"
                       << "EOL";
    for (const auto& name : candidates) {
      if (!listed(file_path::split(name).extension, never_data_extensions)) {
        chosen = name;
        break;
      }
    }
  }
  if (chosen.empty()) {
    throw std::runtime_error("hdr_input: No Datafile found!");
  }
  data_file_ = file_path{given.directory, "", ""}.with_extension(chosen);
  logger::instance() << "hdr_input: Datafile " << data_file_ << " found."
                     << "EOL";
}

void hdr_input::read_wavelengths(const std::string& header_text) {
  wavelengths_.zeros(bands_);
  if (!wavelengths_from_gdal() || bands_ == 0 || wavelengths_.max() < epsilon) {
    wavelengths_from_header(header_text);
  }
}

// GDAL lists the header's wavelengths per band ("wavelength" band items) and as
// dataset items "Band_N=..." whose value is a plain number only when the header
// has no band names. Items that are not about bands ("wavelength_units=...")
// are skipped. Returns false unless every band got a wavelength.
bool hdr_input::wavelengths_from_gdal() {
  unsigned found = 0;
  for (unsigned band = 0; band < bands_; ++band) {
    if (const auto text = raster_->band_wavelength(band)) {
      if (const auto value = parse_decimal(*text)) {
        wavelengths_(band) = static_cast<float>(*value);
        ++found;
      }
    }
  }
  if (found == bands_) {
    return true;
  }
  found = 0;
  for (const auto& item : raster_->metadata()) {
    if (item.rfind("Band_", 0) != 0) {
      continue;
    }
    const auto equals = item.find('=');
    const auto number = parse_decimal(item.substr(5, equals == std::string::npos ? 0 : equals - 5));
    const auto value =
        equals == std::string::npos ? std::nullopt : parse_decimal(item.substr(equals + 1));
    if (!number || *number < 1 || *number > bands_ || *number != static_cast<int>(*number)) {
      logger::instance() << data_file_ << ", problem reading metadata."
                         << "EOL";
      throw std::runtime_error("HDR file not correctly read. Possible corruption in " + data_file_);
    }
    if (value) {
      wavelengths_(static_cast<unsigned>(*number) - 1) = static_cast<float>(*value);
      ++found;
    }
  }
  return found == bands_;
}

void hdr_input::wavelengths_from_header(const std::string& header_text) {
  const envi_header header = envi_header::parse(header_text);
  auto values = header.numbers("wavelength");
  if (!values) {
    values = header.band_name_wavelengths();
  }
  if (!values || values->size() < bands_ || (bands_ > 0 && values->empty())) {
    logger::instance() << header_file_ << ", cannot parse wavelengths."
                       << "EOL";
    throw std::runtime_error(values ? "hdr_input: Cannot parse the wavelengths of " + header_file_ +
                                          " (" + std::to_string(bands_) + " bands)."
                                    : "hdr_input: No wavelengths in " + header_file_ + ".");
  }
  for (unsigned band = 0; band < bands_; ++band) {
    wavelengths_(band) = static_cast<float>((*values)[band]);
  }
}

GDALDataset* hdr_input::gdal_dataset_ptr() {
  return raster_->dataset();
}

void hdr_input::set_hold(bool hold) {
  hold_ = hold;
  if (!hold_) {
    held_.reset();
  }
}

void hdr_input::require_irradiance(const std::string& member) const {
  if (reflectance_) {
    throw std::runtime_error("hdr_input: Member '" + member +
                             "' does not exist for this input, image was loaded as Reflectance");
  }
}

void hdr_input::require_reflectance(const std::string& member) const {
  if (!reflectance_) {
    throw std::runtime_error("hdr_input: Member '" + member +
                             "' does not exist for this input, image was loaded as Irradiance");
  }
}

band_list hdr_input::all_bands() const {
  band_list bands(bands_);
  for (unsigned b = 0; b < bands_; ++b) {
    bands[b] = b;
  }
  return bands;
}

void hdr_input::check_part(const band_list& bands, int first_row, int first_col, int last_row,
                           int last_col) const {
  if (first_row < 0 || first_col < 0 || first_row > last_row || first_col > last_col ||
      last_row > static_cast<int>(height_) - 1 || last_col > static_cast<int>(width_) - 1) {
    throw std::runtime_error("hdr_input: Crop out of range.");
  }
  for (const unsigned band : bands) {
    if (band >= bands_) {
      throw std::runtime_error("hdr_input: Bands requested out of range.");
    }
  }
}

cube hdr_input::read(const band_list& bands, int first_row, int first_col, int last_row,
                     int last_col) {
  check_part(bands, first_row, first_col, last_row, last_col);
  const bool whole_extent = first_row == 0 && first_col == 0 &&
                            last_row == static_cast<int>(height_) - 1 &&
                            last_col == static_cast<int>(width_) - 1;
  if (held_) {
    if (whole_extent && bands == all_bands()) {
      return *held_;
    }
    cube part(last_row - first_row + 1, last_col - first_col + 1, bands.size(), arma::fill::none);
    for (std::size_t i = 0; i < bands.size(); ++i) {
      part.slice(i) = held_->slice(bands[i]).submat(first_row, first_col, last_row, last_col);
    }
    return part;
  }
  return raster_->read(bands, first_row, first_col, last_row - first_row + 1,
                       last_col - first_col + 1);
}

cube hdr_input::read_part(const band_list& bands, int first_row, int first_col, int last_row,
                          int last_col) {
  return read(bands, first_row, first_col, last_row, last_col);
}

void hdr_input::read_lines(unsigned band, int first_row, int first_col, int last_row, int last_col,
                           float* lines) {
  check_part({band}, first_row, first_col, last_row, last_col);
  const int rows = last_row - first_row + 1, cols = last_col - first_col + 1;
  if (held_) {
    const float* slice = held_->slice_memptr(band) + first_row + first_col * held_->n_rows;
    transpose_into(slice, held_->n_rows, cols, rows, lines, cols);
    return;
  }
  raster_->read_lines(band, first_row, first_col, rows, cols, lines);
}

cube hdr_input::whole() {
  if (hold_) {
    return *held();
  }
  return raster_->read(all_bands(), 0, 0, height_, width_);
}

cube_ptr hdr_input::held() {
  if (!held_) {
    held_ = std::make_shared<cube>(raster_->read(all_bands(), 0, 0, height_, width_));
  }
  return held_;
}

cube hdr_input::I(const band_list& bands, int first_row, int first_col, int last_row,
                  int last_col) {
  require_irradiance("I");
  return read(bands, first_row, first_col, last_row, last_col);
}

cube hdr_input::I(int first_row, int first_col, int last_row, int last_col) {
  require_irradiance("I");
  return read(all_bands(), first_row, first_col, last_row, last_col);
}

cube hdr_input::I(const band_list& bands) {
  require_irradiance("I");
  return read(bands, 0, 0, static_cast<int>(height_) - 1, static_cast<int>(width_) - 1);
}

cube hdr_input::I() {
  require_irradiance("I");
  return whole();
}

cube_ptr hdr_input::I_ptr() {
  require_irradiance("I_ptr");
  if (!hold_) {
    throw std::runtime_error(
        "hdr_input: tried to access I pointer when data is not stored (turn on hold flag)");
  }
  return held();
}

cube hdr_input::s() {
  require_reflectance("s");
  return whole();
}

cube_ptr hdr_input::s_ptr() {
  require_reflectance("s_ptr");
  if (!hold_) {
    throw std::runtime_error(
        "hdr_input: tried to access s pointer when data is not stored (turn on hold flag)");
  }
  return held();
}

}  // namespace corv
