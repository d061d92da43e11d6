#ifndef CORV_IO_ENVI_HEADER_H
#define CORV_IO_ENVI_HEADER_H

#include <cstdint>
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

// The extent of an ENVI data file as its header describes it.
struct envi_extent {
  std::uint64_t lines = 0;
  std::uint64_t samples = 0;
  std::uint64_t bands = 0;
  std::uint64_t value_bytes = 0;    // of one value of the data type
  std::uint64_t header_offset = 0;  // bytes before the first value
};

// Checks a data file against its header before anything is read or allocated
// and returns the bytes it must hold (header offset + lines x samples x bands x
// value bytes; any bytes after them are ignored, as ENVI readers do). Throws
// "hdr_input: The sizes in <header> overflow: <lines> lines x <samples> samples
// x <bands> bands x <value bytes> bytes." and "hdr_input: <data file> is too
// short: <header> describes <n> bytes (<lines> lines x <samples> samples x
// <bands> bands x <value bytes> bytes after a header offset of <offset>), the
// file holds <m>."
std::uint64_t check_envi_data_file(const envi_extent& extent, const std::string& header_file,
                                   const std::string& data_file);

// A whole string read as a decimal number (blanks around it allowed).
std::optional<double> parse_decimal(const std::string& text);

}  // namespace corv

#endif
