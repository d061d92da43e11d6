#ifndef CORV_CLI_INTERRUPT_H
#define CORV_CLI_INTERRUPT_H

namespace corv::cli {

// Ctrl-C while a command computes. While an interrupt_scope lives, the first
// SIGINT only records the request: a signal handler may do no more than set a
// lock-free flag, so whoever polls interrupt_requested() forwards it to the
// logger, whose abort request the running stage checks. The handler then steps
// aside, so that a second Ctrl-C ends the tool at once.
class interrupt_scope {
 public:
  interrupt_scope();
  ~interrupt_scope();
  interrupt_scope(const interrupt_scope&) = delete;
  interrupt_scope& operator=(const interrupt_scope&) = delete;
};

bool interrupt_requested();

// Throws "Processing was aborted!" when an interrupt has been requested: for
// the points between stages, and for stages that do not check for an abort.
void throw_if_interrupted();

}  // namespace corv::cli

#endif
