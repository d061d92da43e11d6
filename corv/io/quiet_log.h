#ifndef CORV_IO_QUIET_LOG_H
#define CORV_IO_QUIET_LOG_H

namespace corv {

// While one lives, whatever the calling thread appends to the logger is dropped
// (other threads log as usual): for a question whose "no" the library logs as
// an error, such as asking an input for a component it may not hold.
class quiet_log {
 public:
  quiet_log();
  ~quiet_log();
  quiet_log(const quiet_log&) = delete;
  quiet_log& operator=(const quiet_log&) = delete;

  // Whether the calling thread is inside a quiet_log.
  static bool active();
};

}  // namespace corv

#endif
