#include <iostream>

#include "corv/cli/arguments.h"
#include "corv/cli/commands.h"
#include "corv/io/file_path.h"
#include "corv/io/hdr_input.h"
#include "corv/io/hdr_output.h"
#include "corv/io/open_input.h"
#include "corv/pipeline/pipeline.h"

namespace corv::cli {

namespace {

bool is_envi_name(const std::string& name) {
  const std::string extension = lower_case(file_path::split(name).extension);
  return extension == ".fla" || extension == ".raw" || extension == ".dat" || extension == ".img" ||
         extension == ".hdr";
}

}  // namespace

int convert_command(const std::vector<std::string>& words) {
  const arguments args(words, {"--reflectance"}, {"--data-type"});
  if (args.positionals().size() != 2) {
    throw usage_error("expects IN and OUT");
  }
  const std::string& in = args.positionals()[0];
  const std::string& out = args.positionals()[1];
  const int data_type = args.integer("--data-type").value_or(4);
  if (data_type != 1 && data_type != 2 && data_type != 4 && data_type != 12) {
    throw usage_error("--data-type must be 1, 2, 4 or 12");
  }
  if (!is_envi_name(out)) {
    throw usage_error("cannot tell the output format of '" + out +
                      "': end it in .fla, .raw, .dat, .img or .hdr");
  }

  const auto source = open_input(in);
  // A reflectance image has only s to write.
  const auto* envi = dynamic_cast<const hdr_input*>(source.get());
  const bool reflectance = args.flag("--reflectance") || (envi && envi->is_reflectance());
  pipeline image(source);
  image.save(std::make_shared<hdr_output>(reflectance, data_type), out);
  return 0;
}

}  // namespace corv::cli
