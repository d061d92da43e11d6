#include "corv/analysis/resample_endmembers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>
#include <vector>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::thrown_text;

const char* const failed = "resample_endmembers: NURBS interpolation failed somehow!";

// The spline itself is checked against scipy's on the same knots.
TEST(resample_endmembers_test, wavelengths_outside_the_range_take_the_end_values) {
  const matrix out =
      resample_endmembers(matrix{{1, 2, 5, 3}}, vector{400, 410, 420, 430}, vector{390, 415, 431});
  EXPECT_FLOAT_EQ(out(0, 0), 1.0f);
  EXPECT_FLOAT_EQ(out(0, 2), 3.0f);
  const auto entries = logger::instance().entries();
  ASSERT_FALSE(entries.empty());
  EXPECT_EQ(entries.back().second,
            "resample_endmembers: 2 wavelengths lie outside the references' range (400 - 430); "
            "each takes the value at the nearest end.");
}

TEST(resample_endmembers_test, refusals) {
  EXPECT_EQ(thrown_text([] { resample_endmembers(matrix(2, 3), vector(4), vector(2)); }),
            "resample_endmembers: Incorrect dimensions.");
  EXPECT_EQ(logger::instance().entries().back().second,
            "resample_endmembers: Incorrect dimensions.");
  // One point, wavelengths out of order or repeated, and values that are not numbers.
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::vector<std::tuple<matrix, vector, vector>> cases = {
      {matrix(1, 1, arma::fill::ones), vector{400}, vector{400}},
      {matrix{{1, 2, 3}}, vector{400, 420, 410}, vector{400}},
      {matrix{{1, 2, 3}}, vector{400, 410, 410}, vector{400}},
      {matrix{{1, nan, 3}}, vector{400, 410, 420}, vector{400}},
      {matrix{{1, 2, 3}}, vector{400, nan, 420}, vector{400}},
      {matrix{{1, 2, 3}}, vector{400, 410, 420}, vector{nan}},
  };
  for (const auto& [references, from, to] : cases) {
    EXPECT_EQ(thrown_text([&] { resample_endmembers(references, from, to); }), failed) << from;
    EXPECT_EQ(logger::instance().entries().back().second, failed);
  }
}

}  // namespace
}  // namespace corv
