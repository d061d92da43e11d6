#include "corv/io/safe_file.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace corv {

safe_file::safe_file(const std::string& target)
    : target_(target),
      temporary_(target + ".part" + std::to_string(static_cast<long>(::getpid()))) {
  stream_.open(temporary_, std::ios::binary | std::ios::trunc);
}

safe_file::~safe_file() {
  if (stream_.is_open()) {
    stream_.close();
  }
  if (!committed_) {
    std::error_code ignored;
    std::filesystem::remove(temporary_, ignored);
  }
}

bool safe_file::close() {
  if (!stream_.is_open()) {
    return false;
  }
  stream_.flush();
  const bool good = stream_.good();
  stream_.close();
  return good && !stream_.fail();
}

bool safe_file::commit() {
  if (stream_.is_open() && !close()) {
    return false;
  }
  std::error_code error;
  std::filesystem::rename(temporary_, target_, error);
  committed_ = !error;
  return committed_;
}

}  // namespace corv
