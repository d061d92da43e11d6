#ifndef TAVR_CAMERA_CAMERA_CALIBRATION_H
#define TAVR_CAMERA_CAMERA_CALIBRATION_H

#include <QByteArray>
#include <vector>

#include "corv/io/types.h"

namespace tavr {

// How a camera's filter mosaic maps to spectral bands, as its factory
// calibration tells.
struct camera_calibration {
  int bands = 0;
  std::vector<float> wavelengths;  // one per band, in mosaic order
  corv::matrix filter_responses;   // bands x (range_end - range_start + 1)
  int mosaic_width = 0;
  int mosaic_height = 0;
  int offset_x = 0;  // border removed on each side of the raw frame
  int offset_y = 0;
  int range_start = 0;  // nm of the first and last response sample
  int range_end = 0;
};

// What a camera without a readable calibration has: 3 bands at 0, 1 and 2, no
// mosaic and no border.
camera_calibration fallback_calibration();

// Reads the flat calibration XML ("nr_bands", "offset_x", "offset_y",
// "mosaic_pattern_width", "mosaic_pattern_height", one "band" per band whose
// first comma-separated part is its wavelength, "fwhm" skipped whole,
// "start_calibration_range", "end_calibration_range" and "filter_responses",
// sample-major: part bands x s + b is band b at sample s). Reads until the end
// or the first XML error, keeping what it has read; never throws.
camera_calibration parse_calibration(const QByteArray& xml);

}  // namespace tavr

#endif
