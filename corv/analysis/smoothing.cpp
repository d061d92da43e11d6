#include "corv/analysis/smoothing.h"

#include <algorithm>
#include <stdexcept>

#include "corv/io/logger.h"

namespace corv {

namespace {

long clamped(long index, long last) {
  return std::min(std::max(index, 0L), last);
}

// Output band b = sum_j weights[j] * band(b - half + j) / normaliser, written back
// in place. The original planes that later outputs still need (b - half .. b)
// are kept in a ring of half + 1 planes.
void smooth_bands(cube& data, const std::vector<float>& weights, float normaliser) {
  const long bands = static_cast<long>(data.n_slices);
  if (bands == 0 || data.n_rows == 0 || data.n_cols == 0) {
    return;
  }
  const long half = static_cast<long>(weights.size() - 1) / 2;
  const long last = bands - 1;
  const arma::uword plane = data.n_rows * data.n_cols;
  const long ring_size = half + 1;
  std::vector<matrix> ring(ring_size, matrix(data.n_rows, data.n_cols, arma::fill::none));
  // The original of band i lives in ring slot i % ring_size while it is needed.
  std::vector<const float*> sources(weights.size());
  for (long b = 0; b < bands; ++b) {
    ring[b % ring_size] = data.slice(b);  // keep band b's original before it is overwritten
    for (std::size_t j = 0; j < weights.size(); ++j) {
      const long i = clamped(b - half + static_cast<long>(j), last);
      // Bands at or before b are in the ring; bands after b are still untouched in the cube.
      sources[j] = i <= b ? ring[i % ring_size].memptr() : data.slice_memptr(i);
    }
    float* out = data.slice_memptr(b);
#pragma omp parallel for schedule(static)
    for (long p = 0; p < static_cast<long>(plane); ++p) {
      float sum = 0.0f;
      for (std::size_t j = 0; j < weights.size(); ++j) {
        sum += weights[j] * sources[j][p];
      }
      out[p] = sum / normaliser;
    }
  }
}

}  // namespace

std::vector<float> savitzky_golay_weights(int window, float& normaliser) {
  switch (window) {
    case 5:
      normaliser = 35.0f;
      return {-3, 12, 17, 12, -3};
    case 7:
      normaliser = 21.0f;
      return {-2, 3, 6, 7, 6, 3, -2};
    case 9:
      normaliser = 231.0f;
      return {-21, 14, 39, 54, 59, 54, 39, 14, -21};
    default:
      log_and_throw("savitzky_golay: Window size is incorrect. (5, 7 or 9 only)");
  }
}

std::vector<float> smooth_spectrum(const std::vector<float>& spectrum,
                                   const std::vector<float>& weights, float normaliser) {
  cube one(1, 1, spectrum.size());
  std::copy(spectrum.begin(), spectrum.end(), one.begin());
  smooth_bands(one, weights, normaliser);
  return std::vector<float>(one.begin(), one.end());
}

void moving_average(cube& data, int window) {
  if (window < 3 || window % 2 == 0) {
    log_and_throw("moving_average: Window size is incorrect. (greater than 3 and odd)");
  }
  smooth_bands(data, std::vector<float>(window, 1.0f), static_cast<float>(window));
}

void savitzky_golay(cube& data, int window) {
  float normaliser = 1.0f;
  const std::vector<float> weights = savitzky_golay_weights(window, normaliser);
  smooth_bands(data, weights, normaliser);
}

}  // namespace corv
