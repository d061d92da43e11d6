#include "corv/analysis/tile_products.h"

#include <algorithm>
#include <cstring>

#include "corv/io/instruction_sets.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#include <xmmintrin.h>
#endif

namespace corv {

pixel_tile tile_at(const cube& data, arma::uword first_row, arma::uword end_row, arma::uword col) {
  return tile_at(image_view::of(data), first_row, end_row, col);
}

pixel_tile tile_at(const image_view& data, arma::uword first_row, arma::uword end_row,
                   arma::uword col) {
  const bool last = col + 1 == data.cols;
  if (data.interleaved) {
    const float* first = data.data + (first_row * data.cols + col) * data.bands;
    return {first, 1, end_row - first_row, last ? nullptr : first + data.bands,
            data.cols * data.bands};
  }
  const float* first = data.data + first_row + col * data.rows;
  return {first, data.rows * data.cols, end_row - first_row, last ? nullptr : first + data.rows};
}

tile_products::tile_products(const arma::mat& vectors)
    : bands_(vectors.n_rows), count_(vectors.n_cols), by_vector_(vectors.n_elem) {
  std::copy(vectors.begin(), vectors.end(), by_vector_.begin());
}

namespace {

static_assert(tile_products::tile == 16, "the sums below cover a tile of 16 pixels");

// sum[p] = sum over b of x[b * 16 + p] squared, p < 16, in vectors of type V
// (GCC and Clang vector types). The 16 sums stay in registers across the
// bands; compilers left to themselves vectorise over the bands instead and
// spill.
template <typename V>
inline __attribute__((always_inline)) void tile_squares(const double* x, arma::uword bands,
                                                        double* sum) {
  constexpr int lanes = sizeof(V) / sizeof(double);
  constexpr int count = 16 / lanes;
  V acc[count] = {};
  for (arma::uword b = 0; b < bands; ++b) {
    for (int i = 0; i < count; ++i) {
      V v;
      std::memcpy(&v, x + b * 16 + i * lanes, sizeof v);
      acc[i] += v * v;
    }
  }
  for (int i = 0; i < count; ++i) {
    std::memcpy(sum + i * lanes, &acc[i], sizeof(V));
  }
}

// sum[r * 16 + p] = sum over b of weights[r * bands + b] * x[b * 16 + p], for
// the `group` vectors r and p < 16: each value of x, once loaded, serves the
// whole group. Every sum is accumulated band after band, whatever the group.
template <typename V, int group>
inline __attribute__((always_inline)) void tile_sum_group(const double* x, const double* weights,
                                                          arma::uword bands, double* sum) {
  constexpr int lanes = sizeof(V) / sizeof(double);
  constexpr int count = 16 / lanes;
  V acc[group][count] = {};
  for (arma::uword b = 0; b < bands; ++b) {
    V v[count];
#pragma GCC unroll 8
    for (int i = 0; i < count; ++i) {
      std::memcpy(&v[i], x + b * 16 + i * lanes, sizeof(V));
    }
#pragma GCC unroll 8
    for (int r = 0; r < group; ++r) {
      const double w = weights[r * bands + b];
#pragma GCC unroll 8
      for (int i = 0; i < count; ++i) {
        acc[r][i] += v[i] * w;
      }
    }
  }
#pragma GCC unroll 8
  for (int r = 0; r < group; ++r) {
#pragma GCC unroll 8
    for (int i = 0; i < count; ++i) {
      std::memcpy(sum + r * 16 + i * lanes, &acc[r][i], sizeof(V));
    }
  }
}

// out[i * 16 + p] for i < count: the weighted sums of vector i, `group`
// vectors at a time; for squares, the one sum of squares instead.
template <typename V, int group>
inline __attribute__((always_inline)) void tile_sums_by(const double* values, arma::uword length,
                                                        const double* weights, arma::uword count,
                                                        double* out, bool squares) {
  if (squares) {
    tile_squares<V>(values, length, out);
    return;
  }
  arma::uword i = 0;
  for (; i + group <= count; i += group) {
    tile_sum_group<V, group>(values, weights + i * length, length, out + i * 16);
  }
  for (; i < count; ++i) {
    tile_sum_group<V, 1>(values, weights + i * length, length, out + i * 16);
  }
}

// Four spectra of `bands` values each, pixel_stride apart, into the tile in
// double (value b of spectrum p to x[b * 16 + p]): four bands of the four at a
// time are turned in registers, so that each store writes four pixels.
void gather_four(const float* first, arma::uword pixel_stride, arma::uword bands, double* x) {
  arma::uword b = 0;
#if defined(__SSE2__)
  const float* q[4] = {first, first + pixel_stride, first + 2 * pixel_stride,
                       first + 3 * pixel_stride};
  for (; b + 4 <= bands; b += 4) {
    __m128 v0 = _mm_loadu_ps(q[0] + b), v1 = _mm_loadu_ps(q[1] + b);
    __m128 v2 = _mm_loadu_ps(q[2] + b), v3 = _mm_loadu_ps(q[3] + b);
    _MM_TRANSPOSE4_PS(v0, v1, v2, v3);
    const __m128 band[4] = {v0, v1, v2, v3};
    for (int i = 0; i < 4; ++i) {
      double* to = x + (b + i) * 16;
      _mm_storeu_pd(to, _mm_cvtps_pd(band[i]));
      _mm_storeu_pd(to + 2, _mm_cvtps_pd(_mm_movehl_ps(band[i], band[i])));
    }
  }
#endif
  for (; b < bands; ++b) {
    for (arma::uword p = 0; p < 4; ++p) {
      x[b * 16 + p] = first[p * pixel_stride + b];
    }
  }
}

using tile_sums_function = void (*)(const double*, arma::uword, const double*, arma::uword, double*,
                                    bool);

// Two doubles to a register: every x86-64 processor, and most others.
typedef double double2 __attribute__((vector_size(16)));

void tile_sums_baseline(const double* values, arma::uword length, const double* weights,
                        arma::uword count, double* out, bool squares) {
  tile_sums_by<double2, 1>(values, length, weights, count, out, squares);
}

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
// Four doubles to a register and a multiply-add in one step, for processors
// with AVX and FMA; the library itself is built for the common baseline, so
// this version is compiled for them alone and chosen when the library loads.
// Two vectors at a time keep 8 sums, the 4 values and the weights in the 16
// registers.
typedef double double4 __attribute__((vector_size(32)));

__attribute__((target("avx,fma"))) void tile_sums_fma(const double* values, arma::uword length,
                                                      const double* weights, arma::uword count,
                                                      double* out, bool squares) {
  tile_sums_by<double4, 2>(values, length, weights, count, out, squares);
}

// Eight doubles to a register, for processors with AVX-512: four vectors at a
// time.
typedef double double8 __attribute__((vector_size(64)));

__attribute__((target("avx512f,fma"))) void tile_sums_avx512(const double* values,
                                                             arma::uword length,
                                                             const double* weights,
                                                             arma::uword count, double* out,
                                                             bool squares) {
  tile_sums_by<double8, 4>(values, length, weights, count, out, squares);
}

const tile_sums_function tile_sums = processor_has(instruction_set::avx512) ? tile_sums_avx512
                                     : processor_has(instruction_set::avx2_fma)
                                         ? tile_sums_fma
                                         : tile_sums_baseline;
#else
const tile_sums_function tile_sums = tile_sums_baseline;
#endif

}  // namespace

void tile_products::compute(const pixel_tile& pixels, double* products, double* squares) const {
  // The tile in double, band after band; pixels past the end of a part tile
  // are zero, so that the loops always run over a whole tile and vectorise.
  // Each band's values of a tile share a cache line or two, far from the next
  // band's: fetching the next tile's lines now hides most of the wait.
  std::vector<double>& x = workspace();
  x.resize(bands_ * tile);
  if (pixels.pixels < tile) {
    std::fill(x.begin(), x.end(), 0.0);
  }
  if (pixels.pixel_stride != 1) {
    // Pixel after pixel, each spectrum read in order.
    if (pixels.next != nullptr) {
      __builtin_prefetch(pixels.next);
    }
    arma::uword p = 0;
    if (pixels.band_stride == 1) {
      for (; p + 4 <= pixels.pixels; p += 4) {
        gather_four(pixels.first + p * pixels.pixel_stride, pixels.pixel_stride, bands_,
                    x.data() + p);
      }
    }
    for (; p < pixels.pixels; ++p) {
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
