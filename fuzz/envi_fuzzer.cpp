// ENVI headers: the header parser, the image reader over a small data file and
// the spectral library reader.
#include <cstdint>
#include <string>

#include "corv/io/envi_header.h"
#include "corv/io/envi_library.h"
#include "corv/io/hdr_input.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corv;
  fuzz::forget_log();
  const std::string text(reinterpret_cast<const char*>(data), size);
  const envi_header header = envi_header::parse(text);
  header.braced_text("description");
  header.numbers("wavelength");
  header.list("band names");
  header.band_name_wavelengths();

  static const std::string raw(4096, '\x3f');
  fuzz::write_file("image.hdr", data, size);
  fuzz::write_file("image.fla", reinterpret_cast<const std::uint8_t*>(raw.data()), raw.size());
  try {
    hdr_input image(fuzz::scratch("image.hdr"));
    image.wavelengths();
    if (image.is_reflectance()) {
      image.s();
    } else {
      image.I();
      image.I(band_list{0}, 0, 0, 0, 0);
    }
  } catch (const std::exception& error) {
    fuzz::refused(error);
  }
  fuzz::write_file("library.hdr", data, size);
  fuzz::write_file("library.sli", reinterpret_cast<const std::uint8_t*>(raw.data()), raw.size());
  try {
    read_envi_library(fuzz::scratch("library.sli")).endmembers();
  } catch (const std::exception& error) {
    fuzz::refused(error);
  }
  return 0;
}
