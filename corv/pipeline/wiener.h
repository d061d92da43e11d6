#ifndef CORV_PIPELINE_WIENER_H
#define CORV_PIPELINE_WIENER_H

#include "corv/io/types.h"

namespace corv {

// Adaptive Wiener filter of one band image over a window of rows x cols pixels
// centred on each pixel. Outside the image counts as zero, and every window sum
// is divided by the window's full area. The noise is estimated as the mean local
// variance of the band.
matrix wiener_filter(const matrix& band, int window_rows, int window_cols);

// Sum over the window centred on each pixel (zero outside), in time independent
// of the window size. For an even size the window reaches one pixel further
// forwards than backwards.
matrix window_sums(const matrix& values, int window_rows, int window_cols);

}  // namespace corv

#endif
