#ifndef TAVR_CAMERA_CAMERA_THREAD_H
#define TAVR_CAMERA_CAMERA_THREAD_H

#include <QImage>
#include <QMutex>
#include <QString>
#include <QThread>
#include <QTimer>
#include <QWaitCondition>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "tavr/camera/camera.h"
#include "tavr/camera/frame_conversion.h"

namespace tavr {

class ximea_library;

// A copy of one raw frame, taken for a capture, with what the camera said about it.
struct camera_frame {
  std::vector<std::uint8_t> bytes;  // width x height values of 1 or 2 bytes
  int width = 0;
  int height = 0;
  bool sixteen_bit = true;
  int frame_number = 0;
  double exposure_us = 0.0;
  double gain_db = 0.0;

  frame_view view() const { return {bytes.data(), width, height, sixteen_bit}; }
};

// The viewer's camera service. Every 1500 ms (on the GUI thread) it compares the
// number of connected cameras with the camera objects it holds and, when they
// differ or the current camera stopped answering, stops its loop, rebuilds every
// camera object and starts the loop again. The loop (this thread) grabs frames from the current
// camera while live view is on, turns each into the display picture of the view mode and signals
// it; it also hands out copies of frames on request, for captures.
//
// The loop never holds the mutex while it waits for a frame, so the GUI thread
// can change the view mode, band and camera, and read the picture, at any time
// without waiting for the camera.
class camera_thread : public QThread {
  Q_OBJECT

 public:
  static constexpr int discovery_interval_ms = 1500;
  // How long the loop rests after each frame, so that a fast camera leaves the
  // GUI thread time to show its frames.
  static constexpr int rest_ms = 2;
  static constexpr int failure_rest_ms = 20;
  // Grabs failing in a row after which the camera counts as lost, so that a
  // camera unplugged and plugged in again between two looks is opened anew.
  static constexpr int lost_after_failures = 3;
  using library_ptr = std::shared_ptr<const ximea_library>;

  // `library` may be null (no camera library: no cameras).
  explicit camera_thread(library_ptr library, QObject* parent = nullptr);
  ~camera_thread() override;

  // Drops the cameras of the current library and looks for the new library's at once.
  void set_library(library_ptr library);
  const library_ptr& library() const { return library_; }
  const QTimer& timer() const { return timer_; }
  // No more discovery (the program is closing).
  void stop_discovery() { timer_.stop(); }

  // The camera objects, in device order. The GUI thread may configure them
  // (exposure, gain, bit depth); they live until the next remove_cam_from_ui.
  int camera_count() const { return static_cast<int>(cameras_.size()); }
  camera* camera_at(int index) const;
  camera* current_camera() const { return camera_at(current_index()); }
  int current_index() const;
  void set_current_camera(int index);

  bool live() const;
  void set_live(bool on);
  // "Raw", "Color" or "band".
  QString view_mode() const;
  void set_view_mode(const QString& mode);
  int band() const;
  void set_band(int band);
  // Frames averaged in the band view (1: none).
  int smoothing() const;
  void set_smoothing(int frames);

  // The picture of the last frame. Taking it allows the next cam_image_captured.
  QImage display_image();
  // Copies the next `count` frames of the current camera, live view or not; each
  // arrives through frame_captured. A frame that cannot be taken ends the
  // request with capture_failed.
  void request_frames(int count);

 Q_SIGNALS:
  void add_cam_to_ui();
  void remove_cam_from_ui();
  // A new display picture is ready (at most one waits at a time).
  void cam_image_captured();
  void frame_captured(std::shared_ptr<const tavr::camera_frame> frame);
  void capture_failed();

 public Q_SLOTS:
  void check_for_cameras_();

 protected:
  void run() override;

 private:
  void stop_loop();
  void start_loop();
  void drop_cameras();
  // The display picture of a frame in the current mode (called by the loop).
  void convert(camera& source, const frame_view& frame, const QString& mode, int band,
               int smoothing, int camera_index);

  library_ptr library_;
  std::vector<std::unique_ptr<camera>> cameras_;
  QTimer timer_;

  mutable QMutex mutex_;
  QWaitCondition wake_;
  int current_ = 0;
  bool running_ = false;
  bool live_ = false;
  bool stop_ = false;
  QString mode_ = QStringLiteral("Raw");
  int band_ = 0;
  int smoothing_ = 1;
  int frames_wanted_ = 0;
  QImage display_;
  std::atomic<bool> picture_waiting_{false};
  std::atomic<int> failures_in_row_{0};

  // Loop-only state.
  const void* frame_ = nullptr;  // the last frame, valid until the next grab
  QImage pictures_[2];           // written in turn, so that the one shown is never written
  int next_picture_ = 0;
  std::vector<float> band_average_;
  colour_mix mix_;
  int mix_camera_ = -1;
  bool mix_sixteen_bit_ = true;
  int acquiring_ = -1;  // the camera acquiring, or -1
};

}  // namespace tavr

Q_DECLARE_METATYPE(std::shared_ptr<const tavr::camera_frame>)

#endif
