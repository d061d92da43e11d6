#ifndef TAVR_CAMERA_CAMERA_H
#define TAVR_CAMERA_CAMERA_H

#include <QString>
#include <cstdint>
#include <utility>
#include <vector>

#include "corv/io/types.h"

namespace tavr {

// A snapshot-mosaic hyperspectral camera as the viewer sees it: opened by device
// index, configured, and read one raw frame at a time. No data and no behaviour of
// its own; `ximea_camera` is the driver.
class camera {
 public:
  virtual ~camera() = default;

  virtual void open_device(int index) = 0;
  virtual void close_device() = 0;
  virtual void set_auto_exposure() = 0;
  virtual bool start_acquisition() = 0;
  virtual void stop_acquisition() = 0;
  // The next frame's first pixel inside the border, or null when no frame came;
  // get_height() rows of get_width() pixels, get_width() apart. Valid until the
  // next grab.
  virtual const std::uint8_t* get_image_8bit() = 0;
  virtual const std::uint16_t* get_image_16bit() = 0;
  virtual QString get_device_name() = 0;
  virtual QString get_device_serial() = 0;
  virtual int get_number_devices() = 0;
  virtual std::vector<float> get_wavelengths() = 0;
  // Bands x calibration samples (one per nanometre of get_response_range()).
  virtual corv::matrix get_filter_responses() = 0;
  virtual int get_height() = 0;
  virtual int get_width() = 0;
  virtual int get_mosaic_height() = 0;
  virtual int get_mosaic_width() = 0;
  virtual int get_number_bands() = 0;
  virtual float get_framerate() = 0;
  virtual int get_frame_number() = 0;
  virtual double get_exposure() = 0;  // microseconds
  virtual std::vector<float> get_exposure_list() = 0;
  virtual double get_exposure_max() = 0;
  virtual double get_exposure_min() = 0;
  virtual double get_gain() = 0;  // dB
  virtual double get_gain_max() = 0;
  virtual double get_gain_min() = 0;
  virtual void set_gain(double gain) = 0;
  virtual void set_exposure(double exposure) = 0;
  virtual QString get_exposure_gain_mode() = 0;
  // "auto" or "manual"; other texts are only stored.
  virtual void set_exposure_gain_mode(const QString& mode) = 0;
  // 8 for 8-bit raw frames, anything else for 16-bit raw frames.
  virtual void set_bit_depth(int bits) = 0;
  virtual int get_image_format() = 0;  // 5 8-bit raw, 6 16-bit raw
  virtual void set_current_band(int band) = 0;
  virtual int get_current_band() = 0;
  // The first and last wavelength (nm) of the filter responses' samples.
  virtual std::pair<int, int> get_response_range() = 0;
};

}  // namespace tavr

#endif
