#ifndef TAVR_CAMERA_CAMERA_CAPTURE_H
#define TAVR_CAMERA_CAMERA_CAPTURE_H

#include <QList>
#include <QString>
#include <memory>
#include <vector>

#include "tavr/camera/capture_spectra.h"
#include "tavr/camera/frame_conversion.h"

namespace tavr {

class camera;
struct camera_frame;
class reflectance_references;

// What a capture needs to know of the camera that took the frame.
struct camera_description {
  mosaic_layout mosaic;
  std::vector<float> wavelengths;  // mosaic order
  corv::matrix responses;          // mosaic order
  int range_start = 0;

  static camera_description of(camera& device);
};

// How captures are made.
struct capture_options {
  bool smoothed = false;
  int smoothed_bands = 15;
  // Reflectance against these references (null: raw counts).
  const reflectance_references* references = nullptr;
};

// A finished capture.
struct capture_result {
  spectral_cube data;
  bool reflectance = false;
};

// Splits a frame by its mosaic into a cube with bands in ascending wavelength
// order (no reflectance, no smoothing): what references are made of.
spectral_cube raw_capture(const camera_frame& frame, const camera_description& device);
// The mean of several raw captures (the same size).
spectral_cube mean_capture(const QList<spectral_cube>& captures);
// The capture of a frame: split, sorted, turned into reflectance when there
// are references, smoothed when asked. Throws std::runtime_error with the
// failing step's text.
capture_result make_capture(const camera_frame& frame, const camera_description& device,
                            const capture_options& options);

// Writes a capture: ENVI 32-bit float (a ".hdr" name puts the data beside it in
// ".fla"), reflectance captures as reflectance; or, for a name ending in ".hsz",
// an HSZ file of the capture's recovered illuminant, reflectance and materials
// (default settings; this takes seconds). Nothing is left behind on failure.
void save_capture(const capture_result& capture, const QString& file_name);

}  // namespace tavr

#endif
