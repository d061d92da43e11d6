#ifndef CORV_PIPELINE_MATERIAL_SAMPLE_H
#define CORV_PIPELINE_MATERIAL_SAMPLE_H

// The pixels that material discovery clusters in its sampled mode: from every
// block of the image, the one pixel that lies deepest inside a smooth region
// of one material, away from highlights.
//
// Recovered reflectance is cleanest inside a region of one material: where a
// pixel's neighbourhood straddles a border, a highlight or a shadow's edge, its
// spectrum is a mix, or carries what the dichromatic split left of the
// highlight, and such spectra form a continuum between the materials that the
// clustering would cut into extra, spurious materials. Dark pixels are mostly
// noise once divided by their shading.

#include "corv/io/types.h"

namespace corv {

// A pixel takes part when its shading is above this fraction of the 99th
// percentile of the image's shading.
constexpr float lit_fraction = 0.02f;
// Its neighbourhood is (2 x radius + 1) pixels square: the neighbourhood from
// which the dichromatic split, at its default size, takes a pixel's body
// colour. A pixel within that distance of a border or a highlight gets a body
// colour mixed from both sides, and its reflectance drifts from its
// material's by up to tens of degrees, smoothly enough that a smaller window
// sees no break.
constexpr arma::uword neighbourhood_radius = 5;
// A pixel lies inside a smooth region when its spectrum is within this angle
// (degrees) of the mean direction of its neighbourhood,
constexpr double smooth_angle = 2.0;
// and the mean of its neighbourhood's unit spectra, unusable neighbours
// counting as zero, is at least cos(this angle) long: a pixel in the middle of
// a gradient or of a thin band between two materials can lie on its window's
// mean direction, but the window's spectra spread; and a window that reaches
// into shadow or black surfaces is not one region whatever its lit pixels say.
constexpr double window_spread_angle = 6.0;
// A pixel whose neighbourhood holds a highlight does not lie inside a region:
// the dichromatic split takes the highlight into its body colour, and its
// reflectance drifts smoothly from its material's (by up to 20 degrees on a
// wide highlight), unseen by the tests above. A highlight is a pixel whose
// specular spectrum (k on every band) is brighter than this fraction of the
// 99th percentile of the image's shading.
constexpr float highlight_fraction = 0.05f;

// At most this many blocks, hence pixels, take part: a few thousand spectra
// hold every material that covers more than a few hundredths of a percent of
// the image, and the clustering's time grows with their number.
constexpr arma::uword max_sampled_pixels = 4096;

// The side of the blocks for an image of rows x cols: `block` (2^q), doubled
// until the blocks number at most max_sampled_pixels.
arma::uword sample_block(arma::uword rows, arma::uword cols, arma::uword block);

// Each pixel's cosine with the mean direction of the unit spectra of its
// usable neighbours (itself included); 0 for a pixel that is not usable:
// zero, not finite or, with a shading given, unlit. Half that for a pixel
// whose neighbourhood spreads by more than window_spread_angle or, with the
// specularity k given (else empty), holds a highlight.
matrix neighbourhood_coherence(const cube& s, const matrix& g, const matrix& k);

// Indexes (r + c x rows) of the chosen pixels, ascending: in every block of
// block x block pixels, the usable pixel of the highest coherence, when that
// coherence is within smooth_angle. When no block has such a pixel, each
// block's most coherent usable pixel is taken instead.
arma::uvec interior_sample(const cube& s, const matrix& g, const matrix& k, arma::uword block);

}  // namespace corv

#endif
