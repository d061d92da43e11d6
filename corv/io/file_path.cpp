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

namespace {

// The length of the valid UTF-8 sequence at text[i], or 0.
std::size_t utf8_length(const std::string& text, std::size_t i) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  std::size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;  // the allowed range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    low = lead == 0xE0 ? 0xA0 : 0x80;
    high = lead == 0xED ? 0x9F : 0xBF;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    low = lead == 0xF0 ? 0x90 : 0x80;
    high = lead == 0xF4 ? 0x8F : 0xBF;
  }
  if (length == 0 || i + length > text.size() || byte(i + 1) < low || byte(i + 1) > high) {
    return 0;
  }
  for (std::size_t k = i + 2; k < i + length; ++k) {
    if (byte(k) < 0x80 || byte(k) > 0xBF) {
      return 0;
    }
  }
  return length;
}

}  // namespace

std::string printable(const std::string& text) {
  static const char* const hex = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    const std::size_t length = c >= 0x80 ? utf8_length(text, i) : (c < 0x20 || c == 0x7F ? 0 : 1);
    if (length == 0) {
      out += {'\\', 'x', hex[c >> 4], hex[c & 0xF]};
      ++i;
    } else {
      out.append(text, i, length);
      i += length;
    }
  }
  return out;
}

}  // namespace corv
