#include "corv/pipeline/band_alignment.h"

#include <opencv2/imgproc.hpp>

#include <stdexcept>
#include <string>
#include <vector>

namespace corv {

namespace {

// Bands narrower than this give no usable correlation peak.
constexpr arma::uword smallest_side = 8;

void check(const cube& data, unsigned reference) {
  if (reference >= data.n_slices) {
    throw std::runtime_error("align_bands: Reference band " + std::to_string(reference) +
                             " does not exist; the image has " + std::to_string(data.n_slices) +
                             " bands.");
  }
  if (data.n_rows < smallest_side || data.n_cols < smallest_side) {
    throw std::runtime_error("align_bands: The image is too small to align (" +
                             std::to_string(data.n_rows) + " x " + std::to_string(data.n_cols) +
                             ").");
  }
}

// A column-major band seen by OpenCV: a row-major image of its transpose, so
// OpenCV's x runs down the cube's rows and its y along the columns.
cv::Mat band_view(const cube& data, arma::uword band) {
  return cv::Mat(static_cast<int>(data.n_cols), static_cast<int>(data.n_rows), CV_32FC1,
                 const_cast<float*>(data.slice_memptr(band)));
}

// The spectrum of a band under the window, zero-padded to a fast transform size
// (the window takes the band to zero at its edges, so the padding adds no edge).
cv::Mat windowed_spectrum(const cv::Mat& band, const cv::Mat& window) {
  cv::Mat windowed;
  cv::multiply(band, window, windowed);
  cv::Mat padded;
  cv::copyMakeBorder(windowed, padded, 0, cv::getOptimalDFTSize(band.rows) - band.rows, 0,
                     cv::getOptimalDFTSize(band.cols) - band.cols, cv::BORDER_CONSTANT, 0.0);
  cv::Mat spectrum;
  cv::dft(padded, spectrum, cv::DFT_COMPLEX_OUTPUT);
  return spectrum;
}

// The sub-pixel offset of a correlation peak from the neighbours on either
// side: for the sinc-shaped peak of a phase correlation, d = c1 / (c1 + c0)
// towards the larger neighbour c1 (Foroosh, Zerubia and Berthod, 2002).
double peak_offset(float before, float peak, float after) {
  if (after >= before) {
    return after > 0.0f ? after / (after + peak) : 0.0;
  }
  return before > 0.0f ? -before / (before + peak) : 0.0;
}

// The shift of a band against the reference, from their windowed spectra: the
// peak of the inverse transform of the normalised cross-power spectrum.
band_shift correlate(const cv::Mat& reference, const cv::Mat& band) {
  cv::Mat cross;
  cv::mulSpectrums(band, reference, cross, 0, true);
  std::vector<cv::Mat> parts;
  cv::split(cross, parts);
  cv::Mat magnitude;
  cv::magnitude(parts[0], parts[1], magnitude);
  magnitude += 1e-12f;
  cv::divide(parts[0], magnitude, parts[0]);
  cv::divide(parts[1], magnitude, parts[1]);
  cv::merge(parts, cross);
  cv::Mat surface;
  cv::idft(cross, surface, cv::DFT_REAL_OUTPUT | cv::DFT_SCALE);
  cv::Point peak;
  double response = 0.0;
  cv::minMaxLoc(surface, nullptr, &response, nullptr, &peak);
  const int w = surface.cols;
  const int h = surface.rows;
  auto at = [&](int y, int x) { return surface.at<float>((y + h) % h, (x + w) % w); };
  const float top = at(peak.y, peak.x);
  double x = peak.x + peak_offset(at(peak.y, peak.x - 1), top, at(peak.y, peak.x + 1));
  double y = peak.y + peak_offset(at(peak.y - 1, peak.x), top, at(peak.y + 1, peak.x));
  // Shifts past half the transform wrap round to negative ones.
  if (x > w / 2.0) {
    x -= w;
  }
  if (y > h / 2.0) {
    y -= h;
  }
  // OpenCV's x runs down the cube's rows (see band_view).
  return {x, y, response};
}

}  // namespace

std::vector<band_shift> band_shifts(const cube& data, unsigned reference) {
  check(data, reference);
  std::vector<band_shift> shifts(data.n_slices);
  cv::Mat window;
  cv::createHanningWindow(window, band_view(data, reference).size(), CV_32F);
  const cv::Mat fixed = windowed_spectrum(band_view(data, reference), window);
#pragma omp parallel for schedule(dynamic)
  for (long b = 0; b < static_cast<long>(data.n_slices); ++b) {
    if (b == static_cast<long>(reference)) {
      shifts[static_cast<std::size_t>(b)].response = 1.0;
      continue;
    }
    shifts[static_cast<std::size_t>(b)] =
        correlate(fixed, windowed_spectrum(band_view(data, static_cast<arma::uword>(b)), window));
  }
  return shifts;
}

std::vector<band_shift> align_bands(cube& data, unsigned reference, double min_response) {
  std::vector<band_shift> shifts = band_shifts(data, reference);
#pragma omp parallel for schedule(dynamic)
  for (long b = 0; b < static_cast<long>(data.n_slices); ++b) {
    band_shift& shift = shifts[static_cast<std::size_t>(b)];
    if (shift.response < min_response) {
      shift.rows = 0.0;
      shift.columns = 0.0;
    }
    if (shift.rows == 0.0 && shift.columns == 0.0) {
      continue;
    }
    const cv::Mat band = band_view(data, static_cast<arma::uword>(b)).clone();
    cv::Mat target = band_view(data, static_cast<arma::uword>(b));
    const cv::Matx23d move(1.0, 0.0, -shift.rows, 0.0, 1.0, -shift.columns);
    cv::warpAffine(band, target, move, band.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
  }
  return shifts;
}

}  // namespace corv
