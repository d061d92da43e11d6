#include "corv/spectral/nurbs_fit.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "corv/spectral/nurbs_basis.h"

namespace corv {

namespace {

// Half width of the normal equations: a point touches degree + 1 neighbouring
// control points, a second difference three.
std::size_t half_width(unsigned degree) {
  return std::max<std::size_t>(degree, 2);
}

// The lower band of a symmetric matrix: entry (i, j), j <= i <= j + half, at
// band[i * (half + 1) + i - j].
class lower_band {
 public:
  lower_band(double* data, std::size_t half) : data_(data), width_(half + 1) {}
  double& operator()(std::size_t i, std::size_t j) { return data_[i * width_ + (i - j)]; }

 private:
  double* data_;
  std::size_t width_;
};

// The next non-empty span after `span`, or the last span.
std::size_t next_span(const std::vector<double>& knots, std::size_t span, std::size_t last) {
  ++span;
  while (span < last && !(knots[span] < knots[span + 1])) {
    ++span;
  }
  return span;
}

}  // namespace

nurbs_workspace::nurbs_workspace(std::size_t points, unsigned degree)
    : values(points),
      control_wavelengths(points),
      control_values(points),
      read(points),
      span_ends(points + 1),
      trial_wavelengths(points),
      trial_values(points),
      parameters(points),
      band(points * (half_width(degree) + 1)),
      right_wavelengths(points),
      right_values(points),
      basis(degree + 1),
      derivatives(degree + 1),
      scratch(3 * (degree + 1)),
      removal(4 * (degree + 2)) {}

bool nurbs_fit_spectrum(const std::vector<double>& knots, unsigned degree,
                        const double* wavelengths, const double* values, std::size_t points,
                        double smoothing, double* control_wavelengths, double* control_values,
                        nurbs_workspace& work) {
  const std::size_t last = nurbs_control_count(knots, degree) - 1;
  const std::size_t half = half_width(degree);
  double* u = work.parameters.data();
  nurbs_centripetal_parameters(wavelengths, values, points, u);

  std::fill(work.band.begin(), work.band.begin() + (last + 1) * (half + 1), 0.0);
  double* rx = work.right_wavelengths.data();
  double* ry = work.right_values.data();
  std::fill(rx, rx + last + 1, 0.0);
  std::fill(ry, ry + last + 1, 0.0);
  lower_band a(work.band.data(), half);
  double* n = work.basis.data();

  // The end points are kept; every other point adds its row of basis values.
  std::size_t span = nurbs_find_span(knots, degree, 0.0);
  for (std::size_t k = 1; k + 1 < points; ++k) {
    while (span < last && u[k] >= knots[span + 1]) {
      span = next_span(knots, span, last);
    }
    nurbs_basis(knots, span, degree, u[k], n, work.scratch.data());
    const std::size_t first = span - degree;
    for (unsigned r = 0; r <= degree; ++r) {
      rx[first + r] += n[r] * wavelengths[k];
      ry[first + r] += n[r] * values[k];
      for (unsigned c = 0; c <= r; ++c) {
        a(first + r, first + c) += n[r] * n[c];
      }
    }
  }

  double trace = 0.0;
  for (std::size_t i = 1; i < last; ++i) {
    trace += a(i, i);
  }
  const double weight = smoothing * (last > 1 && trace > 0.0 ? trace / double(last - 1) : 1.0);
  const double difference[3] = {1.0, -2.0, 1.0};
  for (std::size_t j = 1; j < last; ++j) {
    for (std::size_t r = 0; r < 3; ++r) {
      for (std::size_t c = 0; c <= r; ++c) {
        a(j - 1 + r, j - 1 + c) += weight * difference[r] * difference[c];
      }
    }
  }

  // The fixed ends move to the right-hand side.
  const double first_x = wavelengths[0], first_y = values[0];
  const double last_x = wavelengths[points - 1], last_y = values[points - 1];
  for (std::size_t i = 1; i < last; ++i) {
    if (i <= half) {
      rx[i] -= a(i, 0) * first_x;
      ry[i] -= a(i, 0) * first_y;
    }
    if (last - i <= half) {
      rx[i] -= a(last, i) * last_x;
      ry[i] -= a(last, i) * last_y;
    }
  }

  // Banded Cholesky factorisation of the unknowns 1 .. last - 1, in place.
  for (std::size_t i = 1; i < last; ++i) {
    const std::size_t from = i > half ? i - half : 1;
    for (std::size_t j = from; j <= i; ++j) {
      double sum = a(i, j);
      for (std::size_t k = from; k < j; ++k) {
        sum -= a(i, k) * a(j, k);
      }
      if (i == j) {
        if (!(sum > 0.0) || !std::isfinite(sum)) {
          return false;
        }
        a(i, i) = std::sqrt(sum);
      } else {
        a(i, j) = sum / a(j, j);
      }
    }
  }
  for (std::size_t i = 1; i < last; ++i) {
    const std::size_t from = i > half ? i - half : 1;
    for (std::size_t k = from; k < i; ++k) {
      rx[i] -= a(i, k) * rx[k];
      ry[i] -= a(i, k) * ry[k];
    }
    rx[i] /= a(i, i);
    ry[i] /= a(i, i);
  }
  for (std::size_t i = last - 1; i >= 1; --i) {
    const std::size_t to = std::min(last - 1, i + half);
    for (std::size_t k = i + 1; k <= to; ++k) {
      rx[i] -= a(k, i) * rx[k];
      ry[i] -= a(k, i) * ry[k];
    }
    rx[i] /= a(i, i);
    ry[i] /= a(i, i);
  }

  control_wavelengths[0] = first_x;
  control_values[0] = first_y;
  control_wavelengths[last] = last_x;
  control_values[last] = last_y;
  for (std::size_t i = 1; i < last; ++i) {
    control_wavelengths[i] = rx[i];
    control_values[i] = ry[i];
  }
  return true;
}

double nurbs_encode_spectrum(const std::vector<double>& knots, unsigned degree,
                             const double* wavelengths, const double* values, std::size_t points,
                             double* control_wavelengths, double* control_values,
                             nurbs_workspace& work) {
  const std::size_t count = nurbs_control_count(knots, degree);
  double largest = 0.0;
  for (std::size_t k = 0; k < points; ++k) {
    largest = std::max(largest, std::fabs(values[k]));
  }
  const double good_enough = 1e-5 * largest;
  double best = std::numeric_limits<double>::infinity();
  double* x = work.trial_wavelengths.data();
  double* y = work.trial_values.data();
  for (const double smoothing : nurbs_smoothing_ladder) {
    if (!nurbs_fit_spectrum(knots, degree, wavelengths, values, points, smoothing, x, y, work)) {
      continue;
    }
    for (std::size_t i = 0; i < count; ++i) {
      x[i] = static_cast<float>(x[i]);
      y[i] = static_cast<float>(y[i]);
    }
    // The parameters of the fit are where the curve should meet each band.
    nurbs_read_spectrum(knots, degree, x, y, wavelengths, points, work.read.data(), work,
                        work.parameters.data());
    double deviation = 0.0;
    for (std::size_t k = 0; k < points; ++k) {
      // Read back as nurbs_evaluate hands it out: a float.
      const double miss = std::fabs(static_cast<float>(work.read[k]) - values[k]);
      if (!(miss <= deviation)) {
        deviation = miss;  // keeps a NaN, which no curve is then chosen for
      }
    }
    if (deviation < best) {
      best = deviation;
      std::copy(x, x + count, control_wavelengths);
      std::copy(y, y + count, control_values);
    }
    if (best <= good_enough) {
      break;
    }
  }
  if (!(best < std::numeric_limits<double>::infinity())) {
    // No curve reads back at all (values that are not finite): hand out the
    // last one tried rather than another spectrum's.
    std::copy(x, x + count, control_wavelengths);
    std::copy(y, y + count, control_values);
  }
  return best;
}

std::size_t nurbs_read_spectrum(const std::vector<double>& knots, unsigned degree,
                                const double* control_wavelengths, const double* control_values,
                                const double* targets, std::size_t count, double* out,
                                nurbs_workspace& work, const double* guesses) {
  const std::size_t last = nurbs_control_count(knots, degree) - 1;
  double* n = work.basis.data();
  double* dn = work.derivatives.data();
  double* scratch = work.scratch.data();
  const double* cx = control_wavelengths;
  const double* cy = control_values;
  const double tolerance = 1e-11 * (std::fabs(cx[0]) + std::fabs(cx[last]) + 1.0);

  // x at the end of every non-empty span, once per curve: the walk below
  // then evaluates the curve only inside the span that brackets a target.
  double* span_end = work.span_ends.data();
  const std::size_t first_span = nurbs_find_span(knots, degree, 0.0);
  for (std::size_t s = first_span; s <= last; s = next_span(knots, s, last)) {
    nurbs_basis(knots, s, degree, knots[s + 1], n, scratch);
    span_end[s] = nurbs_combine(n, cx, s, degree);
  }

  std::size_t span = first_span;
  double a = 0.0;  // where the previous target was found
  double xa = cx[0];
  std::size_t outside = 0;
  for (std::size_t t = 0; t < count; ++t) {
    const double target = targets[t];
    if (!(target > xa)) {
      if (a == 0.0 && target < xa) {
        ++outside;
      }
      nurbs_basis(knots, span, degree, a, n, scratch);
      out[t] = nurbs_combine(n, cy, span, degree);
      continue;
    }
    // Walk the spans until x at a span's end reaches the target.
    while (span_end[span] < target && span < last) {
      a = knots[span + 1];
      xa = span_end[span];
      span = next_span(knots, span, last);
    }
    if (span_end[span] < target) {
      ++outside;
      out[t] = cy[last];
      continue;
    }
    const double b = knots[span + 1], xb = span_end[span];
    // x(a) < target <= x(b) inside one span: Newton, kept in the bracket.
    double low = a, high = b;
    double u = guesses != nullptr && guesses[t] > low && guesses[t] < high
                   ? guesses[t]
                   : low + (high - low) * (target - xa) / (xb - xa);
    for (int iteration = 0; iteration < 100; ++iteration) {
      nurbs_basis_derivatives(knots, span, degree, u, n, dn, scratch);
      const double f = nurbs_combine(n, cx, span, degree) - target;
      if (std::fabs(f) <= tolerance) {
        break;
      }
      if (f < 0.0) {
        low = u;
      } else {
        high = u;
      }
      const double slope = nurbs_combine(dn, cx, span, degree);
      double next = slope > 0.0 ? u - f / slope : low;
      if (!(next > low && next < high)) {
        next = 0.5 * (low + high);
      }
      if (!(high - low > 1e-15)) {
        u = next;
        break;
      }
      u = next;
    }
    nurbs_basis(knots, span, degree, u, n, scratch);
    out[t] = nurbs_combine(n, cy, span, degree);
    a = u;
    xa = nurbs_combine(n, cx, span, degree);
  }
  return outside;
}

double nurbs_removal_error(const std::vector<double>& knots, unsigned degree,
                           const double* control_wavelengths, const double* control_values,
                           std::size_t knot_index, nurbs_workspace& work) {
  const double infinite = std::numeric_limits<double>::infinity();
  const std::size_t r = knot_index;
  const double u = knots[r];
  std::size_t copies = 1;
  while (copies < r && knots[r - copies] == u) {
    ++copies;
  }
  if (copies > degree || r < degree + 1) {
    return infinite;
  }
  // Removing u changes the control points first .. last into last - first new
  // ones, Q[first] .. Q[last - 1]; Q[first - 1] and Q[last] are the old points
  // first - 1 and last + 1. Inserting u back must give the old points:
  //   P[i] = alpha_i Q[i] + (1 - alpha_i) Q[i - 1], first <= i <= last,
  // one equation more than unknowns. Q[k] is kept at index k - offset.
  const std::size_t first = r - degree, last = r - copies;
  const std::size_t offset = first - 1;
  const std::size_t row = degree + 2;
  double* left_x = work.removal.data();
  double* left_y = left_x + row;
  double* right_x = left_y + row;
  double* right_y = right_x + row;
  const double* px = control_wavelengths;
  const double* py = control_values;
  auto alpha = [&](std::size_t i) { return (u - knots[i]) / (knots[i + degree + 1] - knots[i]); };
  left_x[0] = px[offset];
  left_y[0] = py[offset];
  right_x[last + 1 - offset] = px[last + 1];
  right_y[last + 1 - offset] = py[last + 1];
  std::size_t i = first, j = last;
  while (j > i) {
    const double ai = alpha(i), aj = alpha(j);
    left_x[i - offset] = (px[i] - (1.0 - ai) * left_x[i - 1 - offset]) / ai;
    left_y[i - offset] = (py[i] - (1.0 - ai) * left_y[i - 1 - offset]) / ai;
    right_x[j - offset] = (px[j] - aj * right_x[j + 1 - offset]) / (1.0 - aj);
    right_y[j - offset] = (py[j] - aj * right_y[j + 1 - offset]) / (1.0 - aj);
    ++i;
    --j;
  }
  // right_x[k - offset + 1] holds Q[k] from the right: the right side's
  // indexes run one ahead, as equation j gives Q[j - 1].
  double dx = 0.0, dy = 0.0;
  if (j < i) {
    // Both sides computed Q[i - 1].
    dx = left_x[i - 1 - offset] - right_x[i - offset];
    dy = left_y[i - 1 - offset] - right_y[i - offset];
  } else {
    // Equation i is the one left over.
    const double ai = alpha(i);
    dx = px[i] - (ai * right_x[i + 1 - offset] + (1.0 - ai) * left_x[i - 1 - offset]);
    dy = py[i] - (ai * right_y[i + 1 - offset] + (1.0 - ai) * left_y[i - 1 - offset]);
  }
  const double chord_x = px[last + 1] - px[offset];
  const double chord_y = py[last + 1] - py[offset];
  if (!(chord_x > 0.0)) {
    return infinite;
  }
  return std::fabs(dy - chord_y / chord_x * dx);
}

}  // namespace corv
