#include "corv/io/image_view.h"

#include <algorithm>

namespace corv {

cube image_view::copy(const band_list& wanted) const {
  const arma::uword count = wanted.empty() ? bands : wanted.size();
  cube result(rows, cols, count, arma::fill::none);
  const auto band_of = [&](arma::uword i) { return wanted.empty() ? i : wanted[i]; };
  if (!interleaved) {
    for (arma::uword i = 0; i < count; ++i) {
      const float* plane = data + band_of(i) * rows * cols;
      std::copy(plane, plane + rows * cols, result.slice_memptr(i));
    }
    return result;
  }
  // 16 neighbouring rows of a column at a time: their spectra are read in
  // order, and each band's 16 values land in one run of the plane.
  const arma::uword plane = rows * cols;
  float* out = result.memptr();
#pragma omp parallel for schedule(static)
  for (long c = 0; c < static_cast<long>(cols); ++c) {
    for (arma::uword r0 = 0; r0 < rows; r0 += 16) {
      const arma::uword r1 = std::min<arma::uword>(r0 + 16, rows);
      for (arma::uword i = 0; i < count; ++i) {
        const float* from = data + static_cast<arma::uword>(c) * bands + band_of(i);
        float* to = out + i * plane + static_cast<arma::uword>(c) * rows;
        for (arma::uword r = r0; r < r1; ++r) {
          to[r] = from[r * cols * bands];
        }
      }
    }
  }
  return result;
}

}  // namespace corv
