#ifndef CORV_SPECTRAL_NURBS_FIT_H
#define CORV_SPECTRAL_NURBS_FIT_H

#include <cstddef>
#include <vector>

namespace corv {

// One spectrum as a curve: the points (wavelength, value) of its bands are
// fitted by a clamped curve C(u) = (x(u), y(u)) on a given knot vector, and the
// curve is read back at a wavelength w by finding the u with x(u) = w and
// taking y(u). The control points live in two arrays, their wavelengths and
// their values.

// The scratch space of one thread, sized once for spectra of up to `points`
// bands and curves of the degree, then reused for every spectrum (no heap
// allocation per spectrum). The drivers over a cube also keep a spectrum and
// its control points here.
struct nurbs_workspace {
  nurbs_workspace(std::size_t points, unsigned degree);

  std::vector<double> values;               // one spectrum
  std::vector<double> control_wavelengths;  // its control points
  std::vector<double> control_values;
  std::vector<double> read;               // the curve read at the wavelengths
  std::vector<double> span_ends;          // x at the end of each knot span
  std::vector<double> trial_wavelengths;  // a fit being tried
  std::vector<double> trial_values;
  std::vector<double> parameters;
  std::vector<double> band;  // the banded normal equations
  std::vector<double> right_wavelengths;
  std::vector<double> right_values;
  std::vector<double> basis;
  std::vector<double> derivatives;
  std::vector<double> scratch;
  std::vector<double> removal;  // four rows of degree + 2 points
};

// Fits the curve of the degree on the knots to the points (wavelengths[k],
// values[k]), k < points, at their centripetal parameters (the wavelengths
// strictly increasing, at least as many points as control points). The curve
// starts exactly at the first point and ends at the last; its other control
// points minimise the sum over the other points of the squared distance
// between the point and the curve at its parameter, plus `smoothing` times the
// mean diagonal of those equations times the sum of the squared second
// differences of the control points. With as many control points as points
// and a vanishing smoothing the curve interpolates the points. Smoothing
// matters when the knots, shared by many spectra, do not suit this spectrum's
// parameters: a control point whose basis function covers few or none of them
// then follows its neighbours instead of swinging far out.
// The normal equations are banded (half width max(degree, 2)) and solved by
// a banded Cholesky factorisation. Returns false when that breaks down (data
// that are not finite).
bool nurbs_fit_spectrum(const std::vector<double>& knots, unsigned degree,
                        const double* wavelengths, const double* values, std::size_t points,
                        double smoothing, double* control_wavelengths, double* control_values,
                        nurbs_workspace& work);

// The smoothing weights nurbs_encode_spectrum tries, in order.
constexpr double nurbs_smoothing_ladder[] = {1e-9, 1e-6, 1e-4, 1e-2, 1e-1, 1.0};

// Encodes a spectrum as a curve on the knots: fits it with each smoothing of
// the ladder in turn, rounds the control points to 32-bit floats (as they are
// stored), reads the curve back at the wavelengths (rounded to floats, as
// nurbs_evaluate hands it out) and keeps the curve with the smallest largest
// deviation from the values; stops at the first curve that
// deviates by at most 1e-5 of the spectrum's largest magnitude (all a float
// control point can promise). A spectrum that the knots suit is thus
// interpolated at the cost of one fit; the others get the smoothing that
// serves them best. Returns that largest deviation (infinite when no fit
// succeeded).
double nurbs_encode_spectrum(const std::vector<double>& knots, unsigned degree,
                             const double* wavelengths, const double* values, std::size_t points,
                             double* control_wavelengths, double* control_values,
                             nurbs_workspace& work);

// Reads the curve at each target wavelength (ascending): out[t] = y(u) with
// x(u) = targets[t]. The knot spans are walked from the previous target's u
// until x at a span's end reaches the target; inside that span Newton's method,
// kept inside the bracket by bisection, finds u. Where x is not monotonic this
// takes the first crossing after the previous target. A target below x(0) or
// above x(1) takes the value of that end; returns how many targets did.
// `guesses`, when given, are the u where each target is expected (the
// parameters of the fit when reading at its own wavelengths): Newton starts
// there when the guess lies in the bracket.
std::size_t nurbs_read_spectrum(const std::vector<double>& knots, unsigned degree,
                                const double* control_wavelengths, const double* control_values,
                                const double* targets, std::size_t count, double* out,
                                nurbs_workspace& work, const double* guesses = nullptr);

// Estimates the change, in value at a fixed wavelength, of removing one copy of
// the interior knot knots[knot_index] (the last copy of its value). The knot
// removal equations are solved for the new control points from both ends; where
// the two solutions meet they disagree by a vector d (zero when the knot can be
// removed without changing the curve), and the estimate is the part of d across
// the curve: |d.value - s d.wavelength| with s the slope of the chord between
// the two control points that removal leaves in place around the change.
// Infinite when that chord does not rise in wavelength.
double nurbs_removal_error(const std::vector<double>& knots, unsigned degree,
                           const double* control_wavelengths, const double* control_values,
                           std::size_t knot_index, nurbs_workspace& work);

}  // namespace corv

#endif
