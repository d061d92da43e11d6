#include "corv/io/isolated_call.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>

namespace corv {

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif
#else
constexpr bool sanitized = false;
#endif

// A pipe's two ends, closed with their owner.
class pipe_ends {
 public:
  pipe_ends() {
    if (::pipe(ends_) != 0) {
      ends_[0] = ends_[1] = -1;
    }
  }
  ~pipe_ends() {
    close_read();
    close_write();
  }
  pipe_ends(const pipe_ends&) = delete;
  pipe_ends& operator=(const pipe_ends&) = delete;

  bool ok() const { return ends_[0] >= 0; }
  int read_end() const { return ends_[0]; }
  int write_end() const { return ends_[1]; }
  void close_read() { close_end(0); }
  void close_write() { close_end(1); }

 private:
  void close_end(int i) {
    if (ends_[i] >= 0) {
      ::close(ends_[i]);
      ends_[i] = -1;
    }
  }
  int ends_[2];
};

// The child reports on the pipe: "R" when the call returned, "T" and the text
// when it threw. Only async-signal-safe exits from here on: no destructors of
// objects shared with the parent, no atexit handlers, no stdio flush.
[[noreturn]] void child(const std::function<void()>& call, int report) {
  // A crash ends the child with its signal, whatever handlers this process
  // installed (a sanitizer's among them), so that it is told apart from a
  // child that exits on its own.
  for (const int crash : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
    ::signal(crash, SIG_DFL);
  }
  // What the child prints (the C library's report of a damaged heap, for one)
  // is not for the user, who hears of the ending from this process; a
  // sanitizer's report is kept for the developer.
  const int nowhere = ::open("/dev/null", O_WRONLY);
  if (nowhere >= 0) {
    ::dup2(nowhere, STDOUT_FILENO);
    if (!sanitized) {
      ::dup2(nowhere, STDERR_FILENO);
    }
    ::close(nowhere);
  }
  std::string message = "R";
  try {
    call();
  } catch (const std::exception& error) {
    message = std::string("T") + error.what();
  } catch (...) {
    message = "Tunknown failure";
  }
  const char* at = message.data();
  std::size_t left = message.size();
  while (left > 0) {
    const ssize_t written = ::write(report, at, left);
    if (written <= 0 && errno != EINTR) {
      break;
    }
    if (written > 0) {
      at += written;
      left -= static_cast<std::size_t>(written);
    }
  }
  ::_exit(0);
}

std::atomic<unsigned long> exits{0};

std::string signal_text(int signal_number) {
  const char* name = ::strsignal(signal_number);
  return std::string(name != nullptr ? name : "signal") + ", signal " +
         std::to_string(signal_number);
}

}  // namespace

isolated_outcome run_isolated(const std::function<void()>& call, double seconds,
                              std::mutex* quiet) {
  isolated_outcome outcome;
  pipe_ends report;
  if (!report.ok()) {
    outcome.text = std::strerror(errno);
    return outcome;
  }
  if (quiet != nullptr) {
    quiet->lock();
  }
  const pid_t pid = ::fork();
  if (quiet != nullptr) {
    quiet->unlock();  // in the child as well: the thread that forked is its only one
  }
  if (pid < 0) {
    outcome.text = std::strerror(errno);
    return outcome;
  }
  if (pid == 0) {
    report.close_read();
    child(call, report.write_end());
  }
  report.close_write();

  using clock = std::chrono::steady_clock;
  const auto deadline =
      clock::now() + std::chrono::milliseconds(static_cast<long long>(seconds * 1000.0));
  std::string message;
  bool finished = false;
  while (!finished) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now()).count();
    if (left <= 0) {
      break;
    }
    pollfd waiting{report.read_end(), POLLIN, 0};
    const int ready = ::poll(&waiting, 1, static_cast<int>(std::min<long long>(left, 1000)));
    if (ready < 0 && errno != EINTR) {
      break;
    }
    if (ready > 0) {
      char buffer[4096];
      const ssize_t got = ::read(report.read_end(), buffer, sizeof buffer);
      if (got > 0) {
        message.append(buffer, static_cast<std::size_t>(got));
      } else if (got == 0 || errno != EINTR) {
        finished = true;  // the child closed its end: it has ended
      }
    }
  }
  if (!finished) {
    ::kill(pid, SIGKILL);
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (!finished) {
    outcome.how = isolated_outcome::ending::timed_out;
  } else if (WIFSIGNALED(status)) {
    outcome.how = isolated_outcome::ending::died;
    outcome.text = signal_text(WTERMSIG(status));
  } else if (message.rfind('T', 0) == 0) {
    outcome.how = isolated_outcome::ending::threw;
    outcome.text = message.substr(1);
  } else if (message == "R") {
    outcome.how = isolated_outcome::ending::returned;
  } else {
    outcome.how = isolated_outcome::ending::exited;
    ++exits;
    outcome.text = "exit status " + std::to_string(WEXITSTATUS(status));
  }
  return outcome;
}

unsigned long isolated_exits() {
  return exits;
}

}  // namespace corv
