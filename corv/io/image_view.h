#ifndef CORV_IO_IMAGE_VIEW_H
#define CORV_IO_IMAGE_VIEW_H

#include "corv/io/types.h"

namespace corv {

// Pixel spectra lying in someone else's memory, in one of two layouts: band
// planes one after another, each column-major (a cube's own layout, and
// numpy's Fortran order for a (rows, columns, bands) array), or pixel after
// pixel, line by line, each pixel's bands together (numpy's default order).
// Routines that take a view read it where it lies; the memory must outlive
// the call.
struct image_view {
  const float* data = nullptr;
  arma::uword rows = 0;
  arma::uword cols = 0;
  arma::uword bands = 0;
  bool interleaved = false;  // pixel after pixel rather than band after band

  static image_view of(const cube& c) {
    return {c.memptr(), c.n_rows, c.n_cols, c.n_slices, false};
  }

  bool empty() const { return rows == 0 || cols == 0 || bands == 0; }
  float at(arma::uword row, arma::uword col, arma::uword band) const {
    return interleaved ? data[(row * cols + col) * bands + band]
                       : data[(band * cols + col) * rows + row];
  }
  // The listed bands (all of them when the list is empty) as a new cube.
  cube copy(const band_list& bands = {}) const;
};

}  // namespace corv

#endif
