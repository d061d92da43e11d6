#ifndef TAVR_IMAGE_CONTRAST_STRETCH_H
#define TAVR_IMAGE_CONTRAST_STRETCH_H

#include "corv/io/types.h"

namespace tavr {

// The value below which `fraction` (0..1) of the values lie: the element at
// position round(fraction x (n - 1)) of the sorted values. NaN for no values.
float cumulative_cutoff(corv::vector values, double fraction);

// Contrast enhancement, in place: each channel (slice) is stretched linearly so
// that its value at the `low` fraction of its cumulative distribution becomes
// 0 and the value at the `high` fraction 255, clamped to 0..255. Only pixels
// where `keep` (rows x columns) is non-zero count towards the distribution and
// are changed; the others are set to 0. A channel whose two cut-off values are
// equal keeps its values (the ignored pixels still become 0).
void stretch_contrast(corv::cube& channels, const arma::umat& keep, double low, double high);

}  // namespace tavr

#endif
