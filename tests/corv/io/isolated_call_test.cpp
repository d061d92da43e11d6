#include "corv/io/isolated_call.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <thread>

#include "corv/io/logger.h"

namespace corv {
namespace {

using ending = isolated_outcome::ending;

TEST(isolated_call_test, reports_how_the_child_ended_and_shares_nothing_with_it) {
  int touched = 0;
  struct expected {
    std::function<void(isolated_writer&)> call;
    ending how;
    std::string text;
  };
  const std::vector<expected> cases = {
      {[&](isolated_writer& out) {
         touched = 1;
         out.item(std::vector<double>{});
       },
       ending::returned, ""},
      {[](isolated_writer&) { throw std::runtime_error("hsz_input: no data."); }, ending::threw,
       "hsz_input: no data."},
      {[](isolated_writer&) { std::raise(SIGSEGV); }, ending::died,
       "Segmentation fault, signal 11"},
      {[](isolated_writer&) { ::_exit(3); }, ending::exited, "exit status 3"},
      {[](isolated_writer&) { ::sleep(30); }, ending::timed_out, ""},
      // Dies half-way through its answer.
      {[](isolated_writer& out) {
         out.item(std::uint64_t{1000});
         std::raise(SIGSEGV);
       },
       ending::died, "Segmentation fault, signal 11"},
  };
  for (const auto& c : cases) {
    const isolated_outcome outcome = run_isolated(
        c.call, [](isolated_reader& in) { in.value<std::vector<double>>(); }, 0.5);
    EXPECT_EQ(outcome.how, c.how) << c.text;
    EXPECT_EQ(outcome.text, c.text);
  }
  EXPECT_EQ(touched, 0);
}

TEST(isolated_call_test, the_answer_comes_back_whole_while_another_thread_holds_the_log) {
  std::vector<float> large(3'000'000);
  for (std::size_t i = 0; i < large.size(); ++i) {
    large[i] = static_cast<float>(i);
  }
  std::vector<float> got;
  std::vector<std::string> texts;
  // A thread that takes the log's lock all the time: the child must never wait for it.
  std::atomic<bool> stop{false};
  std::thread busy([&stop] {
    while (!stop) {
      logger::instance().clear_entries();
    }
  });
  isolated_outcome outcome;
  for (int round = 0; round < 20 && (round == 0 || outcome.how == ending::returned); ++round) {
    outcome = run_isolated(
        [&large](isolated_writer& out) {
          logger::instance() << "from the child"
                             << "EOL";
          out.item(large);
          out.item(std::vector<std::string>{"a", "", "b c"});
        },
        [&](isolated_reader& in) {
          in.item(got);
          in.item(texts);
        },
        20);
  }
  stop = true;
  busy.join();
  EXPECT_EQ(outcome.how, ending::returned);
  EXPECT_EQ(got, large);
  EXPECT_EQ(texts, (std::vector<std::string>{"a", "", "b c"}));
}

}  // namespace
}  // namespace corv
