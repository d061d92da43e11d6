#ifndef CORV_IO_SAFE_FILE_H
#define CORV_IO_SAFE_FILE_H

#include <fstream>
#include <string>

namespace corv {

// A binary file written under a temporary name beside its target and renamed
// into place by commit(). Destroyed without commit, it removes the temporary,
// so a failed write never leaves a half-written file behind.
class safe_file {
 public:
  explicit safe_file(const std::string& target);
  ~safe_file();
  safe_file(const safe_file&) = delete;
  safe_file& operator=(const safe_file&) = delete;

  bool is_open() const { return stream_.is_open(); }
  std::ofstream& stream() { return stream_; }
  // Flushes and closes; false when any write failed.
  bool close();
  // Moves the finished file to its target name; false on failure.
  bool commit();
  const std::string& target() const { return target_; }

 private:
  std::string target_;
  std::string temporary_;
  std::ofstream stream_;
  bool committed_ = false;
};

}  // namespace corv

#endif
