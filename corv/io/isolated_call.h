#ifndef CORV_IO_ISOLATED_CALL_H
#define CORV_IO_ISOLATED_CALL_H

#include <functional>
#include <mutex>
#include <string>

namespace corv {

// How a call run in a child process ended.
struct isolated_outcome {
  enum class ending { returned, threw, died, exited, timed_out, not_run };
  ending how = ending::not_run;
  // The exception's text (threw), the signal's description (died), the exit
  // status of a child that ended without returning (exited: a sanitizer's
  // report, for one) or why no child could be started (not_run).
  std::string text;
};

// Runs the call in a forked child process and reports how it ended, so that a
// library that crashes or loops on damaged input cannot take this process
// down. The child shares nothing with this process after the fork: the call's
// results are lost, only its ending comes back. A child that runs longer than
// the time limit (seconds) is killed. The call must not start threads (OpenMP
// loops included). A lock that the call takes must be given as `quiet`: it is
// held while the child is made, so that no other thread holds it at that moment.
isolated_outcome run_isolated(const std::function<void()>& call, double seconds,
                              std::mutex* quiet = nullptr);

// How many children of run_isolated in this process exited on their own
// (ending::exited). Under a sanitizer that is how an error in the call shows,
// which fuzzing counts as a finding.
unsigned long isolated_exits();

}  // namespace corv

#endif
