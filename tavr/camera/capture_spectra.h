#ifndef TAVR_CAMERA_CAPTURE_SPECTRA_H
#define TAVR_CAMERA_CAPTURE_SPECTRA_H

#include <vector>

#include "corv/io/types.h"

namespace tavr {

// A captured cube with its wavelengths.
struct spectral_cube {
  corv::cube cube;
  corv::vector wavelengths;
};

// The bands in ascending wavelength order (a mosaic numbers its bands by place,
// not by wavelength): position k holds the index of the k-th shortest band.
std::vector<int> wavelength_order(const std::vector<float>& wavelengths);

// Turns the bands of a capture into `count` bands spread evenly from the
// shortest to the longest band wavelength. With filter responses, each pixel's
// spectrum is the smoothest one (least second differences) that the filters
// would have seen as the measured bands, sampled at the new wavelengths; this
// also undoes the overlap between neighbouring filters. Without responses the
// bands are interpolated linearly. Either way a flat spectrum stays flat at the
// level of its bands.
class spectral_smoother {
 public:
  // `wavelengths` ascending, one per band; `responses` bands x samples, sample s
  // at range_start + s nm (may be empty). Throws std::runtime_error
  // "spectral_smoother: ..." for fewer than 2 bands or `count` below 2.
  spectral_smoother(const std::vector<float>& wavelengths, const corv::matrix& responses,
                    int range_start, int count);

  const corv::vector& wavelengths() const { return wavelengths_; }
  // count x bands: new band k = sum over b of operator(k, b) x band b.
  const corv::matrix& weights() const { return weights_; }
  corv::cube apply(const corv::cube& cube) const;

 private:
  corv::vector wavelengths_;
  corv::matrix weights_;
};

}  // namespace tavr

#endif
