#ifndef CORV_CLI_PROGRESS_MONITOR_H
#define CORV_CLI_PROGRESS_MONITOR_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

namespace corv::cli {

// Stages of the commands that stream an image through in row blocks, beside
// the library's own stage numbers.
enum streamed_stage : int {
  stage_conversion = 8,
  stage_preparation = 9,
  stage_band_maths = 10,
};

// Shows the running stage and its percentage while the pipeline works on the
// calling thread. A thread of its own polls the logger's stage and progress
// every 100 ms (the stages write them without locks) and forwards an interrupt
// to the logger as an abort request.
//
// On a terminal the display is one line redrawn in place ("filter
// [#####---------------]  25%"), erased when the monitor ends. Elsewhere (a
// log file, a pipe) it is plain lines, "filter: 0%", then one each time the
// percentage passes another tenth, and "filter: 100%" when the stage ends.
class progress_monitor {
 public:
  progress_monitor(std::ostream& out, bool terminal, std::function<bool()> interrupted);
  ~progress_monitor();
  progress_monitor(const progress_monitor&) = delete;
  progress_monitor& operator=(const progress_monitor&) = delete;

  // A stage starts: its number and a progress of 0 go into the logger and
  // are shown at once.
  void begin(int stage);
  // The stage that began last has finished.
  void end();

  // "illuminant recovery", "reflectance recovery", "material discovery",
  // "analysis", "classification", "filter"; "stage N" for any other number.
  static std::string stage_name(int stage);

 private:
  void poll();
  void show(int stage, int percent);  // under mutex_
  void erase();                       // under mutex_

  std::ostream& out_;
  const bool terminal_;
  const std::function<bool()> interrupted_;
  bool forwarded_ = false;  // the interrupt has reached the logger
  bool active_ = false;     // a stage is running
  int shown_stage_ = -1;
  int shown_percent_ = -1;
  std::size_t drawn_ = 0;  // length of the bar on the terminal
  bool stopping_ = false;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::thread thread_;
};

}  // namespace corv::cli

#endif
