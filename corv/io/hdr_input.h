#ifndef CORV_IO_HDR_INPUT_H
#define CORV_IO_HDR_INPUT_H

#include <memory>
#include <string>

#include "corv/io/input.h"

namespace corv {

class gdal_raster;

// An ENVI image: a ".hdr" header beside its raw data file. Serves I, or s when
// the header's description says "REFLECTANCE".
class hdr_input : public input {
 public:
  // The name may be the header or the data file. With hold set, the first
  // whole read is kept and later reads are served from memory.
  explicit hdr_input(const std::string& file_name, bool hold = false);
  ~hdr_input() override;

  cube I(const band_list& bands, int first_row, int first_col, int last_row, int last_col) override;
  cube I(int first_row, int first_col, int last_row, int last_col) override;
  cube I(const band_list& bands) override;
  cube I() override;
  cube_ptr I_ptr() override;
  cube s() override;
  cube_ptr s_ptr() override;
  vector wavelengths() override { return wavelengths_; }
  GDALDataset* gdal_dataset_ptr() override;
  int input_kind() const override { return kind_hdr; }

  // Rows first_row .. last_row and columns first_col .. last_col (inclusive)
  // of the listed bands of the cube the file holds, I or, for a reflectance
  // image, s, with the crop and band checks of I: for reading an image in parts.
  cube read_part(const band_list& bands, int first_row, int first_col, int last_row, int last_col);

  // The same for one band, line after line as the lines lie in the image
  // (element (r, c) at lines[r * columns + c]), into the caller's buffer.
  void read_lines(unsigned band, int first_row, int first_col, int last_row, int last_col,
                  float* lines);

  bool is_reflectance() const { return reflectance_; }
  bool hold() const { return hold_; }
  void set_hold(bool hold);
  const std::string& header_file() const { return header_file_; }
  const std::string& data_file() const { return data_file_; }
  const std::string& description() const { return description_; }

 private:
  void find_files(const std::string& file_name);
  void read_wavelengths(const std::string& header_text);
  bool wavelengths_from_gdal();
  void wavelengths_from_header(const std::string& header_text);
  void require_irradiance(const std::string& member) const;
  void require_reflectance(const std::string& member) const;
  cube read(const band_list& bands, int first_row, int first_col, int last_row, int last_col);
  // The crop and band checks of the part reads.
  void check_part(const band_list& bands, int first_row, int first_col, int last_row,
                  int last_col) const;
  cube whole();
  // The held cube, read on first use.
  cube_ptr held();
  band_list all_bands() const;

  std::unique_ptr<gdal_raster> raster_;
  vector wavelengths_;
  std::string header_file_;
  std::string data_file_;
  std::string description_;
  bool reflectance_ = false;
  bool hold_ = false;
  cube_ptr held_;
};

}  // namespace corv

#endif
