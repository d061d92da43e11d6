// SLZ spectral library files (whose HDF5 part runs in a child process first).
#include <cstdint>

#include "corv/io/spectral_library.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corv;
  fuzz::forget_log();
  try {
    spectral_library library;
    library.load(fuzz::write_file("library.slz", data, size));
    library.save(fuzz::scratch("again.slz"));
  } catch (const std::exception& error) {
    fuzz::refused(error);
  }
  return 0;
}
