#include "corv/io/open_input.h"

#include "corv/io/file_path.h"
#include "corv/io/hdr_input.h"
#include "corv/io/hsz_input.h"
#include "corv/io/tif_input.h"

namespace corv {

image_format format_of(const std::string& file_name) {
  const std::string extension = lower_case(file_path::split(file_name).extension);
  if (extension == ".hsz") {
    return image_format::hsz;
  }
  if (extension == ".tif" || extension == ".tiff") {
    return image_format::tiff;
  }
  return image_format::envi;
}

const char* format_name(image_format format) {
  switch (format) {
    case image_format::hsz:
      return "HSZ";
    case image_format::tiff:
      return "TIFF";
    default:
      return "ENVI";
  }
}

std::shared_ptr<input> open_input(const std::string& file_name, bool hold) {
  switch (format_of(file_name)) {
    case image_format::tiff:
      return std::make_shared<tif_input>(file_name, hold);
    case image_format::hsz:
      return std::make_shared<hsz_input>(file_name, hold);
    default:
      return std::make_shared<hdr_input>(file_name, hold);
  }
}

}  // namespace corv
