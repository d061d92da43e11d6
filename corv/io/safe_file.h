#ifndef CORV_IO_SAFE_FILE_H
#define CORV_IO_SAFE_FILE_H

#include <cstdint>
#include <fstream>
#include <string>

namespace corv {

// A name beside a target file under which the file is written before it is
// renamed into place: every writer of the library goes through one, so that a
// failed write (a full disk, a file size limit) never leaves a half-written
// file behind. Destroyed without commit, it removes whatever was written.
class temporary_file {
 public:
  explicit temporary_file(const std::string& target);
  ~temporary_file();
  temporary_file(const temporary_file&) = delete;
  temporary_file& operator=(const temporary_file&) = delete;

  const std::string& name() const { return name_; }
  const std::string& target() const { return target_; }
  // Renames the file to its target; the system's reason on failure, else "".
  std::string commit();

 private:
  std::string target_;
  std::string name_;
  bool committed_ = false;
};

// A binary file written through a stream under a temporary_file.
class safe_file {
 public:
  explicit safe_file(const std::string& target);
  ~safe_file();
  safe_file(const safe_file&) = delete;
  safe_file& operator=(const safe_file&) = delete;

  bool is_open() const { return stream_.is_open(); }
  std::ofstream& stream() { return stream_; }
  // Asks the file system for room for a file of `bytes` up front, where it
  // can give it: a file written in many pieces then costs it less work and
  // lies in one piece on disk. The size stays that of what is written, and a
  // refusal only forgoes the saving.
  void reserve(std::uint64_t bytes);
  // Flushes and closes; false when any write failed.
  bool close();
  // Moves the finished file to its target name; false on failure.
  bool commit();
  const std::string& target() const { return file_.target(); }
  // Why opening, writing or committing failed, in the system's words ("No space
  // left on device"); empty while nothing has failed.
  const std::string& reason() const { return reason_; }

 private:
  void note_failure();

  temporary_file file_;
  std::ofstream stream_;
  std::string reason_;
};

}  // namespace corv

#endif
