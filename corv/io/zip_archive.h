#ifndef CORV_IO_ZIP_ARCHIVE_H
#define CORV_IO_ZIP_ARCHIVE_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace corv {

// One member of a ZIP archive to write: its bytes, or the file that holds them.
struct zip_member {
  zip_member(std::string name, std::string data, std::string comment, std::string file = {})
      : name(std::move(name)),
        data(std::move(data)),
        comment(std::move(comment)),
        file(std::move(file)) {}

  std::string name;
  std::string data;
  std::string comment;
  std::string file;  // when not empty, the member's bytes come from this file
};

// Writes a ZIP archive, member after member, deflated at the given level (0 to
// 9) and each with its comment. The archive is written under a temporary name
// beside its target and renamed into place when complete, so a failure (a full
// disk, a file size limit) leaves the old file (or none) in place. Failures
// throw "zip_archive: <what>: <reason> (<file>)", the reason in the system's
// or libzip's words ("Write error: File too large").
void write_zip(const std::string& file_name, const std::vector<zip_member>& members, int level);

// A member as extracted: its name, comment and size.
struct zip_entry {
  std::string name;
  std::string comment;
  std::uint64_t size = 0;
};

// Extracts every member of a ZIP archive into a folder that exists, member by
// member and a piece at a time, so that no member is ever held whole in
// memory. Refused before anything is written, with "zip_archive: <what>:
// <reason> (<file>)": a file that is not a readable archive; a member whose
// name would lead out of the folder (absolute, or holding ".."); members that
// together would expand to more than the folder's free space or to more than
// 100 times the archive's size (and 16 MiB): what a ZIP bomb does. While
// extracting, a member that holds more than it declares, fails its checksum or
// cannot be written is refused too (what was written stays for the caller to
// remove with the folder). Returns the members in archive order.
std::vector<zip_entry> extract_zip(const std::string& file_name, const std::string& folder);

}  // namespace corv

#endif
