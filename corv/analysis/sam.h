#ifndef CORV_ANALYSIS_SAM_H
#define CORV_ANALYSIS_SAM_H

#include "corv/io/image_view.h"
#include "corv/io/types.h"

namespace corv {

// Spectral angle mapper: ranks the reference spectra (one per row of `spectra`)
// by their angle with every pixel spectrum of I. `values` and `indexes` become
// rows x columns x k cubes: the angles in degrees of the k best references,
// best first, and their reference numbers (1-based, as floats). k below 1 or
// above the number of spectra becomes the smaller of 5 and that number.
// Equal angles keep the lower reference number first. A pixel of length zero
// has NaN angles and the references in their own order.
//
// The inputs are checked and the bands aligned as prepare_classification
// describes, with "sam" naming the routine in its messages. The logger's
// progress follows the rows and an abort request stops the work with
// "Processing was aborted!"; on any failure values and indexes are unchanged.
void sam(const cube& I, const vector& wavelengths, const matrix& spectra,
         const vector& spectra_waves, cube& values, cube& indexes, int k);

// The same on pixels lying in memory of either layout, read where they are.
void sam(const image_view& I, const vector& wavelengths, const matrix& spectra,
         const vector& spectra_waves, cube& values, cube& indexes, int k);

}  // namespace corv

#endif
