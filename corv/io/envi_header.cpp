#include "corv/io/envi_header.h"

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "corv/io/file_path.h"
#include "corv/io/memory_budget.h"

namespace corv {

namespace {

std::string normalised_key(const std::string& raw) {
  std::istringstream words(lower_case(raw));
  std::string word, key;
  while (words >> word) {
    key += (key.empty() ? "" : " ") + word;
  }
  return key;
}

}  // namespace

std::optional<double> parse_decimal(const std::string& text) {
  const std::string item = trimmed(text);
  if (item.empty()) {
    return std::nullopt;
  }
  char* end = nullptr;
  const double value = std::strtod(item.c_str(), &end);
  if (end != item.c_str() + item.size()) {
    return std::nullopt;
  }
  return value;
}

std::uint64_t check_envi_data_file(const envi_extent& extent, const std::string& header_file,
                                   const std::string& data_file) {
  const std::string sizes =
      std::to_string(extent.lines) + " lines x " + std::to_string(extent.samples) + " samples x " +
      std::to_string(extent.bands) + " bands x " + std::to_string(extent.value_bytes) + " bytes";
  const auto values =
      checked_product({extent.lines, extent.samples, extent.bands, extent.value_bytes});
  std::uint64_t needed = 0;
  if (!values || __builtin_add_overflow(*values, extent.header_offset, &needed)) {
    throw std::runtime_error("hdr_input: The sizes in " + header_file + " overflow: " + sizes +
                             ".");
  }
  std::error_code error;
  const std::uintmax_t held = std::filesystem::file_size(data_file, error);
  if (error) {
    throw std::runtime_error("hdr_input: Cannot read the size of " + data_file + ": " +
                             error.message() + ".");
  }
  if (held < needed) {
    throw std::runtime_error("hdr_input: " + data_file + " is too short: " + header_file +
                             " describes " + std::to_string(needed) + " bytes (" + sizes +
                             " after a header offset of " + std::to_string(extent.header_offset) +
                             "), the file holds " + std::to_string(held) + ".");
  }
  return needed;
}

envi_header envi_header::parse(const std::string& text) {
  envi_header header;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    const auto equals = line.find('=');
    if (equals == std::string::npos) {
      continue;
    }
    const std::string key = normalised_key(line.substr(0, equals));
    std::string value = line.substr(equals + 1);
    if (trimmed(value).rfind('{', 0) == 0) {
      while (value.find('}') == std::string::npos && std::getline(lines, line)) {
        value += "\n" + line;
      }
    }
    if (!key.empty()) {
      header.entries_[key] = trimmed(value);
    }
  }
  return header;
}

envi_header envi_header::read(const std::string& file_name) {
  return parse(read_text_file(file_name));
}

bool envi_header::has(const std::string& key) const {
  return entries_.count(key) != 0;
}

std::string envi_header::value(const std::string& key) const {
  const auto found = entries_.find(key);
  return found == entries_.end() ? std::string() : found->second;
}

std::optional<std::string> envi_header::braced_text(const std::string& key) const {
  const auto found = entries_.find(key);
  if (found == entries_.end()) {
    return std::nullopt;
  }
  std::string text = found->second;
  const auto open = text.find('{');
  const auto close = text.rfind('}');
  if (open != std::string::npos) {
    text = text.substr(
        open + 1, (close == std::string::npos || close < open ? text.size() : close) - open - 1);
  }
  std::istringstream lines(text);
  std::string line, joined;
  bool first = true;
  while (std::getline(lines, line)) {
    line = trimmed(line);
    if (line.empty()) {
      continue;
    }
    joined += (first ? "" : "\n") + line;
    first = false;
  }
  return joined;
}

std::optional<std::vector<std::string>> envi_header::list(const std::string& key) const {
  const auto text = braced_text(key);
  if (!text) {
    return std::nullopt;
  }
  std::vector<std::string> items;
  std::string item;
  std::istringstream stream(*text);
  while (std::getline(stream, item, ',')) {
    items.push_back(trimmed(item));
  }
  if (!items.empty() && items.back().empty()) {
    items.pop_back();
  }
  return items;
}

std::optional<std::vector<double>> envi_header::numbers(const std::string& key) const {
  const auto items = list(key);
  if (!items) {
    return std::nullopt;
  }
  std::vector<double> values;
  for (const auto& item : *items) {
    const auto value = parse_decimal(item);
    if (!value) {
      return std::vector<double>();
    }
    values.push_back(*value);
  }
  return values;
}

std::optional<std::vector<double>> envi_header::band_name_wavelengths() const {
  const auto names = list("band names");
  if (!names || names->empty()) {
    return std::nullopt;
  }
  static const std::regex named_wavelength(
      R"(([-+]?(?:[0-9]+\.?[0-9]*|\.[0-9]+)(?:[eE][-+]?[0-9]+)?)\s*(nm|nanometers?|um|micrometers?|microns?)?)",
      std::regex::icase);
  std::vector<double> values;
  for (const auto& name : *names) {
    std::smatch match;
    if (!std::regex_match(name, match, named_wavelength)) {
      return std::nullopt;
    }
    const std::string unit = lower_case(match[2].str());
    const bool micrometres = !unit.empty() && unit[0] != 'n';
    values.push_back(std::strtod(match[1].str().c_str(), nullptr) * (micrometres ? 1000.0 : 1.0));
  }
  return values;
}

}  // namespace corv
