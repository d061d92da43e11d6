#include "corv/io/slz_file.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "corv/io/file_path.h"
#include "corv/io/hdf5_error.h"
#include "corv/io/hdf5_file.h"
#include "corv/io/hdf5_group.h"
#include "corv/io/isolated_call.h"
#include "corv/io/quantised_storage.h"
#include "corv/io/types.h"

namespace corv {

namespace {

constexpr int deflate_level = 6;
const char* const incorrect_size = "Incorrect Endmember number or wavelength size";

[[noreturn]] void hdf5_failure(const hdf5_error& error) {
  throw std::runtime_error("HDF5 Error in " + error.location() + ": " + error.text());
}

double single_value(const hdf5_group& group, const std::string& name) {
  const hdf5_data<double> data = group.read_double_dataset(name);
  if (data.values.size() != 1) {
    throw hdf5_error(
        name + " holds " + std::to_string(data.values.size()) + " values instead of one",
        group.path());
  }
  return data.values.front();
}

// The endmember block, de-quantised by the shared rules (DATA itself when the
// stored range is below epsilon, else DATA * range / 65535 + MIN, in double) and
// rounded once to float. The file holds bands x endmembers in row order and the
// matrix is column-major, so the transposition goes tile by tile: a straight
// loop writes with a stride of the band count and is several times slower on a
// library of a few thousand spectra.
arma::fmat read_endmembers(const hdf5_group& root) {
  const hdf5_group group = root.open_group("Endmembers");
  const hdf5_data<std::uint16_t> data = group.read_uint16_dataset("DATA");
  if (data.shape.size() != 2) {
    throw hdf5_error("DATA is not two-dimensional", "/Endmembers/DATA");
  }
  const double max = single_value(group, "MAX");
  const double min = single_value(group, "MIN");
  const double range = max - min;
  const bool scaled = std::fabs(range) >= epsilon;
  const double step = scaled ? range / quantised::levels : 1.0;
  const double offset = scaled ? min : 0.0;
  const std::size_t rows = data.shape[0], cols = data.shape[1];
  arma::fmat out(rows, cols);
  constexpr std::size_t tile = 64;
  for (std::size_t c0 = 0; c0 < cols; c0 += tile) {
    const std::size_t c1 = std::min(cols, c0 + tile);
    for (std::size_t r0 = 0; r0 < rows; r0 += tile) {
      const std::size_t r1 = std::min(rows, r0 + tile);
      for (std::size_t c = c0; c < c1; ++c) {
        float* column = out.colptr(c);
        for (std::size_t r = r0; r < r1; ++r) {
          column[r] = static_cast<float>(data.values[r * cols + c] * step + offset);
        }
      }
    }
  }
  return out;
}

bool nanometre_unit(const std::string& unit) {
  const std::string lower = lower_case(trimmed(unit));
  return lower == "nanometers" || lower == "nanometer" || lower == "nanometres" || lower == "nm";
}

// Colours are whole numbers 0-255; quantisation returns them within a step.
arma::mat rounded_colours(arma::mat colours) {
  colours.transform([](double value) { return std::round(value); });
  return colours;
}

// A matrix through the pipe of a child process that read it.
template <typename M>
void transfer_matrix(isolated_writer& out, const M& matrix) {
  out.item(static_cast<std::uint64_t>(matrix.n_rows));
  out.items(matrix.memptr(), matrix.n_elem);
}

template <typename M>
void transfer_matrix(isolated_reader& in, M& matrix) {
  const auto rows = in.value<std::uint64_t>();
  std::vector<typename M::elem_type> values;
  in.item(values);
  const std::uint64_t cols = rows == 0 ? 0 : values.size() / rows;
  if (rows * cols != values.size()) {
    throw std::runtime_error("a matrix that does not fill its rows");
  }
  matrix = M(values.data(), static_cast<arma::uword>(rows), static_cast<arma::uword>(cols));
}

}  // namespace

void slz_file::set_endmembers(const arma::fmat& endmembers) {
  if (endmembers.n_rows != wavelengths_.n_elem || count_ < 0 ||
      endmembers.n_cols != static_cast<arma::uword>(count_)) {
    throw std::runtime_error(incorrect_size);
  }
  endmembers_ = endmembers;
}

void slz_file::set_labels(const std::vector<std::string>& labels) {
  if (count_ < 0 || labels.size() != static_cast<std::size_t>(count_)) {
    throw std::runtime_error(incorrect_size);
  }
  labels_ = labels;
}

void slz_file::set_colours(const arma::mat& colours) {
  if (!colours.empty() &&
      (colours.n_cols != 3 || count_ < 0 || colours.n_rows != static_cast<arma::uword>(count_))) {
    throw std::runtime_error(incorrect_size);
  }
  colours_ = colours;
}

void slz_file::save(const std::string& file_name, bool overwrite) const {
  if (endmembers_.empty() && wavelengths_.empty() && count_ == 0) {
    throw std::runtime_error("invalid object");
  }
  if (wavelengths_.empty()) {
    throw std::runtime_error("wavelengths have not been set");
  }
  if (count_ <= 0) {
    throw std::runtime_error("The number of Endmember has not been set");
  }
  if (endmembers_.empty()) {
    throw std::runtime_error("invalid object");
  }
  const auto count = static_cast<arma::uword>(count_);
  if (endmembers_.n_rows != wavelengths_.n_elem || endmembers_.n_cols != count ||
      labels_.size() != count || (!colours_.empty() && colours_.n_rows != count)) {
    throw std::runtime_error(incorrect_size);
  }
  if (!overwrite && std::filesystem::exists(file_name)) {
    throw std::runtime_error("File already exists: " + file_name);
  }
  const std::lock_guard<std::mutex> hdf5_in_use(hdf5_file::activity());

  try {
    hdf5_file file = hdf5_file::create(file_name);
    {
      hdf5_group root = file.root();
      quantised::write_matrix(root, "Endmembers", arma::conv_to<arma::mat>::from(endmembers_),
                              deflate_level);
      root.create_group("Labels").write_strings("DATA", labels_, deflate_level);
      hdf5_group header = root.create_group("HDR");
      quantised::write_scalar(header, "numEndmembers", count_, deflate_level);
      quantised::write_vector(header, "wavelength",
                              std::vector<double>(wavelengths_.begin(), wavelengths_.end()),
                              deflate_level);
      header.write_string_attribute("wavelength_unit", "Nanometers");
      header.write_string_attribute("metadata", metadata_);
      if (!colours_.empty()) {
        quantised::write_matrix(header, "RGB", colours_, deflate_level);
      }
    }
    file.close();
  } catch (const hdf5_error& error) {
    hdf5_failure(error);
  }
}

template <typename Channel, typename File>
void slz_file::transfer(Channel& channel, File& file) {
  transfer_matrix(channel, file.wavelengths_);
  channel.item(file.count_);
  transfer_matrix(channel, file.endmembers_);
  channel.item(file.labels_);
  channel.item(file.unit_);
  channel.item(file.metadata_);
  transfer_matrix(channel, file.colours_);
}

void slz_file::load(const std::string& file_name) {
  if (file_name.empty() || !file_exists(file_name)) {
    throw std::runtime_error("Invalid file name: " + file_name);
  }
  slz_file loaded;
  bool old_format = false;
  const hdf5_file::child_read child = hdf5_file::read_in_child(
      file_name,
      [&file_name](isolated_writer& out) {
        slz_file found;
        const bool old = found.read(file_name);
        out.item(old);
        transfer(out, std::as_const(found));
      },
      [&](isolated_reader& in) {
        in.item(old_format);
        transfer(in, loaded);
      });
  if (!child.damage.empty()) {
    throw std::runtime_error("Damaged file: " + file_name + ": " + child.damage + ".");
  }
  if (!child.done) {
    old_format = loaded.read(file_name);
  }
  if (old_format) {
    std::cout << "Old format file - no metadata" << std::endl;
  }
  *this = std::move(loaded);
}

bool slz_file::read(const std::string& file_name) {
  const std::lock_guard<std::mutex> hdf5_in_use(hdf5_file::activity());
  if (!hdf5_file::is_hdf5(file_name)) {
    throw std::runtime_error("Invalid file name: " + file_name);
  }
  slz_file loaded;
  bool old_format = false;
  bool has_endmembers = false, has_labels = false, has_header = false;
  try {
    const hdf5_file file = hdf5_file::open_read_only(file_name);
    const hdf5_group root = file.root();
    for (const std::string& name : root.member_names()) {
      if (name == "Endmembers") {
        loaded.endmembers_ = read_endmembers(root);
        has_endmembers = true;
      } else if (name == "Labels") {
        loaded.labels_ = root.open_group("Labels").read_strings("DATA");
        has_labels = true;
      } else if (name == "HDR") {
        const hdf5_group header = root.open_group(name);
        loaded.count_ = static_cast<int>(quantised::read_scalar(header, "numEndmembers"));
        const std::vector<double> wavelengths = quantised::read_vector(header, "wavelength");
        loaded.wavelengths_ = arma::vec(wavelengths);
        if (header.has_attribute("wavelength_unit")) {
          loaded.unit_ = header.read_string_attribute("wavelength_unit");
        }
        if (header.has_attribute("metadata")) {
          loaded.metadata_ = header.read_string_attribute("metadata");
        } else {
          old_format = true;
        }
        if (header.has_member("RGB")) {
          loaded.colours_ = rounded_colours(quantised::read_matrix(header, "RGB"));
        }
        has_header = true;
      }
    }
  } catch (const hdf5_error& error) {
    hdf5_failure(error);
  }
  if (!has_endmembers || !has_labels || !has_header) {
    throw std::runtime_error(std::string("Missing group ") +
                             (!has_endmembers ? "Endmembers"
                              : !has_labels   ? "Labels"
                                              : "HDR") +
                             " in file: " + file_name);
  }
  if (!nanometre_unit(loaded.unit_)) {
    throw std::runtime_error("Unsupported wavelength unit: " + loaded.unit_);
  }
  // The count is stored as a quantised scalar, which keeps only its low 16 bits.
  const arma::uword count = loaded.endmembers_.n_cols;
  if (loaded.endmembers_.n_rows != loaded.wavelengths_.n_elem ||
      static_cast<arma::uword>(loaded.count_) != (count & 0xFFFFu) ||
      loaded.labels_.size() != count ||
      (!loaded.colours_.empty() &&
       (loaded.colours_.n_rows != count || loaded.colours_.n_cols != 3))) {
    throw std::runtime_error(incorrect_size);
  }
  loaded.count_ = static_cast<int>(count);
  *this = std::move(loaded);
  return old_format;
}

}  // namespace corv
