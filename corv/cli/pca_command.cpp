#include <iostream>

#include "corv/cli/arguments.h"
#include "corv/cli/commands.h"
#include "corv/cli/image_files.h"
#include "corv/cli/streaming.h"
#include "corv/io/hdr_output.h"
#include "corv/pipeline/pipeline.h"

namespace corv::cli {

int pca_command(const std::vector<std::string>& words) {
  const arguments args(words, {"--reflectance", "--from-components"}, {"-n", "-o"});
  if (args.positionals().size() != 1) {
    throw usage_error("expects one IN");
  }
  const auto count = args.integer("-n");
  if (!count || *count < 1) {
    throw usage_error("needs -n N with N at least 1");
  }
  const auto out = args.value("-o");
  if (out) {
    check_output_name(*out, false);
  }
  const auto source = open_image(args.positionals()[0], args.flag("--from-components"));
  require_memory(*source, 3, "pca");
  pipeline image(source);
  image.set_principal_components(*count);
  image.process_analysis(args.flag("--reflectance"));

  const vector& strengths = image.principal_strengths();
  std::cout << "component  singular value\n";
  for (arma::uword c = 0; c < strengths.n_elem; ++c) {
    std::cout << c + 1 << "  " << strengths(c) << "\n";
  }
  if (out) {
    // The components have no wavelengths: they are numbered 1, 2, ...
    write_envi(image.principal_components(),
               arma::regspace<vector>(1, image.principal_components().n_slices), *out, 4, false);
  }
  return 0;
}

}  // namespace corv::cli
