#include "corv/io/envi_library.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <stdexcept>

#include "corv/io/envi_header.h"
#include "corv/io/file_path.h"
#include "corv/io/logger.h"
#include "corv/io/memory_budget.h"

namespace corv {

namespace {

const char* const routine = "read_envi_library: ";

[[noreturn]] void refuse(const std::string& what) {
  throw std::runtime_error(routine + what);
}

struct envi_files {
  std::string header;
  std::string data;
};

envi_files find_files(const std::string& name) {
  const file_path given = file_path::split(name);
  envi_files files;
  if (lower_case(given.extension) == ".hdr") {
    if (!file_exists(name)) {
      refuse("cannot open " + name);
    }
    files.header = name;
    for (const char* extension : {".sli", ".SLI", "", ".dat", ".img", ".raw", ".fla", ".bin"}) {
      const std::string candidate = given.with_extension(extension);
      if (file_exists(candidate)) {
        files.data = candidate;
        return files;
      }
    }
    refuse("no data file found beside " + name);
  }
  if (!file_exists(name)) {
    refuse("cannot open " + name);
  }
  files.data = name;
  for (const std::string& candidate :
       {given.with_extension(".hdr"), given.with_extension(".HDR"), name + ".hdr"}) {
    if (file_exists(candidate)) {
      files.header = candidate;
      return files;
    }
  }
  refuse("no header found for " + name);
}

// What the header says, checked.
class layout {
 public:
  layout(const envi_header& header, const std::string& header_name)
      : header_(header), name_(header_name) {}

  std::string in_header() const { return " in header " + name_; }

  std::uint64_t whole(const std::string& key, bool positive) const {
    if (!header_.has(key)) {
      refuse("'" + key + "' missing" + in_header());
    }
    const auto value = parse_decimal(header_.value(key));
    if (!value || *value != std::floor(*value) || *value < (positive ? 1 : 0) || *value > 1e15) {
      refuse("'" + key + "' is not a " + (positive ? "positive " : "") + "whole number" +
             in_header());
    }
    return static_cast<std::uint64_t>(*value);
  }

  std::uint64_t optional_whole(const std::string& key) const {
    return header_.has(key) ? whole(key, false) : 0;
  }

 private:
  const envi_header& header_;
  std::string name_;
};

double unit_factor(const envi_header& header, const std::vector<double>& wavelengths,
                   const layout& checked) {
  const std::string unit = lower_case(header.value("wavelength units"));
  if (unit == "micrometers" || unit == "micrometer" || unit == "micrometres" ||
      unit == "micrometre" || unit == "microns" || unit == "micron" || unit == "um" ||
      unit == "\xC2\xB5m") {
    return 1000.0;
  }
  if (unit == "nanometers" || unit == "nanometer" || unit == "nanometres" || unit == "nanometre" ||
      unit == "nm") {
    return 1.0;
  }
  if (!unit.empty() && unit != "unknown") {
    refuse("wavelength units '" + header.value("wavelength units") + "' are not supported" +
           checked.in_header());
  }
  const bool all_small = std::all_of(wavelengths.begin(), wavelengths.end(),
                                     [](double w) { return std::abs(w) < 100.0; });
  return all_small ? 1000.0 : 1.0;
}

template <typename T>
T read_value(const char* bytes, bool swap) {
  char ordered[sizeof(T)];
  std::memcpy(ordered, bytes, sizeof(T));
  if (swap) {
    std::reverse(ordered, ordered + sizeof(T));
  }
  T value;
  std::memcpy(&value, ordered, sizeof(T));
  return value;
}

// The stored value at `index` as float, NaN when it is missing.
template <typename T>
float stored_value(const std::string& bytes, std::uint64_t index, bool swap,
                   const std::optional<double>& ignore) {
  const T value = read_value<T>(bytes.data() + index * sizeof(T), swap);
  if (!std::isfinite(value) || (ignore && value == static_cast<T>(*ignore))) {
    return std::numeric_limits<float>::quiet_NaN();
  }
  return static_cast<float>(value);
}

}  // namespace

spectral_library read_envi_library(const std::string& file_name, missing_points missing) {
  const envi_files files = find_files(file_name);
  const envi_header header = envi_header::read(files.header);
  const layout checked(header, files.header);

  const std::string type = lower_case(header.value("file type"));
  const bool library_file = type == "envi spectral library";
  if (!library_file && !type.empty() && type != "envi standard") {
    refuse("file type '" + header.value("file type") + "' is not a spectral library or an image" +
           checked.in_header());
  }
  if (trimmed(header.value("file compression")) == "1") {
    refuse("compressed data files are not supported" + checked.in_header());
  }
  const std::uint64_t samples = checked.whole("samples", true);
  const std::uint64_t lines = checked.whole("lines", true);
  const std::uint64_t bands = checked.whole("bands", true);
  const std::uint64_t offset = checked.optional_whole("header offset");
  const std::uint64_t data_type = checked.whole("data type", true);
  if (data_type != 4 && data_type != 5) {
    refuse("data type " + header.value("data type") + " is not supported (only 4 and 5)" +
           checked.in_header());
  }
  const std::uint64_t byte_order = checked.optional_whole("byte order");
  if (byte_order > 1) {
    refuse("byte order " + header.value("byte order") + " is not 0 or 1" + checked.in_header());
  }

  std::uint64_t spectra = lines, channels = samples;
  std::string interleave = "bsq";
  if (library_file) {
    if (bands != 1) {
      refuse("a spectral library needs bands = 1, not " + std::to_string(bands) +
             checked.in_header());
    }
  } else {
    if (lines > 1 && samples > 1) {
      refuse("an image of " + std::to_string(lines) + " lines x " + std::to_string(samples) +
             " samples is not a list of spectra (it needs one line or one sample)" +
             checked.in_header());
    }
    spectra = lines * samples;
    channels = bands;
    interleave = lower_case(header.value("interleave"));
    if (interleave != "bsq" && interleave != "bil" && interleave != "bip") {
      refuse("interleave '" + header.value("interleave") + "' is not bsq, bil or bip" +
             checked.in_header());
    }
  }

  // The data file must hold what the header describes before anything is made
  // for it (a label per spectrum, the spectra).
  const std::uint64_t value_size = data_type == 4 ? 4 : 8;
  const auto described = checked_product({spectra, channels, value_size});
  std::error_code unknown_size;
  const std::uint64_t size = std::filesystem::file_size(files.data, unknown_size);
  if (unknown_size) {
    refuse("cannot open " + files.data);
  }
  if (!described || size < offset || size - offset < *described) {
    refuse(files.data + " holds " + std::to_string(size) + " bytes, the header needs " +
           (described && *described <= UINT64_MAX - offset ? std::to_string(offset + *described)
                                                           : "more than 2^64"));
  }
  const std::uint64_t needed = *described;

  const auto listed = header.numbers("wavelength");
  if (!listed) {
    refuse("'wavelength' missing" + checked.in_header());
  }
  if (listed->empty() && !header.list("wavelength")->empty()) {
    refuse("'wavelength' holds an item that is not a number" + checked.in_header());
  }
  if (listed->size() != channels) {
    refuse(std::to_string(listed->size()) + " wavelengths for " + std::to_string(channels) +
           " channels" + checked.in_header());
  }
  const double factor = unit_factor(header, *listed, checked);
  vector wavelengths(channels);
  for (std::uint64_t c = 0; c < channels; ++c) {
    wavelengths(c) = static_cast<float>((*listed)[c] * factor);
  }

  std::vector<std::string> labels;
  if (const auto names = header.list("spectra names")) {
    labels = *names;
    if (labels.size() != spectra) {
      refuse(std::to_string(labels.size()) + " spectra names for " + std::to_string(spectra) +
             " spectra" + checked.in_header());
    }
  } else {
    const std::string stem = file_path::split(files.data).stem;
    for (std::uint64_t s = 0; s < spectra; ++s) {
      labels.push_back(stem + " " + std::to_string(s + 1));
    }
  }

  std::optional<double> ignore;
  if (header.has("data ignore value")) {
    ignore = parse_decimal(header.value("data ignore value"));
    if (!ignore) {
      refuse("'data ignore value' is not a number" + checked.in_header());
    }
  }

  std::ifstream data(files.data, std::ios::binary);
  if (!data) {
    refuse("cannot open " + files.data);
  }
  std::string bytes(needed, '\0');
  data.seekg(static_cast<std::streamoff>(offset));
  if (!data.read(bytes.data(), static_cast<std::streamsize>(needed))) {
    refuse("cannot read " + files.data);
  }

  // Position of channel c of spectrum s in the data file.
  const auto position = [&](std::uint64_t s, std::uint64_t c) -> std::uint64_t {
    if (interleave == "bsq") {
      return c * spectra + s;
    }
    if (interleave == "bip") {
      return s * channels + c;
    }
    return (lines == 1 ? 0 : s) * channels * samples + c * samples + (lines == 1 ? s : 0);
  };
  const bool swap = byte_order == 1;
  matrix values(channels, spectra);
  for (std::uint64_t s = 0; s < spectra; ++s) {
    for (std::uint64_t c = 0; c < channels; ++c) {
      const std::uint64_t at = library_file ? s * channels + c : position(s, c);
      values(c, s) = data_type == 4 ? stored_value<float>(bytes, at, swap, ignore)
                                    : stored_value<double>(bytes, at, swap, ignore);
    }
  }

  spectral_library library(values, labels, wavelengths);
  if (missing == missing_points::drop) {
    const auto incomplete = library.incomplete_endmembers();
    if (!incomplete.empty()) {
      std::vector<arma::uword> kept;
      std::vector<std::string> kept_labels;
      for (arma::uword s = 0, next = 0; s < spectra; ++s) {
        if (next < incomplete.size() && incomplete[next] == s) {
          ++next;
        } else {
          kept.push_back(s);
          kept_labels.push_back(labels[s]);
        }
      }
      logger::instance() << routine << "left out " << incomplete.size() << " of " << spectra
                         << " spectra with missing points from " << files.data << "EOL";
      library = spectral_library(values.cols(arma::uvec(kept)), kept_labels, wavelengths);
    }
  }
  library.set_sources(std::vector<std::string>(library.size(), files.data));
  library.set_metadata(header.braced_text("description").value_or(""));
  return library;
}

}  // namespace corv
