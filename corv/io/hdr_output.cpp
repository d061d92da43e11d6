#include "corv/io/hdr_output.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <limits>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "corv/io/file_path.h"
#include "corv/io/logger.h"
#include "corv/io/safe_file.h"
#include "corv/io/transpose.h"
#include "corv/pipeline/pipeline.h"

namespace corv {

namespace {

// The system's reason for a failed write, before the format's own message.
void log_reason(const safe_file& file) {
  logger::instance() << "HDR_Output: " << file.target() << ": " << file.reason() << "EOL";
}

bool valid_data_type(int code) {
  return code == 1 || code == 2 || code == 4 || code == 12;
}

// Stores image lines in the file's type. Integer types hold
// trunc(x / largest * type maximum); what cannot be represented (negative values
// in unsigned types, NaN) becomes 0.
// The division comes first: x * (type maximum / largest) rounds the largest
// element to just below the type maximum for some largest values (0.7 among them).
template <typename T>
void store_lines(const float* lines, std::size_t count, double largest, char* bytes) {
  T* out = reinterpret_cast<T*>(bytes);
  const double type_max = static_cast<double>(std::numeric_limits<T>::max());
  for (std::size_t i = 0; i < count; ++i) {
    const double v =
        largest > 0 ? std::trunc(static_cast<double>(lines[i]) / largest * type_max) : 0.0;
    const bool representable = std::isfinite(v) && v >= std::numeric_limits<T>::lowest() &&
                               v <= std::numeric_limits<T>::max();
    out[i] = representable ? static_cast<T>(v) : T(0);
  }
}

// Image lines written per call: a few hundred kilobytes, so that the lines just
// turned out of the slice are still in the core's cache when they are written.
arma::uword lines_per_chunk(arma::uword samples) {
  constexpr arma::uword chunk_bytes = 256 * 1024;
  const arma::uword lines = chunk_bytes / (sizeof(float) * std::max<arma::uword>(samples, 1));
  return std::max<arma::uword>(16, lines - lines % 16);
}

// Writes the cube band by band, each band line by line, a chunk of lines at a time.
bool write_data(std::ostream& stream, const cube& data, int data_type) {
  const double largest = data.empty() || data_type == 4 ? 0.0 : static_cast<double>(data.max());
  const std::size_t type_size = data_type == 1 ? 1 : data_type == 4 ? 4 : 2;
  const arma::uword chunk = std::min(data.n_rows, lines_per_chunk(data.n_cols));
  const std::size_t chunk_elements = static_cast<std::size_t>(chunk) * data.n_cols;
  std::unique_ptr<float[]> lines(new float[chunk_elements]);
  std::unique_ptr<char[]> stored(new char[data_type == 4 ? 0 : chunk_elements * type_size]);
  for (arma::uword b = 0; b < data.n_slices && stream; ++b) {
    for (arma::uword row = 0; row < data.n_rows && stream; row += chunk) {
      const arma::uword count = std::min(chunk, data.n_rows - row);
      const std::size_t elements = static_cast<std::size_t>(count) * data.n_cols;
      // The slice's columns, read as lines, turn into the image's lines.
      transpose_into(data.slice_memptr(b) + row, data.n_rows, data.n_cols, count, lines.get(),
                     data.n_cols);
      const char* bytes = stored.get();
      switch (data_type) {
        case 1:
          store_lines<std::uint8_t>(lines.get(), elements, largest, stored.get());
          break;
        case 2:
          store_lines<std::int16_t>(lines.get(), elements, largest, stored.get());
          break;
        case 12:
          store_lines<std::uint16_t>(lines.get(), elements, largest, stored.get());
          break;
        default:
          bytes = reinterpret_cast<const char*>(lines.get());
          break;
      }
      stream.write(bytes, static_cast<std::streamsize>(elements * type_size));
    }
  }
  return static_cast<bool>(stream);
}

}  // namespace

hdr_output::hdr_output(bool reflectance, int data_type)
    : reflectance_(reflectance), data_type_(data_type) {}

std::string hdr_output::header_text(const cube& data, const vector& wavelengths) const {
  std::ostringstream text;
  text << "ENVI\n"
       << "description = {\n"
       << (reflectance_ ? "REFLECTANCE" : "IRRADIANCE") << "\n}\n"
       << "sensor type = unknown\n"
       << "file type = ENVI Standard\n"
       << "header offset = 0\n"
       << "samples = " << data.n_cols << "\n"
       << "lines = " << data.n_rows << "\n"
       << "bands = " << data.n_slices << "\n"
       << "data type = " << data_type_ << "\n"
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

void hdr_output::write(pipeline& source, const std::string& file_name) {
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

  vector wavelengths;
  try {
    wavelengths = source.wavelengths();
  } catch (const std::exception&) {
    log_and_throw("HDR_Output: Error reading Wavelengths.",
                  "Wavelengths not present when saving HDR file.");
  }
  const cube* data = nullptr;
  try {
    data = reflectance_ ? &source.s() : &source.I();
  } catch (const std::exception&) {
    log_and_throw("HDR_Output: Error reading I.", "Image not present when saving HDR file.");
  }
  if (wavelengths.n_elem != data->n_slices) {
    log_and_throw("HDR_Output: Wavelengths must have same number of bands as I");
  }
  if (!valid_data_type(data_type_)) {
    log_and_throw("Data type not valid for writing HDR!");
  }

  const std::string header_name = data_path.with_extension(".hdr");
  const std::string data_name = data_path.full();
  safe_file header(header_name);
  if (!header.is_open()) {
    log_reason(header);
    log_and_throw("HDR_Output: Error Opening " + header_name + " for writing.",
                  "Cannot open file " + header_name + " for writing.");
  }
  const std::string text = header_text(*data, wavelengths);
  header.stream().write(text.data(), static_cast<std::streamsize>(text.size()));
  if (!header.close()) {
    log_reason(header);
    log_and_throw("HDR_Output: Error during .hdr file writing.", "Error writing HDR file.");
  }

  safe_file raw(data_name);
  if (!raw.is_open()) {
    log_reason(raw);
    log_and_throw("HDR_Output: Error Opening " + data_name + " for writing.",
                  "Cannot open file " + data_name + " for writing.");
  }
  const bool written = write_data(raw.stream(), *data, data_type_);
  if (!raw.close() || !written) {
    log_reason(raw);
    log_and_throw("HDR_Output: Error during data file writing.", "Error writing HDR data file.");
  }
  if (!raw.commit() || !header.commit()) {
    log_reason(raw.reason().empty() ? header : raw);
    log_and_throw("HDR_Output: Error during data file writing.", "Error writing HDR data file.");
  }
}

void write_envi(const cube& data, const vector& wavelengths, const std::string& file_name,
                int data_type, bool reflectance) {
  pipeline holder;
  if (reflectance) {
    holder.set_s(data, wavelengths);
  } else {
    holder.set_I(data, wavelengths);
  }
  hdr_output(reflectance, data_type).write(holder, file_name);
}

}  // namespace corv
