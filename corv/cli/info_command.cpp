#include <iostream>

#include "corv/cli/arguments.h"
#include "corv/cli/commands.h"
#include "corv/cli/image_files.h"
#include "corv/cli/image_summary.h"

namespace corv::cli {

int info_command(const std::vector<std::string>& words) {
  const arguments args(words, {"--json", "--components"}, {});
  if (args.positionals().size() != 1) {
    throw usage_error("expects one FILE");
  }
  const std::string& file = args.positionals().front();
  const auto source = open_image(file, args.flag("--components"));
  const image_summary summary = image_summary::of(file, *source);
  std::cout << (args.flag("--json") ? summary.json() : summary.text());
  return 0;
}

}  // namespace corv::cli
