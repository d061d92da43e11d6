#ifndef CORV_IO_ENVI_HEADER_H
#define CORV_IO_ENVI_HEADER_H

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace corv {

// The key = value entries of an ENVI header. Keys are kept in lower case with
// single blanks; a value in braces keeps its braces and its line breaks.
class envi_header {
 public:
  static envi_header parse(const std::string& text);
  static envi_header read(const std::string& file_name);

  bool has(const std::string& key) const;
  // The value as written, trimmed ("" when absent).
  std::string value(const std::string& key) const;
  // The text between the braces of a braced value, lines joined with "\n" and trimmed.
  std::optional<std::string> braced_text(const std::string& key) const;
  // The comma-separated items of a braced value, trimmed; a trailing empty item is dropped.
  std::optional<std::vector<std::string>> list(const std::string& key) const;
  // The items of a list as numbers; nullopt when the list is absent, an empty
  // vector when an item is not a number.
  std::optional<std::vector<double>> numbers(const std::string& key) const;
  // Wavelengths in nm written as band names ("376.44 Nanometers", "0.5 um", "550"),
  // when every band name is one.
  std::optional<std::vector<double>> band_name_wavelengths() const;

 private:
  std::map<std::string, std::string> entries_;
};

// A whole string read as a decimal number (blanks around it allowed).
std::optional<double> parse_decimal(const std::string& text);

}  // namespace corv

#endif
