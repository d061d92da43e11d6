#ifndef CORV_IO_QUANTISED_STORAGE_H
#define CORV_IO_QUANTISED_STORAGE_H

#include <armadillo>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corv {

class hdf5_group;

// Quantised array storage, shared by the HSZ and SLZ files: every number is a
// group holding "DATA" (unsigned 16-bit), "MAX" and "MIN" (one double each).
//
// Values x of a block are stored as trunc((x - MIN) / (MAX - MIN) * 65535); a
// block whose range is 0 stores each value's truncated integer (low 16 bits)
// unscaled. Index arrays are never scaled: DATA holds the indexes themselves.
// The range scan of a block starts from MAX = smallest positive normal double and
// MIN = largest double, so a block of zero or negative values keeps that tiny
// positive MAX; files have always been written this way. Vectors start their scan
// from the first element instead.
//
// Shapes: a block of one slice is a 2-D dataset rows x columns, more slices a
// 3-D dataset rows x columns x slices, a vector a 2-D dataset n x 1, a scalar a
// 1-D dataset of one element. The file holds values in row order (last index
// fastest); blocks in memory are column-major like Armadillo's. Each dataset is
// one chunk of its whole extent, deflated; MAX and MIN are chunks of one. An
// empty DATA cannot be chunked and is written contiguous and unfiltered.
namespace quantised {

constexpr double max_start = 2.2250738585072014e-308;
constexpr double min_start = 1.7976931348623157e308;
constexpr double levels = 65535.0;
constexpr int default_deflate_level = 6;

struct block_shape {
  std::uint32_t rows = 0;
  std::uint32_t cols = 0;
  std::uint32_t slices = 0;

  std::size_t size() const { return static_cast<std::size_t>(rows) * cols * slices; }
  bool operator==(const block_shape& other) const {
    return rows == other.rows && cols == other.cols && slices == other.slices;
  }
  bool operator!=(const block_shape& other) const { return !(*this == other); }
};

// A rows x columns x slices array, column-major, with its largest and smallest
// value found when it is set (the scan starting values above).
template <typename T>
class block {
 public:
  block() = default;
  // Throws std::invalid_argument when the values do not fill the shape.
  block(block_shape shape, std::vector<T> values);

  const block_shape& shape() const { return shape_; }
  std::uint32_t rows() const { return shape_.rows; }
  std::uint32_t cols() const { return shape_.cols; }
  std::uint32_t slices() const { return shape_.slices; }
  bool empty() const { return values_.empty(); }
  const std::vector<T>& values() const { return values_; }
  double max() const { return max_; }
  double min() const { return min_; }
  const T& operator()(std::size_t row, std::size_t col, std::size_t slice) const {
    return values_[row + shape_.rows * (col + shape_.cols * slice)];
  }

 private:
  block_shape shape_;
  std::vector<T> values_;
  double max_ = max_start;
  double min_ = min_start;
};

using value_block = block<double>;
using index_block = block<std::int32_t>;

// Writers create the group `name` under `parent`. A value that is not a finite
// number cannot be quantised: "quantised_storage: <group path> holds a value
// that is not a finite number.". HDF5 failures throw hdf5_error.
void write_values(hdf5_group& parent, const std::string& name, const value_block& values,
                  int deflate_level = default_deflate_level);
void write_indexes(hdf5_group& parent, const std::string& name, const index_block& indexes,
                   int deflate_level = default_deflate_level);
void write_vector(hdf5_group& parent, const std::string& name, const std::vector<double>& values,
                  int deflate_level = default_deflate_level);
// DATA holds the low 16 bits of the truncated value, MAX and MIN the value itself.
void write_scalar(hdf5_group& parent, const std::string& name, double value,
                  int deflate_level = default_deflate_level);
// A matrix is a block of one slice (spectra in columns stay in columns).
void write_matrix(hdf5_group& parent, const std::string& name, const arma::mat& values,
                  int deflate_level = default_deflate_level);

// Readers open the group `name` under `parent`. Values come back as
// DATA * (range / 65535) + MIN, or as DATA itself when the stored range is below
// the double epsilon in magnitude; indexes and scalars as DATA itself (so a
// scalar keeps only the low 16 bits of its integer part). A malformed group
// throws hdf5_error.
value_block read_values(const hdf5_group& parent, const std::string& name);
index_block read_indexes(const hdf5_group& parent, const std::string& name);
std::vector<double> read_vector(const hdf5_group& parent, const std::string& name);
double read_scalar(const hdf5_group& parent, const std::string& name);
// Throws hdf5_error when the stored block has more than one slice.
arma::mat read_matrix(const hdf5_group& parent, const std::string& name);

}  // namespace quantised
}  // namespace corv

#endif
