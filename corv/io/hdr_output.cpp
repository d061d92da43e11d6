#include "corv/io/hdr_output.h"

#include <cmath>
#include <cstdint>
#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "corv/io/file_path.h"
#include "corv/io/logger.h"
#include "corv/io/safe_file.h"
#include "corv/pipeline/pipeline.h"

namespace corv {

namespace {

bool valid_data_type(int code) {
  return code == 1 || code == 2 || code == 4 || code == 12;
}

// Appends one band, line by line, in the stored type. Integer types hold
// trunc(x / largest * type maximum); what cannot be represented (negative values
// in unsigned types, NaN) becomes 0.
template <typename T>
void append_band(const matrix& band, double scale, std::vector<char>& bytes) {
  const std::size_t start = bytes.size();
  bytes.resize(start + band.n_elem * sizeof(T));
  T* out = reinterpret_cast<T*>(bytes.data() + start);
  for (arma::uword r = 0; r < band.n_rows; ++r) {
    for (arma::uword c = 0; c < band.n_cols; ++c) {
      const float x = band(r, c);
      if constexpr (std::is_same_v<T, float>) {
        *out++ = x;
      } else {
        const double v = std::trunc(static_cast<double>(x) * scale);
        const bool representable = std::isfinite(v) && v >= std::numeric_limits<T>::lowest() &&
                                   v <= std::numeric_limits<T>::max();
        *out++ = representable ? static_cast<T>(v) : T(0);
      }
    }
  }
}

bool write_data(std::ostream& stream, const cube& data, int data_type) {
  const double largest = data.empty() ? 0.0 : static_cast<double>(data.max());
  const double type_max = data_type == 1 ? 255.0 : data_type == 2 ? 32767.0 : 65535.0;
  const double scale = largest > 0 ? type_max / largest : 0.0;
  std::vector<char> bytes;
  for (arma::uword b = 0; b < data.n_slices && stream; ++b) {
    bytes.clear();
    const matrix band = data.slice(b);
    switch (data_type) {
      case 1:
        append_band<std::uint8_t>(band, scale, bytes);
        break;
      case 2:
        append_band<std::int16_t>(band, scale, bytes);
        break;
      case 12:
        append_band<std::uint16_t>(band, scale, bytes);
        break;
      default:
        append_band<float>(band, 1.0, bytes);
        break;
    }
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
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
    log_and_throw("HDR_Output: Error Opening " + header_name + " for writing.",
                  "Cannot open file " + header_name + " for writing.");
  }
  const std::string text = header_text(*data, wavelengths);
  header.stream().write(text.data(), static_cast<std::streamsize>(text.size()));
  if (!header.close()) {
    log_and_throw("HDR_Output: Error during .hdr file writing.", "Error writing HDR file.");
  }

  safe_file raw(data_name);
  if (!raw.is_open()) {
    log_and_throw("HDR_Output: Error Opening " + data_name + " for writing.",
                  "Cannot open file " + data_name + " for writing.");
  }
  if (!write_data(raw.stream(), *data, data_type_) || !raw.close()) {
    log_and_throw("HDR_Output: Error during data file writing.", "Error writing HDR data file.");
  }
  if (!raw.commit() || !header.commit()) {
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
