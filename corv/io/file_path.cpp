#include "corv/io/file_path.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace corv {

file_path file_path::split(const std::string& name) {
  const fs::path path(name);
  file_path parts;
  parts.directory = path.has_parent_path() ? path.parent_path().string() : std::string(".");
  parts.stem = path.stem().string();
  parts.extension = path.extension().string();
  return parts;
}

std::string file_path::with_extension(const std::string& new_extension) const {
  return (fs::path(directory) / (stem + new_extension)).string();
}

bool file_exists(const std::string& name) {
  std::error_code error;
  return fs::is_regular_file(name, error);
}

bool directory_exists(const std::string& name) {
  std::error_code error;
  return fs::is_directory(name, error);
}

std::vector<std::string> files_in(const std::string& directory) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error)) {
    if (it->is_regular_file(error)) {
      names.push_back(it->path().filename().string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string read_text_file(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  if (!file) {
    throw std::runtime_error("Cannot open file " + name + " for reading.");
  }
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string lower_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::string trimmed(const std::string& text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) {
    return std::string();
  }
  const auto last = text.find_last_not_of(" \t\r\n");
  return text.substr(first, last - first + 1);
}

}  // namespace corv
