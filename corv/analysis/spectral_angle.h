#ifndef CORV_ANALYSIS_SPECTRAL_ANGLE_H
#define CORV_ANALYSIS_SPECTRAL_ANGLE_H

#include "corv/analysis/tile_products.h"
#include "corv/io/types.h"

namespace corv {

// The angle in degrees whose cosine is given: arccos of the cosine (raised to
// -1 below -1 and lowered to 1 above 1, where only rounding can take the dot
// product of two unit vectors), divided by 3.1415927 and multiplied by 180.
// A NaN cosine (a spectrum of length zero) gives NaN.
float angle_degrees(double cosine);

// The spectral angle in degrees between two spectra of the same length: the
// angle between them after each is scaled to unit Euclidean length.
float spectral_angle(const vector& a, const vector& b);

// Ranks n references by the cosine of their angle with a pixel, largest
// cosine (smallest angle) first; equal cosines keep the lower reference first
// and NaN comes last. order holds n slots; its first k receive the ranking
// (the rest is workspace).
void rank_by_cosine(const double* cosines, arma::uword n, arma::uword k, arma::uword* order);

// The same for the 16 pixels of a tile at once (pixels past the tile's count
// are ranked too, harmlessly): the cosine of reference j with pixel p at
// cosines[j * tile_products::tile + p], pixel p's ranking to order[i *
// tile_products::tile + p] for i < k; order holds n such rows.
void rank_tile_by_cosine(const double* cosines, arma::uword n, arma::uword k, arma::uword* order);

// The references of one run, scaled to unit length once, and the cosines of
// the angles between them and a tile of pixels.
class reference_angles {
 public:
  // One reference per row.
  explicit reference_angles(const matrix& references);

  arma::uword references() const { return products_.count(); }
  // The Euclidean length of each reference before scaling.
  const arma::vec& lengths() const { return lengths_; }

  // cosines[j * tile_products::tile + p] for reference j and pixel p of the
  // tile (see tile_products::compute), and each pixel's length in lengths.
  void cosines(const pixel_tile& pixels, double* cosines, double* lengths) const;

 private:
  arma::vec lengths_;
  tile_products products_;
};

}  // namespace corv

#endif
