#include "corv/cli/streaming.h"

#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>
#include <vector>

#include "corv/cli/arguments.h"
#include "corv/io/envi_writer.h"
#include "corv/io/logger.h"

namespace corv::cli {

namespace {

constexpr double gib = 1024.0 * 1024.0 * 1024.0;

// MemAvailable of /proc/meminfo in bytes; 0 when it cannot be told.
double available_memory() {
  std::ifstream meminfo("/proc/meminfo");
  std::string key;
  double kib = 0;
  std::string unit;
  while (meminfo >> key >> kib >> unit) {
    if (key == "MemAvailable:") {
      return kib * 1024.0;
    }
  }
  return 0;
}

std::string gib_text(double bytes) {
  std::ostringstream text;
  text.precision(1);
  text << std::fixed << bytes / gib;
  return text.str();
}

}  // namespace

std::size_t block_bytes() {
  constexpr std::size_t default_mib = 64;
  const char* text = std::getenv("CORV_BLOCK_MIB");
  std::size_t mib = default_mib;
  if (text != nullptr) {
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (end != text && *end == '\0' && value > 0) {
      mib = static_cast<std::size_t>(value);
    }
  }
  return mib << 20;
}

std::shared_ptr<hdr_input> streamable(const std::shared_ptr<input>& source, bool reflectance) {
  auto envi = std::dynamic_pointer_cast<hdr_input>(source);
  if (envi && envi->is_reflectance() == reflectance) {
    return envi;
  }
  return nullptr;
}

void require_memory(const input& source, double copies, const std::string& command) {
  const double cube_bytes =
      static_cast<double>(source.height()) * source.width() * source.bands() * sizeof(float);
  const double needed = cube_bytes * copies;
  const double available = available_memory();
  if (available > 0 && needed > available) {
    throw std::runtime_error(command + ": the image (" + std::to_string(source.height()) + " x " +
                             std::to_string(source.width()) + " x " +
                             std::to_string(source.bands()) + ", " + gib_text(cube_bytes) +
                             " GiB) needs about " + gib_text(needed) + " GiB of memory, " +
                             gib_text(available) +
                             " GiB are available; make it smaller with corv prepare --crop, "
                             "--remove-bands or --resize first");
  }
}

image_part image_part::whole(const input& source) {
  image_part part;
  part.last_row = static_cast<int>(source.height()) - 1;
  part.last_col = static_cast<int>(source.width()) - 1;
  for (unsigned b = 0; b < source.bands(); ++b) {
    part.bands.push_back(b);
  }
  return part;
}

stream_run::stream_run(int stage) {
  if (::isatty(STDERR_FILENO) == 1 && !logger::instance().echo()) {
    monitor_.emplace(std::cerr, true, interrupt_requested);
    monitor_->begin(stage);
  } else {
    logger::instance().set_stage(stage);
    logger::instance().set_progress(0);
  }
}

stream_run::~stream_run() {
  if (!finished_) {
    logger::instance().clear_progress();
  }
}

void stream_run::show(double done, int pass, int passes) {
  logger::instance().set_progress(static_cast<int>(100.0 * (pass + done) / passes));
}

void stream_run::finish() {
  logger::instance().set_progress(100);
  if (monitor_) {
    monitor_->end();
  }
  finished_ = true;
}

void stream_run::for_each_block(hdr_input& image, const image_part& part,
                                const std::function<void(cube&, arma::uword)>& use, int pass,
                                int passes) {
  const std::size_t row_bytes = part.cols() * part.bands.size() * sizeof(float);
  const arma::uword step =
      std::max<arma::uword>(1, block_bytes() / std::max<std::size_t>(row_bytes, 1));
  for (arma::uword first = 0; first < part.rows(); first += step) {
    throw_if_interrupted();
    const arma::uword count = std::min(step, part.rows() - first);
    const int top = part.first_row + static_cast<int>(first);
    cube block = image.read_part(part.bands, top, part.first_col, top + static_cast<int>(count) - 1,
                                 part.last_col);
    use(block, first);
    show(static_cast<double>(first + count) / part.rows(), pass, passes);
  }
}

void stream_run::for_each_band_block(
    hdr_input& image, const image_part& part,
    const std::function<void(const float*, arma::uword, arma::uword, arma::uword)>& use, int pass,
    int passes) {
  const arma::uword cols = part.cols();
  const arma::uword step = std::max<arma::uword>(1, block_bytes() / (cols * sizeof(float)));
  const arma::uword blocks_per_band = (part.rows() + step - 1) / step;
  std::vector<float> lines(std::min(step, part.rows()) * cols);
  for (arma::uword i = 0; i < part.bands.size(); ++i) {
    for (arma::uword first = 0; first < part.rows(); first += step) {
      throw_if_interrupted();
      const arma::uword count = std::min(step, part.rows() - first);
      const int top = part.first_row + static_cast<int>(first);
      image.read_lines(part.bands[i], top, part.first_col, top + static_cast<int>(count) - 1,
                       part.last_col, lines.data());
      use(lines.data(), count, i, first);
      show(static_cast<double>(i * blocks_per_band + first / step + 1) /
               static_cast<double>(part.bands.size() * blocks_per_band),
           pass, passes);
    }
  }
}

void stream_run::for_each_band(hdr_input& image, const image_part& part,
                               const std::function<void(cube&, arma::uword)>& use, int pass,
                               int passes) {
  const arma::uword group = static_cast<arma::uword>(std::max(1, omp_get_max_threads()));
  for (arma::uword first = 0; first < part.bands.size(); first += group) {
    throw_if_interrupted();
    const arma::uword count = std::min<arma::uword>(group, part.bands.size() - first);
    cube bands =
        image.read_part(band_list(part.bands.begin() + first, part.bands.begin() + first + count),
                        part.first_row, part.first_col, part.last_row, part.last_col);
    use(bands, first);
    show(static_cast<double>(first + count) / part.bands.size(), pass, passes);
  }
}

void write_blocks(hdr_input& image, const image_part& part, const vector& wavelengths,
                  const std::string& file_name, int data_type, bool reflectance, int stage,
                  const std::function<void(cube&)>& change) {
  const std::string data_name = envi_data_name(file_name);
  check_envi_data_type(data_type);
  stream_run run(stage);
  const int passes = data_type == 4 ? 1 : 2;
  double largest = -std::numeric_limits<double>::infinity();
  if (passes == 2 && change) {
    run.for_each_block(
        image, part,
        [&](cube& block, arma::uword) {
          change(block);
          largest = std::max(largest, static_cast<double>(block.max()));
        },
        0, passes);
  } else if (passes == 2) {
    run.for_each_band_block(
        image, part,
        [&](const float* lines, arma::uword count, arma::uword, arma::uword) {
          // As a cube's max: NaN never wins.
          float most = -std::numeric_limits<float>::infinity();
          for (arma::uword i = 0; i < count * part.cols(); ++i) {
            most = lines[i] > most ? lines[i] : most;
          }
          largest = std::max(largest, static_cast<double>(most));
        },
        0, passes);
  }
  envi_writer out(data_name, part.rows(), part.cols(), wavelengths, data_type, reflectance,
                  largest);
  if (change) {
    run.for_each_block(
        image, part,
        [&](cube& block, arma::uword first) {
          change(block);
          out.write_rows(block, first);
        },
        passes - 1, passes);
  } else {
    run.for_each_band_block(
        image, part,
        [&](const float* lines, arma::uword count, arma::uword band, arma::uword first) {
          out.write_band_lines(lines, count, band, first);
        },
        passes - 1, passes);
  }
  out.commit();
  run.finish();
}

int interruptible(const std::function<int()>& work) {
  try {
    return work();
  } catch (const usage_error&) {
    throw;
  } catch (const std::exception&) {
    if (interrupt_requested()) {
      std::cerr << "Processing was aborted!\n";
      return 130;
    }
    throw;
  }
}

}  // namespace corv::cli
