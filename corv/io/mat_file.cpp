#include "corv/io/mat_file.h"

#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace corv {

namespace {

// Data types of the file's elements and classes of its arrays.
enum element_type : std::uint32_t {
  mi_int8 = 1,
  mi_uint8 = 2,
  mi_int16 = 3,
  mi_uint16 = 4,
  mi_int32 = 5,
  mi_uint32 = 6,
  mi_single = 7,
  mi_double = 9,
  mi_int64 = 12,
  mi_uint64 = 13,
  mi_matrix = 14,
  mi_compressed = 15,
};
constexpr std::uint32_t first_numeric_class = 6;  // mxDOUBLE_CLASS
constexpr std::uint32_t last_numeric_class = 15;  // mxUINT64_CLASS
constexpr std::uint32_t complex_flag = 0x0800;
constexpr std::size_t header_size = 128;

struct damaged {};

// A cursor over the bytes of one level of elements.
class element_reader {
 public:
  element_reader(const unsigned char* data, std::size_t size) : data_(data), size_(size) {}

  bool at_end() const { return position_ >= size_; }

  // The next element's type and bytes; data of small elements sits in the tag.
  void next(std::uint32_t& type, const unsigned char*& bytes, std::size_t& length) {
    const std::uint32_t first = word(position_);
    if ((first >> 16) != 0) {
      type = first & 0xffff;
      length = first >> 16;
      if (length > 4) {
        throw damaged{};
      }
      bytes = data_ + position_ + 4;
      position_ += 8;
      return;
    }
    type = first;
    length = word(position_ + 4);
    if (length > size_ - position_ - 8) {
      throw damaged{};
    }
    bytes = data_ + position_ + 8;
    // Elements are padded to 8 bytes, except compressed ones.
    const std::size_t padded = type == mi_compressed ? length : (length + 7) / 8 * 8;
    position_ += 8 + std::min(padded, size_ - position_ - 8);
  }

 private:
  std::uint32_t word(std::size_t at) const {
    if (at + 4 > size_) {
      throw damaged{};
    }
    std::uint32_t value;
    std::memcpy(&value, data_ + at, 4);
    return value;
  }

  const unsigned char* data_;
  std::size_t size_;
  std::size_t position_ = 0;
};

std::size_t type_size(std::uint32_t type) {
  switch (type) {
    case mi_int8:
    case mi_uint8:
      return 1;
    case mi_int16:
    case mi_uint16:
      return 2;
    case mi_int32:
    case mi_uint32:
    case mi_single:
      return 4;
    case mi_double:
    case mi_int64:
    case mi_uint64:
      return 8;
    default:
      return 0;
  }
}

template <typename T>
double value_at(const unsigned char* bytes, std::size_t i) {
  T value;
  std::memcpy(&value, bytes + i * sizeof(T), sizeof(T));
  return static_cast<double>(value);
}

double number(std::uint32_t type, const unsigned char* bytes, std::size_t i) {
  switch (type) {
    case mi_int8:
      return value_at<std::int8_t>(bytes, i);
    case mi_uint8:
      return value_at<std::uint8_t>(bytes, i);
    case mi_int16:
      return value_at<std::int16_t>(bytes, i);
    case mi_uint16:
      return value_at<std::uint16_t>(bytes, i);
    case mi_int32:
      return value_at<std::int32_t>(bytes, i);
    case mi_uint32:
      return value_at<std::uint32_t>(bytes, i);
    case mi_single:
      return value_at<float>(bytes, i);
    case mi_double:
      return value_at<double>(bytes, i);
    case mi_int64:
      return value_at<std::int64_t>(bytes, i);
    default:
      return value_at<std::uint64_t>(bytes, i);
  }
}

std::vector<unsigned char> inflate_all(const unsigned char* bytes, std::size_t length) {
  std::vector<unsigned char> out;
  z_stream stream{};
  if (inflateInit(&stream) != Z_OK) {
    throw damaged{};
  }
  stream.next_in = const_cast<unsigned char*>(bytes);
  stream.avail_in = static_cast<uInt>(length);
  unsigned char chunk[1 << 16];
  int status = Z_OK;
  while (status == Z_OK) {
    stream.next_out = chunk;
    stream.avail_out = sizeof chunk;
    status = inflate(&stream, Z_NO_FLUSH);
    out.insert(out.end(), chunk, chunk + (sizeof chunk - stream.avail_out));
  }
  inflateEnd(&stream);
  if (status != Z_STREAM_END) {
    throw damaged{};
  }
  return out;
}

// A matrix element: flags, dimensions, name, real part (and maybe more).
void read_matrix(const unsigned char* bytes, std::size_t length, std::vector<mat_variable>& out) {
  element_reader parts(bytes, length);
  std::uint32_t type = 0;
  const unsigned char* data = nullptr;
  std::size_t size = 0;
  parts.next(type, data, size);  // array flags
  if (type != mi_uint32 || size < 4) {
    throw damaged{};
  }
  std::uint32_t flags;
  std::memcpy(&flags, data, 4);
  const std::uint32_t array_class = flags & 0xff;
  if (array_class < first_numeric_class || array_class > last_numeric_class ||
      (flags & complex_flag) != 0) {
    return;
  }
  parts.next(type, data, size);  // dimensions
  if (type != mi_int32 || size / 4 != 2) {
    return;  // more than two dimensions
  }
  mat_variable variable;
  variable.rows = static_cast<arma::uword>(value_at<std::int32_t>(data, 0));
  variable.cols = static_cast<arma::uword>(value_at<std::int32_t>(data, 1));
  parts.next(type, data, size);  // name
  variable.name.assign(reinterpret_cast<const char*>(data), size);
  parts.next(type, data, size);  // real part
  const std::size_t bytes_each = type_size(type);
  const std::size_t count = variable.rows * variable.cols;
  if (bytes_each == 0 || size != count * bytes_each) {
    throw damaged{};
  }
  variable.values.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    variable.values[i] = number(type, data, i);
  }
  out.push_back(std::move(variable));
}

void read_elements(const unsigned char* bytes, std::size_t length, std::vector<mat_variable>& out) {
  element_reader elements(bytes, length);
  while (!elements.at_end()) {
    std::uint32_t type = 0;
    const unsigned char* data = nullptr;
    std::size_t size = 0;
    elements.next(type, data, size);
    if (type == mi_compressed) {
      const std::vector<unsigned char> inflated = inflate_all(data, size);
      read_elements(inflated.data(), inflated.size(), out);
    } else if (type == mi_matrix) {
      read_matrix(data, size, out);
    }
  }
}

}  // namespace

std::vector<mat_variable> read_mat_file(const std::string& file_name) {
  std::ifstream in(file_name, std::ios::binary);
  if (!in) {
    throw std::runtime_error("read_mat_file: Cannot read " + file_name + ".");
  }
  const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)),
                                         std::istreambuf_iterator<char>());
  if (bytes.size() < header_size || std::memcmp(bytes.data(), "MATLAB", 6) != 0) {
    throw std::runtime_error("read_mat_file: " + file_name + " is not a MATLAB MAT-file.");
  }
  const std::string text(bytes.begin(), bytes.begin() + 116);
  if (text.find("MATLAB 7.3") != std::string::npos) {
    throw std::runtime_error("read_mat_file: " + file_name +
                             " is a MATLAB 7.3 (HDF5) file; save it with -v7 or as CSV.");
  }
  if (bytes[126] == 'M' && bytes[127] == 'I') {
    throw std::runtime_error("read_mat_file: " + file_name +
                             " is big-endian, which is not supported.");
  }
  if (bytes[126] != 'I' || bytes[127] != 'M') {
    throw std::runtime_error("read_mat_file: " + file_name + " is not a MATLAB MAT-file.");
  }
  std::vector<mat_variable> variables;
  try {
    read_elements(bytes.data() + header_size, bytes.size() - header_size, variables);
  } catch (const damaged&) {
    throw std::runtime_error("read_mat_file: " + file_name + " is damaged.");
  }
  return variables;
}

}  // namespace corv
