// CSV spectral libraries, one spectrum per column or per row.
#include <cstdint>

#include "corv/io/library_csv.h"
#include "corv/io/spectral_library.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corv;
  fuzz::forget_log();
  try {
    const spectral_library library = read_library_csv(fuzz::write_file("library.csv", data, size));
    write_library_csv(library, fuzz::scratch("again.csv"));
    read_library_csv(fuzz::scratch("again.csv"));
  } catch (const std::exception& error) {
    fuzz::refused(error);
  }
  return 0;
}
