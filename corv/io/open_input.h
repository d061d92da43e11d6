#ifndef CORV_IO_OPEN_INPUT_H
#define CORV_IO_OPEN_INPUT_H

#include <memory>
#include <string>

#include "corv/io/input.h"

namespace corv {

// The format an image file is read as, chosen by its suffix: "hsz" HSZ, "tif"
// (or "tiff") TIFF, anything else ENVI.
enum class image_format { envi, tiff, hsz };

image_format format_of(const std::string& file_name);
const char* format_name(image_format format);

// Opens an image with the input of its format.
std::shared_ptr<input> open_input(const std::string& file_name, bool hold = false);

}  // namespace corv

#endif
