#include "corv/io/tif_input.h"

#include <stdexcept>

#include "corv/io/envi_header.h"
#include "corv/io/file_path.h"
#include "corv/io/gdal_raster.h"
#include "corv/io/logger.h"

namespace corv {

tif_input::tif_input(const std::string& file_name, bool hold) : hold_(hold) {
  const file_path parts = file_path::split(file_name);
  directory_ = parts.directory;
  stem_ = parts.stem;
  extension_ = parts.extension;
  const std::string name = parts.full();
  if (!file_exists(name)) {
    throw std::runtime_error("tif_input: No file found!");
  }
  raster_ = std::make_unique<gdal_raster>(name);
  if (!raster_->is_open()) {
    log_and_throw("Error constructing TIF Input: " + name + ", The file is invalid.",
                  "Error constructing TIF Input: " + name);
  }
  height_ = raster_->height();
  width_ = raster_->width();
  bands_ = raster_->bands();

  wavelengths_.set_size(bands_);
  for (unsigned band = 0; band < bands_; ++band) {
    wavelengths_(band) = static_cast<float>(band);
  }
  // Only a single-band image has all-zero index wavelengths; then a companion
  // ENVI header may say which wavelength its one band is.
  if (bands_ == 0 || wavelengths_.max() < epsilon) {
    read_companion_wavelengths(parts.with_extension(".hdr"));
  }
}

tif_input::~tif_input() = default;

void tif_input::read_companion_wavelengths(const std::string& header_file) {
  std::optional<std::vector<double>> values;
  if (file_exists(header_file)) {
    values = envi_header::read(header_file).numbers("wavelength");
  }
  if (!values || values->size() < bands_) {
    logger::instance() << "TIF Input: " << file_path{directory_, stem_, extension_}.full()
                       << ", cannot find header file."
                       << "EOL";
    return;
  }
  for (unsigned band = 0; band < bands_; ++band) {
    wavelengths_(band) = static_cast<float>((*values)[band]);
  }
}

GDALDataset* tif_input::gdal_dataset_ptr() {
  return raster_->dataset();
}

void tif_input::set_hold(bool hold) {
  hold_ = hold;
  if (!hold_) {
    held_.reset();
  }
}

cube tif_input::read_whole() const {
  band_list bands(bands_);
  for (unsigned b = 0; b < bands_; ++b) {
    bands[b] = b;
  }
  return raster_->read(bands, 0, 0, height_, width_);
}

cube tif_input::I() {
  if (!hold_) {
    return read_whole();
  }
  if (!held_) {
    held_ = std::make_shared<cube>(read_whole());
  }
  return *held_;
}

cube_ptr tif_input::I_ptr() {
  if (!hold_) {
    throw std::runtime_error(
        "hdr_input: tried to access I pointer when data is not stored (turn on hold flag)");
  }
  if (!held_) {
    held_ = std::make_shared<cube>(read_whole());
  }
  return held_;
}

}  // namespace corv
