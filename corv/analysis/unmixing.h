#ifndef CORV_ANALYSIS_UNMIXING_H
#define CORV_ANALYSIS_UNMIXING_H

#include "corv/io/image_view.h"
#include "corv/io/types.h"

namespace corv {

// Expresses every pixel spectrum of I as a mixture of its k best-matching
// reference spectra (one per row of `spectra`): the references are ranked by
// spectral angle as sam ranks them, the pixel is solved as a non-negative
// combination of the k best (nnls), and the weights are divided by their sum.
// `fractions` and `indexes` become rows x columns x k cubes: the fractions in
// the order of the ranking and the reference numbers (1-based, as floats). k
// below 1 or above the number of spectra becomes the smaller of 5 and that
// number. A pixel that no reference explains (every weight 0, for instance a
// pixel of zeros) has NaN fractions.
//
// The inputs are checked and the bands aligned as prepare_classification
// describes, with "unmix_by_spectra" naming the routine in its messages. The
// logger's progress follows the rows and an abort request stops the work with
// "Processing was aborted!"; on any failure fractions and indexes are unchanged.
void unmix_by_spectra(const cube& I, const vector& wavelengths, const matrix& spectra,
                      const vector& spectra_waves, cube& fractions, cube& indexes, int k);

// The same on pixels lying in memory of either layout, read where they are.
void unmix_by_spectra(const image_view& I, const vector& wavelengths, const matrix& spectra,
                      const vector& spectra_waves, cube& fractions, cube& indexes, int k);

}  // namespace corv

#endif
