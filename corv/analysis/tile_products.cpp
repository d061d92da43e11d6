#include "corv/analysis/tile_products.h"

#include <algorithm>
#include <cstring>

namespace corv {

pixel_tile tile_at(const cube& data, arma::uword first_row, arma::uword end_row, arma::uword col) {
  const float* first = data.memptr() + first_row + col * data.n_rows;
  return {first, data.n_rows * data.n_cols, end_row - first_row,
          col + 1 < data.n_cols ? first + data.n_rows : nullptr};
}

tile_products::tile_products(const arma::mat& vectors)
    : bands_(vectors.n_rows), count_(vectors.n_cols), by_vector_(vectors.n_elem) {
  std::copy(vectors.begin(), vectors.end(), by_vector_.begin());
}

namespace {

// Two doubles side by side, as one SSE2 register holds them; GCC and Clang
// vector types, so that the code stays portable where registers differ.
typedef double double2 __attribute__((vector_size(16)));

inline double2 load(const double* p) {
  double2 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

inline void store(double* p, double2 v) {
  std::memcpy(p, &v, sizeof v);
}

static_assert(tile_products::tile == 16, "the sums below cover a tile of 16 pixels");

// sum[p] = sum over b of weights[b] * x[b * 16 + p], p < 16. The 16 sums stay
// in eight registers across the bands; compilers left to themselves vectorise
// over the bands instead and spill.
inline void weighted_sum(const double* x, const double* weights, arma::uword bands, double* sum) {
  double2 a0 = {0, 0}, a1 = a0, a2 = a0, a3 = a0, a4 = a0, a5 = a0, a6 = a0, a7 = a0;
  for (arma::uword b = 0; b < bands; ++b) {
    const double2 w = {weights[b], weights[b]};
    const double* xb = x + b * 16;
    a0 += load(xb) * w;
    a1 += load(xb + 2) * w;
    a2 += load(xb + 4) * w;
    a3 += load(xb + 6) * w;
    a4 += load(xb + 8) * w;
    a5 += load(xb + 10) * w;
    a6 += load(xb + 12) * w;
    a7 += load(xb + 14) * w;
  }
  store(sum, a0);
  store(sum + 2, a1);
  store(sum + 4, a2);
  store(sum + 6, a3);
  store(sum + 8, a4);
  store(sum + 10, a5);
  store(sum + 12, a6);
  store(sum + 14, a7);
}

// sum[p] = sum over b of x[b * 16 + p] squared.
inline void sum_of_squares(const double* x, arma::uword bands, double* sum) {
  double2 a0 = {0, 0}, a1 = a0, a2 = a0, a3 = a0, a4 = a0, a5 = a0, a6 = a0, a7 = a0;
  for (arma::uword b = 0; b < bands; ++b) {
    const double* xb = x + b * 16;
    double2 v = load(xb);
    a0 += v * v;
    v = load(xb + 2);
    a1 += v * v;
    v = load(xb + 4);
    a2 += v * v;
    v = load(xb + 6);
    a3 += v * v;
    v = load(xb + 8);
    a4 += v * v;
    v = load(xb + 10);
    a5 += v * v;
    v = load(xb + 12);
    a6 += v * v;
    v = load(xb + 14);
    a7 += v * v;
  }
  store(sum, a0);
  store(sum + 2, a1);
  store(sum + 4, a2);
  store(sum + 6, a3);
  store(sum + 8, a4);
  store(sum + 10, a5);
  store(sum + 12, a6);
  store(sum + 14, a7);
}

}  // namespace

void tile_products::compute(const pixel_tile& pixels, double* products, double* squares) const {
  // The tile in double, band after band; pixels past the end of the tile stay
  // zero, so that the loops always run over a whole tile and vectorise. Each
  // band's values of a tile share a cache line or two, far from the next
  // band's: fetching the next tile's lines now hides most of the wait.
  std::vector<double>& x = workspace();
  x.assign(bands_ * tile, 0.0);
  for (arma::uword b = 0; b < bands_; ++b) {
    const float* band = pixels.first + b * pixels.band_stride;
    if (pixels.next != nullptr) {
      __builtin_prefetch(pixels.next + b * pixels.band_stride);
    }
    double* xb = x.data() + b * tile;
    for (arma::uword p = 0; p < pixels.pixels; ++p) {
      xb[p] = band[p];
    }
  }
  if (squares != nullptr) {
    sum_of_squares(x.data(), bands_, squares);
  }
  tile_weighted_sums(x.data(), bands_, by_vector_.data(), count_, products);
}

void tile_weighted_sums(const double* values, arma::uword length, const double* weights,
                        arma::uword count, double* out) {
  for (arma::uword i = 0; i < count; ++i) {
    weighted_sum(values, weights + i * length, length, out + i * tile_products::tile);
  }
}

std::vector<double>& tile_products::workspace() {
  thread_local std::vector<double> buffer;
  return buffer;
}

}  // namespace corv
