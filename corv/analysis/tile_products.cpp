#include "corv/analysis/tile_products.h"

#include <algorithm>
#include <cstring>

namespace corv {

pixel_tile tile_at(const cube& data, arma::uword first_row, arma::uword end_row, arma::uword col) {
  return tile_at(image_view::of(data), first_row, end_row, col);
}

pixel_tile tile_at(const image_view& data, arma::uword first_row, arma::uword end_row,
                   arma::uword col) {
  const float* first = data.data + first_row + col * data.rows;
  return {first, data.rows * data.cols, end_row - first_row,
          col + 1 < data.cols ? first + data.rows : nullptr};
}

pixel_tile line_tile_at(const image_view& data, arma::uword row, arma::uword first_col) {
  const float* first = data.data + (row * data.cols + first_col) * data.bands;
  const arma::uword pixels = std::min(tile_products::tile, data.cols - first_col);
  const bool last = row + 1 == data.rows && first_col + pixels == data.cols;
  return {first, 1, pixels, last ? nullptr : first + pixels * data.bands, data.bands};
}

tile_products::tile_products(const arma::mat& vectors)
    : bands_(vectors.n_rows), count_(vectors.n_cols), by_vector_(vectors.n_elem) {
  std::copy(vectors.begin(), vectors.end(), by_vector_.begin());
}

namespace {

static_assert(tile_products::tile == 16, "the sums below cover a tile of 16 pixels");

// sum[p] = sum over b of weights[b] * x[b * 16 + p] (for squares: of
// x[b * 16 + p] squared), p < 16, in vectors of type V (GCC and Clang vector
// types). The 16 sums stay in registers across the bands; compilers left to
// themselves vectorise over the bands instead and spill.
template <typename V, bool squares>
inline __attribute__((always_inline)) void tile_sum(const double* x, const double* weights,
                                                    arma::uword bands, double* sum) {
  constexpr int lanes = sizeof(V) / sizeof(double);
  constexpr int count = 16 / lanes;
  V acc[count] = {};
  for (arma::uword b = 0; b < bands; ++b) {
    const double* xb = x + b * 16;
    for (int i = 0; i < count; ++i) {
      V v;
      std::memcpy(&v, xb + i * lanes, sizeof v);
      if (squares) {
        acc[i] += v * v;
      } else {
        acc[i] += v * weights[b];
      }
    }
  }
  for (int i = 0; i < count; ++i) {
    std::memcpy(sum + i * lanes, &acc[i], sizeof(V));
  }
}

// out[i * 16 + p] for i < count: the weighted sums of vector i; for squares,
// the one sum of squares instead.
using tile_sums_function = void (*)(const double*, arma::uword, const double*, arma::uword, double*,
                                    bool);

// Two doubles to a register: every x86-64 processor, and most others.
typedef double double2 __attribute__((vector_size(16)));

void tile_sums_baseline(const double* values, arma::uword length, const double* weights,
                        arma::uword count, double* out, bool squares) {
  if (squares) {
    tile_sum<double2, true>(values, nullptr, length, out);
    return;
  }
  for (arma::uword i = 0; i < count; ++i) {
    tile_sum<double2, false>(values, weights + i * length, length, out + i * 16);
  }
}

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
// Four doubles to a register and a multiply-add in one step, for processors
// with AVX and FMA; the library itself is built for the common baseline, so
// this version is compiled for them alone and chosen when the library loads.
typedef double double4 __attribute__((vector_size(32)));

__attribute__((target("avx,fma"))) void tile_sums_fma(const double* values, arma::uword length,
                                                      const double* weights, arma::uword count,
                                                      double* out, bool squares) {
  if (squares) {
    tile_sum<double4, true>(values, nullptr, length, out);
    return;
  }
  for (arma::uword i = 0; i < count; ++i) {
    tile_sum<double4, false>(values, weights + i * length, length, out + i * 16);
  }
}

tile_sums_function chosen_tile_sums() {
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx") && __builtin_cpu_supports("fma")) {
    return tile_sums_fma;
  }
  return tile_sums_baseline;
}
#else
tile_sums_function chosen_tile_sums() {
  return tile_sums_baseline;
}
#endif

const tile_sums_function tile_sums = chosen_tile_sums();

}  // namespace

void tile_products::compute(const pixel_tile& pixels, double* products, double* squares) const {
  // The tile in double, band after band; pixels past the end of the tile stay
  // zero, so that the loops always run over a whole tile and vectorise. Each
  // band's values of a tile share a cache line or two, far from the next
  // band's: fetching the next tile's lines now hides most of the wait.
  std::vector<double>& x = workspace();
  x.assign(bands_ * tile, 0.0);
  if (pixels.pixel_stride != 1) {
    // Pixel after pixel, each spectrum read in order.
    if (pixels.next != nullptr) {
      __builtin_prefetch(pixels.next);
    }
    for (arma::uword p = 0; p < pixels.pixels; ++p) {
      const float* pixel = pixels.first + p * pixels.pixel_stride;
      for (arma::uword b = 0; b < bands_; ++b) {
        x[b * tile + p] = pixel[b * pixels.band_stride];
      }
    }
  }
  for (arma::uword b = 0; pixels.pixel_stride == 1 && b < bands_; ++b) {
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
    tile_sums(x.data(), bands_, nullptr, 1, squares, true);
  }
  tile_weighted_sums(x.data(), bands_, by_vector_.data(), count_, products);
}

void tile_weighted_sums(const double* values, arma::uword length, const double* weights,
                        arma::uword count, double* out) {
  tile_sums(values, length, weights, count, out, false);
}

std::vector<double>& tile_products::workspace() {
  thread_local std::vector<double> buffer;
  return buffer;
}

}  // namespace corv
