#include "corv/io/hdf5_error.h"

#include <H5Cpp.h>

namespace corv {

namespace {

// The system's reason for a failed read or write ("No space left on device"),
// which HDF5 keeps in its error stack as "..., error message = '<reason>', ...".
herr_t find_system_reason(unsigned, const H5E_error2_t* error, void* found) {
  auto* reason = static_cast<std::string*>(found);
  if (reason->empty() && error->desc != nullptr) {
    const std::string description = error->desc;
    const std::string mark = "error message = '";
    const auto start = description.find(mark);
    if (start != std::string::npos) {
      const auto from = start + mark.size();
      *reason = description.substr(from, description.find('\'', from) - from);
    }
  }
  return 0;
}

std::string system_reason() {
  std::string reason;
  H5Ewalk2(H5E_DEFAULT, H5E_WALK_DOWNWARD, find_system_reason, &reason);
  return reason;
}

}  // namespace

hdf5_error::hdf5_error(const std::string& text, const std::string& location)
    : std::runtime_error(text + " in: " + location), text_(text), location_(location) {}

void rethrow_as_hdf5_error(const std::string& location) {
  try {
    throw;
  } catch (const H5::Exception& error) {
    const std::string call = error.getFuncName();
    const std::string reason = system_reason();
    throw hdf5_error(error.getDetailMsg() + (reason.empty() ? "" : ": " + reason),
                     call.empty() ? location : call + " at " + location);
  }
}

}  // namespace corv
