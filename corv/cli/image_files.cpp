#include "corv/cli/image_files.h"

#include <filesystem>

#include "corv/cli/arguments.h"
#include "corv/io/component_input.h"
#include "corv/io/component_output.h"
#include "corv/io/file_path.h"
#include "corv/io/hdr_output.h"
#include "corv/io/hsz_output.h"
#include "corv/io/open_input.h"
#include "corv/pipeline/pipeline.h"

namespace corv::cli {

namespace {

bool is_envi_name(const std::string& extension) {
  return extension == ".fla" || extension == ".raw" || extension == ".dat" || extension == ".img" ||
         extension == ".hdr";
}

}  // namespace

bool is_hsz_name(const std::string& name) {
  return lower_case(file_path::split(name).extension) == ".hsz";
}

std::pair<std::string, std::string> directory_and_prefix(const std::string& name) {
  const std::filesystem::path path(name);
  const std::string directory = path.has_parent_path() ? path.parent_path().string() : ".";
  return {directory, path.filename().string()};
}

std::shared_ptr<input> open_image(const std::string& name, bool components) {
  if (components) {
    const auto [directory, prefix] = directory_and_prefix(name);
    return std::make_shared<component_input>(directory, prefix);
  }
  return open_input(name);
}

void check_output_name(const std::string& name, bool components) {
  if (components) {
    if (directory_and_prefix(name).second.empty()) {
      throw usage_error("component files need DIR/PREFIX, not '" + name + "'");
    }
    return;
  }
  const std::string extension = lower_case(file_path::split(name).extension);
  if (extension != ".hsz" && !is_envi_name(extension)) {
    throw usage_error("cannot tell the output format of '" + name +
                      "': end it in .hsz, .fla, .raw, .dat, .img or .hdr, or use --components");
  }
}

void write_image(pipeline& image, const std::string& name, bool components, int data_type,
                 bool reflectance) {
  check_output_name(name, components);
  output_ptr destination;
  if (components) {
    destination = std::make_shared<component_output>();
  } else if (is_hsz_name(name)) {
    destination = std::make_shared<hsz_output>();
  } else {
    destination = std::make_shared<hdr_output>(reflectance, data_type);
  }
  image.save(destination, name);
}

}  // namespace corv::cli
