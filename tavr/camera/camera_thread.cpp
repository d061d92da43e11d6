#include "tavr/camera/camera_thread.h"

#include <QMutexLocker>
#include <algorithm>
#include <cstring>

#include "tavr/camera/ximea_api.h"
#include "tavr/camera/ximea_camera.h"
#include "tavr/camera/ximea_library.h"

namespace tavr {

camera_thread::camera_thread(library_ptr library, QObject* parent)
    : QThread(parent), library_(std::move(library)) {
  qRegisterMetaType<std::shared_ptr<const tavr::camera_frame>>();
  timer_.setInterval(discovery_interval_ms);
  connect(&timer_, &QTimer::timeout, this, &camera_thread::check_for_cameras_);
  timer_.start();
}

camera_thread::~camera_thread() {
  timer_.stop();
  drop_cameras();
}

camera* camera_thread::camera_at(int index) const {
  return index >= 0 && index < camera_count() ? cameras_[static_cast<std::size_t>(index)].get()
                                              : nullptr;
}

int camera_thread::current_index() const {
  QMutexLocker lock(&mutex_);
  return current_;
}

void camera_thread::set_current_camera(int index) {
  QMutexLocker lock(&mutex_);
  current_ = std::max(0, index);
}

bool camera_thread::live() const {
  QMutexLocker lock(&mutex_);
  return live_;
}

void camera_thread::set_live(bool on) {
  QMutexLocker lock(&mutex_);
  live_ = on;
  wake_.wakeAll();
}

QString camera_thread::view_mode() const {
  QMutexLocker lock(&mutex_);
  return mode_;
}

void camera_thread::set_view_mode(const QString& mode) {
  QMutexLocker lock(&mutex_);
  mode_ = mode;
}

int camera_thread::band() const {
  QMutexLocker lock(&mutex_);
  return band_;
}

void camera_thread::set_band(int band) {
  QMutexLocker lock(&mutex_);
  band_ = band;
}

int camera_thread::smoothing() const {
  QMutexLocker lock(&mutex_);
  return smoothing_;
}

void camera_thread::set_smoothing(int frames) {
  QMutexLocker lock(&mutex_);
  smoothing_ = std::max(1, frames);
}

QImage camera_thread::display_image() {
  QMutexLocker lock(&mutex_);
  picture_waiting_ = false;
  return display_;
}

void camera_thread::request_frames(int count) {
  QMutexLocker lock(&mutex_);
  frames_wanted_ = std::max(0, count);
  wake_.wakeAll();
}

void camera_thread::set_library(library_ptr library) {
  drop_cameras();
  library_ = std::move(library);
  check_for_cameras_();
}

void camera_thread::stop_loop() {
  {
    QMutexLocker lock(&mutex_);
    stop_ = true;
    running_ = false;
    wake_.wakeAll();
  }
  wait();
}

void camera_thread::start_loop() {
  {
    QMutexLocker lock(&mutex_);
    stop_ = false;
    running_ = true;
  }
  start(QThread::InheritPriority);
}

void camera_thread::drop_cameras() {
  stop_loop();
  for (std::unique_ptr<camera>& c : cameras_) {
    c->stop_acquisition();
    c->close_device();
  }
  cameras_.clear();
  {
    QMutexLocker lock(&mutex_);
    frames_wanted_ = 0;
    display_ = QImage();
  }
  emit remove_cam_from_ui();
}

void camera_thread::check_for_cameras_() {
  int count = 0;
  if (library_) {
    xi::dword devices = 0;
    library_->get_number_devices(&devices);
    count = static_cast<int>(devices);
  }
  if (count == camera_count() && failures_in_row_ < lost_after_failures) {
    return;
  }
  drop_cameras();
  failures_in_row_ = 0;
  for (int index = 0; index < count; ++index) {
    auto device = std::make_unique<ximea_camera>(library_);
    device->open_device(index);
    device->set_auto_exposure();
    device->start_acquisition();
    device->stop_acquisition();
    cameras_.push_back(std::move(device));
  }
  {
    QMutexLocker lock(&mutex_);
    current_ = std::min(current_, std::max(0, count - 1));
  }
  acquiring_ = -1;
  mix_camera_ = -1;
  start_loop();
  emit add_cam_to_ui();
}

void camera_thread::run() {
  for (;;) {
    QMutexLocker lock(&mutex_);
    if (stop_) {
      break;
    }
    while (!stop_ && (cameras_.empty() || (!live_ && frames_wanted_ == 0))) {
      if (acquiring_ >= 0) {
        // Nothing wanted: the camera rests until live view or a capture wakes it.
        lock.unlock();
        cameras_[static_cast<std::size_t>(acquiring_)]->stop_acquisition();
        acquiring_ = -1;
        lock.relock();
        continue;
      }
      wake_.wait(&mutex_);
    }
    if (stop_) {
      break;
    }
    const int index = std::min(current_, camera_count() - 1);
    const bool live = live_;
    const bool wanted = frames_wanted_ > 0;
    const QString mode = mode_;
    const int band = band_;
    const int smoothing = smoothing_;
    lock.unlock();

    camera& source = *cameras_[static_cast<std::size_t>(index)];
    if (acquiring_ != index) {
      if (acquiring_ >= 0) {
        cameras_[static_cast<std::size_t>(acquiring_)]->stop_acquisition();
      }
      source.start_acquisition();
      acquiring_ = index;
    }
    const bool sixteen_bit = source.get_image_format() != xi::raw8;
    frame_ = sixteen_bit ? static_cast<const void*>(source.get_image_16bit())
                         : static_cast<const void*>(source.get_image_8bit());
    if (frame_ == nullptr) {
      ++failures_in_row_;
      // A frame that did not come is skipped in live view; a capture is told.
      lock.relock();
      const bool failed = frames_wanted_ > 0;
      frames_wanted_ = 0;
      lock.unlock();
      if (failed) {
        emit capture_failed();
      }
      // A camera that has gone fails at once: do not spin until discovery notices.
      msleep(failure_rest_ms);
      continue;
    }
    failures_in_row_ = 0;
    const frame_view frame{frame_, source.get_width(), source.get_height(), sixteen_bit};
    std::shared_ptr<camera_frame> copy;
    if (wanted) {
      copy = std::make_shared<camera_frame>();
      copy->width = frame.width;
      copy->height = frame.height;
      copy->sixteen_bit = sixteen_bit;
      const std::size_t bytes = static_cast<std::size_t>(std::max(0, frame.width)) *
                                static_cast<std::size_t>(std::max(0, frame.height)) *
                                (sixteen_bit ? 2 : 1);
      const auto* first = static_cast<const std::uint8_t*>(frame_);
      copy->bytes.assign(first, first + bytes);
      copy->frame_number = source.get_frame_number();
      copy->exposure_us = source.get_exposure();
      copy->gain_db = source.get_gain();
    }
    if (live) {
      convert(source, frame, mode, band, smoothing, index);
    }
    lock.relock();
    if (live) {
      display_ = pictures_[next_picture_];
      next_picture_ ^= 1;
    }
    if (copy) {
      --frames_wanted_;
    }
    const bool announce = live && !picture_waiting_.exchange(true);
    lock.unlock();
    if (copy) {
      emit frame_captured(std::move(copy));
    }
    if (announce) {
      emit cam_image_captured();
    }
    msleep(rest_ms);
  }
  // The loop ends with its camera at rest.
  if (acquiring_ >= 0 && acquiring_ < camera_count()) {
    cameras_[static_cast<std::size_t>(acquiring_)]->stop_acquisition();
  }
  acquiring_ = -1;
}

void camera_thread::convert(camera& source, const frame_view& frame, const QString& mode, int band,
                            int smoothing, int camera_index) {
  QImage& picture = pictures_[next_picture_];
  const mosaic_layout mosaic{source.get_mosaic_width(), source.get_mosaic_height(),
                             source.get_number_bands()};
  if (mode == QLatin1String("band") && mosaic.fits(frame)) {
    band_picture(frame, mosaic, std::clamp(band, 0, mosaic.bands - 1), picture);
    const auto pixels = static_cast<std::size_t>(picture.width()) * picture.height();
    if (smoothing <= 1 || band_average_.size() != pixels) {
      band_average_.assign(pixels, -1.0f);
    }
    if (smoothing > 1) {
      // A running mean over about `smoothing` frames steadies a noisy band.
      auto* levels = reinterpret_cast<QRgb*>(picture.bits());
      const float weight = 1.0f / static_cast<float>(smoothing);
      for (std::size_t i = 0; i < pixels; ++i) {
        const auto level = static_cast<float>(qBlue(levels[i]));
        float& mean = band_average_[i];
        mean = mean < 0.0f ? level : mean + (level - mean) * weight;
        const int shown = static_cast<int>(mean + 0.5f);
        levels[i] = qRgb(shown, shown, shown);
      }
    }
    return;
  }
  if (mode == QLatin1String("Color") && mosaic.fits(frame)) {
    if (mix_camera_ != camera_index || mix_sixteen_bit_ != frame.sixteen_bit) {
      mix_ = colour_mix_for(source.get_wavelengths(), frame.sixteen_bit);
      mix_camera_ = camera_index;
      mix_sixteen_bit_ = frame.sixteen_bit;
    }
    colour_picture(frame, mosaic, mix_, picture);
    return;
  }
  // "Raw", and the other modes while the camera's calibration has no mosaic.
  raw_picture(frame, picture);
}

}  // namespace tavr
