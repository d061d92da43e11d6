#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <limits>
#include <optional>
#include <set>

#include "corv/analysis/band_maths.h"
#include "corv/cli/arguments.h"
#include "corv/cli/commands.h"
#include "corv/cli/image_files.h"
#include "corv/cli/streaming.h"
#include "corv/io/envi_writer.h"
#include "corv/io/hdr_output.h"
#include "corv/pipeline/pipeline.h"

namespace corv::cli {

namespace {

// The bands a formula reads and the same formula on cubes of those bands alone.
struct band_reading {
  std::vector<band_list> bands;  // per image, ascending
  std::string formula;           // image operands renumbered into those lists
  bool power = false;            // "^" takes its exponent from the first pixel
};

// For a formula that band_maths has accepted on these images.
band_reading bands_read(const std::string& formula, std::size_t images) {
  band_reading reading;
  const std::vector<std::string> tokens = band_maths_tokens(formula);
  std::vector<std::set<unsigned>> used(images);
  for (const auto& token : tokens) {
    if (token[0] == 'I') {
      const auto [image, band] = band_maths_operand(token);
      used[image - 1].insert(static_cast<unsigned>(band));
    }
    reading.power = reading.power || token == "^";
  }
  for (const auto& bands : used) {
    reading.bands.emplace_back(bands.begin(), bands.end());
  }
  for (const auto& token : tokens) {
    std::string renumbered = token;
    if (token[0] == 'I') {
      const auto [image, band] = band_maths_operand(token);
      const band_list& list = reading.bands[image - 1];
      const auto index =
          std::lower_bound(list.begin(), list.end(), static_cast<unsigned>(band)) - list.begin();
      renumbered = "I" + std::to_string(image) + "[" + std::to_string(index) + "]";
    }
    reading.formula += renumbered + " ";
  }
  return reading;
}

// Evaluates the formula block by block over the images' rows, reading only
// the bands it names. Every block carries the images' first row too, where
// "^" reads its exponent, so that each block computes what the whole image
// would.
void band_maths_streamed(const std::vector<std::shared_ptr<hdr_input>>& images,
                         const band_reading& reading, const std::string& out) {
  const std::string data_name = envi_data_name(out);
  const arma::uword rows = images[0]->height(), cols = images[0]->width();
  std::size_t bands_read = 0;
  for (const auto& bands : reading.bands) {
    bands_read += bands.size();
  }
  const arma::uword step = std::max<arma::uword>(
      1, block_bytes() / std::max<std::size_t>(1, cols * bands_read * sizeof(float)));
  const int last_col = static_cast<int>(cols) - 1;
  std::vector<cube> first_rows(images.size());
  if (reading.power) {
    for (std::size_t i = 0; i < images.size(); ++i) {
      if (!reading.bands[i].empty()) {
        first_rows[i] = images[i]->read_part(reading.bands[i], 0, 0, 0, last_col);
      }
    }
  }

  stream_run run(stage_band_maths);
  envi_writer result(data_name, rows, cols, vector{1.0f}, 4, false, 0.0);
  for (arma::uword first = 0; first < rows; first += step) {
    throw_if_interrupted();
    const arma::uword count = std::min(step, rows - first);
    const int top = static_cast<int>(first), bottom = static_cast<int>(first + count) - 1;
    std::vector<cube> blocks(images.size());
    for (std::size_t i = 0; i < images.size(); ++i) {
      if (reading.bands[i].empty()) {
        continue;
      }
      cube block = images[i]->read_part(reading.bands[i], top, 0, bottom, last_col);
      if (!reading.power) {
        blocks[i] = std::move(block);
        continue;
      }
      blocks[i].set_size(count + 1, cols, block.n_slices);
      blocks[i].row(0) = first_rows[i];
      blocks[i].rows(1, count) = block;
    }
    const image_list list(blocks.begin(), blocks.end());
    const matrix values = band_maths(list, reading.formula);
    const arma::uword skip = reading.power ? 1 : 0;
    cube plane(count, cols, 1, arma::fill::none);
    plane.slice(0) = values.rows(skip, skip + count - 1);
    result.write_rows(plane, first);
    run.show(static_cast<double>(first + count) / rows, 0, 1);
  }
  result.commit();
  run.finish();
}

// The ENVI inputs behind every image when all can be streamed and are of one
// size; otherwise none.
std::vector<std::shared_ptr<hdr_input>> streamable_images(
    const std::vector<std::shared_ptr<input>>& sources, bool reflectance) {
  std::vector<std::shared_ptr<hdr_input>> images;
  for (const auto& source : sources) {
    auto image = streamable(source, reflectance);
    if (!image || image->height() != sources[0]->height() ||
        image->width() != sources[0]->width()) {
      return {};
    }
    images.push_back(std::move(image));
  }
  return images;
}

}  // namespace

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
  const bool reflectance = args.flag("--reflectance");
  std::vector<std::shared_ptr<input>> sources;
  for (std::size_t i = 1; i < args.positionals().size(); ++i) {
    sources.push_back(open_image(args.positionals()[i], false));
  }

  const auto images = streamable_images(sources, reflectance);
  std::optional<matrix> result;
  if (!images.empty()) {
    // The formula is checked on one-pixel stand-ins of the images first: the
    // same refusals as on the images themselves, before anything is read. A
    // formula of numbers alone has its result then.
    std::vector<cube> stand_ins;
    for (const auto& image : images) {
      stand_ins.emplace_back(1, 1, image->bands(), arma::fill::zeros);
    }
    const matrix checked = band_maths(image_list(stand_ins.begin(), stand_ins.end()), formula);
    const band_reading reading = bands_read(formula, images.size());
    const bool reads_images = std::any_of(reading.bands.begin(), reading.bands.end(),
                                          [](const band_list& bands) { return !bands.empty(); });
    const arma::uword rows = images[0]->height(), cols = images[0]->width();
    if (!reads_images) {
      result = checked;
    } else if (out) {
      return interruptible([&] {
        band_maths_streamed(images, reading, *out);
        return 0;
      });
    } else if (rows * cols != 1) {
      throw usage_error("the result is a " + std::to_string(rows) + " x " + std::to_string(cols) +
                        " image: write it with -o OUT");
    }
  }
  if (!result) {
    std::vector<cube> cubes;
    for (const auto& source : sources) {
      require_memory(*source, 1.5, "bandmath");
      pipeline image(source);
      cubes.push_back(reflectance ? image.s() : image.I());
    }
    result = band_maths(image_list(cubes.begin(), cubes.end()), formula);
  }

  if (!out) {
    if (result->n_elem != 1) {
      throw usage_error("the result is a " + std::to_string(result->n_rows) + " x " +
                        std::to_string(result->n_cols) + " image: write it with -o OUT");
    }
    std::cout << std::setprecision(std::numeric_limits<float>::max_digits10) << (*result)(0, 0)
              << "\n";
    return 0;
  }
  cube plane(result->n_rows, result->n_cols, 1);
  plane.slice(0) = *result;
  write_envi(plane, vector{1.0f}, *out, 4, false);
  return 0;
}

}  // namespace corv::cli
