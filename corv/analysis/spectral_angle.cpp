#include "corv/analysis/spectral_angle.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <vector>

#include "corv/io/instruction_sets.h"

namespace corv {

namespace {

arma::vec row_lengths(const matrix& references) {
  arma::vec lengths(references.n_rows);
  for (arma::uword j = 0; j < references.n_rows; ++j) {
    double sum = 0.0;
    for (arma::uword b = 0; b < references.n_cols; ++b) {
      sum += double(references(j, b)) * references(j, b);
    }
    lengths(j) = std::sqrt(sum);
  }
  return lengths;
}

// Every reference as a unit column (bands x references). A reference of length
// zero has no direction: its column is NaN, and so is every angle to it.
arma::mat unit_columns(const matrix& references, const arma::vec& lengths) {
  arma::mat units = arma::conv_to<arma::mat>::from(references).t();
  for (arma::uword j = 0; j < units.n_cols; ++j) {
    units.col(j) /= lengths(j);
  }
  return units;
}

}  // namespace

float angle_degrees(double cosine) {
  if (cosine < -1.0) {
    cosine = -1.0;
  } else if (cosine > 1.0) {
    cosine = 1.0;
  }
  return static_cast<float>(std::acos(cosine) / 3.1415927 * 180.0);
}

float spectral_angle(const vector& a, const vector& b) {
  const arma::vec x = arma::conv_to<arma::vec>::from(a);
  const arma::vec y = arma::conv_to<arma::vec>::from(b);
  return angle_degrees(arma::dot(x / arma::norm(x), y / arma::norm(y)));
}

void rank_by_cosine(const double* cosines, arma::uword n, arma::uword k, arma::uword* order) {
  k = std::min(k, n);
  // NaN ranks as the smallest cosine; equal keys keep the lower number first.
  const auto key = [cosines](arma::uword j) {
    return std::isnan(cosines[j]) ? -std::numeric_limits<double>::infinity() : cosines[j];
  };
  if (k > 16) {
    std::iota(order, order + n, arma::uword{0});
    std::partial_sort(order, order + k, order + n, [&key](arma::uword a, arma::uword b) {
      const double ka = key(a), kb = key(b);
      return ka > kb || (ka == kb && a < b);
    });
    return;
  }
  // The few best by insertion: references arrive in order, so a newcomer goes
  // after every kept one with the same key.
  double kept[16];
  arma::uword count = 0;
  for (arma::uword j = 0; j < n; ++j) {
    const double kj = key(j);
    if (count == k && !(kj > kept[k - 1])) {
      continue;
    }
    arma::uword i = count < k ? count++ : k - 1;
    for (; i > 0 && kj > kept[i - 1]; --i) {
      kept[i] = kept[i - 1];
      order[i] = order[i - 1];
    }
    kept[i] = kj;
    order[i] = j;
  }
}

namespace {

constexpr arma::uword tile = tile_products::tile;

// into = from in the lanes where mask is set. (References, not values: a
// vector passed by value would depend on the instruction set for its ABI.)
template <typename M>
inline __attribute__((always_inline)) void take_where(M& into, const M& mask, const M& from) {
  into = (from & mask) | (into & ~mask);
}

// The k best of n references for a vector of V's lanes of pixels at once,
// without a branch: reference j displaces slot i when it ranks before what
// slot i holds, or slot i is still empty. The slots stay sorted, so the slots
// it displaces are a tail of them: slot i then takes slot i - 1's holder, or
// j itself where that tail begins. Later references rank after earlier ones
// of the same cosine, as in rank_by_cosine. M holds the cosines' bits and the
// reference numbers.
template <typename V, typename M>
inline __attribute__((always_inline)) void rank_lanes(const double* cosines, arma::uword n,
                                                      arma::uword k, arma::uword* order) {
  constexpr int lanes = sizeof(V) / sizeof(double);
  static_assert(sizeof(M) == sizeof(V), "one number per cosine");
  M kept[tile], number[tile], displaces[tile];
  V lowest, empty;
  for (int l = 0; l < lanes; ++l) {
    lowest[l] = -std::numeric_limits<double>::infinity();
    empty[l] = std::numeric_limits<double>::quiet_NaN();
  }
  for (arma::uword i = 0; i < k; ++i) {
    kept[i] = M(empty);
    number[i] = M{};
  }
  for (arma::uword j = 0; j < n; ++j) {
    V v;
    std::memcpy(&v, cosines + j * tile, sizeof v);
    M key = M(v);
    take_where(key, M(v != v), M(lowest));  // NaN ranks as the smallest cosine
    const M this_one = M{} + static_cast<long long>(j);
    for (arma::uword i = 0; i < k; ++i) {
      displaces[i] = M(~(V(kept[i]) >= V(key)));  // true for an empty (NaN) slot too
    }
    for (arma::uword i = k - 1; i > 0; --i) {
      M holder = key, holder_number = this_one;
      take_where(holder, displaces[i - 1], kept[i - 1]);
      take_where(holder_number, displaces[i - 1], number[i - 1]);
      take_where(kept[i], displaces[i], holder);
      take_where(number[i], displaces[i], holder_number);
    }
    take_where(kept[0], displaces[0], key);
    take_where(number[0], displaces[0], this_one);
  }
  for (arma::uword i = 0; i < k; ++i) {
    std::memcpy(order + i * tile, &number[i], sizeof(M));
  }
}

template <typename V, typename M>
inline __attribute__((always_inline)) void rank_tile_by(const double* cosines, arma::uword n,
                                                        arma::uword k, arma::uword* order) {
  constexpr int lanes = sizeof(V) / sizeof(double);
  for (arma::uword p = 0; p < tile; p += lanes) {
    rank_lanes<V, M>(cosines + p, n, k, order + p);
  }
}

using rank_tile_function = void (*)(const double*, arma::uword, arma::uword, arma::uword*);

typedef double double2 __attribute__((vector_size(16)));
typedef long long long2 __attribute__((vector_size(16)));

void rank_tile_baseline(const double* cosines, arma::uword n, arma::uword k, arma::uword* order) {
  rank_tile_by<double2, long2>(cosines, n, k, order);
}

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
// Four lanes for processors with AVX2, chosen when the library loads.
typedef double double4 __attribute__((vector_size(32)));
typedef long long long4 __attribute__((vector_size(32)));

__attribute__((target("avx2"))) void rank_tile_avx2(const double* cosines, arma::uword n,
                                                    arma::uword k, arma::uword* order) {
  rank_tile_by<double4, long4>(cosines, n, k, order);
}

const rank_tile_function rank_tile =
    processor_has(instruction_set::avx2_fma) ? rank_tile_avx2 : rank_tile_baseline;
#else
const rank_tile_function rank_tile = rank_tile_baseline;
#endif

}  // namespace

void rank_tile_by_cosine(const double* cosines, arma::uword n, arma::uword k, arma::uword* order) {
  k = std::min(k, n);
  if (k == 0) {
    return;
  }
  if (k <= tile) {
    rank_tile(cosines, n, k, order);
    return;
  }
  std::vector<double> pixel(n);
  std::vector<arma::uword> ranked(n);
  for (arma::uword p = 0; p < tile; ++p) {
    for (arma::uword j = 0; j < n; ++j) {
      pixel[j] = cosines[j * tile + p];
    }
    rank_by_cosine(pixel.data(), n, k, ranked.data());
    for (arma::uword i = 0; i < k; ++i) {
      order[i * tile + p] = ranked[i];
    }
  }
}

reference_angles::reference_angles(const matrix& references)
    : lengths_(row_lengths(references)), products_(unit_columns(references, lengths_)) {}

void reference_angles::cosines(const pixel_tile& pixels, double* cosines, double* lengths) const {
  products_.compute(pixels, cosines, lengths);
  for (arma::uword p = 0; p < tile; ++p) {
    lengths[p] = std::sqrt(lengths[p]);
  }
  for (arma::uword j = 0; j < products_.count(); ++j) {
    for (arma::uword p = 0; p < tile; ++p) {
      cosines[j * tile + p] /= lengths[p];
    }
  }
}

}  // namespace corv
