#ifndef CORV_ANALYSIS_RESAMPLE_ENDMEMBERS_H
#define CORV_ANALYSIS_RESAMPLE_ENDMEMBERS_H

#include "corv/io/types.h"

namespace corv {

// Resamples reference spectra (one per row of `spectra`, sampled at
// `spectra_waves`) onto `wavelengths`: every reference is interpolated by a
// NURBS curve through its points (wavelength, value) and the curve is read at
// each wavelength. The result has one row per reference and one column per
// wavelength.
//
// The curve is a cubic (fewer than 4 points: of degree points - 1) with unit
// weights, fitted by global interpolation with its parameters proportional to
// wavelength and its knots placed by averaging those parameters. As the
// wavelength coordinate of such a curve is then exactly linear in the
// parameter, the curve is a function of wavelength and can be read at any
// wavelength directly. A wavelength outside the references' range takes the
// value at the nearest end; the count of such wavelengths is logged.
//
// Throws "resample_endmembers: Incorrect dimensions." when the spectra do not
// have one value per spectra wave, and "resample_endmembers: NURBS
// interpolation failed somehow!" when no curve can be fitted: fewer than 2
// points, spectra waves that do not strictly increase, a wavelength or a value
// that is not a finite number.
matrix resample_endmembers(const matrix& spectra, const vector& spectra_waves,
                           const vector& wavelengths);

}  // namespace corv

#endif
