#ifndef TAVR_CAMERA_CAMERA_PREFERENCES_DIALOG_H
#define TAVR_CAMERA_CAMERA_PREFERENCES_DIALOG_H

#include <QDialog>
#include <QTimer>

#include "tavr/camera/camera_preferences.h"

class QCheckBox;
class QLineEdit;
class QRadioButton;
class QSlider;
class QSpinBox;

namespace tavr {

class camera;

// "Camera Preferences...": exposure and gain (applied to the camera at once),
// bit depth, how captures are made and named, and where image sequences go.
class camera_preferences_dialog : public QDialog {
  Q_OBJECT

 public:
  // Steps of the exposure slider, which moves on a logarithmic scale.
  static constexpr int exposure_steps = 1000;

  explicit camera_preferences_dialog(QWidget* parent = nullptr);

  void set_values(const camera_preferences& values);
  camera_preferences values() const;
  // The camera the exposure, gain and bit depth controls act on (null: none).
  void set_camera(camera* device);
  // Without interaction, messages are only reported through message_reported.
  void set_interactive(bool interactive) { interactive_ = interactive; }

 public Q_SLOTS:
  void set_exposure_gain_mode_();
  void exposure_slider_(int position);
  void exposure_text_();
  void gain_slider_(int position);
  void gain_text_();
  void bit_depth_();
  void image_dir_();
  void video_image_dir_();
  // Refuses to close while the image-sequence folder cannot be made.
  void accept() override;

 Q_SIGNALS:
  void message_reported(const QString& title, const QString& text);

 private:
  void build();
  // Shows the camera's exposure and gain (or the stored ones without a camera).
  void show_exposure();
  bool sequence_folder_usable(const QString& folder);
  double exposure_at(int position) const;  // microseconds
  int position_of(double exposure_us) const;

  camera* camera_ = nullptr;
  camera_preferences values_;
  bool interactive_ = true;
  double exposure_min_us_ = 50.0;
  double exposure_max_us_ = 1e6;
  QTimer refresh_;

  QRadioButton* auto_ = nullptr;
  QRadioButton* manual_ = nullptr;
  QSlider* exposure_slider_widget_ = nullptr;
  QLineEdit* exposure_field_ = nullptr;
  QSlider* gain_slider_widget_ = nullptr;
  QLineEdit* gain_field_ = nullptr;
  QRadioButton* eight_bits_ = nullptr;
  QRadioButton* ten_bits_ = nullptr;
  QRadioButton* original_ = nullptr;
  QRadioButton* smoothed_ = nullptr;
  QSpinBox* smoothed_bands_ = nullptr;
  QLineEdit* image_name_ = nullptr;
  QSpinBox* counter_start_ = nullptr;
  QSpinBox* increment_ = nullptr;
  QSpinBox* digits_ = nullptr;
  QCheckBox* remember_counter_ = nullptr;
  QLineEdit* image_folder_ = nullptr;
  QLineEdit* sequence_folder_ = nullptr;
  QCheckBox* show_at_start_ = nullptr;
};

}  // namespace tavr

#endif
