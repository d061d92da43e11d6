#ifndef CORV_SPECTRAL_NURBS_H
#define CORV_SPECTRAL_NURBS_H

#include <cstddef>
#include <cstdint>

#include "corv/io/types.h"

namespace corv {

// The spectral codecs sit beneath the file formats, which store their results:
// they use nothing of the library but its types and its logger.
//
// Spectra compressed as NURBS curves (all weights 1). Every spectrum of an image
// becomes a clamped curve C(u) = (wavelength(u), value(u)), u in [0, 1], of one
// degree, on one knot vector shared by all pixels, so that a pixel is stored as
// its control points only. Reading a pixel back at a wavelength w finds the u
// with wavelength(u) = w and takes value(u).

// The control points of the curves of an image: point i of pixel (r, c) lies at
// (wavelengths(r, c, i), values(r, c, i)).
struct nurbs_control_points {
  cube wavelengths;
  cube values;
};

// The knot vector that lets a curve of the degree interpolate every band of a
// spectrum: the centripetal parameters (see nurbs_global_interpolation) are
// averaged over the pixels of I and J, band by band, and the interior knots
// are averages of degree consecutive mean parameters, giving bands + degree + 1
// knots. Stored as 32-bit floats, so that the knots handed out are exactly the
// knots used.
vector nurbs_interpolation_knots(const cube& I, const cube& J, const vector& wavelengths,
                                 std::uint32_t degree);

// Fits, for every pixel of I and of J, a curve of the degree through its
// spectrum on the knots. Each pixel gets its own parameters, by the centripetal
// rule over its points (wavelength, value): the step between bands b and b + 1
// is ((value difference)^2 + (wavelength difference)^2)^0.25, the steps are
// accumulated and divided by their total. On a knot vector with as many control
// points as bands the curve interpolates the spectrum; on fewer it is the least
// squares fit that keeps the first and the last band exactly (see
// nurbs_fit_spectrum). J is a companion image whose spectra the same knots must
// serve; it may have no pixels.
// Logs "Beginning NURBS global interpolation..." and "Completed NURBS global
// interpolation!". Throws "nurbs_global_interpolation: Mismatch in data size"
// when I has no pixel or band, J or the wavelengths do not match I's bands, the
// knot vector is shorter than 2 (degree + 1) or has more control points than I
// has bands; "nurbs_global_interpolation: Knot vector is not clamped to [0, 1]
// or decreases." for a knot vector that does not start with degree + 1 zeros,
// end with degree + 1 ones and never decrease; "nurbs_global_interpolation:
// Wavelengths must be finite and strictly increasing."; and
// "nurbs_global_interpolation: Data contains values that are not finite."
void nurbs_global_interpolation(const cube& I, const cube& J, const vector& wavelengths,
                                const vector& knots, std::uint32_t degree,
                                nurbs_control_points& I_points, nurbs_control_points& J_points);

// Removes interior knots while every spectrum of I and J, read back from its
// curve at the band wavelengths, stays within alpha x (largest - smallest value
// of I and J) of every band. The points must be the fit of I and J on the knots
// (nurbs_global_interpolation); on return they are the fit on the knots left.
// It works in rounds, until a round removes nothing:
//   1. Every distinct interior knot is a candidate. For each, the removal error
//      of every curve is estimated (nurbs_removal_error) and its largest value
//      over the pixels ranks the candidate; smaller goes first.
//   2. The first k candidates are removed together, every curve is fitted
//      again on the knots left and read back, and the largest deviation from
//      the data decides: k starts at all candidates and is then found by
//      bisection as the largest count that stays within the bound. The refit
//      usually does better than the estimates, which is why they only rank;
//      the next round ranks again on the refitted curves.
// Logs "nurbs_minimal_knots: Beginning knot removal.", then for every round
// "nurbs_minimal_knots: Removed a knot: <knot>" for each knot it removed, in
// ascending order, until the round that ends the removal logs why:
// "nurbs_minimal_knots: No candidate knots detected!" when no interior knot is
// left, or "nurbs_minimal_knots: No knot can be removed within the error bound
// <bound>." when even the best candidate alone exceeds it; finally
// "nurbs_minimal_knots: Finished Knot Removal!". Returns the number of knots
// removed. Throws "nurbs_minimal_knots: Data size is incorrect." when the
// wavelengths, J or the points do not match I and the knots (or I has no pixel
// or band), "nurbs_minimal_knots: Knot vector is not clamped to [0, 1] or
// decreases." and "nurbs_minimal_knots: Wavelengths must be finite and strictly
// increasing."; the abort request is honoured between refits. On failure the
// knots and points are left as they were.
std::size_t nurbs_minimal_knots(const cube& I, const cube& J, const vector& wavelengths,
                                vector& knots, std::uint32_t degree, float alpha,
                                nurbs_control_points& I_points, nurbs_control_points& J_points);

// Compresses the spectra of I into curves on one shared knot vector: starting
// from the interpolation knots, it repeats at most `iterations` passes of
// nurbs_global_interpolation and nurbs_minimal_knots, and stops early when the
// number of knots is at or below the knot threshold or a pass removes no knot.
// As a pass removes every knot it can, a further pass only confirms that
// nothing more can go: the passes matter for the threshold, which ends the run
// after the first pass when met. J takes part in every fit and every removal
// decision, so the knots serve its spectra as well; its own curves are fitted
// on the returned knots with nurbs_global_interpolation.
// Parameters, in this order: a degree below 2 becomes 2; a knot threshold of
// 0xFFFFFFFF (-1) means bands - 2, below 1 becomes 1; iterations below 1 become
// 10; an alpha above 1, below 0 or not a number becomes 0.1. With verbosity
// above 2 the parameters are logged ("Generating Nurbs. Parameters~",
// "Polynomial Degree: ", "Knot Threshold:    ", "Iterations:        ",
// "Alpha:             ") and each pass logs its share of the iterations as
// "<percent>% complete" and sets the logger's progress. The abort request is
// honoured between passes. Finally logs "Final number of knots: <count>".
// On return `knots` holds the knot vector and `points` the control points of
// I's pixels, such that nurbs_evaluate(knots, points, degree, wavelengths)
// reproduces I within alpha x its range (unless the interpolation itself
// misses by more, in which case no knot is removed).
// Throws "generate_nurbs: Data size is incorrect." (after logging it) when I
// has no row, column or band, J has another number of bands or the
// wavelengths do not match; "generate_nurbs: Degree <d> needs at least <d + 1>
// bands."; "generate_nurbs: Wavelengths must be finite and strictly
// increasing."; "generate_nurbs: Data contains values that are not finite."
// On failure the outputs are left untouched.
void generate_nurbs(const cube& I, const cube& J, const vector& wavelengths, vector& knots,
                    nurbs_control_points& points, std::uint32_t degree,
                    std::uint32_t knot_threshold, float alpha, int iterations, int verbosity);

// Reads every pixel's curve back at the wavelengths (finite, strictly
// increasing): one band per wavelength. A wavelength outside a curve's range
// takes the value at that end (nurbs_read_spectrum), but only within a
// thousandth of the range: further out it throws "nurbs_evaluate: Wavelength
// <w> lies outside the curves' range <first> - <last>." Also throws
// "nurbs_evaluate: Data size is incorrect." when the two cubes of points differ
// in size or do not have knots - degree - 1 points of at least degree + 1,
// "nurbs_evaluate: Knot vector is not clamped to [0, 1] or decreases." and
// "nurbs_evaluate: Wavelengths must be finite and strictly increasing."
cube nurbs_evaluate(const vector& knots, const nurbs_control_points& points, std::uint32_t degree,
                    const vector& wavelengths);

}  // namespace corv

#endif
