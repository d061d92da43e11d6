// Every test starts and ends with the library's log empty and silent, without a
// stage, progress or abort request left over from another test.
#include <gtest/gtest.h>

#include "corv/io/logger.h"

namespace {

void reset_log() {
  corv::logger& log = corv::logger::instance();
  log.set_echo(false);
  log.clear_entries();
  log.clear_progress();
}

class quiet_log : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo&) override { reset_log(); }
  void OnTestEnd(const ::testing::TestInfo&) override { reset_log(); }
};

const bool registered = [] {
  ::testing::UnitTest::GetInstance()->listeners().Append(new quiet_log);
  return true;
}();

}  // namespace
