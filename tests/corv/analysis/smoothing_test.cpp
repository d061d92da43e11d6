#include "corv/analysis/smoothing.h"

#include <gtest/gtest.h>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::thrown_text;

cube spectrum_cube(const std::vector<float>& values) {
  cube c(1, 1, values.size());
  std::copy(values.begin(), values.end(), c.begin());
  return c;
}

// The filters are compared with scipy's on random, sample and real cubes by the
// Python tests; here the refusals.
TEST(smoothing_test, refused_windows_leave_the_cube_unchanged) {
  const cube original = spectrum_cube({1, 2, 3, 4, 5});
  for (const int window : {1, 2, 4, 0, -3}) {
    cube c = original;
    EXPECT_EQ(thrown_text([&] { moving_average(c, window); }),
              "moving_average: Window size is incorrect. (greater than 3 and odd)");
    EXPECT_TRUE(arma::approx_equal(c, original, "absdiff", 0.0f));
  }
  for (const int window : {3, 11, 6}) {
    cube c = original;
    EXPECT_EQ(thrown_text([&] { savitzky_golay(c, window); }),
              "savitzky_golay: Window size is incorrect. (5, 7 or 9 only)");
    EXPECT_TRUE(arma::approx_equal(c, original, "absdiff", 0.0f));
  }
}

}  // namespace
}  // namespace corv
