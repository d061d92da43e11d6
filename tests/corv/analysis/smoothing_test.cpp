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

// A direct, per-pixel computation of the rule, to compare the in-place cube filter with.
cube reference(const cube& in, const std::vector<float>& weights, float normaliser) {
  cube out(arma::size(in));
  const long half = static_cast<long>(weights.size() / 2), last = in.n_slices - 1;
  for (arma::uword b = 0; b < in.n_slices; ++b) {
    matrix sum(in.n_rows, in.n_cols, arma::fill::zeros);
    for (std::size_t j = 0; j < weights.size(); ++j) {
      const long i = std::min(std::max<long>(b - half + j, 0), last);
      sum += weights[j] * in.slice(i);
    }
    out.slice(b) = sum / normaliser;
  }
  return out;
}

TEST(smoothing_test, moving_average_repeats_edge_bands) {
  cube c = spectrum_cube({1, 2, 9});
  moving_average(c, 3);
  EXPECT_FLOAT_EQ(c(0, 0, 0), 4.0f / 3.0f);
  EXPECT_FLOAT_EQ(c(0, 0, 1), 4.0f);
  EXPECT_FLOAT_EQ(c(0, 0, 2), 20.0f / 3.0f);
}

TEST(smoothing_test, savitzky_golay_uses_the_repeated_first_band) {
  cube c = spectrum_cube({1, 2, 3, 4, 5, 6});
  savitzky_golay(c, 5);
  // First band: values 1, 1, 1, 2, 3.
  EXPECT_FLOAT_EQ(c(0, 0, 0), (-3 * 1 + 12 * 1 + 17 * 1 + 12 * 2 - 3 * 3) / 35.0f);
  // Inside the spectrum a quadratic fit reproduces a straight line.
  EXPECT_NEAR(c(0, 0, 2), 3.0f, 1e-5);
  EXPECT_NEAR(c(0, 0, 3), 4.0f, 1e-5);
}

TEST(smoothing_test, in_place_filtering_equals_the_direct_rule_on_a_whole_cube) {
  arma::arma_rng::set_seed(7);
  const cube original = arma::randu<cube>(5, 4, 13);
  for (const int window : {3, 5, 7, 9, 11}) {
    cube c = original;
    moving_average(c, window);
    EXPECT_TRUE(arma::approx_equal(
        c, reference(original, std::vector<float>(window, 1.0f), float(window)), "absdiff", 1e-5f))
        << "moving average " << window;
  }
  for (const int window : {5, 7, 9}) {
    cube c = original;
    savitzky_golay(c, window);
    float normaliser = 0;
    const auto weights = savitzky_golay_weights(window, normaliser);
    EXPECT_TRUE(arma::approx_equal(c, reference(original, weights, normaliser), "absdiff", 1e-5f))
        << "Savitzky-Golay " << window;
    // A constant spectrum comes back unchanged.
    cube flat(2, 2, 12, arma::fill::value(3.5f));
    savitzky_golay(flat, window);
    EXPECT_TRUE(
        arma::approx_equal(flat, cube(2, 2, 12, arma::fill::value(3.5f)), "absdiff", 1e-5f));
  }
  // A window wider than the spectrum still works: every index is clamped.
  cube short_one = spectrum_cube({2, 4});
  moving_average(short_one, 7);
  EXPECT_FLOAT_EQ(short_one(0, 0, 0), (4 * 2 + 3 * 4) / 7.0f);
}

TEST(smoothing_test, refused_windows_leave_the_cube_unchanged) {
  logger::instance().set_echo(false);
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
