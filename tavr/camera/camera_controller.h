#ifndef TAVR_CAMERA_CAMERA_CONTROLLER_H
#define TAVR_CAMERA_CAMERA_CONTROLLER_H

#include <QElapsedTimer>
#include <QFutureWatcher>
#include <QImage>
#include <QList>
#include <QObject>
#include <QString>
#include <memory>

#include "tavr/camera/camera_capture.h"
#include "tavr/camera/camera_preferences.h"
#include "tavr/camera/camera_thread.h"
#include "tavr/camera/reflectance_calibration.h"

class QSettings;
class QWidget;

namespace tavr {

class camera_panel;
class camera_preferences_dialog;
class hs_image;

// What the main window's camera commands do: which camera library is used,
// live view, snapshots, recorded image sequences, reflectance references and
// the camera dock's contents. The main window's camera slots hand over to it.
class camera_controller : public QObject {
  Q_OBJECT

 public:
  // Frames averaged into a dark or white reference.
  static constexpr int reference_frames = 8;
  static const QString capture_failed_message;  // "Could not capture image."

  // Loads the camera library named by $TAVREL_XIMEA_LIBRARY, else the vendor's
  // (a missing library means no cameras and one log line). The simulated camera
  // is looked for next to the program in `program_dir`. The panel and the
  // preferences dialog are made children of `window`.
  camera_controller(QSettings& settings, const QString& program_dir, QWidget* window);
  ~camera_controller() override;

  camera_thread& thread() { return *thread_; }
  camera_panel& panel() { return *panel_; }
  camera_preferences_dialog& preferences_dialog() { return *dialog_; }
  const camera_preferences& preferences() const { return preferences_; }
  void set_preferences(const camera_preferences& values);
  const reflectance_references& references() const { return *references_; }
  // Why there is no camera library (empty when one is loaded).
  const QString& library_problem() const { return library_problem_; }
  bool simulated() const;
  bool recording() const { return recording_; }
  int frames_recorded() const { return frames_recorded_; }
  // Without interaction, failures are only reported through message_reported.
  void set_interactive(bool interactive);

  // Switches to the simulated camera (true) or back to the vendor's library;
  // false when the chosen library cannot be loaded (the reason is reported).
  bool use_simulator(bool simulated);

  void start_live();
  void stop_live();
  // Ends live view and recording and stops the acquisition thread (closing the window).
  void shut_down();
  // Captures the next frame into the image list and the capture folder, or into
  // `file` when one is given.
  void snapshot(const QString& file = QString());
  void toggle_recording();
  void capture_dark_reference();
  void capture_white_reference();
  void clear_references();

  void show_preferences();
  void set_view_mode(int index);
  // Shows the band listed in this row of "Camera Wavelengths:".
  void set_band(int row);
  void set_camera(int index);
  void cameras_added();
  void cameras_removed();
  // The live picture for the view; `refit` is set when its size changed.
  QImage take_picture(bool& refit);

 Q_SIGNALS:
  // A capture has become an image (already saved unless saving failed).
  void image_captured(std::shared_ptr<tavr::hs_image> image);
  // A snapshot has ended, with the saved file or the failure's text.
  void snapshot_finished(bool saved, const QString& text);
  void message_reported(const QString& title, const QString& text);
  // The cameras or the camera library have changed.
  void cameras_changed();
  void recording_changed(bool recording);

 private:
  enum class pending { none, snapshot, dark, white };

  // The library in `file`, or null with library_problem() set and logged.
  std::shared_ptr<const ximea_library> open_library(const std::string& file);
  void load_library(const std::string& file);
  bool switch_library(bool simulated);
  void report(const QString& title, const QString& text);
  void frame_arrived(const std::shared_ptr<const camera_frame>& frame);
  void capture_failed();
  void finish_snapshot(const camera_frame& frame);
  void finish_reference(const std::shared_ptr<const camera_frame>& frame);
  void record(const std::shared_ptr<const camera_frame>& frame);
  void recorded();
  void start_reference(pending kind);
  // The references kept in the capture folder (none when they cannot be read).
  void read_references();
  void show_references();
  void show_bands();
  void apply_preferences(camera& device) const;
  capture_options options() const;

  QSettings& settings_;
  QString program_dir_;
  QWidget* window_;
  std::unique_ptr<camera_thread> thread_;
  camera_panel* panel_ = nullptr;
  camera_preferences_dialog* dialog_ = nullptr;
  camera_preferences preferences_;
  std::shared_ptr<const reflectance_references> references_;
  capture_counter counter_;
  capture_counter sequence_counter_;
  QString library_problem_;
  bool interactive_ = true;

  pending pending_ = pending::none;
  QString snapshot_file_;
  QList<spectral_cube> reference_parts_;
  double reference_exposure_us_ = 0.0;
  double reference_gain_db_ = 0.0;
  int reference_skip_ = 0;

  bool recording_ = false;
  int frames_recorded_ = 0;
  QFutureWatcher<QString> writer_;

  QSize shown_size_;
  QElapsedTimer rate_shown_;
};

}  // namespace tavr

#endif
