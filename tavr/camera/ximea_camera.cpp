#include "tavr/camera/ximea_camera.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "tavr/camera/ximea_library.h"

namespace tavr {

namespace {

constexpr xi::dword calibration_name_size = 260;
constexpr xi::dword calibration_buffer_size = 1000000;

}  // namespace

ximea_camera::ximea_camera(std::shared_ptr<const ximea_library> library)
    : library_(std::move(library)) {
  image_.size = xi::image_size;
}

ximea_camera::~ximea_camera() {
  close_device();
}

void ximea_camera::open_device(int index) {
  library_->open_device(static_cast<xi::dword>(index), &device_);
  read_calibration();
}

void ximea_camera::read_calibration() {
  std::array<char, calibration_name_size> name{};
  const char file_name[] = "sens_calib.dat";
  std::copy(std::begin(file_name), std::end(file_name), name.begin());
  library_->set_param_string(device_, "ffs_file_name", name.data(), calibration_name_size);
  std::vector<char> text(calibration_buffer_size, '\0');
  if (library_->get_param_string(device_, "read_file_ffs", text.data(), calibration_buffer_size) !=
      xi::ok) {
    calibration_ = fallback_calibration();
    return;
  }
  text.back() = '\0';
  calibration_ = parse_calibration(QByteArray(text.data()));
}

void ximea_camera::close_device() {
  if (device_ != nullptr) {
    library_->close_device(device_);
    device_ = nullptr;
  }
}

void ximea_camera::set_auto_exposure() {
  library_->set_param_int(device_, "aeag", 1);
  library_->set_param_float(device_, "exp_priority", 1.0f);
}

bool ximea_camera::start_acquisition() {
  library_->start_acquisition(device_);
  // The first frame fills the descriptor, so that the frame size is known at once.
  library_->get_image(device_, frame_timeout_ms, &image_);
  return true;
}

void ximea_camera::stop_acquisition() {
  library_->stop_acquisition(device_);
}

const std::uint8_t* ximea_camera::grab() {
  if (library_->get_image(device_, frame_timeout_ms, &image_) != xi::ok || image_.bp == nullptr) {
    return nullptr;
  }
  return static_cast<const std::uint8_t*>(image_.bp);
}

const std::uint8_t* ximea_camera::get_image_8bit() {
  const std::uint8_t* frame = grab();
  if (frame == nullptr) {
    return nullptr;
  }
  return frame + static_cast<std::ptrdiff_t>(calibration_.offset_y) * image_.width +
         calibration_.offset_x;
}

const std::uint16_t* ximea_camera::get_image_16bit() {
  const std::uint8_t* frame = grab();
  if (frame == nullptr) {
    return nullptr;
  }
  return reinterpret_cast<const std::uint16_t*>(frame) +
         static_cast<std::ptrdiff_t>(calibration_.offset_y) * image_.width + calibration_.offset_x;
}

QString ximea_camera::get_device_name() {
  std::array<char, 256> text{};
  library_->get_param_string(device_, "device_name", text.data(), text.size());
  text.back() = '\0';
  return QString::fromLocal8Bit(text.data());
}

QString ximea_camera::get_device_serial() {
  std::array<char, 256> text{};
  library_->get_param_string(device_, "device_sn", text.data(), text.size());
  text.back() = '\0';
  return QString::fromLocal8Bit(text.data());
}

int ximea_camera::get_number_devices() {
  xi::dword count = 0;
  library_->get_number_devices(&count);
  return static_cast<int>(count);
}

std::vector<float> ximea_camera::get_wavelengths() {
  return calibration_.wavelengths;
}

corv::matrix ximea_camera::get_filter_responses() {
  return calibration_.filter_responses;
}

int ximea_camera::get_height() {
  return static_cast<int>(image_.height) - 2 * calibration_.offset_y;
}

int ximea_camera::get_width() {
  return static_cast<int>(image_.width) - 2 * calibration_.offset_x;
}

int ximea_camera::get_mosaic_height() {
  return calibration_.mosaic_height;
}

int ximea_camera::get_mosaic_width() {
  return calibration_.mosaic_width;
}

int ximea_camera::get_number_bands() {
  return calibration_.bands;
}

int ximea_camera::get_int(const char* name) {
  int value = 0;
  library_->get_param_int(device_, name, &value);
  return value;
}

float ximea_camera::get_float(const char* name) {
  float value = 0.0f;
  library_->get_param_float(device_, name, &value);
  return value;
}

float ximea_camera::get_framerate() {
  return get_float("framerate");
}

int ximea_camera::get_frame_number() {
  return static_cast<int>(image_.nframe);
}

double ximea_camera::get_exposure() {
  return get_int("exposure");
}

std::vector<float> ximea_camera::get_exposure_list() {
  return {static_cast<float>(get_exposure())};
}

double ximea_camera::get_exposure_max() {
  return get_int("exposure:max");
}

double ximea_camera::get_exposure_min() {
  return get_int("exposure:min");
}

double ximea_camera::get_gain() {
  return get_float("gain");
}

double ximea_camera::get_gain_max() {
  return get_float("gain:max");
}

double ximea_camera::get_gain_min() {
  return get_float("gain:min");
}

void ximea_camera::set_gain(double gain) {
  const double clamped = std::clamp(gain, get_gain_min(), std::max(get_gain_min(), get_gain_max()));
  library_->set_param_int(device_, "gain", static_cast<int>(clamped));
}

void ximea_camera::set_exposure(double exposure) {
  const double lowest = get_exposure_min();
  const double clamped = std::clamp(exposure, lowest, std::max(lowest, get_exposure_max()));
  library_->set_param_int(device_, "exposure", static_cast<int>(clamped));
}

QString ximea_camera::get_exposure_gain_mode() {
  return mode_;
}

void ximea_camera::set_exposure_gain_mode(const QString& mode) {
  mode_ = mode;
  if (mode == QLatin1String("manual")) {
    library_->set_param_int(device_, "aeag", 0);
  } else if (mode == QLatin1String("auto")) {
    library_->set_param_int(device_, "aeag", 1);
    library_->set_param_float(device_, "exp_priority", 0.5f);
  }
}

void ximea_camera::set_bit_depth(int bits) {
  library_->set_param_int(device_, "imgdataformat", bits == 8 ? xi::raw8 : xi::raw16);
}

int ximea_camera::get_image_format() {
  return get_int("imgdataformat");
}

void ximea_camera::set_current_band(int band) {
  current_band_ = band;
}

int ximea_camera::get_current_band() {
  return current_band_;
}

std::pair<int, int> ximea_camera::get_response_range() {
  return {calibration_.range_start, calibration_.range_end};
}

}  // namespace tavr
