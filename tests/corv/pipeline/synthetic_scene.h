#ifndef CORV_TESTS_PIPELINE_SYNTHETIC_SCENE_H
#define CORV_TESTS_PIPELINE_SYNTHETIC_SCENE_H

// Ground-truth scenes for the illuminant fit: images rendered under the
// dichromatic model I = (g * S + k) * L from real laboratory reflectances
// (USGS splib07 and ECOSTRESS, read from the shared data folder) and lights
// whose values are known exactly.

#include "corv/io/types.h"

namespace corv::test {

struct scene {
  cube I;             // height x width x bands, 12-bit sensor counts
  vector illuminant;  // L as rendered
};

// The scenes' wavelength grid: 33 bands, 400 to 720 nm every 10 nm.
vector scene_wavelengths();
// CIE standard illuminant D65 on scene_wavelengths() (560 nm = 100).
vector cie_d65();
// CIE standard illuminant A (Planck's law at 2848 K with c2 = 1.435e-2 m K).
vector cie_a(const vector& wavelengths);
// A black body at the given temperature (560 nm = 100), c2 = h c / k exactly.
vector planck(double kelvin, const vector& wavelengths);

// 120 x 120 x 33 on 40-pixel tiles of nine materials, a shading dome on every
// tile and a highlight centred in every 20-pixel cell, so that every patch of
// that grid holds specular variation; the brightest sample at 80 % of the full
// scale.
scene specular_scene(const vector& illuminant);
// The specular scene with Gaussian noise of `sigma` counts (the same on every
// platform), clipped at 0 and the full scale.
scene noisy_scene(const vector& illuminant, float sigma);
// The specular scene with a second highlight, clipped at the full scale, in the
// cell at row 1, column 4, which lies on the brightest material.
scene saturated_scene(const vector& illuminant);

}  // namespace corv::test

#endif
