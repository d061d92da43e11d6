#include "corv/io/logger.h"

#include <gtest/gtest.h>

#include <regex>
#include <thread>

#include "tests/corv/test_support.h"

namespace corv {
namespace {

class logger_test : public ::testing::Test {
 protected:
  static logger& log() { return logger::instance(); }
};

TEST_F(logger_test, only_the_exact_eol_string_ends_a_line) {
  log() << "EO"
        << "L"
        << " and "
        << "EOL ";
  EXPECT_TRUE(log().entries().empty());
  log() << "EOL";
  const auto entries = log().entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].second, "EOL and EOL ");
  log() << "next " << 42 << " " << 2.5 << "EOL";
  EXPECT_EQ(log().entries().at(1).second, "next 42 2.5");
}

TEST_F(logger_test, entries_are_time_stamped_and_kept_with_echo_off_or_on) {
  ::testing::internal::CaptureStdout();
  log().set_echo(true);
  log() << "echoed"
        << "EOL";
  log().set_echo(false);
  log() << "quiet"
        << "EOL";
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "echoed\n");
  const auto entries = log().entries();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[1].second, "quiet");
  EXPECT_TRUE(std::regex_match(entries[0].first, std::regex("[0-9]{8}_[0-9]{6}")))
      << entries[0].first;
}

TEST_F(logger_test, an_abort_request_throws_once_and_clearing_the_progress_drops_it) {
  EXPECT_NO_THROW(log().check_abort());
  log().request_abort();
  EXPECT_EQ(test::thrown_text([] { logger::instance().check_abort(); }), "Processing was aborted!");
  EXPECT_NO_THROW(log().check_abort());

  log().set_stage(2);  // material discovery
  log().set_progress(55);
  log().request_abort();
  log().clear_progress();
  EXPECT_EQ(log().stage(), 0);
  EXPECT_EQ(log().progress(), 0);
  EXPECT_NO_THROW(log().check_abort());
}

TEST_F(logger_test, lines_written_whole_by_each_thread_are_never_lost) {
  constexpr int threads = 4, lines = 500;
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([t] {
      for (int i = 0; i < lines; ++i) {
        logger::instance() << ("thread " + std::to_string(t)) << "EOL";
      }
    });
  }
  for (auto& worker : workers) {
    worker.join();
  }
  EXPECT_EQ(log().entries().size(), static_cast<std::size_t>(threads * lines));
}

}  // namespace
}  // namespace corv
