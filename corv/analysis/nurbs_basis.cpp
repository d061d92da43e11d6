#include "corv/analysis/nurbs_basis.h"

#include <algorithm>
#include <cmath>

namespace corv {

std::size_t nurbs_find_span(const std::vector<double>& knots, unsigned degree, double u) {
  const std::size_t last = nurbs_control_count(knots, degree) - 1;
  if (u >= knots[last + 1]) {
    std::size_t span = last;
    while (span > degree && !(knots[span] < knots[span + 1])) {
      --span;
    }
    return span;
  }
  if (u <= knots[degree]) {
    std::size_t span = degree;
    while (span < last && !(knots[span] < knots[span + 1])) {
      ++span;
    }
    return span;
  }
  // The first knot above u closes the span; it lies in U[degree + 1 .. last + 1].
  const auto above = std::upper_bound(knots.begin() + degree, knots.begin() + last + 2, u);
  return static_cast<std::size_t>(above - knots.begin()) - 1;
}

void nurbs_basis(const std::vector<double>& knots, std::size_t span, unsigned degree, double u,
                 double* values, double* scratch) {
  double* left = scratch;
  double* right = scratch + degree + 1;
  values[0] = 1.0;
  for (unsigned j = 1; j <= degree; ++j) {
    left[j] = u - knots[span + 1 - j];
    right[j] = knots[span + j] - u;
    double saved = 0.0;
    for (unsigned r = 0; r < j; ++r) {
      const double term = values[r] / (right[r + 1] + left[j - r]);
      values[r] = saved + right[r + 1] * term;
      saved = left[j - r] * term;
    }
    values[j] = saved;
  }
}

void nurbs_basis_derivatives(const std::vector<double>& knots, std::size_t span, unsigned degree,
                             double u, double* values, double* derivatives, double* scratch) {
  if (degree == 0) {
    values[0] = 1.0;
    derivatives[0] = 0.0;
    return;
  }
  // The functions of one degree less on the same span give both the functions
  // and their derivatives by one more step of the recurrence.
  double* lower = scratch + 2 * (degree + 1);
  nurbs_basis(knots, span, degree - 1, u, lower, scratch);
  for (unsigned r = 0; r <= degree; ++r) {
    const std::size_t i = span - degree + r;
    const double below = r >= 1 ? lower[r - 1] : 0.0;  // N(i, degree - 1)
    const double above = r < degree ? lower[r] : 0.0;  // N(i + 1, degree - 1)
    const double rise = knots[i + degree] - knots[i];  // support of N(i, degree - 1)
    const double fall = knots[i + degree + 1] - knots[i + 1];
    const double from_below = rise > 0.0 ? below / rise : 0.0;
    const double from_above = fall > 0.0 ? above / fall : 0.0;
    values[r] = (u - knots[i]) * from_below + (knots[i + degree + 1] - u) * from_above;
    derivatives[r] = degree * (from_below - from_above);
  }
}

double nurbs_combine(const double* values, const double* control, std::size_t span,
                     unsigned degree) {
  const double* first = control + (span - degree);
  double sum = 0.0;
  for (unsigned r = 0; r <= degree; ++r) {
    sum += values[r] * first[r];
  }
  return sum;
}

void nurbs_centripetal_parameters(const double* wavelengths, const double* values,
                                  std::size_t count, double* parameters) {
  if (count == 0) {
    return;
  }
  parameters[0] = 0.0;
  for (std::size_t k = 1; k < count; ++k) {
    const double dv = values[k] - values[k - 1];
    const double dw = wavelengths[k] - wavelengths[k - 1];
    parameters[k] = parameters[k - 1] + std::sqrt(std::sqrt(dv * dv + dw * dw));
  }
  const double total = parameters[count - 1];
  for (std::size_t k = 1; k + 1 < count; ++k) {
    parameters[k] = total > 0.0 ? parameters[k] / total
                                : static_cast<double>(k) / static_cast<double>(count - 1);
  }
  if (count > 1) {
    parameters[count - 1] = 1.0;
  }
}

std::vector<double> nurbs_averaged_knots(const std::vector<double>& parameters, unsigned degree) {
  const std::size_t points = parameters.size();
  std::vector<double> knots(points + degree + 1, 0.0);
  std::fill(knots.end() - (degree + 1), knots.end(), 1.0);
  for (std::size_t j = 1; j + degree < points; ++j) {
    double sum = 0.0;
    for (std::size_t i = j; i < j + degree; ++i) {
      sum += parameters[i];
    }
    knots[j + degree] = sum / degree;
  }
  return knots;
}

}  // namespace corv
