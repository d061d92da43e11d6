#include "corv/io/gdal_raster.h"

#include <cpl_conv.h>
#include <cpl_error.h>
#include <gdal_priv.h>

#include <algorithm>
#include <mutex>
#include <stdexcept>

namespace corv {

namespace {

void register_drivers_once() {
  static std::once_flag once;
  std::call_once(once, [] { GDALAllRegister(); });
}

// Keeps GDAL's own messages off the terminal while a call runs: failures are
// reported through this library's exceptions instead.
class quiet_gdal {
 public:
  quiet_gdal() { CPLPushErrorHandler(CPLQuietErrorHandler); }
  ~quiet_gdal() { CPLPopErrorHandler(); }
};

// Raw-format drivers read a whole band in one call with this option.
class one_big_read {
 public:
  one_big_read() { CPLSetThreadLocalConfigOption("GDAL_ONE_BIG_READ", "YES"); }
  ~one_big_read() { CPLSetThreadLocalConfigOption("GDAL_ONE_BIG_READ", nullptr); }
};

// Row-major rows x cols block into a column-major slice, in tiles that stay in cache.
void transpose_into(const float* row_major, int rows, int cols, float* column_major) {
  constexpr int tile = 64;
  for (int r0 = 0; r0 < rows; r0 += tile) {
    const int r1 = std::min(rows, r0 + tile);
    for (int c0 = 0; c0 < cols; c0 += tile) {
      const int c1 = std::min(cols, c0 + tile);
      for (int c = c0; c < c1; ++c) {
        float* out = column_major + static_cast<std::size_t>(c) * rows;
        for (int r = r0; r < r1; ++r) {
          out[r] = row_major[static_cast<std::size_t>(r) * cols + c];
        }
      }
    }
  }
}

}  // namespace

gdal_raster::gdal_raster(const std::string& file_name) {
  register_drivers_once();
  quiet_gdal quiet;
  GDALDataset* opened = GDALDataset::Open(file_name.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY);
  if (opened != nullptr) {
    dataset_.reset(opened, [](GDALDataset* dataset) { GDALClose(dataset); });
  }
}

std::uint32_t gdal_raster::height() const {
  return dataset_->GetRasterYSize();
}
std::uint32_t gdal_raster::width() const {
  return dataset_->GetRasterXSize();
}
std::uint32_t gdal_raster::bands() const {
  return dataset_->GetRasterCount();
}

std::vector<std::string> gdal_raster::metadata() const {
  std::vector<std::string> items;
  for (char** item = dataset_->GetMetadata(); item != nullptr && *item != nullptr; ++item) {
    items.emplace_back(*item);
  }
  return items;
}

std::optional<std::string> gdal_raster::band_wavelength(unsigned band) const {
  const char* value =
      dataset_->GetRasterBand(static_cast<int>(band) + 1)->GetMetadataItem("wavelength");
  if (value == nullptr) {
    return std::nullopt;
  }
  return std::string(value);
}

void gdal_raster::read_band(unsigned band, int first_row, int first_col, int rows, int cols,
                            float* slice) const {
  std::vector<float> buffer(static_cast<std::size_t>(rows) * cols);
  {
    quiet_gdal quiet;
    one_big_read whole_band;
    GDALRasterBand* raster = dataset_->GetRasterBand(static_cast<int>(band) + 1);
    if (raster == nullptr ||
        raster->RasterIO(GF_Read, first_col, first_row, cols, rows, buffer.data(), cols, rows,
                         GDT_Float32, 0, 0, nullptr) != CE_None) {
      const std::string reason = CPLGetLastErrorMsg();
      throw std::runtime_error("gdal_raster: Cannot read band " + std::to_string(band + 1) +
                               " of " + dataset_->GetDescription() +
                               (reason.empty() ? std::string(".") : ": " + reason));
    }
  }
  transpose_into(buffer.data(), rows, cols, slice);
}

cube gdal_raster::read(const band_list& bands, int first_row, int first_col, int rows,
                       int cols) const {
  cube result(rows, cols, bands.size(), arma::fill::none);
  for (std::size_t i = 0; i < bands.size(); ++i) {
    read_band(bands[i], first_row, first_col, rows, cols, result.slice_memptr(i));
  }
  return result;
}

}  // namespace corv
