#ifndef CORV_ANALYSIS_TILE_PRODUCTS_H
#define CORV_ANALYSIS_TILE_PRODUCTS_H

#include <vector>

#include "corv/io/image_view.h"
#include "corv/io/types.h"

namespace corv {

// Where the pixels of a tile lie: pixel p's band b at
// first[p * pixel_stride + b * band_stride], p < pixels. The tile to be read
// after this one, if any, is fetched into the cache ahead of its turn.
struct pixel_tile {
  const float* first;
  arma::uword band_stride;
  arma::uword pixels;
  const float* next;
  arma::uword pixel_stride = 1;
};

// The tile of rows first_row .. end_row - 1 (at most tile_products::tile of
// them) in column col of a cube or an image of either layout; the tile of the
// next column follows it.
pixel_tile tile_at(const cube& data, arma::uword first_row, arma::uword end_row, arma::uword col);
pixel_tile tile_at(const image_view& data, arma::uword first_row, arma::uword end_row,
                   arma::uword col);

// Dot products of pixel spectra with a fixed set of vectors, a tile of pixels
// at a time. A cube stores each band as a column-major plane, so the pixels of
// one column and neighbouring rows lie next to each other within every band: a
// tile is up to `tile` such pixels, read one band at a time, and every value
// read is used for all vectors while it is at hand. Sums are kept in double.
class tile_products {
 public:
  static constexpr arma::uword tile = 16;

  // One vector per column of `vectors` (bands x count).
  explicit tile_products(const arma::mat& vectors);

  arma::uword bands() const { return bands_; }
  arma::uword count() const { return count_; }

  // For the spectra of a tile: products[j * tile + p] = vector j . spectrum p,
  // and squares[p] = spectrum p . spectrum p (unless squares is null). Pixels
  // past the tile's count get zeros.
  void compute(const pixel_tile& pixels, double* products, double* squares) const;

 private:
  // A buffer per thread for the tile in double, kept between calls.
  static std::vector<double>& workspace();

  arma::uword bands_;
  arma::uword count_;
  std::vector<double> by_vector_;  // vector j's band b at j * bands_ + b
};

// The same sums over values already in a tile's layout (value b of pixel p at
// values[b * tile + p], as compute writes its products): out[i * tile + p] =
// sum over b < length of weights[i * length + b] * values[b * tile + p], for i
// below count.
void tile_weighted_sums(const double* values, arma::uword length, const double* weights,
                        arma::uword count, double* out);

}  // namespace corv

#endif
