#include <iomanip>
#include <iostream>
#include <limits>

#include "corv/analysis/band_maths.h"
#include "corv/cli/arguments.h"
#include "corv/cli/commands.h"
#include "corv/cli/image_files.h"
#include "corv/io/hdr_output.h"
#include "corv/pipeline/pipeline.h"

namespace corv::cli {

int bandmath_command(const std::vector<std::string>& words) {
  const arguments args(words, {"--reflectance"}, {"-o"});
  if (args.positionals().empty()) {
    throw usage_error("expects FORMULA [IMAGE...]");
  }
  const auto out = args.value("-o");
  if (out) {
    check_output_name(*out, false);
  }
  const std::string& formula = args.positionals()[0];
  std::vector<cube> cubes;
  for (std::size_t i = 1; i < args.positionals().size(); ++i) {
    pipeline image(open_image(args.positionals()[i], false));
    cubes.push_back(args.flag("--reflectance") ? image.s() : image.I());
  }
  const image_list images(cubes.begin(), cubes.end());
  const matrix result = band_maths(images, formula);

  if (!out) {
    if (result.n_elem != 1) {
      throw usage_error("the result is a " + std::to_string(result.n_rows) + " x " +
                        std::to_string(result.n_cols) + " image: write it with -o OUT");
    }
    std::cout << std::setprecision(std::numeric_limits<float>::max_digits10) << result(0, 0)
              << "\n";
    return 0;
  }
  cube plane(result.n_rows, result.n_cols, 1);
  plane.slice(0) = result;
  write_envi(plane, vector{1.0f}, *out, 4, false);
  return 0;
}

}  // namespace corv::cli
