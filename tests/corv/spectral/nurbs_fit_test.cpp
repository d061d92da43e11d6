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

}  // namespace
}  // namespace corv
