#ifndef CORV_PIPELINE_MATERIAL_ABUNDANCES_H
#define CORV_PIPELINE_MATERIAL_ABUNDANCES_H

// Material abundances: every pixel as a mix of the material elements it is
// most associated with. Elements are ranked by their product with the pixel's
// spectrum (for unit elements, the cosine of the angle between them times the
// pixel's norm, so the order is that of the angle); the pixel is then solved as
// an unconstrained least-squares combination of its N best elements.
//
// When there are fewer elements than abundance slots, the extra slots hold
// weight 0 and repeat the element number of the pixel's largest weight (its
// material map entry): every slot names a real element (as files of element
// numbers require) and adds nothing to the pixel. They are sorted with the
// others, so that weights stay largest first (a negative weight comes after
// them). An element that the stronger ones already explain (linearly
// dependent on them) keeps its place with weight 0.

#include <vector>

#include "corv/io/types.h"

namespace corv {

// Mixes one pixel at a time against fixed elements. Holds the scratch space of
// one thread: give every thread its own copy.
class element_mixer {
 public:
  // elements: bands x m unit spectra; slots: the number of abundances per pixel.
  element_mixer(const matrix& elements, arma::uword slots);

  // products: the pixel's product with every element (m values). Writes the
  // weights of its min(slots, m) strongest elements and their element numbers
  // (from 0) into `slots` values each, largest weight first.
  void mix(const float* products, float* weights, float* numbers);

  arma::uword slots() const { return slots_; }

 private:
  arma::mat gram_;  // m x m products of the elements
  arma::uword slots_, used_;
  std::vector<arma::uword> order_;
  std::vector<double> ranks_, factor_, solution_;
  std::vector<char> active_;
};

}  // namespace corv

#endif
