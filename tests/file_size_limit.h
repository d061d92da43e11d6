#ifndef TESTS_FILE_SIZE_LIMIT_H
#define TESTS_FILE_SIZE_LIMIT_H

#include <sys/resource.h>

#include <csignal>

namespace corv::test {

// A file size limit for this process, as `prlimit --fsize` sets one: writes past
// it fail with EFBIG instead of the signal (ignored here, as the tools and the
// viewer do). The previous limit and signal handling come back at the end.
class file_size_limit {
 public:
  explicit file_size_limit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &saved_);
    previous_ = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = saved_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~file_size_limit() {
    setrlimit(RLIMIT_FSIZE, &saved_);
    std::signal(SIGXFSZ, previous_);
  }
  file_size_limit(const file_size_limit&) = delete;
  file_size_limit& operator=(const file_size_limit&) = delete;

 private:
  rlimit saved_{};
  void (*previous_)(int) = nullptr;
};

}  // namespace corv::test

#endif
