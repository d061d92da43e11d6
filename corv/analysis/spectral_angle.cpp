#include "corv/analysis/spectral_angle.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

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

reference_angles::reference_angles(const matrix& references)
    : lengths_(row_lengths(references)), products_(unit_columns(references, lengths_)) {}

void reference_angles::cosines(const pixel_tile& pixels, double* cosines, double* lengths) const {
  products_.compute(pixels, cosines, lengths);
  constexpr arma::uword tile = tile_products::tile;
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
