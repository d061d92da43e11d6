#ifndef CORV_IO_TIF_INPUT_H
#define CORV_IO_TIF_INPUT_H

#include <memory>
#include <string>

#include "corv/io/input.h"

namespace corv {

class gdal_raster;

// A multi-band TIFF image served as I. Its wavelengths are the band indexes,
// except that a single-band image takes its wavelength from a companion ".hdr".
class tif_input : public input {
 public:
  explicit tif_input(const std::string& file_name, bool hold = false);
  ~tif_input() override;

  cube I() override;
  cube_ptr I_ptr() override;
  vector wavelengths() override { return wavelengths_; }
  GDALDataset* gdal_dataset_ptr() override;
  int input_kind() const override { return kind_tif; }
  using input::I;

  bool hold() const { return hold_; }
  void set_hold(bool hold);

 private:
  void read_companion_wavelengths(const std::string& header_file);
  cube read_whole() const;

  std::unique_ptr<gdal_raster> raster_;
  vector wavelengths_;
  std::string directory_, stem_, extension_;
  bool hold_ = false;
  cube_ptr held_;
};

}  // namespace corv

#endif
