#ifndef CORV_IO_GDAL_RASTER_H
#define CORV_IO_GDAL_RASTER_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "corv/io/types.h"

class GDALDataset;

namespace corv {

// A raster opened read-only through GDAL, owned once and closed with its last owner.
class gdal_raster {
 public:
  // Opens quietly; is_open() tells whether GDAL accepted the file.
  explicit gdal_raster(const std::string& file_name);

  bool is_open() const { return dataset_ != nullptr; }
  GDALDataset* dataset() const { return dataset_.get(); }
  std::uint32_t height() const;
  std::uint32_t width() const;
  std::uint32_t bands() const;
  // Bytes of one value of the first band's data type as the file stores it.
  std::uint32_t value_bytes() const;

  // Items "KEY=VALUE" of the dataset's default metadata domain.
  std::vector<std::string> metadata() const;
  // The "wavelength" item of a band (0-based), when GDAL has one.
  std::optional<std::string> band_wavelength(unsigned band) const;

  // Reads rows x cols samples of a band (0-based), starting at (first_row,
  // first_col), as float into a column-major slice. Throws on a GDAL failure.
  void read_band(unsigned band, int first_row, int first_col, int rows, int cols,
                 float* slice) const;
  // Reads rows x cols samples of a band as they lie in an image, line after line
  // (element (r, c) at lines[r * cols + c]). Throws on a GDAL failure.
  void read_lines(unsigned band, int first_row, int first_col, int rows, int cols,
                  float* lines) const;
  // Reads whole bands (or a rectangle of them) into a new cube, large cubes on
  // several threads. A cube larger than this machine's memory is refused before
  // it is allocated ("gdal_raster: <file> needs ...", see require_memory).
  cube read(const band_list& bands, int first_row, int first_col, int rows, int cols) const;

 private:
  // read_band through a caller's buffer of chunk x cols floats, chunk lines a call.
  void read_band(unsigned band, int first_row, int first_col, int rows, int cols, float* slice,
                 float* lines, int chunk) const;

  std::shared_ptr<GDALDataset> dataset_;
  // Whether the file holds other bands between a band's lines (line interleaved).
  bool band_lines_apart_ = false;
};

}  // namespace corv

#endif
