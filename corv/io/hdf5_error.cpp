#include "corv/io/hdf5_error.h"

#include <H5Cpp.h>

namespace corv {

hdf5_error::hdf5_error(const std::string& text, const std::string& location)
    : std::runtime_error(text + " in: " + location), text_(text), location_(location) {}

void rethrow_as_hdf5_error(const std::string& location) {
  try {
    throw;
  } catch (const H5::Exception& error) {
    const std::string call = error.getFuncName();
    throw hdf5_error(error.getDetailMsg(), call.empty() ? location : call + " at " + location);
  }
}

}  // namespace corv
