#include "corv/io/quantised_storage.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "corv/io/hdf5_group.h"
#include "corv/io/huge_pages.h"
#include "corv/io/types.h"

namespace corv {
namespace quantised {

namespace {

struct value_range {
  double max;
  double min;
};

// The conversions here are bound by memory, not arithmetic: they run on one
// thread, since a second gains little and, on a busy machine, its waits at the
// end of each loop cost more than it saves.
template <typename T>
value_range scan_block(const std::vector<T>& values) {
  double largest = max_start;
  double smallest = min_start;
  for (const T value : values) {
    const double x = static_cast<double>(value);
    if (x > largest) {
      largest = x;
    }
    if (x < smallest) {
      smallest = x;
    }
  }
  return {largest, smallest};
}

// The low 16 bits of a finite value's integer part, as the unscaled DATA holds it.
std::uint16_t low_16_bits(double x) {
  double wrapped = std::fmod(std::trunc(x), 65536.0);
  if (wrapped < 0) {
    wrapped += 65536.0;
  }
  return static_cast<std::uint16_t>(wrapped);
}

std::uint16_t low_16_bits(std::int32_t index) {
  return static_cast<std::uint16_t>(static_cast<std::uint32_t>(index));
}

hdf5_shape file_shape(const block_shape& shape) {
  if (shape.slices == 1) {
    return {shape.rows, shape.cols};
  }
  return {shape.rows, shape.cols, shape.slices};
}

std::string group_path(const hdf5_group& parent, const std::string& name) {
  return parent.path() == "/" ? "/" + name : parent.path() + "/" + name;
}

[[noreturn]] void not_finite(const hdf5_group& parent, const std::string& name) {
  throw std::runtime_error("quantised_storage: " + group_path(parent, name) +
                           " holds a value that is not a finite number.");
}

// Visits every element of a rows x columns x slices block once, as a pair of its
// index in the file's row order and in the column-major memory block. Tiles of
// 64 x 64 pixels keep both sides in cache (a plain loop would miss the cache on
// nearly every element of one side).
template <typename Visit>
void visit_in_tiles(std::size_t rows, std::size_t cols, std::size_t slices, Visit visit) {
  constexpr std::size_t tile = 64;
  const std::size_t plane = rows * cols;
  for (std::size_t first_row = 0; first_row < rows; first_row += tile) {
    const std::size_t end_row = std::min(rows, first_row + tile);
    for (std::size_t first_col = 0; first_col < cols; first_col += tile) {
      const std::size_t end_col = std::min(cols, first_col + tile);
      for (std::size_t s = 0; s < slices; ++s) {
        for (std::size_t c = first_col; c < end_col; ++c) {
          for (std::size_t r = first_row; r < end_row; ++r) {
            visit((r * cols + c) * slices + s, r + rows * c + plane * s);
          }
        }
      }
    }
  }
}

// Reorders a column-major block into the file's row order while quantising each
// value. Returns false when some value could not be quantised.
template <typename T, typename Quantise>
bool to_file_order(const block<T>& values, std::vector<std::uint16_t>& out, Quantise quantise) {
  const T* in = values.values().data();
  resize_large(out, values.values().size());
  bool all_finite = true;
  visit_in_tiles(values.rows(), values.cols(), values.slices(),
                 [&](std::size_t file, std::size_t memory) {
                   bool ok = true;
                   out[file] = quantise(in[memory], ok);
                   all_finite = all_finite && ok;
                 });
  return all_finite;
}

void write_group(hdf5_group& parent, const std::string& name, const hdf5_shape& shape,
                 const std::vector<std::uint16_t>& data, double max, double min,
                 int deflate_level) {
  hdf5_group group = parent.create_group(name);
  const hdf5_shape chunk = data.empty() ? hdf5_shape{} : shape;
  group.write_dataset("DATA", shape, data.data(), chunk, deflate_level);
  group.write_dataset("MAX", {1}, &max, {1}, deflate_level);
  group.write_dataset("MIN", {1}, &min, {1}, deflate_level);
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

struct stored_group {
  block_shape shape;
  std::vector<std::uint16_t> data;  // in file order
  double max;
  double min;
};

stored_group read_group(const hdf5_group& parent, const std::string& name) {
  const hdf5_group group = parent.open_group(name);
  hdf5_data<std::uint16_t> data = group.read_uint16_dataset("DATA");
  stored_group stored;
  const hdf5_shape& dims = data.shape;
  if (dims.size() > 3) {
    throw hdf5_error("DATA has " + std::to_string(dims.size()) + " dimensions", group.path());
  }
  for (const auto extent : dims) {
    if (extent > UINT32_MAX) {
      throw hdf5_error("DATA is too large", group.path());
    }
  }
  const auto extent = [&dims](std::size_t i) {
    return i < dims.size() ? static_cast<std::uint32_t>(dims[i]) : std::uint32_t{1};
  };
  stored.shape = {extent(0), extent(1), extent(2)};
  if (data.values.empty()) {
    stored.shape = {dims.size() > 0 ? extent(0) : 0, dims.size() > 1 ? extent(1) : 0,
                    dims.size() > 2 ? extent(2) : 0};
  }
  stored.data = std::move(data.values);
  stored.max = single_value(group, "MAX");
  stored.min = single_value(group, "MIN");
  return stored;
}

// Reorders file-order DATA into a column-major block, converting each value.
template <typename T, typename Convert>
std::vector<T> from_file_order(const stored_group& stored, Convert convert) {
  std::vector<T> out;
  resize_large(out, stored.data.size());
  const std::uint16_t* in = stored.data.data();
  visit_in_tiles(stored.shape.rows, stored.shape.cols, stored.shape.slices,
                 [&](std::size_t file, std::size_t memory) { out[memory] = convert(in[file]); });
  return out;
}

}  // namespace

template <typename T>
block<T>::block(block_shape shape, std::vector<T> values)
    : shape_(shape), values_(std::move(values)) {
  if (values_.size() != shape_.size()) {
    throw std::invalid_argument("quantised_block: " + std::to_string(values_.size()) +
                                " values do not fill a " + std::to_string(shape_.rows) + " x " +
                                std::to_string(shape_.cols) + " x " +
                                std::to_string(shape_.slices) + " block.");
  }
  const value_range range = scan_block(values_);
  max_ = range.max;
  min_ = range.min;
}

template class block<double>;
template class block<std::int32_t>;

void write_values(hdf5_group& parent, const std::string& name, const value_block& values,
                  int deflate_level) {
  const double max = values.max();
  const double min = values.min();
  const double range = max - min;
  std::vector<std::uint16_t> data;
  bool finite = false;
  if (range == 0.0) {
    finite = to_file_order(values, data, [](double x, bool& ok) {
      ok = std::isfinite(x);
      return ok ? low_16_bits(x) : std::uint16_t{0};
    });
  } else {
    finite = to_file_order(values, data, [min, range](double x, bool& ok) {
      const double level = std::trunc((x - min) / range * levels);
      ok = level >= 0.0 && level <= levels;
      return ok ? static_cast<std::uint16_t>(level) : std::uint16_t{0};
    });
  }
  if (!finite) {
    not_finite(parent, name);
  }
  write_group(parent, name, file_shape(values.shape()), data, max, min, deflate_level);
}

void write_indexes(hdf5_group& parent, const std::string& name, const index_block& indexes,
                   int deflate_level) {
  std::vector<std::uint16_t> data;
  to_file_order(indexes, data, [](std::int32_t index, bool&) { return low_16_bits(index); });
  write_group(parent, name, file_shape(indexes.shape()), data, indexes.max(), indexes.min(),
              deflate_level);
}

void write_vector(hdf5_group& parent, const std::string& name, const std::vector<double>& values,
                  int deflate_level) {
  double max = values.empty() ? 0.0 : values.front();
  double min = max;
  for (const double x : values) {
    if (x > max) {
      max = x;
    }
    if (x < min) {
      min = x;
    }
  }
  const double range = max - min;
  std::vector<std::uint16_t> data(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const double x = values[i];
    if (!std::isfinite(x) || !std::isfinite(range)) {
      not_finite(parent, name);
    }
    data[i] = std::fabs(range) < epsilon
                  ? low_16_bits(x)
                  : static_cast<std::uint16_t>(std::trunc((x - min) / range * levels));
  }
  write_group(parent, name, {values.size(), 1}, data, max, min, deflate_level);
}

void write_scalar(hdf5_group& parent, const std::string& name, double value, int deflate_level) {
  if (!std::isfinite(value)) {
    not_finite(parent, name);
  }
  write_group(parent, name, {1}, {low_16_bits(value)}, value, value, deflate_level);
}

void write_matrix(hdf5_group& parent, const std::string& name, const arma::mat& values,
                  int deflate_level) {
  const block_shape shape{static_cast<std::uint32_t>(values.n_rows),
                          static_cast<std::uint32_t>(values.n_cols), 1};
  write_values(parent, name, value_block(shape, std::vector<double>(values.begin(), values.end())),
               deflate_level);
}

value_block read_values(const hdf5_group& parent, const std::string& name) {
  const stored_group stored = read_group(parent, name);
  const double range = stored.max - stored.min;
  std::vector<double> values;
  if (std::fabs(range) < epsilon) {
    values = from_file_order<double>(stored, [](std::uint16_t x) { return double(x); });
  } else {
    const double step = range / levels;
    const double min = stored.min;
    values =
        from_file_order<double>(stored, [step, min](std::uint16_t x) { return x * step + min; });
  }
  return value_block(stored.shape, std::move(values));
}

index_block read_indexes(const hdf5_group& parent, const std::string& name) {
  const stored_group stored = read_group(parent, name);
  return index_block(stored.shape, from_file_order<std::int32_t>(stored, [](std::uint16_t x) {
                       return static_cast<std::int32_t>(x);
                     }));
}

std::vector<double> read_vector(const hdf5_group& parent, const std::string& name) {
  return read_values(parent, name).values();
}

double read_scalar(const hdf5_group& parent, const std::string& name) {
  const stored_group stored = read_group(parent, name);
  if (stored.data.size() != 1) {
    throw hdf5_error("DATA holds " + std::to_string(stored.data.size()) + " values instead of one",
                     group_path(parent, name));
  }
  return static_cast<double>(stored.data.front());
}

arma::mat read_matrix(const hdf5_group& parent, const std::string& name) {
  const value_block values = read_values(parent, name);
  if (values.slices() > 1) {
    throw hdf5_error("DATA has " + std::to_string(values.slices()) + " slices, not a matrix",
                     group_path(parent, name));
  }
  return arma::mat(values.values().data(), values.rows(), values.cols());
}

}  // namespace quantised
}  // namespace corv
