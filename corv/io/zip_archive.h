#ifndef CORV_IO_ZIP_ARCHIVE_H
#define CORV_IO_ZIP_ARCHIVE_H

#include <string>
#include <vector>

namespace corv {

// One member of a ZIP archive, held in memory.
struct zip_member {
  std::string name;
  std::string data;
  std::string comment;
};

// Writes a ZIP archive, member after member, deflated at the given level (0 to
// 9) and each with its comment. The archive appears at its name whole when
// written, and an archive already there is replaced only then: a failure
// leaves the old file (or none) in place. Failures throw "zip_archive: <what>:
// <libzip's reason> (<file>)".
void write_zip(const std::string& file_name, const std::vector<zip_member>& members, int level);

// Reads every member of a ZIP archive. A file that is not a readable archive,
// or a member whose name would lead out of a folder it is extracted into
// (absolute, or holding ".."), throws "zip_archive: ...".
std::vector<zip_member> read_zip(const std::string& file_name);

}  // namespace corv

#endif
