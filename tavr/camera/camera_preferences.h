#ifndef TAVR_CAMERA_CAMERA_PREFERENCES_H
#define TAVR_CAMERA_CAMERA_PREFERENCES_H

#include <QString>

class QSettings;

namespace tavr {

// The user's camera settings, kept between runs in the viewer's settings under
// "camera/".
struct camera_preferences {
  QString exposure_mode = QStringLiteral("auto");  // or "manual"
  double exposure_ms = 10.0;
  double gain_db = 0.0;
  int bit_depth = 10;  // 8 or 10
  // Captures keep the camera's bands, or are smoothed into `smoothed_bands`.
  bool smoothed = false;
  int smoothed_bands = 15;
  QString image_name = QStringLiteral("image");
  int counter_start = 1;
  int increment = 1;
  int digits = 4;
  bool remember_counter = false;
  QString image_folder;     // captures and their references
  QString sequence_folder;  // recorded image sequences
  bool show_at_live_start = false;

  // The defaults, with both folders under the user's pictures folder.
  static camera_preferences defaults();
  // Reads every key; absent keys keep the defaults.
  static camera_preferences load(const QSettings& settings);
  void save(QSettings& settings) const;
};

// "<name>_<counter>", the counter zero-padded to `digits` (a minus sign comes
// before the padding).
QString numbered_name(const QString& name, int counter, int digits);

// Numbers captures: the next free "<name>_<counter>.hdr" in a folder, then the
// counter moves on by the increment. Names that exist are skipped, never
// overwritten.
class capture_counter {
 public:
  void reset(int start) { next_ = start; }
  int next() const { return next_; }
  // The path of the next capture in `folder` (the counter skips names in use)
  // and moves the counter past it.
  QString take(const QString& folder, const QString& name, int increment, int digits);

 private:
  int next_ = 1;
};

}  // namespace tavr

#endif
