#include "corv/spectral/nurbs_fit.h"

#include <gtest/gtest.h>

#include <cmath>

#include "corv/spectral/nurbs_basis.h"

namespace corv {
namespace {

std::vector<double> steps(double first, double step, std::size_t count) {
  std::vector<double> out(count);
  for (std::size_t i = 0; i < count; ++i) {
    out[i] = first + step * static_cast<double>(i);
  }
  return out;
}

double largest_miss(const std::vector<double>& a, const std::vector<double>& b) {
  double miss = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    miss = std::max(miss, std::fabs(a[i] - b[i]));
  }
  return miss;
}

TEST(nurbs_fit_test, a_fit_on_as_many_control_points_as_bands_interpolates) {
  const std::vector<double> waves = steps(400, 10, 6);
  const std::vector<double> values = {1, 3, 2, 5, 4, 4.5};
  std::vector<double> parameters(6);
  nurbs_centripetal_parameters(waves.data(), values.data(), 6, parameters.data());
  const std::vector<double> knots = nurbs_averaged_knots(parameters, 2);
  nurbs_workspace work(6, 2);
  std::vector<double> cx(6), cy(6);
  ASSERT_TRUE(nurbs_fit_spectrum(knots, 2, waves.data(), values.data(), 6, 1e-9, cx.data(),
                                 cy.data(), work));
  // The ends are kept exactly, and the curve passes every point at its parameter.
  EXPECT_EQ(cx[0], 400.0);
  EXPECT_EQ(cy[0], 1.0);
  EXPECT_EQ(cx[5], 450.0);
  EXPECT_EQ(cy[5], 4.5);
  double n[3], scratch[9];
  for (std::size_t k = 0; k < 6; ++k) {
    const std::size_t span = nurbs_find_span(knots, 2, parameters[k]);
    nurbs_basis(knots, span, 2, parameters[k], n, scratch);
    EXPECT_NEAR(nurbs_combine(n, cx.data(), span, 2), waves[k], 1e-6) << k;
    EXPECT_NEAR(nurbs_combine(n, cy.data(), span, 2), values[k], 1e-6) << k;
  }
  // Read back at the wavelengths, the same values.
  std::vector<double> read(6);
  EXPECT_EQ(nurbs_read_spectrum(knots, 2, cx.data(), cy.data(), waves.data(), 6, read.data(), work),
            0u);
  EXPECT_LT(largest_miss(read, values), 1e-6);
  // Between the points the curve stays between its neighbours' range here.
  const double between[] = {415.0};
  double value = 0;
  nurbs_read_spectrum(knots, 2, cx.data(), cy.data(), between, 1, &value, work);
  EXPECT_GT(value, 1.5);
  EXPECT_LT(value, 3.5);
}

TEST(nurbs_fit_test, a_straight_spectrum_comes_back_exactly_on_any_knots_and_smoothing) {
  const std::vector<double> waves = steps(400, 10, 11);
  std::vector<double> values(11);
  for (std::size_t k = 0; k < 11; ++k) {
    values[k] = 2.0 + 0.05 * (waves[k] - 400.0);
  }
  // Five control points for eleven bands: a least squares fit.
  const std::vector<double> knots = {0, 0, 0, 0.3, 0.7, 1, 1, 1};
  nurbs_workspace work(11, 2);
  std::vector<double> cx(5), cy(5);
  const std::vector<double> targets = {400, 405, 437.5, 451, 499.9, 500};
  for (const double smoothing : {1e-9, 1.0}) {
    ASSERT_TRUE(nurbs_fit_spectrum(knots, 2, waves.data(), values.data(), 11, smoothing, cx.data(),
                                   cy.data(), work));
    std::vector<double> read(targets.size());
    EXPECT_EQ(nurbs_read_spectrum(knots, 2, cx.data(), cy.data(), targets.data(), targets.size(),
                                  read.data(), work),
              0u);
    for (std::size_t t = 0; t < targets.size(); ++t) {
      EXPECT_NEAR(read[t], 2.0 + 0.05 * (targets[t] - 400.0), 1e-9) << smoothing << " " << t;
    }
  }
  // Targets outside the curve take the end values and are counted.
  const std::vector<double> outside = {390, 400, 450, 500, 510, 520};
  std::vector<double> read(outside.size());
  EXPECT_EQ(nurbs_read_spectrum(knots, 2, cx.data(), cy.data(), outside.data(), outside.size(),
                                read.data(), work),
            3u);
  EXPECT_DOUBLE_EQ(read[0], 2.0);
  EXPECT_DOUBLE_EQ(read[1], 2.0);
  EXPECT_NEAR(read[2], 4.5, 1e-9);
  EXPECT_DOUBLE_EQ(read[3], 7.0);
  EXPECT_DOUBLE_EQ(read[4], 7.0);
  EXPECT_DOUBLE_EQ(read[5], 7.0);
}

TEST(nurbs_fit_test, encoding_picks_the_smoothing_that_reads_back_best) {
  const std::vector<double> waves = steps(400, 10, 11);
  nurbs_workspace work(11, 2);
  std::vector<double> cx(11), cy(11), read(11);

  // A spectrum that suits the knots is interpolated by the first, vanishing smoothing.
  const std::vector<double> smooth = {1, 1.2, 1.5, 1.7, 1.8, 1.7, 1.5, 1.4, 1.4, 1.5, 1.7};
  std::vector<double> parameters(11);
  nurbs_centripetal_parameters(waves.data(), smooth.data(), 11, parameters.data());
  const std::vector<double> own = nurbs_averaged_knots(parameters, 2);
  const double deviation =
      nurbs_encode_spectrum(own, 2, waves.data(), smooth.data(), 11, cx.data(), cy.data(), work);
  EXPECT_LE(deviation, 1e-5 * 1.8);
  nurbs_read_spectrum(own, 2, cx.data(), cy.data(), waves.data(), 11, read.data(), work);
  // The deviation is that of the curve read back as floats.
  EXPECT_NEAR(largest_miss(read, smooth), deviation, 1e-6);
  // The control points handed out are floats.
  for (std::size_t i = 0; i < 11; ++i) {
    EXPECT_EQ(cy[i], static_cast<float>(cy[i]));
  }

  // A step concentrates this spectrum's parameters around the jump, where
  // knots placed for evenly spread parameters have too few control points:
  // without smoothing the curve swings out; the encoder does much better.
  const std::vector<double> step = {0, 0, 0, 0, 0, 1000, 1000, 1000, 1000, 1000, 1000};
  const std::vector<double> even = nurbs_averaged_knots(steps(0, 0.1, 11), 2);
  ASSERT_TRUE(
      nurbs_fit_spectrum(even, 2, waves.data(), step.data(), 11, 1e-9, cx.data(), cy.data(), work));
  nurbs_read_spectrum(even, 2, cx.data(), cy.data(), waves.data(), 11, read.data(), work);
  const double unsmoothed = largest_miss(read, step);
  const double encoded =
      nurbs_encode_spectrum(even, 2, waves.data(), step.data(), 11, cx.data(), cy.data(), work);
  nurbs_read_spectrum(even, 2, cx.data(), cy.data(), waves.data(), 11, read.data(), work);
  EXPECT_NEAR(largest_miss(read, step), encoded, 1e-4);
  EXPECT_LT(encoded, 0.5 * unsmoothed) << unsmoothed;
}

TEST(nurbs_fit_test, removal_error_is_zero_for_an_inserted_knot_and_measures_value_changes) {
  // The quadratic (400, 0), (500, 10), (600, 0) with the knot 0.5 inserted.
  const std::vector<double> knots = {0, 0, 0, 0.5, 1, 1, 1};
  nurbs_workspace work(4, 2);
  std::vector<double> cx = {400, 450, 550, 600};
  std::vector<double> cy = {0, 5, 5, 0};
  EXPECT_EQ(nurbs_removal_error(knots, 2, cx.data(), cy.data(), 3, work), 0.0);
  // One up on the second point: the two solutions for the middle point differ
  // by (0, 2) under a flat chord.
  cy[1] = 6;
  EXPECT_DOUBLE_EQ(nurbs_removal_error(knots, 2, cx.data(), cy.data(), 3, work), 2.0);
  // Moving the point along the flat chord does not change values.
  cy[1] = 5;
  cx[1] = 451;
  EXPECT_DOUBLE_EQ(nurbs_removal_error(knots, 2, cx.data(), cy.data(), 3, work), 0.0);
  // Under a chord rising 1 per nanometre, the same shift is worth 2 in value.
  cy = {0, 55, 155, 200};
  EXPECT_DOUBLE_EQ(nurbs_removal_error(knots, 2, cx.data(), cy.data(), 3, work), 2.0);
  // A chord that does not rise in wavelength cannot be judged.
  cx = {400, 450, 550, 400};
  EXPECT_TRUE(std::isinf(nurbs_removal_error(knots, 2, cx.data(), cy.data(), 3, work)));

  // A cubic: a knot inserted into a curve without interior knots comes out again.
  const std::vector<double> cubic = {0, 0, 0, 0, 0.25, 1, 1, 1, 1};
  // Bezier points 0, 3, 1, 4 (values) and 0, 1, 2, 3 (wavelengths); inserting
  // 0.25 gives alphas 1/4 for the three points that change.
  auto insert = [](const std::vector<double>& p) {
    return std::vector<double>{p[0], 0.25 * p[1] + 0.75 * p[0], 0.25 * p[2] + 0.75 * p[1],
                               0.25 * p[3] + 0.75 * p[2], p[3]};
  };
  const std::vector<double> wx = insert({0, 1, 2, 3}), wy = insert({0, 3, 1, 4});
  nurbs_workspace cubic_work(5, 3);
  EXPECT_NEAR(nurbs_removal_error(cubic, 3, wx.data(), wy.data(), 4, cubic_work), 0.0, 1e-12);
  std::vector<double> bent = wy;
  bent[2] += 0.5;
  EXPECT_GT(nurbs_removal_error(cubic, 3, wx.data(), bent.data(), 4, cubic_work), 0.1);
}

}  // namespace
}  // namespace corv
