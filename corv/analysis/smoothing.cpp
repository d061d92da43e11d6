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
// in place. The pixels are shared out in blocks; within a block the bands run in
// order, and the original values that later outputs still need (bands b - half
// .. b) are kept in a ring of half + 1 block-sized planes.
void smooth_bands(cube& data, const std::vector<float>& weights, float normaliser) {
  const long bands = static_cast<long>(data.n_slices);
  const long plane = static_cast<long>(data.n_rows * data.n_cols);
  if (bands == 0 || plane == 0) {
    return;
  }
  const long taps = static_cast<long>(weights.size());
  const long half = (taps - 1) / 2;
  const long last = bands - 1;
  const long ring_size = half + 1;
  constexpr long block = 2048;
#pragma omp parallel
  {
    std::vector<float> ring(static_cast<std::size_t>(ring_size * block));
    std::vector<float> sum(block);
    std::vector<const float*> sources(taps);
#pragma omp for schedule(static)
    for (long start = 0; start < plane; start += block) {
      const long n = std::min(block, plane - start);
      for (long b = 0; b < bands; ++b) {
        float* out = data.slice_memptr(b) + start;
        std::copy(out, out + n, ring.data() + (b % ring_size) * block);
        for (long j = 0; j < taps; ++j) {
          const long i = clamped(b - half + j, last);
          // Bands at or before b are in the ring; later bands are still untouched.
          sources[j] =
              i <= b ? ring.data() + (i % ring_size) * block : data.slice_memptr(i) + start;
        }
        std::fill(sum.begin(), sum.begin() + n, 0.0f);
        for (long j = 0; j < taps; ++j) {
          const float weight = weights[j];
          const float* source = sources[j];
          for (long p = 0; p < n; ++p) {
            sum[p] += weight * source[p];
          }
        }
        for (long p = 0; p < n; ++p) {
          out[p] = sum[p] / normaliser;
        }
      }
    }
  }
}

// Box filter by running sums: the window sum of band b is that of band b - 1
// plus the band entering the window minus the band leaving it, so the cost does
// not grow with the window. Sums are kept in double so that the rounding of a
// long run of additions and subtractions stays far below float precision. The
// originals of bands b - half - 1 .. b are kept in a ring, as above.
void box_bands(cube& data, int window) {
  const long bands = static_cast<long>(data.n_slices);
  const long plane = static_cast<long>(data.n_rows * data.n_cols);
  if (bands == 0 || plane == 0) {
    return;
  }
  const long half = (window - 1) / 2;
  const long last = bands - 1;
  const long ring_size = half + 2;
  const double scale = 1.0 / window;
  constexpr long block = 2048;
#pragma omp parallel
  {
    std::vector<float> ring(static_cast<std::size_t>(ring_size * block));
    std::vector<double> sum(block);
#pragma omp for schedule(static)
    for (long start = 0; start < plane; start += block) {
      const long n = std::min(block, plane - start);
      // The window of band 0: band 0 repeated half + 1 times, then bands 1 .. half.
      std::fill(sum.begin(), sum.begin() + n, 0.0);
      for (long j = -half; j <= half; ++j) {
        const float* source = data.slice_memptr(clamped(j, last)) + start;
        for (long p = 0; p < n; ++p) {
          sum[p] += source[p];
        }
      }
      for (long b = 0; b < bands; ++b) {
        float* out = data.slice_memptr(b) + start;
        std::copy(out, out + n, ring.data() + (b % ring_size) * block);
        if (b > 0) {
          // Band b + half has not been overwritten yet; band b - half - 1 is in the ring.
          const long entering = clamped(b + half, last);
          const long leaving = clamped(b - half - 1, last);
          const float* in = entering <= b ? ring.data() + (entering % ring_size) * block
                                          : data.slice_memptr(entering) + start;
          const float* gone = ring.data() + (leaving % ring_size) * block;
          for (long p = 0; p < n; ++p) {
            sum[p] += static_cast<double>(in[p]) - static_cast<double>(gone[p]);
          }
        }
        for (long p = 0; p < n; ++p) {
          out[p] = static_cast<float>(sum[p] * scale);
        }
      }
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
  box_bands(data, window);
}

void savitzky_golay(cube& data, int window) {
  float normaliser = 1.0f;
  const std::vector<float> weights = savitzky_golay_weights(window, normaliser);
  smooth_bands(data, weights, normaliser);
}

}  // namespace corv
