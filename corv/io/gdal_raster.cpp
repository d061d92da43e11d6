#include "corv/io/gdal_raster.h"

#include <cpl_conv.h>
#include <cpl_error.h>
#include <gdal_priv.h>

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "corv/io/memory_budget.h"
#include "corv/io/transpose.h"

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

// With this option raw-format drivers read a window of whole lines in one call,
// straight into the caller's buffer, instead of block by block through the cache.
class one_big_read {
 public:
  one_big_read() { CPLSetThreadLocalConfigOption("GDAL_ONE_BIG_READ", "YES"); }
  ~one_big_read() { CPLSetThreadLocalConfigOption("GDAL_ONE_BIG_READ", nullptr); }
};

// Lines read per GDAL call: enough for one big read, few enough that the lines are
// still in the core's cache when they are transposed into the slice.
int lines_per_chunk(int cols) {
  constexpr int chunk_bytes = 256 * 1024;
  const int lines = chunk_bytes / (static_cast<int>(sizeof(float)) * std::max(cols, 1));
  return std::max(16, lines - lines % 16);
}

}  // namespace

gdal_raster::gdal_raster(const std::string& file_name) {
  register_drivers_once();
  quiet_gdal quiet;
  GDALDataset* opened = GDALDataset::Open(file_name.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY);
  if (opened != nullptr) {
    dataset_.reset(opened, [](GDALDataset* dataset) { GDALClose(dataset); });
    const char* interleave = opened->GetMetadataItem("INTERLEAVE", "IMAGE_STRUCTURE");
    band_lines_apart_ =
        opened->GetRasterCount() > 1 && interleave != nullptr && std::string(interleave) == "LINE";
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

std::uint32_t gdal_raster::value_bytes() const {
  GDALRasterBand* band = dataset_->GetRasterCount() > 0 ? dataset_->GetRasterBand(1) : nullptr;
  return band == nullptr
             ? 0
             : static_cast<std::uint32_t>(GDALGetDataTypeSizeBytes(band->GetRasterDataType()));
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
  const int chunk = std::min(rows, lines_per_chunk(cols));
  std::unique_ptr<float[]> lines(new float[static_cast<std::size_t>(chunk) * cols]);
  read_band(band, first_row, first_col, rows, cols, slice, lines.get(), chunk);
}

void gdal_raster::read_lines(unsigned band, int first_row, int first_col, int rows, int cols,
                             float* lines) const {
  quiet_gdal quiet;
  one_big_read whole_lines;
  GDALRasterBand* raster = dataset_->GetRasterBand(static_cast<int>(band) + 1);
  // GDAL 3.6 reads a window of whole lines as if the band's lines followed each
  // other in the file; in a line-interleaved file they don't, so one line a call.
  const int step = band_lines_apart_ ? 1 : rows;
  for (int line = 0; line < rows; line += step) {
    if (raster == nullptr || raster->RasterIO(GF_Read, first_col, first_row + line, cols, step,
                                              lines + static_cast<std::size_t>(line) * cols, cols,
                                              step, GDT_Float32, 0, 0, nullptr) != CE_None) {
      const std::string reason = CPLGetLastErrorMsg();
      throw std::runtime_error("gdal_raster: Cannot read band " + std::to_string(band + 1) +
                               " of " + dataset_->GetDescription() +
                               (reason.empty() ? std::string(".") : ": " + reason));
    }
  }
}

void gdal_raster::read_band(unsigned band, int first_row, int first_col, int rows, int cols,
                            float* slice, float* lines, int chunk) const {
  for (int row = 0; row < rows; row += chunk) {
    const int count = std::min(chunk, rows - row);
    read_lines(band, first_row + row, first_col, count, cols, lines);
    transpose_into(lines, cols, count, cols, slice + row, rows);
  }
}

cube gdal_raster::read(const band_list& bands, int first_row, int first_col, int rows,
                       int cols) const {
  require_memory(checked_product({static_cast<std::uint64_t>(rows),
                                  static_cast<std::uint64_t>(cols), bands.size(), sizeof(float)}),
                 "gdal_raster", dataset_->GetDescription());
  cube result(rows, cols, bands.size(), arma::fill::none);

  // Bands are shared out among threads, each with its own dataset (a GDAL dataset
  // serves one thread at a time). Small reads stay on one thread: opening the file
  // again would cost more than it saves. Where it cannot be opened again, fewer
  // threads do the work.
  constexpr std::size_t threaded_bytes = std::size_t{16} << 20;
  std::vector<const gdal_raster*> rasters = {this};
  std::vector<std::unique_ptr<gdal_raster>> others;
  if (result.n_elem * sizeof(float) >= threaded_bytes) {
    const int wanted = std::min(omp_get_max_threads(), static_cast<int>(bands.size()));
    while (static_cast<int>(rasters.size()) < wanted) {
      auto other = std::make_unique<gdal_raster>(dataset_->GetDescription());
      if (!other->is_open()) {
        break;
      }
      rasters.push_back(other.get());
      others.push_back(std::move(other));
    }
  }

  const int chunk = std::min(rows, lines_per_chunk(cols));
  std::exception_ptr failure;
  std::atomic<bool> failed{false};
#pragma omp parallel num_threads(static_cast <int>(rasters.size()))
  {
    const gdal_raster* raster = rasters[omp_get_thread_num()];
    std::unique_ptr<float[]> lines;
#pragma omp for schedule(dynamic)
    for (std::size_t i = 0; i < bands.size(); ++i) {
      if (failed) {
        continue;
      }
      try {
        if (!lines) {
          lines.reset(new float[static_cast<std::size_t>(chunk) * cols]);
        }
        raster->read_band(bands[i], first_row, first_col, rows, cols, result.slice_memptr(i),
                          lines.get(), chunk);
      } catch (...) {
#pragma omp critical(corv_gdal_raster_failure)
        {
          if (!failure) {
            failure = std::current_exception();
          }
        }
        failed = true;
      }
    }
  }
  if (failure) {
    std::rethrow_exception(failure);
  }
  return result;
}

}  // namespace corv
