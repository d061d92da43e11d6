#include "corv/io/safe_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace corv {

temporary_file::temporary_file(const std::string& target)
    : target_(target), name_(target + ".part" + std::to_string(static_cast<long>(::getpid()))) {}

temporary_file::~temporary_file() {
  if (!committed_) {
    std::error_code ignored;
    std::filesystem::remove(name_, ignored);
  }
}

std::string temporary_file::commit() {
  std::error_code error;
  std::filesystem::rename(name_, target_, error);
  committed_ = !error;
  return error ? error.message() : std::string();
}

safe_file::safe_file(const std::string& target) : file_(target) {
  errno = 0;
  stream_.open(file_.name(), std::ios::binary | std::ios::trunc);
  if (!stream_.is_open()) {
    note_failure();
  }
}

safe_file::~safe_file() {
  if (stream_.is_open()) {
    stream_.close();
  }
}

void safe_file::note_failure() {
  if (reason_.empty()) {
    reason_ = errno != 0 ? std::strerror(errno) : "write failed";
  }
}

void safe_file::reserve(std::uint64_t bytes) {
#if defined(__linux__)
  // A descriptor of its own: the stream keeps its own hidden.
  class descriptor {
   public:
    explicit descriptor(const std::string& name)
        : number_(::open(name.c_str(), O_WRONLY | O_CLOEXEC)) {}
    ~descriptor() {
      if (number_ >= 0) {
        ::close(number_);
      }
    }
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;
    int number() const { return number_; }

   private:
    int number_;
  };
  const descriptor file(file_.name());
  if (stream_.is_open() && file.number() >= 0 && bytes > 0) {
    static_cast<void>(
        ::fallocate(file.number(), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(bytes)));
  }
#else
  static_cast<void>(bytes);
#endif
}

bool safe_file::close() {
  if (!stream_.is_open()) {
    return false;
  }
  if (!stream_.good()) {
    note_failure();
  }
  stream_.flush();
  const bool good = stream_.good();
  stream_.close();
  if (!good || stream_.fail()) {
    note_failure();
    return false;
  }
  return true;
}

bool safe_file::commit() {
  if (stream_.is_open() && !close()) {
    return false;
  }
  const std::string failure = file_.commit();
  if (!failure.empty() && reason_.empty()) {
    reason_ = failure;
  }
  return failure.empty();
}

}  // namespace corv
