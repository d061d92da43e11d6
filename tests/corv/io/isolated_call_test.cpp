#include "corv/io/isolated_call.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace corv {
namespace {

using ending = isolated_outcome::ending;

TEST(isolated_call_test, reports_how_the_child_ended_and_shares_nothing_with_it) {
  int touched = 0;
  struct expected {
    std::function<void()> call;
    ending how;
    std::string text;
  };
  const std::vector<expected> cases = {
      {[&] { touched = 1; }, ending::returned, ""},
      {[] { throw std::runtime_error("hsz_input: no data."); }, ending::threw,
       "hsz_input: no data."},
      {[] { std::raise(SIGSEGV); }, ending::died, "Segmentation fault, signal 11"},
      {[] { ::_exit(3); }, ending::exited, "exit status 3"},
      {[] { ::sleep(30); }, ending::timed_out, ""},
  };
  for (const auto& c : cases) {
    const isolated_outcome outcome = run_isolated(c.call, 0.5);
    EXPECT_EQ(outcome.how, c.how) << c.text;
    EXPECT_EQ(outcome.text, c.text);
  }
  EXPECT_EQ(touched, 0);
}

}  // namespace
}  // namespace corv
