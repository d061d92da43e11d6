#include "corv/spectral/nurbs_basis.h"

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
