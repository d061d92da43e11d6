#include <sstream>

#include "corv/cli/arguments.h"
#include "corv/cli/commands.h"
#include "corv/cli/image_files.h"
#include "corv/io/hdr_input.h"
#include "corv/pipeline/pipeline.h"

namespace corv::cli {

namespace {

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
  pipeline image(source);
  const auto filter =
      args.value("--filter")
          ? std::optional(filter_choice(*args.value("--filter"), image.parameters().filter_size))
          : std::nullopt;
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
  write_image(image, *out, components_out.has_value(), args.integer("--data-type").value_or(4),
              reflectance);
  return 0;
}

}  // namespace corv::cli
