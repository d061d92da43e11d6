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

// The split of one pixel: R = g * S + k, with R the pixel's spectrum divided by
// the illuminant.
struct dichromatic_factors {
  float k = 0.0f;  // specular coefficient
  float g = 0.0f;  // shading factor
};

// Splits one spectrum R (= I / L) into the specular and shading factors against
// the local diffuse direction (the summed unit spectra of its neighbourhood; any
// positive multiple will do): the least-squares combination of that direction
// and a flat spectrum, in R's own units. A negative diffuse share, a direction
// (nearly) parallel to the flat spectrum or a zero direction leave the pixel all
// diffuse: k = 0 and g = |R|.
dichromatic_factors split_dichromatic(const vector& R, const vector& diffuse);

}  // namespace corv

#endif
