#ifndef CORV_CLI_IMAGE_FILES_H
#define CORV_CLI_IMAGE_FILES_H

#include <memory>
#include <string>

#include "corv/io/input.h"

namespace corv {
class pipeline;
}

namespace corv::cli {

// Opens an image for a command: a set of component files when asked for (the
// name is DIR/PREFIX), else the input of the file's suffix (hsz, tif, ENVI).
std::shared_ptr<input> open_image(const std::string& name, bool components);

// Where and how a command writes a pipeline: component files (DIR/PREFIX) when
// asked for, else by OUT's suffix: .hsz the HSZ container, .fla .raw .dat .img
// .hdr ENVI with the given data type. Any other name is a usage error, raised
// before anything is computed by check_output_name.
void check_output_name(const std::string& name, bool components);
void write_image(pipeline& image, const std::string& name, bool components, int data_type,
                 bool reflectance);

// Whether an output name asks for the HSZ container.
bool is_hsz_name(const std::string& name);

// Splits "DIR/PREFIX" ("PREFIX" alone means the current directory).
std::pair<std::string, std::string> directory_and_prefix(const std::string& name);

}  // namespace corv::cli

#endif
