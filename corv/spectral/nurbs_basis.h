#ifndef CORV_SPECTRAL_NURBS_BASIS_H
#define CORV_SPECTRAL_NURBS_BASIS_H

#include <cstddef>
#include <vector>

namespace corv {

// B-spline building blocks. Every curve here is clamped on [0, 1]: its knot
// vector U does not decrease, starts with degree + 1 zeros and ends with
// degree + 1 ones, and the curve has U.size() - degree - 1 control points. All
// weights are 1, so a NURBS curve is a B-spline curve.

// The number of control points of a curve of that degree on those knots.
inline std::size_t nurbs_control_count(const std::vector<double>& knots, unsigned degree) {
  return knots.size() - degree - 1;
}

// The knot span of u: the index i (degree <= i <= last control point) with
// U[i] <= u < U[i + 1]; u at or above 1 lies in the last non-empty span, u at
// or below 0 in the first.
std::size_t nurbs_find_span(const std::vector<double>& knots, unsigned degree, double u);

// The degree + 1 basis functions that can be non-zero in the span, at u:
// values[r] = N(span - degree + r)(u). Needs `scratch` of 2 (degree + 1) doubles.
inline void nurbs_basis(const std::vector<double>& knots, std::size_t span, unsigned degree,
                        double u, double* values, double* scratch);

// The same basis functions and their first derivatives at u. Needs `scratch`
// of 3 (degree + 1) doubles.
inline void nurbs_basis_derivatives(const std::vector<double>& knots, std::size_t span,
                                    unsigned degree, double u, double* values, double* derivatives,
                                    double* scratch);

// One coordinate of the curve at u given the basis values of its span:
// sum of values[r] x control[span - degree + r].
inline double nurbs_combine(const double* values, const double* control, std::size_t span,
                            unsigned degree);

// Centripetal parameters of the points (wavelengths[k], values[k]): the step
// from point k to k + 1 is ((value difference)^2 + (wavelength difference)^2)
// raised to the power 0.25; the steps are accumulated and divided by their
// total, so that the first point has parameter 0 and the last exactly 1.
// Points that all coincide get evenly spaced parameters.
void nurbs_centripetal_parameters(const double* wavelengths, const double* values,
                                  std::size_t count, double* parameters);

// The knot vector with which a curve of that degree (at least 1) interpolates
// one point per parameter (at least degree + 1 parameters, rising from 0 to 1):
// clamped, with
// the interior knot j (1 <= j <= count - 1 - degree) the average of the
// parameters j to j + degree - 1. Every basis function then peaks near "its"
// parameter, which keeps the interpolation system well conditioned.
std::vector<double> nurbs_averaged_knots(const std::vector<double>& parameters, unsigned degree);

// The three functions above run in the innermost loops of fitting and
// reading curves, so they are defined here, where the compiler can inline them.

inline void nurbs_basis(const std::vector<double>& knots, std::size_t span, unsigned degree,
                        double u, double* values, double* scratch) {
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

inline void nurbs_basis_derivatives(const std::vector<double>& knots, std::size_t span,
                                    unsigned degree, double u, double* values, double* derivatives,
                                    double* scratch) {
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

inline double nurbs_combine(const double* values, const double* control, std::size_t span,
                            unsigned degree) {
  const double* first = control + (span - degree);
  double sum = 0.0;
  for (unsigned r = 0; r <= degree; ++r) {
    sum += values[r] * first[r];
  }
  return sum;
}

}  // namespace corv

#endif
