#ifndef CORV_IO_HDF5_ERROR_H
#define CORV_IO_HDF5_ERROR_H

#include <stdexcept>
#include <string>

namespace corv {

// A failed HDF5 call: what the library said and where (the call and the object's
// path). The file formats turn it into their own messages.
class hdf5_error : public std::runtime_error {
 public:
  hdf5_error(const std::string& text, const std::string& location);

  const std::string& text() const { return text_; }
  const std::string& location() const { return location_; }

 private:
  std::string text_;
  std::string location_;
};

// Called from a catch block of the HDF5 wrappers: rethrows an HDF5 library
// exception as hdf5_error at that location, anything else unchanged.
[[noreturn]] void rethrow_as_hdf5_error(const std::string& location);

}  // namespace corv

#endif
