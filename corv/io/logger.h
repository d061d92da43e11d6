#ifndef CORV_IO_LOGGER_H
#define CORV_IO_LOGGER_H

#include <atomic>
#include <mutex>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace corv {

// Processing stages as the viewer's progress display reads them.
enum logger_stage : int {
  stage_illuminant = 0,
  stage_reflectance = 1,
  stage_materials = 2,
  stage_analysis = 3,
  stage_classification = 4,
  stage_filter = 7,
};

// The library's single, process-wide message log. Text is appended a piece at a
// time; appending exactly "EOL" completes the line. It also carries the abort
// request and the running stage's number and progress between a worker and the UI.
class logger {
 public:
  using entry = std::pair<std::string, std::string>;  // (time stamp, line)

  static logger& instance();

  logger& operator<<(const std::string& text);
  logger& operator<<(const char* text);
  template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T>>>
  logger& operator<<(T value) {
    std::ostringstream text;
    text << value;
    return *this << text.str();
  }

  // Drops every line from now on without taking the log's lock: for a child
  // process made by fork, where another thread of the parent may have held the
  // lock at that moment and holds it there for good.
  void silence() { silenced_ = true; }

  std::vector<entry> entries() const;
  // The completed lines, leaving none behind (for a reader that keeps them itself).
  std::vector<entry> take_entries();
  void clear_entries();

  void set_echo(bool echo) { echo_ = echo; }
  bool echo() const { return echo_; }

  void request_abort() { abort_ = true; }
  bool abort_requested() const { return abort_; }
  // Throws "Processing was aborted!" once per request.
  void check_abort();

  void set_stage(int stage) { stage_ = stage; }
  int stage() const { return stage_; }
  void set_progress(int percent) { progress_ = percent; }
  int progress() const { return progress_; }
  // Clears stage, progress and any pending abort request.
  void clear_progress();

  logger(const logger&) = delete;
  logger& operator=(const logger&) = delete;

 private:
  logger() = default;
  void complete_line();

  mutable std::mutex mutex_;
  std::ostringstream line_;
  std::vector<entry> entries_;
  std::atomic<bool> echo_{true};
  std::atomic<bool> silenced_{false};
  std::atomic<bool> abort_{false};
  std::atomic<int> stage_{0};
  std::atomic<int> progress_{0};
};

// Local time formatted as "%Y%m%d_%H%M%S".
std::string log_time_stamp();

// Logs a whole line, then throws std::runtime_error with another text.
[[noreturn]] void log_and_throw(const std::string& log_line, const std::string& thrown_text);
// Logs the text as a line and throws it.
[[noreturn]] void log_and_throw(const std::string& text);

}  // namespace corv

#endif
