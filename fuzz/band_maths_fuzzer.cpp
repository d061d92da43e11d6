// Band maths formulas over two small images of 3 and 5 bands.
#include <cstdint>
#include <string>

#include "corv/analysis/band_maths.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corv;
  static const cube first(2, 4, 3, arma::fill::value(2.0f));
  static const cube second(2, 4, 5, arma::fill::value(0.5f));
  try {
    band_maths({first, second}, std::string(reinterpret_cast<const char*>(data), size));
  } catch (const std::exception& error) {
    fuzz::refused(error);
  }
  return 0;
}
