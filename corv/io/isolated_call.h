#ifndef CORV_IO_ISOLATED_CALL_H
#define CORV_IO_ISOLATED_CALL_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

namespace corv {

// How a call run in a child process ended.
struct isolated_outcome {
  enum class ending { returned, threw, died, exited, timed_out, not_run };
  ending how = ending::not_run;
  // The exception's text (threw), the signal's description (died), the exit
  // status of a child that ended without returning (exited: a sanitizer's
  // report, for one, or an answer that could not be read) or why no child
  // could be started (not_run).
  std::string text;
};

// The child's end of the pipe its answer travels through. Values go as their
// bytes (both ends are this program), texts and vectors after their length.
class isolated_writer {
 public:
  explicit isolated_writer(int pipe) : pipe_(pipe) {}

  void write(const void* data, std::size_t size);
  template <typename T>
  void item(const T& value) {
    static_assert(std::is_trivially_copyable_v<T>, "values go as their bytes");
    write(&value, sizeof value);
  }
  void item(const std::string& text);
  void item(const std::vector<std::string>& texts);
  template <typename T>
  void item(const std::vector<T>& values) {
    items(values.data(), values.size());
  }
  // A count and then `count` values.
  template <typename T>
  void items(const T* values, std::size_t count) {
    static_assert(std::is_trivially_copyable_v<T>, "values go as their bytes");
    item(static_cast<std::uint64_t>(count));
    write(values, count * sizeof(T));
  }
  bool started() const { return started_; }

 private:
  int pipe_;
  bool started_ = false;
};

// The parent's end: reads what the child wrote, within the call's time limit.
// A child that ends or runs out of time before its answer is complete ends the
// reading (the outcome then says how the child ended). Vectors grow as their
// values arrive, so that a false length cannot make this process allocate.
class isolated_reader {
 public:
  using clock = std::chrono::steady_clock;
  isolated_reader(int pipe, clock::time_point deadline) : pipe_(pipe), deadline_(deadline) {}

  void read(void* data, std::size_t size);
  template <typename T>
  void item(T& value) {
    static_assert(std::is_trivially_copyable_v<T>, "values go as their bytes");
    read(&value, sizeof value);
  }
  void item(std::string& text);
  void item(std::vector<std::string>& texts);
  template <typename T>
  void item(std::vector<T>& values) {
    static_assert(std::is_trivially_copyable_v<T>, "values go as their bytes");
    const std::uint64_t count = value<std::uint64_t>();
    values.clear();
    constexpr std::size_t step = (std::size_t{1} << 20) / sizeof(T) + 1;
    while (values.size() < count) {
      const std::size_t at = values.size();
      values.resize(at + static_cast<std::size_t>(std::min<std::uint64_t>(count - at, step)));
      read(values.data() + at, (values.size() - at) * sizeof(T));
    }
  }
  template <typename T>
  T value() {
    T read_value{};
    item(read_value);
    return read_value;
  }
  // Everything up to the pipe's end.
  std::string rest();
  // Whether the pipe is at its end (the child wrote nothing more).
  bool at_end();
  // Whether reading stopped because the time ran out.
  bool timed_out() const { return timed_out_; }

 private:
  // Reads up to `size` bytes; 0 at the pipe's end.
  std::size_t some(void* data, std::size_t size);

  int pipe_;
  clock::time_point deadline_;
  bool timed_out_ = false;
};

// Runs the call in a forked child process and reports how it ended, so that a
// library that crashes or loops on damaged input cannot take this process
// down. The child shares nothing with this process after the fork: what it
// found comes back only through the writer, which `receive` reads here while
// the child writes (so that a large answer is never held twice here). The call
// must throw, if at all, before it writes; a call that writes nothing is
// received as well (`receive` then reads nothing). A child that runs longer than
// the time limit (seconds) is killed. The call must not start threads (OpenMP
// loops included) and must not log: the logger is silenced in the child. A lock
// that the call takes must be given as `quiet`: it is held while the child is
// made, so that no other thread holds it at that moment.
isolated_outcome run_isolated(const std::function<void(isolated_writer&)>& call,
                              const std::function<void(isolated_reader&)>& receive, double seconds,
                              std::mutex* quiet = nullptr);

// How many children of run_isolated in this process exited on their own
// (ending::exited). Under a sanitizer that is how an error in the call shows,
// which fuzzing counts as a finding.
unsigned long isolated_exits();

}  // namespace corv

#endif
