// HSZ files: the reader (whose HDF5 part runs in a child process first) and
// every component it serves.
#include <cstdint>

#include "corv/io/hsz_input.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corv;
  fuzz::forget_log();
  const std::string file = fuzz::write_file("image.hsz", data, size);
  try {
    hsz_input image(file);
    for (const auto& serve : std::initializer_list<void (*)(hsz_input&)>{
             [](hsz_input& i) { i.wavelengths(); }, [](hsz_input& i) { i.illuminant(); },
             [](hsz_input& i) { i.k(); }, [](hsz_input& i) { i.g(); },
             [](hsz_input& i) { i.elements(); }, [](hsz_input& i) { i.endmembers(); },
             [](hsz_input& i) { i.endmember_labels(); },
             [](hsz_input& i) { i.element_abundance_indexes(); },
             [](hsz_input& i) { i.endmember_abundance_indexes(); },
             [](hsz_input& i) { i.endmember_abundances(); }, [](hsz_input& i) { i.I(); }}) {
      try {
        serve(image);
      } catch (const std::exception& error) {
        fuzz::refused(error);
      }
    }
  } catch (const std::exception& error) {
    fuzz::refused(error);
  }
  return 0;
}
