#include "corv/io/hdf5_group.h"

#include <H5Cpp.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <optional>

#include "corv/io/huge_pages.h"
#include "corv/io/memory_budget.h"

namespace corv {

namespace {

std::vector<hsize_t> to_hsize(const hdf5_shape& shape) {
  return std::vector<hsize_t>(shape.begin(), shape.end());
}

std::size_t element_count(const hdf5_shape& shape) {
  return std::accumulate(shape.begin(), shape.end(), std::size_t{1},
                         std::multiplies<std::size_t>());
}

// Creates and fills one dataset of the given file type from memory of the given type.
void create_dataset(H5::Group& group, const std::string& name, const hdf5_shape& shape,
                    const void* values, const H5::PredType& file_type,
                    const H5::PredType& memory_type, const hdf5_shape& chunk, int deflate_level) {
  const std::vector<hsize_t> dims = to_hsize(shape);
  H5::DataSpace space(static_cast<int>(dims.size()), dims.data());
  H5::DSetCreatPropList properties;
  if (!chunk.empty()) {
    const std::vector<hsize_t> chunk_dims = to_hsize(chunk);
    properties.setChunk(static_cast<int>(chunk_dims.size()), chunk_dims.data());
    if (deflate_level >= 0) {
      properties.setDeflate(static_cast<unsigned>(deflate_level));
    }
  }
  H5::DataSet dataset = group.createDataSet(name, file_type, space, properties);
  if (element_count(shape) > 0) {
    dataset.write(values, memory_type);
  }
}

template <typename T>
hdf5_data<T> read_dataset(const H5::DataSet& dataset, const H5::PredType& memory_type,
                          const std::string& path) {
  const H5::DataSpace space = dataset.getSpace();
  const int rank = space.getSimpleExtentNdims();
  std::vector<hsize_t> dims(static_cast<std::size_t>(rank));
  if (rank > 0) {
    space.getSimpleExtentDims(dims.data());
  }
  hdf5_data<T> data;
  data.shape.assign(dims.begin(), dims.end());
  // A damaged file may declare any extent: check it before allocating.
  std::optional<std::uint64_t> bytes = sizeof(T);
  for (const hsize_t extent : dims) {
    bytes = bytes ? checked_product({*bytes, extent}) : bytes;
  }
  if (!bytes || *bytes > physical_memory()) {
    throw hdf5_error("the dataset is larger than this machine's memory", path);
  }
  resize_large(data.values, element_count(data.shape));
  if (!data.values.empty()) {
    dataset.read(data.values.data(), memory_type);
  }
  return data;
}

}  // namespace

hdf5_group::hdf5_group(std::shared_ptr<H5::Group> group, std::string path)
    : group_(std::move(group)), path_(std::move(path)) {}

std::string hdf5_group::child_path(const std::string& name) const {
  return path_ == "/" ? "/" + name : path_ + "/" + name;
}

hdf5_group hdf5_group::create_group(const std::string& name) {
  try {
    return hdf5_group(std::make_shared<H5::Group>(group_->createGroup(name)), child_path(name));
  } catch (...) {
    rethrow_as_hdf5_error(child_path(name));
  }
}

hdf5_group hdf5_group::open_group(const std::string& name) const {
  try {
    return hdf5_group(std::make_shared<H5::Group>(group_->openGroup(name)), child_path(name));
  } catch (...) {
    rethrow_as_hdf5_error(child_path(name));
  }
}

std::vector<std::string> hdf5_group::member_names() const {
  try {
    std::vector<std::string> names;
    const hsize_t count = group_->getNumObjs();
    for (hsize_t i = 0; i < count; ++i) {
      names.push_back(group_->getObjnameByIdx(i));
    }
    return names;
  } catch (...) {
    rethrow_as_hdf5_error(path_);
  }
}

bool hdf5_group::has_member(const std::string& name) const {
  try {
    return group_->nameExists(name);
  } catch (...) {
    rethrow_as_hdf5_error(child_path(name));
  }
}

bool hdf5_group::is_group(const std::string& name) const {
  try {
    return group_->childObjType(name) == H5O_TYPE_GROUP;
  } catch (...) {
    rethrow_as_hdf5_error(child_path(name));
  }
}

std::vector<std::string> hdf5_group::attribute_names() const {
  try {
    std::vector<std::string> names;
    const int count = group_->getNumAttrs();
    for (int i = 0; i < count; ++i) {
      names.push_back(group_->openAttribute(static_cast<unsigned>(i)).getName());
    }
    return names;
  } catch (...) {
    rethrow_as_hdf5_error(path_);
  }
}

bool hdf5_group::has_attribute(const std::string& name) const {
  try {
    return group_->attrExists(name);
  } catch (...) {
    rethrow_as_hdf5_error(path_ + " attribute " + name);
  }
}

void hdf5_group::write_string_attribute(const std::string& name, const std::string& value) {
  try {
    const H5::StrType type(H5::PredType::C_S1, value.empty() ? 1 : value.size());
    H5::Attribute attribute = group_->createAttribute(name, type, H5::DataSpace(H5S_SCALAR));
    const std::string stored = value.empty() ? std::string(1, '\0') : value;
    attribute.write(type, stored.data());
  } catch (...) {
    rethrow_as_hdf5_error(path_ + " attribute " + name);
  }
}

std::string hdf5_group::read_string_attribute(const std::string& name) const {
  try {
    const H5::Attribute attribute = group_->openAttribute(name);
    std::string value;
    attribute.read(attribute.getStrType(), value);
    while (!value.empty() && value.back() == '\0') {
      value.pop_back();
    }
    return value;
  } catch (...) {
    rethrow_as_hdf5_error(path_ + " attribute " + name);
  }
}

void hdf5_group::write_dataset(const std::string& name, const hdf5_shape& shape,
                               const std::uint16_t* values, const hdf5_shape& chunk,
                               int deflate_level) {
  try {
    create_dataset(*group_, name, shape, values, H5::PredType::STD_U16LE,
                   H5::PredType::NATIVE_UINT16, chunk, deflate_level);
  } catch (...) {
    rethrow_as_hdf5_error(child_path(name));
  }
}

void hdf5_group::write_dataset(const std::string& name, const hdf5_shape& shape,
                               const double* values, const hdf5_shape& chunk, int deflate_level) {
  try {
    create_dataset(*group_, name, shape, values, H5::PredType::IEEE_F64LE,
                   H5::PredType::NATIVE_DOUBLE, chunk, deflate_level);
  } catch (...) {
    rethrow_as_hdf5_error(child_path(name));
  }
}

void hdf5_group::write_strings(const std::string& name, const std::vector<std::string>& values,
                               int deflate_level) {
  try {
    const H5::StrType type(H5::PredType::C_S1, H5T_VARIABLE);
    const hsize_t count = values.size();
    H5::DataSpace space(1, &count);
    H5::DSetCreatPropList properties;
    if (count > 0) {
      properties.setChunk(1, &count);
      properties.setDeflate(static_cast<unsigned>(deflate_level));
    }
    H5::DataSet dataset = group_->createDataSet(name, type, space, properties);
    std::vector<const char*> pointers;
    pointers.reserve(values.size());
    for (const auto& value : values) {
      pointers.push_back(value.c_str());
    }
    if (count > 0) {
      dataset.write(pointers.data(), type);
    }
  } catch (...) {
    rethrow_as_hdf5_error(child_path(name));
  }
}

std::vector<std::string> hdf5_group::read_strings(const std::string& name) const {
  try {
    const H5::DataSet dataset = group_->openDataSet(name);
    const H5::DataSpace space = dataset.getSpace();
    if (dataset.getTypeClass() != H5T_STRING || space.getSimpleExtentNdims() != 1) {
      throw hdf5_error("not a one-dimensional string dataset", child_path(name));
    }
    hsize_t count = 0;
    space.getSimpleExtentDims(&count);
    const H5::StrType stored = dataset.getStrType();
    const std::size_t size = stored.isVariableStr() ? sizeof(char*) : stored.getSize();
    if (!checked_product({count, size}) || count * size > physical_memory()) {
      throw hdf5_error("the dataset is larger than this machine's memory", child_path(name));
    }
    std::vector<std::string> values;
    values.reserve(count);
    if (stored.isVariableStr()) {
      const H5::StrType type(H5::PredType::C_S1, H5T_VARIABLE);
      std::vector<char*> pointers(count, nullptr);
      if (count > 0) {
        dataset.read(pointers.data(), type);
      }
      for (const char* text : pointers) {
        values.emplace_back(text != nullptr ? text : "");
      }
      if (count > 0) {
        H5::DataSet::vlenReclaim(pointers.data(), type, space);
      }
    } else {
      std::vector<char> buffer(size * count);
      if (count > 0) {
        dataset.read(buffer.data(), stored);
      }
      for (hsize_t i = 0; i < count; ++i) {
        std::string value(buffer.data() + i * size, size);
        value.resize(std::min(value.find('\0'), value.size()));
        values.push_back(value);
      }
    }
    return values;
  } catch (...) {
    rethrow_as_hdf5_error(child_path(name));
  }
}

hdf5_data<std::uint16_t> hdf5_group::read_uint16_dataset(const std::string& name) const {
  try {
    const H5::DataSet dataset = group_->openDataSet(name);
    const bool fits = dataset.getTypeClass() == H5T_INTEGER &&
                      dataset.getIntType().getSign() == H5T_SGN_NONE &&
                      dataset.getIntType().getSize() <= 2;
    if (!fits) {
      throw hdf5_error("not an unsigned 16-bit integer dataset", child_path(name));
    }
    return read_dataset<std::uint16_t>(dataset, H5::PredType::NATIVE_UINT16, child_path(name));
  } catch (...) {
    rethrow_as_hdf5_error(child_path(name));
  }
}

hdf5_data<double> hdf5_group::read_double_dataset(const std::string& name) const {
  try {
    const H5::DataSet dataset = group_->openDataSet(name);
    if (dataset.getTypeClass() != H5T_FLOAT) {
      throw hdf5_error("not a floating-point dataset", child_path(name));
    }
    return read_dataset<double>(dataset, H5::PredType::NATIVE_DOUBLE, child_path(name));
  } catch (...) {
    rethrow_as_hdf5_error(child_path(name));
  }
}

}  // namespace corv
