#include "corv/io/envi_writer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iomanip>
#include <limits>
#include <sstream>

#include "corv/io/file_path.h"
#include "corv/io/logger.h"
#include "corv/io/safe_file.h"
#include "corv/io/transpose.h"

namespace corv {

namespace {

// Large enough that a band or several of lines given a band at a time go out
// in one call.
constexpr std::size_t staged_capacity = std::size_t{8} << 20;

// Integer types hold trunc(x / largest * type maximum); what cannot be
// represented (negative values in unsigned types, NaN) becomes 0. The division
// comes first: x * (type maximum / largest) rounds the largest element to just
// below the type maximum for some largest values (0.7 among them).
// trunc(d) lies in [lowest, max] exactly when d lies in (lowest - 1, max + 1),
// and a conversion to int truncates: without branches or calls, the loop runs in
// vector registers.
template <typename T>
void store_values(const float* values, std::size_t count, double largest, char* bytes) {
  T* out = reinterpret_cast<T*>(bytes);
  constexpr double above = static_cast<double>(std::numeric_limits<T>::lowest()) - 1.0;
  constexpr double below = static_cast<double>(std::numeric_limits<T>::max()) + 1.0;
  constexpr double type_max = static_cast<double>(std::numeric_limits<T>::max());
  const double divisor = largest > 0 ? largest : std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < count; ++i) {
    const double v = static_cast<double>(values[i]) / divisor * type_max;
    const bool representable = v > above && v < below;
    out[i] = static_cast<T>(static_cast<int>(representable ? v : 0.0));
  }
}

// The system's reason for a failed write, logged before the format's own message.
void log_reason(const safe_file& file) {
  if (!file.reason().empty()) {
    logger::instance() << "HDR_Output: " << file.target() << ": " << file.reason() << "EOL";
  }
}

std::size_t size_of_type(int data_type) {
  return data_type == 1 ? 1 : data_type == 4 ? 4 : 2;
}

}  // namespace

std::string envi_header_text(arma::uword rows, arma::uword cols, const vector& wavelengths,
                             int data_type, bool reflectance) {
  std::ostringstream text;
  text << "ENVI\n"
       << "description = {\n"
       << (reflectance ? "REFLECTANCE" : "IRRADIANCE") << "\n}\n"
       << "sensor type = unknown\n"
       << "file type = ENVI Standard\n"
       << "header offset = 0\n"
       << "samples = " << cols << "\n"
       << "lines = " << rows << "\n"
       << "bands = " << wavelengths.n_elem << "\n"
       << "data type = " << data_type << "\n"
       << "interleave = bsq\n"
       << "byte order = 0\n"
       << "wavelength = {\n";
  text << std::fixed << std::setprecision(4);
  for (arma::uword b = 0; b < wavelengths.n_elem; ++b) {
    text << " " << wavelengths(b) << (b + 1 < wavelengths.n_elem ? ",\n" : "");
  }
  text << "}\n";
  return text.str();
}

void check_envi_data_type(int data_type) {
  if (data_type != 1 && data_type != 2 && data_type != 4 && data_type != 12) {
    log_and_throw("Data type not valid for writing HDR!");
  }
}

std::string envi_data_name(const std::string& file_name) {
  if (file_name.empty()) {
    log_and_throw("HDR_Output: Oops, looks like you forgot to set a filename!",
                  "No filename set for HDR file save.");
  }
  file_path data_path = file_path::split(file_name);
  if (data_path.extension.empty()) {
    log_and_throw("HDR_Output: Error, no file extension.",
                  "No file extension on file chosen for HDR save.");
  }
  if (data_path.extension == ".hdr" || data_path.extension == ".HDR") {
    data_path.extension = ".fla";
    logger::instance() << "HDR_Output: Datafile extension supplied as '.hdr', using '.fla'"
                       << "EOL";
  }
  return data_path.full();
}

envi_writer::envi_writer(const std::string& data_name, arma::uword rows, arma::uword cols,
                         const vector& wavelengths, int data_type, bool reflectance, double largest)
    : rows_(rows),
      cols_(cols),
      bands_(wavelengths.n_elem),
      data_type_(data_type),
      type_size_(size_of_type(data_type)) {
  check_envi_data_type(data_type);
  largest_ = data_type == 4 ? 0.0 : largest;
  const std::string header_name = file_path::split(data_name).with_extension(".hdr");
  header_ = std::make_unique<safe_file>(header_name);
  if (!header_->is_open()) {
    log_reason(*header_);
    log_and_throw("HDR_Output: Error Opening " + header_name + " for writing.",
                  "Cannot open file " + header_name + " for writing.");
  }
  const std::string text = envi_header_text(rows, cols, wavelengths, data_type, reflectance);
  header_->stream().write(text.data(), static_cast<std::streamsize>(text.size()));
  if (!header_->close()) {
    log_reason(*header_);
    log_and_throw("HDR_Output: Error during .hdr file writing.", "Error writing HDR file.");
  }
  data_ = std::make_unique<safe_file>(data_name);
  if (!data_->is_open()) {
    log_reason(*data_);
    log_and_throw("HDR_Output: Error Opening " + data_name + " for writing.",
                  "Cannot open file " + data_name + " for writing.");
  }
  data_->reserve(static_cast<std::uint64_t>(rows) * cols * bands_ * type_size_);
}

envi_writer::~envi_writer() = default;

void envi_writer::fail() const {
  log_reason(data_->reason().empty() ? *header_ : *data_);
  log_and_throw("HDR_Output: Error during data file writing.", "Error writing HDR data file.");
}

void envi_writer::put(const char* bytes, std::size_t count, std::uint64_t offset) {
  std::ofstream& stream = data_->stream();
  if (position_ != offset) {
    stream.seekp(static_cast<std::streamoff>(offset));
  }
  stream.write(bytes, static_cast<std::streamsize>(count));
  if (!stream) {
    data_->close();  // notes the system's reason while errno still holds it
    fail();
  }
  position_ = offset + count;
}

void envi_writer::flush() {
  if (staged_bytes_ == 0) {
    return;
  }
  const std::size_t bytes = staged_bytes_;
  staged_bytes_ = 0;
  put(staged_.data(), bytes, staged_offset_);
}

char* envi_writer::stage(std::size_t bytes, std::uint64_t offset) {
  if (staged_bytes_ > 0 &&
      (offset != staged_offset_ + staged_bytes_ || staged_bytes_ + bytes > staged_.size())) {
    flush();
  }
  if (staged_bytes_ == 0) {
    staged_offset_ = offset;
  }
  if (staged_.size() < std::max(bytes, staged_capacity)) {
    staged_.resize(std::max(bytes, staged_capacity));
  }
  char* to = staged_.data() + staged_bytes_;
  staged_bytes_ += bytes;
  return to;
}

void envi_writer::write_slice(const float* slice, arma::uword count, arma::uword band,
                              arma::uword first_row) {
  flush();
  // A quarter megabyte of lines at a time, turned while they are still in the
  // cache and written from there, so that the system's copy into the file
  // reads the cache too.
  const arma::uword chunk = std::max<arma::uword>(
      16, (std::size_t{256} << 10) / (sizeof(float) * std::max<arma::uword>(cols_, 1)));
  const std::size_t piece = static_cast<std::size_t>(std::min(chunk, count)) * cols_;
  lines_.resize(std::max(lines_.size(), piece));
  if (data_type_ != 4) {
    stored_.resize(std::max(stored_.size(), piece * type_size_));
  }
  for (arma::uword row = 0; row < count; row += chunk) {
    const arma::uword n = std::min(chunk, count - row);
    const std::size_t values = static_cast<std::size_t>(n) * cols_;
    transpose_into(slice + row, count, cols_, n, lines_.data(), cols_);
    const char* bytes = reinterpret_cast<const char*>(lines_.data());
    if (data_type_ != 4) {
      convert(lines_.data(), values, stored_.data());
      bytes = stored_.data();
    }
    put(bytes, values * type_size_,
        (static_cast<std::uint64_t>(band) * rows_ + first_row + row) * cols_ * type_size_);
  }
}

void envi_writer::convert(const float* lines, std::size_t count, char* to) const {
  switch (data_type_) {
    case 1:
      store_values<std::uint8_t>(lines, count, largest_, to);
      break;
    case 2:
      store_values<std::int16_t>(lines, count, largest_, to);
      break;
    case 12:
      store_values<std::uint16_t>(lines, count, largest_, to);
      break;
    default:
      std::memcpy(to, lines, count * sizeof(float));
      break;
  }
}

void envi_writer::write_band_lines(const float* lines, arma::uword count, arma::uword band,
                                   arma::uword first_row) {
  const std::uint64_t offset =
      (static_cast<std::uint64_t>(band) * rows_ + first_row) * cols_ * type_size_;
  const std::size_t values = static_cast<std::size_t>(count) * cols_;
  convert(lines, values, stage(values * type_size_, offset));
}

void envi_writer::write_rows(const cube& block, arma::uword first_row) {
  for (arma::uword b = 0; b < bands_; ++b) {
    write_slice(block.slice_memptr(b), block.n_rows, b, first_row);
  }
}

void envi_writer::write_band(const matrix& plane, arma::uword band, arma::uword first_row) {
  write_slice(plane.memptr(), plane.n_rows, band, first_row);
}

void envi_writer::commit() {
  flush();
  if (!data_->close() || !data_->commit() || !header_->commit()) {
    fail();
  }
}

}  // namespace corv
