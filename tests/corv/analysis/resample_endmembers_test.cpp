#include "corv/analysis/resample_endmembers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::thrown_text;

const char* const failed = "resample_endmembers: NURBS interpolation failed somehow!";

TEST(resample_endmembers_test, two_and_three_points) {
  // Two points: a straight line.
  matrix out = resample_endmembers(matrix{{1, 3}}, vector{400, 500}, vector{400, 425, 450, 500});
  EXPECT_TRUE(arma::approx_equal(out, matrix{{1, 1.5, 2, 3}}, "absdiff", 1e-6f)) << out;
  // Three points: the parabola through them, here (w - 400)^2 / 100.
  out = resample_endmembers(matrix{{0, 1, 4}}, vector{400, 410, 420}, vector{405, 415, 420});
  EXPECT_TRUE(arma::approx_equal(out, matrix{{0.25, 2.25, 4}}, "absdiff", 1e-5f)) << out;
}

TEST(resample_endmembers_test, wavelengths_outside_the_range_take_the_end_values) {
  logger::instance().clear_entries();
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
  const float nan = std::numeric_limits<float>::quiet_NaN();
  logger::instance().clear_entries();
  EXPECT_EQ(thrown_text([] { resample_endmembers(matrix(2, 3), vector(4), vector(2)); }),
            "resample_endmembers: Incorrect dimensions.");
  EXPECT_EQ(logger::instance().entries().back().second,
            "resample_endmembers: Incorrect dimensions.");
  EXPECT_EQ(thrown_text([] {
              resample_endmembers(matrix(1, 1, arma::fill::ones), vector{400}, vector{400});
            }),
            failed);
  EXPECT_EQ(logger::instance().entries().back().second, failed);
  EXPECT_EQ(thrown_text([] {
              resample_endmembers(matrix{{1, 2, 3}}, vector{400, 420, 410}, vector{400});
            }),
            failed);
  EXPECT_EQ(thrown_text([] {
              resample_endmembers(matrix{{1, 2, 3}}, vector{400, 410, 410}, vector{400});
            }),
            failed);
  EXPECT_EQ(thrown_text([&] {
              resample_endmembers(matrix{{1, nan, 3}}, vector{400, 410, 420}, vector{400});
            }),
            failed);
  EXPECT_EQ(thrown_text([&] {
              resample_endmembers(matrix{{1, 2, 3}}, vector{400, nan, 420}, vector{400});
            }),
            failed);
  EXPECT_EQ(thrown_text([&] {
              resample_endmembers(matrix{{1, 2, 3}}, vector{400, 410, 420}, vector{nan});
            }),
            failed);
}

}  // namespace
}  // namespace corv
