#include <iostream>

#include "corv/cli/arguments.h"
#include "corv/cli/commands.h"
#include "corv/cli/image_files.h"
#include "corv/cli/streaming.h"
#include "corv/io/hdr_input.h"
#include "corv/pipeline/pipeline.h"

namespace corv::cli {

int convert_command(const std::vector<std::string>& words) {
  const arguments args(words, {"--reflectance", "--from-components"},
                       {"--data-type", "--components"});
  const auto components_out = args.value("--components");
  const std::size_t expected = components_out ? 1 : 2;
  if (args.positionals().size() != expected) {
    throw usage_error(components_out ? "expects IN with --components DIR/PREFIX"
                                     : "expects IN and OUT");
  }
  const std::string& in = args.positionals()[0];
  const std::string out = components_out ? *components_out : args.positionals()[1];
  const int data_type = args.integer("--data-type").value_or(4);
  if (data_type != 1 && data_type != 2 && data_type != 4 && data_type != 12) {
    throw usage_error("--data-type must be 1, 2, 4 or 12");
  }
  check_output_name(out, components_out.has_value());

  const auto source = open_image(in, args.flag("--from-components"));
  // A reflectance image has only s to write.
  const auto* envi = dynamic_cast<const hdr_input*>(source.get());
  const bool reflectance = args.flag("--reflectance") || (envi && envi->is_reflectance());
  // ENVI to ENVI goes block by block, whatever the image's size.
  const auto streamed = streamable(source, reflectance);
  if (streamed && !components_out && !is_hsz_name(out)) {
    return interruptible([&] {
      write_blocks(*streamed, image_part::whole(*streamed), streamed->wavelengths(), out, data_type,
                   reflectance, stage_conversion, nullptr);
      return 0;
    });
  }
  require_memory(*source, 2, "convert");
  pipeline image(source);
  write_image(image, out, components_out.has_value(), data_type, reflectance);
  return 0;
}

}  // namespace corv::cli
