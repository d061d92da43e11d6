#ifndef CORV_IO_HDF5_GROUP_H
#define CORV_IO_HDF5_GROUP_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "corv/io/hdf5_error.h"

namespace H5 {
class Group;
}

namespace corv {

using hdf5_shape = std::vector<std::uint64_t>;

// A whole dataset read into memory, in the file's row order (last index fastest).
template <typename T>
struct hdf5_data {
  hdf5_shape shape;
  std::vector<T> values;
};

// A group of an open HDF5 file and everything done in it: sub-groups, string
// attributes and whole datasets. Every failure throws hdf5_error naming the
// object's path. Copies refer to the same group.
class hdf5_group {
 public:
  const std::string& path() const { return path_; }

  hdf5_group create_group(const std::string& name);
  hdf5_group open_group(const std::string& name) const;
  // The names of the group's members (groups, datasets), in name order.
  std::vector<std::string> member_names() const;
  bool has_member(const std::string& name) const;
  bool is_group(const std::string& name) const;

  std::vector<std::string> attribute_names() const;
  bool has_attribute(const std::string& name) const;
  // A fixed-length string on a scalar dataspace, sized to the value (an empty
  // value takes one byte, as HDF5 has no zero-length string type).
  void write_string_attribute(const std::string& name, const std::string& value);
  // Fixed or variable length; trailing NULs of a fixed-length value are dropped.
  std::string read_string_attribute(const std::string& name) const;

  // Creates and writes a whole dataset. A non-empty chunk shape makes it chunked
  // and deflated at the level; an empty one (needed for empty datasets, which
  // cannot be chunked) makes it contiguous and unfiltered. Values are in the
  // file's row order. Stored as little-endian unsigned 16-bit integers or doubles.
  void write_dataset(const std::string& name, const hdf5_shape& shape, const std::uint16_t* values,
                     const hdf5_shape& chunk, int deflate_level);
  void write_dataset(const std::string& name, const hdf5_shape& shape, const double* values,
                     const hdf5_shape& chunk, int deflate_level);

  // A one-dimensional dataset of variable-length C strings, one chunk deflated
  // at the level (contiguous when empty).
  void write_strings(const std::string& name, const std::vector<std::string>& values,
                     int deflate_level);
  // A one-dimensional dataset of variable- or fixed-length strings; trailing
  // NULs of fixed-length values are dropped.
  std::vector<std::string> read_strings(const std::string& name) const;

  // Reads a whole integer dataset as unsigned 16-bit values, or a whole
  // floating-point dataset as doubles; another type class is an error.
  hdf5_data<std::uint16_t> read_uint16_dataset(const std::string& name) const;
  hdf5_data<double> read_double_dataset(const std::string& name) const;

 private:
  friend class hdf5_file;
  hdf5_group(std::shared_ptr<H5::Group> group, std::string path);
  std::string child_path(const std::string& name) const;

  std::shared_ptr<H5::Group> group_;
  std::string path_;
};

}  // namespace corv

#endif
