#ifndef TAVR_CAMERA_REFLECTANCE_CALIBRATION_H
#define TAVR_CAMERA_REFLECTANCE_CALIBRATION_H

#include <QString>
#include <optional>

#include "corv/io/types.h"

namespace tavr {

// A reference capture: a cube (bands in ascending wavelength order) and the
// exposure it was taken with.
struct reference_capture {
  corv::cube cube;
  corv::vector wavelengths;
  double exposure_us = 0.0;
  double gain_db = 0.0;
};

// One band value: (raw - dark) / (white - dark), scaled by `exposure_ratio`; 0
// where the white reference is not brighter than the dark.
inline float reflectance_of(float raw, float dark, float white, float exposure_ratio) {
  const float span = white - dark;
  return span > 0.0f ? (raw - dark) / span * exposure_ratio : 0.0f;
}

// How much more signal the white reference collected per count of the capture:
// (white exposure x white gain) / (capture exposure x capture gain), gains linear
// from dB. The dark frame is the sensor's black level, which does not grow with
// the exposure, so it is subtracted as it is.
double exposure_ratio(double capture_exposure_us, double capture_gain_db, double white_exposure_us,
                      double white_gain_db);

// The dark and white references of reflectance captures, kept beside the
// captures in a folder: "dark_reference.hdr", "white_reference.hdr" (ENVI, 32-bit
// float) and "camera_references.ini" with their exposures.
class reflectance_references {
 public:
  static const QString dark_file;
  static const QString white_file;
  static const QString exposure_file;

  const std::optional<reference_capture>& dark() const { return dark_; }
  const std::optional<reference_capture>& white() const { return white_; }
  void set_dark(reference_capture capture) { dark_ = std::move(capture); }
  void set_white(reference_capture capture) { white_ = std::move(capture); }
  void clear();
  // Both references are there.
  bool complete() const { return dark_ && white_; }

  // The capture's reflectance, band by band. Throws std::runtime_error
  // "reflectance_references: ..." when a reference is missing or its size or
  // wavelengths differ from the capture's.
  corv::cube reflectance(const corv::cube& raw, const corv::vector& wavelengths, double exposure_us,
                         double gain_db) const;

  // Writes the references that are set into `folder` (creating it), each file
  // whole or not at all. Throws std::runtime_error with the writer's text.
  void save(const QString& folder) const;
  // Reads the references saved in `folder`; those absent stay unset. Throws
  // std::runtime_error with the reader's text for a damaged file.
  void load(const QString& folder);

 private:
  std::optional<reference_capture> dark_;
  std::optional<reference_capture> white_;
};

}  // namespace tavr

#endif
