#include "corv/cli/interrupt.h"

#include <atomic>
#include <csignal>
#include <stdexcept>

namespace corv::cli {

namespace {

static_assert(std::atomic<bool>::is_always_lock_free,
              "the interrupt flag must be safe to set from a signal handler");

std::atomic<bool> interrupted{false};
struct sigaction previous_action {};

extern "C" void on_interrupt(int) {
  interrupted.store(true);
}

}  // namespace

interrupt_scope::interrupt_scope() {
  interrupted.store(false);
  struct sigaction action {};
  action.sa_handler = on_interrupt;
  sigemptyset(&action.sa_mask);
  // SA_RESETHAND restores the default action once the handler has run, so the
  // second Ctrl-C ends the tool; SA_RESTART keeps file reads from failing with EINTR.
  action.sa_flags = SA_RESETHAND | SA_RESTART;
  sigaction(SIGINT, &action, &previous_action);
}

interrupt_scope::~interrupt_scope() {
  sigaction(SIGINT, &previous_action, nullptr);
}

bool interrupt_requested() {
  return interrupted.load();
}

void throw_if_interrupted() {
  if (interrupted.load()) {
    throw std::runtime_error("Processing was aborted!");
  }
}

}  // namespace corv::cli
