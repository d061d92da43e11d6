#include <unistd.h>

#include <exception>
#include <filesystem>
#include <set>
#include <sstream>

#include "corv/analysis/smoothing.h"
#include "corv/cli/arguments.h"
#include "corv/cli/commands.h"
#include "corv/cli/image_files.h"
#include "corv/cli/streaming.h"
#include "corv/io/envi_writer.h"
#include "corv/io/file_path.h"
#include "corv/io/hdr_input.h"
#include "corv/io/logger.h"
#include "corv/pipeline/cube_resize.h"
#include "corv/pipeline/pipeline.h"
#include "corv/pipeline/wiener.h"

namespace corv::cli {

namespace {

// Removes the staged bands' files (data and header), however the run ends.
struct staged_files {
  std::string data;
  ~staged_files() {
    if (!data.empty()) {
      std::error_code ignored;
      std::filesystem::remove(data, ignored);
      std::filesystem::remove(file_path::split(data).with_extension(".hdr"), ignored);
    }
  }
};

std::vector<int> integers(const std::string& text, char separator, const std::string& option) {
  std::vector<int> values;
  std::istringstream items(text);
  std::string item;
  while (std::getline(items, item, separator)) {
    try {
      std::size_t used = 0;
      values.push_back(std::stoi(item, &used));
      if (used != item.size()) {
        throw std::invalid_argument(item);
      }
    } catch (const std::exception&) {
      throw usage_error(option + " expects whole numbers, not '" + text + "'");
    }
  }
  return values;
}

// "wiener", "mavg" or "sg", optionally followed by ":SIZE".
std::pair<int, int> filter_choice(const std::string& text, int default_size) {
  const auto colon = text.find(':');
  const std::string name = text.substr(0, colon);
  const int size = colon == std::string::npos
                       ? default_size
                       : integers(text.substr(colon + 1), ',', "--filter").at(0);
  if (name == "wiener") {
    return {FILTER_WIENER, size};
  }
  if (name == "mavg") {
    return {FILTER_MOVING_AVERAGE, size};
  }
  if (name == "sg") {
    return {FILTER_SAVITZKY_GOLAY, size};
  }
  throw usage_error("--filter expects wiener, mavg or sg, optionally with :SIZE, not '" + text +
                    "'");
}

// What a prepare run asks for.
struct preparation {
  std::vector<int> crop, size, removed;
  std::optional<std::pair<int, int>> filter;
};

// The steps' checks, in the order and with the messages of the pipeline's
// crop, remove_bands, resize and filter, made before anything is read.
void check_preparation(const preparation& p, const input& source) {
  const int height = static_cast<int>(source.height()), width = static_cast<int>(source.width());
  if (!p.crop.empty() &&
      (p.crop[0] < 0 || p.crop[1] < 0 || p.crop[0] > p.crop[2] || p.crop[1] > p.crop[3] ||
       p.crop[2] > height - 1 || p.crop[3] > width - 1)) {
    throw std::runtime_error("pipeline crop: Error - Invalid parameters.");
  }
  if (!p.removed.empty()) {
    const long bands = static_cast<long>(source.bands());
    if (bands - static_cast<long>(p.removed.size()) < 2) {
      log_and_throw("remove_bands: Cannot reduce image to less than 2 bands");
    }
    for (const int band : p.removed) {
      if (static_cast<unsigned>(band) >= source.bands()) {
        log_and_throw("remove_bands: Band " + std::to_string(static_cast<unsigned>(band)) +
                      " does not exist; the image has " + std::to_string(bands) + " bands.");
      }
    }
  }
  if (!p.size.empty() && (p.size[0] < 1 || p.size[1] < 1)) {
    throw std::runtime_error("pipeline resize: Error - Invalid parameters.");
  }
  if (p.filter) {
    if (p.filter->second < 1 || p.filter->second > 32) {
      throw std::runtime_error("pipeline filter: Error - invalid parameters.");
    }
    // The filters refuse a window before they touch anything: an empty cube
    // tells whether they will take this one.
    cube none;
    if (p.filter->first == FILTER_MOVING_AVERAGE) {
      moving_average(none, p.filter->second);
    } else if (p.filter->first == FILTER_SAVITZKY_GOLAY) {
      savitzky_golay(none, p.filter->second);
    }
  }
}

// A prepared ENVI image written band by band (resize and the Wiener filter
// need whole bands) or block by block (the spectral filters need whole
// spectra). Where both are needed, or the data type's scaling needs the
// largest value first, the bands go to a float file beside the output first,
// removed at the end.
void prepare_streamed(const preparation& p, hdr_input& image, const std::string& out, int data_type,
                      bool reflectance) {
  check_preparation(p, image);
  image_part part = image_part::whole(image);
  if (!p.crop.empty()) {
    part.first_row = p.crop[0];
    part.first_col = p.crop[1];
    part.last_row = p.crop[2];
    part.last_col = p.crop[3];
  }
  if (!p.removed.empty()) {
    const std::set<unsigned> removed(p.removed.begin(), p.removed.end());
    part.bands.clear();
    for (unsigned b = 0; b < image.bands(); ++b) {
      if (removed.count(b) == 0) {
        part.bands.push_back(b);
      }
    }
  }
  const vector wavelengths =
      image.wavelengths()(arma::conv_to<arma::uvec>::from(std::vector<unsigned>(part.bands)));
  const bool wiener = p.filter && p.filter->first == FILTER_WIENER;
  const bool spectral = p.filter && !wiener;
  std::function<void(cube&)> smooth;
  if (spectral) {
    smooth = [&](cube& block) {
      if (p.filter->first == FILTER_MOVING_AVERAGE) {
        moving_average(block, p.filter->second);
      } else {
        savitzky_golay(block, p.filter->second);
      }
    };
  }
  if (p.size.empty() && !wiener) {
    write_blocks(image, part, wavelengths, out, data_type, reflectance, stage_preparation, smooth);
    return;
  }

  const std::string data_name = envi_data_name(out);
  check_envi_data_type(data_type);
  const bool staged = spectral || data_type != 4;
  const file_path target = file_path::split(data_name);
  const std::string staged_name =
      file_path{target.directory, target.stem + ".staged" + std::to_string(::getpid()), ".fla"}
          .full();
  const staged_files cleanup{staged ? staged_name : std::string()};
  const arma::uword rows = p.size.empty() ? part.rows() : static_cast<arma::uword>(p.size[0]);
  const arma::uword cols = p.size.empty() ? part.cols() : static_cast<arma::uword>(p.size[1]);
  {
    stream_run run(stage_preparation);
    envi_writer bands(staged ? staged_name : data_name, rows, cols, wavelengths, 4, reflectance,
                      0.0);
    run.for_each_band(image, part, [&](cube& group, arma::uword first) {
      // The bands of a group side by side on the threads, written in order.
      std::vector<matrix> done(group.n_slices);
      std::exception_ptr failure;
#pragma omp parallel for schedule(dynamic)
      for (long i = 0; i < static_cast<long>(group.n_slices); ++i) {
        try {
          cube band(group.n_rows, group.n_cols, 1, arma::fill::none);
          band.slice(0) = group.slice(i);
          if (!p.size.empty()) {
            resize_cube(band, p.size[0], p.size[1], 1);
          }
          done[i] = wiener ? wiener_filter(band.slice(0), p.filter->second, p.filter->second)
                           : matrix(band.slice(0));
        } catch (...) {
#pragma omp critical(corv_prepare_band_failure)
          failure = failure ? failure : std::current_exception();
        }
      }
      if (failure) {
        std::rethrow_exception(failure);
      }
      for (arma::uword i = 0; i < done.size(); ++i) {
        bands.write_band(done[i], first + i);
      }
    });
    bands.commit();
    if (!staged) {
      run.finish();
      return;
    }
  }
  hdr_input resized(staged_name);
  write_blocks(resized, image_part::whole(resized), wavelengths, out, data_type, reflectance,
               stage_preparation, smooth);
}

}  // namespace

int prepare_command(const std::vector<std::string>& words) {
  const arguments args(
      words, {"--reflectance", "--from-components"},
      {"-o", "--crop", "--resize", "--remove-bands", "--filter", "--components", "--data-type"});
  if (args.positionals().size() != 1) {
    throw usage_error("expects one IN");
  }
  const auto components_out = args.value("--components");
  const auto out = components_out ? components_out : args.value("-o");
  if (!out) {
    throw usage_error("needs -o OUT (or --components DIR/PREFIX)");
  }
  check_output_name(*out, components_out.has_value());
  std::vector<int> crop, size, removed;
  if (const auto text = args.value("--crop")) {
    crop = integers(*text, ',', "--crop");
    if (crop.size() != 4) {
      throw usage_error("--crop expects R0,C0,R1,C1");
    }
  }
  if (const auto text = args.value("--resize")) {
    size = integers(*text, 'x', "--resize");
    if (size.size() != 2) {
      throw usage_error("--resize expects ROWSxCOLS");
    }
  }
  if (const auto text = args.value("--remove-bands")) {
    removed = integers(*text, ',', "--remove-bands");
  }

  const auto source = open_image(args.positionals()[0], args.flag("--from-components"));
  const auto* envi = dynamic_cast<const hdr_input*>(source.get());
  const bool reflectance = args.flag("--reflectance") || (envi && envi->is_reflectance());
  const auto filter =
      args.value("--filter")
          ? std::optional(filter_choice(*args.value("--filter"), corv::parameters{}.filter_size))
          : std::nullopt;
  const int data_type = args.integer("--data-type").value_or(4);
  const auto streamed = streamable(source, reflectance);
  if (streamed && !components_out && !is_hsz_name(*out)) {
    return interruptible([&] {
      prepare_streamed({crop, size, removed, filter}, *streamed, *out, data_type, reflectance);
      return 0;
    });
  }
  require_memory(*source, 2, "prepare");
  pipeline image(source);
  // A fixed order: crop first, so that the later steps work on fewer pixels.
  if (!crop.empty()) {
    image.crop(crop[0], crop[1], crop[2], crop[3], reflectance);
  }
  if (!removed.empty()) {
    image.remove_bands(band_list(removed.begin(), removed.end()), reflectance);
  }
  if (!size.empty()) {
    image.resize(size[0], size[1], reflectance);
  }
  if (filter) {
    image.filter(filter->first, filter->second, reflectance);
  }
  write_image(image, *out, components_out.has_value(), data_type, reflectance);
  return 0;
}

}  // namespace corv::cli
