#ifndef CORV_ANALYSIS_CLASSIFICATION_PREAMBLE_H
#define CORV_ANALYSIS_CLASSIFICATION_PREAMBLE_H

#include <string>

#include "corv/io/types.h"

namespace corv {

// What sam, svm and unmix_by_spectra work on once their inputs are checked:
// the image (the caller's, or a copy without the bands the references lack)
// and the references sampled at the image's bands, one per row.
class classification_inputs {
 public:
  classification_inputs(const cube& original, cube reduced, matrix references)
      : original_(&original), reduced_(std::move(reduced)), references_(std::move(references)) {}

  const cube& image() const { return reduced_.empty() ? *original_ : reduced_; }
  const matrix& references() const { return references_; }

 private:
  const cube* original_;
  cube reduced_;
  matrix references_;
};

// The checks and the band alignment the three routines share. Every refusal is
// logged and thrown as "<routine>: <reason>":
//   "Data size is incorrect."                 I has no rows, columns or bands
//   "Spectra are required"                    spectra has no row
//   "Wavelengths must have same bands as I"   one wavelength per band is needed
//   "Data size is incorrect: spectra waves must be given for resize."
//                                             no spectra waves, and spectra of
//                                             another length than the bands
// With spectra waves of another count than the bands, the image bands whose
// wavelength has no spectra wave within single-precision machine epsilon
// (1.1920929e-07; in nm, the same float) are left out of a working copy. Fewer
// than 2 kept bands throw "unmix_by_spectra: No matching image bands between
// image and library." whatever the routine; kept wavelengths that are not the
// spectra waves one for one throw "<routine>: For some reason, could not align
// data."; otherwise "Data matches after band removal." is logged. With spectra
// waves, the spectra are then resampled onto the (kept) wavelengths by
// resample_endmembers, whose own messages pass through unchanged.
//
// align_references makes the same checks and alignment on an image's size
// alone, for callers that read the image in parts: it tells which bands take
// part (none listed: all of them) and gives the references sampled at them.
struct aligned_references {
  band_list kept;
  matrix references;
};
aligned_references align_references(const std::string& routine, arma::uword rows, arma::uword cols,
                                    arma::uword bands, const vector& wavelengths,
                                    const matrix& spectra, const vector& spectra_waves);
classification_inputs prepare_classification(const std::string& routine, const cube& I,
                                             const vector& wavelengths, const matrix& spectra,
                                             const vector& spectra_waves);

// The number of results per pixel: k, unless it is below 1 or above the number
// of spectra, when it becomes the smaller of 5 and the number of spectra.
arma::uword result_count(int k, arma::uword spectra);

}  // namespace corv

#endif
