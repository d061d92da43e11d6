#include "corv/io/hdf5_file.h"

#include <H5Cpp.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "corv/io/safe_file.h"

namespace corv {

namespace {

// The HDF5 library prints its error stack to stderr by default; errors reach
// the caller as exceptions instead.
void quiet_hdf5() {
  static std::once_flag once;
  std::call_once(once, [] { H5::Exception::dontPrint(); });
}

// Jenkins' lookup3 hash with an initial value of 0, HDF5's metadata checksum.
std::uint32_t metadata_checksum(const unsigned char* data, std::size_t length) {
  const auto rotate = [](std::uint32_t x, int k) { return (x << k) | (x >> (32 - k)); };
  const auto mix = [&rotate](std::uint32_t& x, std::uint32_t& y, std::uint32_t& z, int k) {
    x -= z;
    x ^= rotate(z, k);
    z += y;
  };
  const auto final_mix = [&rotate](std::uint32_t& x, std::uint32_t y, int k) {
    x ^= y;
    x -= rotate(y, k);
  };
  const auto word = [data](std::size_t at, std::size_t available) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4 && i < available; ++i) {
      value |= static_cast<std::uint32_t>(data[at + i]) << (8 * i);
    }
    return value;
  };
  std::uint32_t a = 0xdeadbeef + static_cast<std::uint32_t>(length);
  std::uint32_t b = a;
  std::uint32_t c = a;
  std::size_t at = 0;
  for (; length - at > 12; at += 12) {
    a += word(at, 4);
    b += word(at + 4, 4);
    c += word(at + 8, 4);
    mix(a, b, c, 4);
    mix(b, c, a, 6);
    mix(c, a, b, 8);
    mix(a, b, c, 16);
    mix(b, c, a, 19);
    mix(c, a, b, 4);
  }
  const std::size_t left = length - at;
  if (left == 0) {
    return c;
  }
  a += word(at, left);
  b += left > 4 ? word(at + 4, left - 4) : 0;
  c += left > 8 ? word(at + 8, left - 8) : 0;
  final_mix(c, b, 14);
  final_mix(a, c, 11);
  final_mix(b, a, 25);
  final_mix(c, b, 16);
  final_mix(a, c, 4);
  final_mix(b, a, 14);
  final_mix(c, b, 24);
  return c;
}

// HDF5 1.10 hands out the image of an open file with the superblock's flags
// cleared, as for a closed file, but with the checksum of the open one: the
// checksum of a version 2 or 3 superblock is computed again.
void seal_superblock(std::vector<char>& image) {
  auto* bytes = reinterpret_cast<unsigned char*>(image.data());
  if (image.size() < 12 || (bytes[8] != 2 && bytes[8] != 3)) {
    return;
  }
  const std::size_t end = 12 + 4 * std::size_t{bytes[9]};
  if (image.size() < end + 4) {
    return;
  }
  const std::uint32_t checksum = metadata_checksum(bytes, end);
  for (std::size_t i = 0; i < 4; ++i) {
    bytes[end + i] = static_cast<unsigned char>(checksum >> (8 * i));
  }
}

}  // namespace

hdf5_file::hdf5_file(std::unique_ptr<H5::H5File> file, std::string name, bool in_memory)
    : file_(std::move(file)), name_(std::move(name)), in_memory_(in_memory) {}

hdf5_file::hdf5_file(hdf5_file&&) noexcept = default;
hdf5_file& hdf5_file::operator=(hdf5_file&&) noexcept = default;
hdf5_file::~hdf5_file() = default;

hdf5_file hdf5_file::create(const std::string& name) {
  quiet_hdf5();
  // HDF5 knows an in-memory file by its name: each gets one of its own.
  static std::atomic<unsigned> created{0};
  const std::string memory_name = name + ".memory" + std::to_string(created++);
  try {
    H5::FileAccPropList access;
    access.setCore(1 << 20, false);
    access.setLibverBounds(H5F_LIBVER_V18, H5F_LIBVER_V18);
    return hdf5_file(std::make_unique<H5::H5File>(memory_name, H5F_ACC_TRUNC,
                                                  H5::FileCreatPropList::DEFAULT, access),
                     name, true);
  } catch (...) {
    rethrow_as_hdf5_error(name);
  }
}

hdf5_file hdf5_file::open_read_only(const std::string& name) {
  quiet_hdf5();
  try {
    return hdf5_file(std::make_unique<H5::H5File>(name, H5F_ACC_RDONLY), name, false);
  } catch (...) {
    rethrow_as_hdf5_error(name);
  }
}

bool hdf5_file::is_hdf5(const std::string& name) {
  quiet_hdf5();
  try {
    return H5::H5File::isHdf5(name);
  } catch (const H5::Exception&) {
    return false;
  }
}

hdf5_file::child_read hdf5_file::read_in_child(
    const std::string& name, const std::function<void(isolated_writer&)>& read,
    const std::function<void(isolated_reader&)>& receive) {
  // Generous for a healthy file: 20 s and then 20 MB a second.
  std::error_code error;
  const auto bytes = std::filesystem::file_size(name, error);
  const double seconds = 20.0 + (error ? 0.0 : static_cast<double>(bytes) / 20e6);
  const isolated_outcome outcome = run_isolated(read, receive, seconds, &activity());
  child_read result;
  switch (outcome.how) {
    case isolated_outcome::ending::returned:
      result.done = true;
      break;
    case isolated_outcome::ending::threw:
      throw std::runtime_error(outcome.text);
    case isolated_outcome::ending::died:
      result.damage = "the HDF5 library crashes on it (" + outcome.text + ")";
      break;
    case isolated_outcome::ending::timed_out:
      result.damage = "the HDF5 library does not finish reading it in " +
                      std::to_string(static_cast<long>(seconds)) + " s";
      break;
    case isolated_outcome::ending::exited:
      result.damage = "its reading ended with " + outcome.text;
      break;
    case isolated_outcome::ending::not_run:
      break;
  }
  return result;
}

std::mutex& hdf5_file::activity() {
  static std::mutex held;
  return held;
}

hdf5_group hdf5_file::root() const {
  try {
    return hdf5_group(std::make_shared<H5::Group>(file_->openGroup("/")), "/");
  } catch (...) {
    rethrow_as_hdf5_error(name_);
  }
}

void hdf5_file::close() {
  std::vector<char> image;
  try {
    file_->flush(H5F_SCOPE_GLOBAL);
    if (in_memory_) {
      const ssize_t size = H5Fget_file_image(file_->getId(), nullptr, 0);
      image.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
      if (size <= 0 || H5Fget_file_image(file_->getId(), image.data(), image.size()) != size) {
        throw hdf5_error("the file image cannot be taken", name_);
      }
      seal_superblock(image);
    }
    file_->close();
  } catch (...) {
    rethrow_as_hdf5_error(name_);
  }
  if (in_memory_) {
    safe_file out(name_);
    if (out.is_open()) {
      out.stream().write(image.data(), static_cast<std::streamsize>(image.size()));
    }
    if (!out.commit()) {
      throw hdf5_error(out.reason(), name_);
    }
  }
}

}  // namespace corv
