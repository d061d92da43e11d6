#ifndef CORV_PIPELINE_DICHROMATIC_H
#define CORV_PIPELINE_DICHROMATIC_H

#include "corv/io/types.h"

namespace corv {

// Settings of dichromatic parameter recovery (the pipeline's defaults).
struct dichromatic_parameters {
  int method = 0;              // only 0 exists
  int neighbourhood_size = 5;  // the neighbourhood is (2n + 1) pixels square
  int gray_threshold = 2;      // degrees from a flat spectrum; below 0 means 2
};

// Splits every pixel of I under I = g * S * L + k * L into the specular
// coefficient k (height x width), the shading factor g (height x width) and the
// reflectance s (height x width x bands). The illuminant is one spectrum for the
// whole image (bands) or one per pixel (a cube of I's size).
void recover_dichromatic_parameters(const cube& I, const vector& illuminant,
                                    const vector& wavelengths,
                                    const dichromatic_parameters& settings, int verbosity,
                                    matrix& k, matrix& g, cube& s);
void recover_dichromatic_parameters(const cube& I, const cube& illuminant,
                                    const vector& wavelengths,
                                    const dichromatic_parameters& settings, int verbosity,
                                    matrix& k, matrix& g, cube& s);

}  // namespace corv

#endif
