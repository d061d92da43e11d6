#include "corv/spectral/nurbs_basis.h"

#include <gtest/gtest.h>

#include <numeric>

namespace corv {
namespace {

// Degree 2 with one interior knot: four basis functions, known in closed form.
// On [0, 0.5): N0 = (1 - 2u)^2, N1 = 2u (2 - 3u), N2 = 2u^2.
const std::vector<double> one_interior = {0, 0, 0, 0.5, 1, 1, 1};

TEST(nurbs_basis_test, spans_are_found_inside_the_clamped_ends) {
  EXPECT_EQ(nurbs_control_count(one_interior, 2), 4u);
  EXPECT_EQ(nurbs_find_span(one_interior, 2, 0.0), 2u);
  EXPECT_EQ(nurbs_find_span(one_interior, 2, 0.25), 2u);
  EXPECT_EQ(nurbs_find_span(one_interior, 2, 0.5), 3u);
  EXPECT_EQ(nurbs_find_span(one_interior, 2, 0.99), 3u);
  // The end and anything beyond fall in the last span, anything before in the first.
  EXPECT_EQ(nurbs_find_span(one_interior, 2, 1.0), 3u);
  EXPECT_EQ(nurbs_find_span(one_interior, 2, 1.5), 3u);
  EXPECT_EQ(nurbs_find_span(one_interior, 2, -0.5), 2u);
  // A doubled interior knot leaves an empty span, which is never returned.
  const std::vector<double> doubled = {0, 0, 0, 0.5, 0.5, 1, 1, 1};
  EXPECT_EQ(nurbs_find_span(doubled, 2, 0.5), 4u);
  EXPECT_EQ(nurbs_find_span(doubled, 2, 0.49), 2u);
}

TEST(nurbs_basis_test, basis_functions_and_derivatives_match_the_closed_form) {
  double values[3], derivatives[3], scratch[9];
  nurbs_basis(one_interior, 2, 2, 0.25, values, scratch);
  EXPECT_DOUBLE_EQ(values[0], 0.25);
  EXPECT_DOUBLE_EQ(values[1], 0.625);
  EXPECT_DOUBLE_EQ(values[2], 0.125);
  // Mirror image on the other span.
  nurbs_basis(one_interior, 3, 2, 0.75, values, scratch);
  EXPECT_DOUBLE_EQ(values[0], 0.125);
  EXPECT_DOUBLE_EQ(values[1], 0.625);
  EXPECT_DOUBLE_EQ(values[2], 0.25);

  nurbs_basis_derivatives(one_interior, 2, 2, 0.25, values, derivatives, scratch);
  EXPECT_DOUBLE_EQ(values[0], 0.25);
  EXPECT_DOUBLE_EQ(values[1], 0.625);
  EXPECT_DOUBLE_EQ(values[2], 0.125);
  EXPECT_DOUBLE_EQ(derivatives[0], -2.0);  // -4 (1 - 2u)
  EXPECT_DOUBLE_EQ(derivatives[1], 1.0);   // 4 - 12u
  EXPECT_DOUBLE_EQ(derivatives[2], 1.0);   // 4u

  // On an uneven cubic knot vector: partition of unity, derivatives summing to
  // zero and agreeing with a central difference of the values.
  const std::vector<double> cubic = {0, 0, 0, 0, 0.1, 0.45, 0.5, 1, 1, 1, 1};
  for (const double u : {0.0, 0.05, 0.3, 0.47, 0.8, 1.0}) {
    const std::size_t span = nurbs_find_span(cubic, 3, u);
    double n[4], d[4], s[12], above[4], below[4];
    nurbs_basis_derivatives(cubic, span, 3, u, n, d, s);
    EXPECT_NEAR(std::accumulate(n, n + 4, 0.0), 1.0, 1e-14) << u;
    EXPECT_NEAR(std::accumulate(d, d + 4, 0.0), 0.0, 1e-12) << u;
    const double h = 1e-6;
    const double low = std::max(u - h, cubic[span]), high = std::min(u + h, cubic[span + 1]);
    nurbs_basis(cubic, span, 3, high, above, s);
    nurbs_basis(cubic, span, 3, low, below, s);
    for (int r = 0; r < 4; ++r) {
      EXPECT_NEAR(d[r], (above[r] - below[r]) / (high - low), 1e-3) << u << " " << r;
    }
    double plain[4];
    nurbs_basis(cubic, span, 3, u, plain, s);
    for (int r = 0; r < 4; ++r) {
      EXPECT_NEAR(plain[r], n[r], 1e-15);
    }
  }
  const double control[4] = {1, 2, 4, 8};
  EXPECT_DOUBLE_EQ(nurbs_combine(std::vector<double>{0.25, 0.625, 0.125}.data(), control, 2, 2),
                   0.25 + 1.25 + 0.5);
  EXPECT_DOUBLE_EQ(nurbs_combine(std::vector<double>{0.125, 0.625, 0.25}.data(), control, 3, 2),
                   0.25 + 2.5 + 2.0);
}

TEST(nurbs_basis_test, centripetal_parameters_use_both_wavelength_and_value) {
  // Distances 4 (a 2.4 nm, 3.2 high step) and 9 between the points: steps 2
  // and 3 of a total of 5.
  const double wavelengths[] = {400.0, 402.4, 411.4};
  const double values[] = {0.0, 3.2, 3.2};
  double parameters[3];
  nurbs_centripetal_parameters(wavelengths, values, 3, parameters);
  EXPECT_DOUBLE_EQ(parameters[0], 0.0);
  EXPECT_NEAR(parameters[1], 0.4, 1e-15);
  EXPECT_EQ(parameters[2], 1.0);
  // Coincident points are spread evenly.
  const double same[] = {5.0, 5.0, 5.0, 5.0};
  double even[4];
  nurbs_centripetal_parameters(same, same, 4, even);
  EXPECT_EQ(std::vector<double>(even, even + 4), (std::vector<double>{0.0, 1.0 / 3, 2.0 / 3, 1.0}));
}

}  // namespace
}  // namespace corv
