#ifndef TAVR_CAMERA_XIMEA_CAMERA_H
#define TAVR_CAMERA_XIMEA_CAMERA_H

#include <memory>

#include "tavr/camera/camera.h"
#include "tavr/camera/camera_calibration.h"
#include "tavr/camera/ximea_api.h"

namespace tavr {

class ximea_library;

// One XIMEA camera through the vendor's library. Return codes of the library are
// ignored except by xiGetImage (no frame) and by the calibration read (fallback).
class ximea_camera : public camera {
 public:
  static constexpr xi::dword frame_timeout_ms = 5000;

  explicit ximea_camera(std::shared_ptr<const ximea_library> library);
  // Closes the device when it is still open.
  ~ximea_camera() override;
  ximea_camera(const ximea_camera&) = delete;
  ximea_camera& operator=(const ximea_camera&) = delete;

  // Opens the device and reads its calibration.
  void open_device(int index) override;
  void close_device() override;
  void set_auto_exposure() override;
  bool start_acquisition() override;
  void stop_acquisition() override;
  const std::uint8_t* get_image_8bit() override;
  const std::uint16_t* get_image_16bit() override;
  QString get_device_name() override;
  QString get_device_serial() override;
  int get_number_devices() override;
  std::vector<float> get_wavelengths() override;
  corv::matrix get_filter_responses() override;
  int get_height() override;
  int get_width() override;
  int get_mosaic_height() override;
  int get_mosaic_width() override;
  int get_number_bands() override;
  float get_framerate() override;
  int get_frame_number() override;
  double get_exposure() override;
  std::vector<float> get_exposure_list() override;
  double get_exposure_max() override;
  double get_exposure_min() override;
  double get_gain() override;
  double get_gain_max() override;
  double get_gain_min() override;
  // Clamped to the gain range and truncated to whole dB.
  void set_gain(double gain) override;
  // Clamped to the exposure range.
  void set_exposure(double exposure) override;
  QString get_exposure_gain_mode() override;
  void set_exposure_gain_mode(const QString& mode) override;
  void set_bit_depth(int bits) override;
  int get_image_format() override;
  void set_current_band(int band) override;
  int get_current_band() override;
  std::pair<int, int> get_response_range() override;

 private:
  void read_calibration();
  // The next frame, or null on failure.
  const std::uint8_t* grab();
  int get_int(const char* name);
  float get_float(const char* name);

  std::shared_ptr<const ximea_library> library_;
  xi::handle device_ = nullptr;
  xi::image image_{};
  camera_calibration calibration_;
  int current_band_ = 0;
  QString mode_ = QStringLiteral("auto");
};

}  // namespace tavr

#endif
