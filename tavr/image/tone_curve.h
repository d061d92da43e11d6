#ifndef TAVR_IMAGE_TONE_CURVE_H
#define TAVR_IMAGE_TONE_CURVE_H

#include "corv/io/types.h"

namespace tavr {

// The picture's tone curve, in place: a negative minimum is first lifted to 0,
// then every element x becomes 255 sin(k x) with k = (pi/2) / max, so that 0
// stays 0, the maximum becomes 255 and dark values are raised. An empty cube
// throws Armadillo's "Cube::min(): object has no elements".
void apply_sine_tone_curve(corv::cube& channels);

}  // namespace tavr

#endif
