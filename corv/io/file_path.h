#ifndef CORV_IO_FILE_PATH_H
#define CORV_IO_FILE_PATH_H

#include <string>
#include <vector>

namespace corv {

// A file name split the way the formats look for companion files. A bare name
// gets the directory ".". The extension keeps its dot (".hdr"), or is empty.
struct file_path {
  std::string directory;
  std::string stem;
  std::string extension;

  static file_path split(const std::string& name);
  std::string with_extension(const std::string& extension) const;
  std::string full() const { return with_extension(extension); }
};

bool file_exists(const std::string& name);
bool directory_exists(const std::string& name);
// Regular files in a directory, sorted by name.
std::vector<std::string> files_in(const std::string& directory);
std::string read_text_file(const std::string& name);
std::string lower_case(std::string text);
std::string trimmed(const std::string& text);
// The text as one line of valid UTF-8, for messages that quote what a file
// holds: control characters and bytes that are not UTF-8 become "\xNN".
std::string printable(const std::string& text);

}  // namespace corv

#endif
