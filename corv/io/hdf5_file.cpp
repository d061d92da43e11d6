#include "corv/io/hdf5_file.h"

#include <H5Cpp.h>

#include <mutex>

namespace corv {

namespace {

// The HDF5 library prints its error stack to stderr by default; errors reach
// the caller as exceptions instead.
void quiet_hdf5() {
  static std::once_flag once;
  std::call_once(once, [] { H5::Exception::dontPrint(); });
}

}  // namespace

hdf5_file::hdf5_file(std::unique_ptr<H5::H5File> file, std::string name)
    : file_(std::move(file)), name_(std::move(name)) {}

hdf5_file::hdf5_file(hdf5_file&&) noexcept = default;
hdf5_file& hdf5_file::operator=(hdf5_file&&) noexcept = default;
hdf5_file::~hdf5_file() = default;

hdf5_file hdf5_file::create(const std::string& name) {
  quiet_hdf5();
  try {
    return hdf5_file(std::make_unique<H5::H5File>(name, H5F_ACC_TRUNC), name);
  } catch (...) {
    rethrow_as_hdf5_error(name);
  }
}

hdf5_file hdf5_file::open_read_only(const std::string& name) {
  quiet_hdf5();
  try {
    return hdf5_file(std::make_unique<H5::H5File>(name, H5F_ACC_RDONLY), name);
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

hdf5_group hdf5_file::root() const {
  try {
    return hdf5_group(std::make_shared<H5::Group>(file_->openGroup("/")), "/");
  } catch (...) {
    rethrow_as_hdf5_error(name_);
  }
}

void hdf5_file::close() {
  try {
    file_->flush(H5F_SCOPE_GLOBAL);
    file_->close();
  } catch (...) {
    rethrow_as_hdf5_error(name_);
  }
}

}  // namespace corv
