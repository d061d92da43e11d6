#include "corv/analysis/smoothing.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "corv/io/logger.h"

namespace corv {

namespace {

long clamped(long index, long last) {
  return std::min(std::max(index, 0L), last);
}

// The filters work on a run of n pixels held band after band: value p of band
// b at in[b * in_stride + p], written to out[b * out_stride + p]. Input and
// output must not overlap.

// Output band b = sum_j weights[j] * band(b - half + j) / normaliser.
void weighted_run(const float* in, long in_stride, float* out, long out_stride, long n, long bands,
                  const std::vector<float>& weights, float normaliser, float* sum) {
  const long taps = static_cast<long>(weights.size());
  const long half = (taps - 1) / 2;
  for (long b = 0; b < bands; ++b) {
    std::fill(sum, sum + n, 0.0f);
    for (long j = 0; j < taps; ++j) {
      const float weight = weights[j];
      const float* source = in + clamped(b - half + j, bands - 1) * in_stride;
      for (long p = 0; p < n; ++p) {
        sum[p] += weight * source[p];
      }
    }
    float* to = out + b * out_stride;
    for (long p = 0; p < n; ++p) {
      to[p] = sum[p] / normaliser;
    }
  }
}

// The same rule on pixels lying spectrum after spectrum (each pixel's bands
// together), read and written where they lie: the bands whose window lies
// inside the spectrum go four at a time in vector registers, the few at each
// end, whose window is clamped, one at a time. Every value is summed in the
// same order as by weighted_run, so both give the same floats.
void weighted_spectra(const float* in, float* out, long pixels, long bands,
                      const std::vector<float>& weights, float normaliser) {
  typedef float float4 __attribute__((vector_size(16)));
  const long taps = static_cast<long>(weights.size());
  const long half = (taps - 1) / 2;
  const long inner_end = bands - half;
  const auto one_band = [&](const float* x, long b) {
    float sum = 0.0f;
    for (long j = 0; j < taps; ++j) {
      sum += weights[j] * x[clamped(b - half + j, bands - 1)];
    }
    return sum / normaliser;
  };
  for (long p = 0; p < pixels; ++p) {
    const float* x = in + p * bands;
    float* to = out + p * bands;
    long b = 0;
    for (; b < std::min(half, bands); ++b) {
      to[b] = one_band(x, b);
    }
    for (; b + 4 <= inner_end; b += 4) {
      float4 sum = {0.0f, 0.0f, 0.0f, 0.0f};
      for (long j = 0; j < taps; ++j) {
        float4 v;
        std::memcpy(&v, x + b - half + j, sizeof v);
        sum += weights[j] * v;
      }
      sum /= normaliser;
      std::memcpy(to + b, &sum, sizeof sum);
    }
    for (; b < bands; ++b) {
      to[b] = one_band(x, b);
    }
  }
}

// Box filter by running sums: the window sum of band b is that of band b - 1
// plus the band entering the window minus the band leaving it, so the cost does
// not grow with the window. Sums are kept in double so that the rounding of a
// long run of additions and subtractions stays far below float precision.
void box_run(const float* in, long in_stride, float* out, long out_stride, long n, long bands,
             int window, double* sum) {
  const long half = (window - 1) / 2;
  const long last = bands - 1;
  const double scale = 1.0 / window;
  // The window of band 0: band 0 repeated half + 1 times, then bands 1 .. half.
  std::fill(sum, sum + n, 0.0);
  for (long j = -half; j <= half; ++j) {
    const float* source = in + clamped(j, last) * in_stride;
    for (long p = 0; p < n; ++p) {
      sum[p] += source[p];
    }
  }
  for (long b = 0; b < bands; ++b) {
    if (b > 0) {
      const float* entering = in + clamped(b + half, last) * in_stride;
      const float* leaving = in + clamped(b - half - 1, last) * in_stride;
      for (long p = 0; p < n; ++p) {
        sum[p] += static_cast<double>(entering[p]) - static_cast<double>(leaving[p]);
      }
    }
    float* to = out + b * out_stride;
    for (long p = 0; p < n; ++p) {
      to[p] = static_cast<float>(sum[p] * scale);
    }
  }
}

// Runs a filter over every spectrum of `in`, writing `out` in the same
// layout; out may be in's own memory. Pixels are shared out among the threads
// in runs. Band planes are read where they lie (runs of 512 pixels), unless the
// filter writes over them, when a run's originals are copied aside first;
// interleaved pixels are gathered into band order 16 at a time (each band's 16
// values one cache line) and scattered back.
template <typename Filter>
void filter_spectra(const image_view& in, float* out, Filter filter) {
  const long bands = static_cast<long>(in.bands);
  const long pixels = static_cast<long>(in.rows * in.cols);
  if (bands == 0 || pixels == 0) {
    return;
  }
  const long run = in.interleaved ? 16 : 512;
  const bool in_place = in.data == out;
#pragma omp parallel
  {
    std::vector<float> originals(static_cast<std::size_t>(run * bands));
    std::vector<float> results(in.interleaved ? static_cast<std::size_t>(run * bands) : 0);
#pragma omp for schedule(static)
    for (long start = 0; start < pixels; start += run) {
      const long n = std::min(run, pixels - start);
      if (!in.interleaved) {
        const float* source = in.data + start;
        long stride = pixels;
        if (in_place) {
          for (long b = 0; b < bands; ++b) {
            std::copy(source + b * pixels, source + b * pixels + n, originals.data() + b * run);
          }
          source = originals.data();
          stride = run;
        }
        filter(source, stride, out + start, pixels, n);
        continue;
      }
      const float* first = in.data + start * bands;
      for (long p = 0; p < n; ++p) {
        for (long b = 0; b < bands; ++b) {
          originals[b * run + p] = first[p * bands + b];
        }
      }
      filter(originals.data(), run, results.data(), run, n);
      float* to = out + start * bands;
      for (long p = 0; p < n; ++p) {
        for (long b = 0; b < bands; ++b) {
          to[p * bands + b] = results[b * run + p];
        }
      }
    }
  }
}

void check_moving_average(int window) {
  if (window < 3 || window % 2 == 0) {
    log_and_throw("moving_average: Window size is incorrect. (greater than 3 and odd)");
  }
}

void box_filter(const image_view& in, float* out, int window) {
  check_moving_average(window);
  const long bands = static_cast<long>(in.bands);
  filter_spectra(in, out,
                 [&](const float* from, long from_stride, float* to, long to_stride, long n) {
                   thread_local std::vector<double> sum;
                   sum.resize(static_cast<std::size_t>(n));
                   box_run(from, from_stride, to, to_stride, n, bands, window, sum.data());
                 });
}

void weighted_filter(const image_view& in, float* out, int window) {
  float normaliser = 1.0f;
  const std::vector<float> weights = savitzky_golay_weights(window, normaliser);
  const long bands = static_cast<long>(in.bands);
  if (in.interleaved && in.data != out) {
    const long pixels = static_cast<long>(in.rows * in.cols);
    constexpr long run = 64;
#pragma omp parallel for schedule(static)
    for (long start = 0; start < pixels; start += run) {
      weighted_spectra(in.data + start * bands, out + start * bands, std::min(run, pixels - start),
                       bands, weights, normaliser);
    }
    return;
  }
  filter_spectra(
      in, out, [&](const float* from, long from_stride, float* to, long to_stride, long n) {
        thread_local std::vector<float> sum;
        sum.resize(static_cast<std::size_t>(n));
        weighted_run(from, from_stride, to, to_stride, n, bands, weights, normaliser, sum.data());
      });
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
  const long bands = static_cast<long>(spectrum.size());
  std::vector<float> smoothed(spectrum.size());
  if (bands > 0) {
    float sum = 0.0f;
    weighted_run(spectrum.data(), 1, smoothed.data(), 1, 1, bands, weights, normaliser, &sum);
  }
  return smoothed;
}

void moving_average(cube& data, int window) {
  box_filter(image_view::of(data), data.memptr(), window);
}

void savitzky_golay(cube& data, int window) {
  weighted_filter(image_view::of(data), data.memptr(), window);
}

void moving_average(const image_view& data, float* out, int window) {
  box_filter(data, out, window);
}

void savitzky_golay(const image_view& data, float* out, int window) {
  weighted_filter(data, out, window);
}

}  // namespace corv
