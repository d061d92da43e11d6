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

#include "corv/io/logger.h"

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

// Writes all of it; false when the pipe is gone.
bool write_all(int pipe, const char* at, std::size_t left) {
  while (left > 0) {
    const ssize_t written = ::write(pipe, at, left);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    at += written;
    left -= static_cast<std::size_t>(written);
  }
  return true;
}

// The pipe ended, or the time ran out, before the child's answer was complete.
struct pipe_ended {};

// The child's answer starts with 'R' (the call returned: its result follows)
// or 'T' (it threw: the text follows). Only async-signal-safe exits from here
// on: no destructors of objects shared with the parent, no atexit handlers, no
// stdio flush.
constexpr char returned_mark = 'R';
constexpr char threw_mark = 'T';
// The exit status of a child whose call threw after it had started writing.
constexpr int threw_while_writing = 70;

[[noreturn]] void child(const std::function<void(isolated_writer&)>& call, int report) {
  // A crash ends the child with its signal, whatever handlers this process
  // installed (a sanitizer's among them), so that it is told apart from a
  // child that exits on its own.
  for (const int crash : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
    ::signal(crash, SIG_DFL);
  }
  ::signal(SIGPIPE, SIG_IGN);  // a parent that stopped listening is a failed write
  logger::instance().silence();
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
  isolated_writer out(report);
  std::string failure;
  try {
    call(out);
    out.write(nullptr, 0);  // the mark, when the call wrote nothing
    ::_exit(0);
  } catch (const std::exception& error) {
    failure = error.what();
  } catch (...) {
    failure = "unknown failure";
  }
  if (out.started()) {
    ::_exit(threw_while_writing);
  }
  const std::string message = threw_mark + failure;
  write_all(report, message.data(), message.size());
  ::_exit(0);
}

std::atomic<unsigned long> exits{0};

std::string signal_text(int signal_number) {
  const char* name = ::strsignal(signal_number);
  return std::string(name != nullptr ? name : "signal") + ", signal " +
         std::to_string(signal_number);
}

}  // namespace

void isolated_writer::write(const void* data, std::size_t size) {
  if (!started_) {
    started_ = true;
    write(&returned_mark, 1);
  }
  if (!write_all(pipe_, static_cast<const char*>(data), size)) {
    ::_exit(1);  // the parent has given up on this child
  }
}

void isolated_writer::item(const std::string& text) {
  items(text.data(), text.size());
}

void isolated_writer::item(const std::vector<std::string>& texts) {
  item(static_cast<std::uint64_t>(texts.size()));
  for (const std::string& text : texts) {
    item(text);
  }
}

std::size_t isolated_reader::some(void* data, std::size_t size) {
  for (;;) {
    const auto now = clock::now();
    if (now >= deadline_) {
      timed_out_ = true;
      throw pipe_ended{};
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - now).count();
    pollfd waiting{pipe_, POLLIN, 0};
    const int ready = ::poll(&waiting, 1, static_cast<int>(std::min<long long>(left, 1000)));
    if (ready < 0 && errno != EINTR) {
      throw pipe_ended{};
    }
    if (ready <= 0) {
      continue;
    }
    const ssize_t got = ::read(pipe_, data, size);
    if (got >= 0) {
      return static_cast<std::size_t>(got);
    }
    if (errno != EINTR && errno != EAGAIN) {
      throw pipe_ended{};
    }
  }
}

void isolated_reader::read(void* data, std::size_t size) {
  auto* at = static_cast<char*>(data);
  while (size > 0) {
    const std::size_t got = some(at, size);
    if (got == 0) {
      throw pipe_ended{};
    }
    at += got;
    size -= got;
  }
}

void isolated_reader::item(std::string& text) {
  std::vector<char> bytes;
  item(bytes);
  text.assign(bytes.begin(), bytes.end());
}

void isolated_reader::item(std::vector<std::string>& texts) {
  const auto count = value<std::uint64_t>();
  texts.clear();
  while (texts.size() < count) {
    texts.push_back(value<std::string>());
  }
}

std::string isolated_reader::rest() {
  std::string text;
  char buffer[4096];
  while (const std::size_t got = some(buffer, sizeof buffer)) {
    text.append(buffer, got);
  }
  return text;
}

bool isolated_reader::at_end() {
  char extra = 0;
  return some(&extra, 1) == 0;
}

isolated_outcome run_isolated(const std::function<void(isolated_writer&)>& call,
                              const std::function<void(isolated_reader&)>& receive, double seconds,
                              std::mutex* quiet) {
  isolated_outcome outcome;
  pipe_ends report;
  if (!report.ok()) {
    outcome.text = std::strerror(errno);
    return outcome;
  }
  // Fewer trips through the pipe for a large answer; the default size otherwise.
  ::fcntl(report.write_end(), F_SETPIPE_SZ, 1 << 20);
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

  using clock = isolated_reader::clock;
  const auto deadline =
      clock::now() + std::chrono::milliseconds(static_cast<long long>(seconds * 1000.0));
  isolated_reader in(report.read_end(), deadline);
  enum class answer { returned, threw, none, unreadable } got = answer::none;
  try {
    const char mark = in.value<char>();
    if (mark == returned_mark) {
      receive(in);
      got = in.at_end() ? answer::returned : answer::unreadable;
    } else if (mark == threw_mark) {
      outcome.text = in.rest();
      got = answer::threw;
    } else {
      got = answer::unreadable;
    }
  } catch (const pipe_ended&) {
    got = answer::none;
  } catch (const std::exception&) {
    got = answer::unreadable;  // what came through the pipe made no sense
  }
  const bool timed_out = got == answer::none && in.timed_out();
  if (timed_out || got == answer::unreadable) {
    ::kill(pid, SIGKILL);
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (timed_out) {
    outcome.how = isolated_outcome::ending::timed_out;
    outcome.text.clear();
  } else if (got == answer::unreadable) {
    outcome.how = isolated_outcome::ending::exited;
    ++exits;
    outcome.text = "an answer that could not be read";
  } else if (WIFSIGNALED(status)) {
    outcome.how = isolated_outcome::ending::died;
    outcome.text = signal_text(WTERMSIG(status));
  } else if (got == answer::threw) {
    outcome.how = isolated_outcome::ending::threw;
  } else if (got == answer::returned) {
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
