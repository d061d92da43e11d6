// The simulated camera: the XIMEA functions the driver resolves, behaving like
// one connected snapshot-mosaic camera (or none, or several). Environment:
//   XIMEA_SIMULATOR_CAMERAS       number of cameras connected (default 1)
//   XIMEA_SIMULATOR_FPS           frame rate (default 30)
//   XIMEA_SIMULATOR_DROP          every Nth frame is lost on its way (frame number skips)
//   XIMEA_SIMULATOR_UNPLUG_AFTER  the cameras are unplugged after N frames
//   XIMEA_SIMULATOR_REPLUG_MS     ... and plugged in again M ms later
//   XIMEA_SIMULATOR_CALIBRATION   serve this file as the calibration ("" or a
//                                 missing file: the camera has none)
// They are read when the library is loaded and by ximea_simulator_reset().
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tavr/camera/simulator/simulated_sensor.h"
#include "tavr/camera/ximea_api.h"

extern "C" const char simulator_calibration[];

namespace {

namespace xi = tavr::xi;
using tavr::simulator::simulated_sensor;
using tavr::simulator::target;
using clock_type = std::chrono::steady_clock;

constexpr int exposure_min_us = 50;
constexpr int exposure_max_us = 1000000;
constexpr float gain_min_db = 0.0f;
constexpr float gain_max_db = 24.0f;
constexpr double fps_max = 170.0;

struct configuration {
  int cameras = 1;
  double fps = 30.0;
  long drop_every = 0;
  long unplug_after = -1;
  long replug_ms = -1;
  std::optional<std::string> calibration_file;  // unset: the built-in one
};

long number_from_environment(const char* name, long fallback) {
  const char* text = std::getenv(name);
  if (text == nullptr || *text == '\0') {
    return fallback;
  }
  char* end = nullptr;
  const double value = std::strtod(text, &end);
  return end != text ? static_cast<long>(value) : fallback;
}

configuration read_configuration() {
  configuration c;
  c.cameras =
      static_cast<int>(std::clamp(number_from_environment("XIMEA_SIMULATOR_CAMERAS", 1), 0L, 8L));
  if (const char* fps = std::getenv("XIMEA_SIMULATOR_FPS"); fps != nullptr && *fps != '\0') {
    c.fps = std::clamp(std::strtod(fps, nullptr), 0.01, fps_max);
  }
  c.drop_every = number_from_environment("XIMEA_SIMULATOR_DROP", 0);
  c.unplug_after = number_from_environment("XIMEA_SIMULATOR_UNPLUG_AFTER", -1);
  c.replug_ms = number_from_environment("XIMEA_SIMULATOR_REPLUG_MS", -1);
  if (const char* file = std::getenv("XIMEA_SIMULATOR_CALIBRATION"); file != nullptr) {
    c.calibration_file = file;
  }
  return c;
}

// One opened device. Parameters are guarded by `mutex`; the frame buffer belongs
// to the one thread that calls xiGetImage.
struct device {
  std::mutex mutex;
  int index = 0;
  bool dead = false;  // unplugged while open
  bool acquiring = false;
  bool auto_exposure = false;
  float exposure_priority = 0.8f;
  double exposure_us = 10000.0;
  double gain_db = 0.0;
  int format = xi::raw16;
  double fps = 30.0;
  std::string ffs_file_name;
  clock_type::time_point last_frame;
  xi::dword frame_number = 0;
  std::vector<std::uint16_t> buffer =
      std::vector<std::uint16_t>(std::size_t{simulated_sensor::width} * simulated_sensor::height);
};

// The connection: which cameras are plugged in and which handles are open.
struct simulator_state {
  std::mutex mutex;
  configuration config = read_configuration();
  bool plugged = true;
  long frames_since_plug = 0;
  clock_type::time_point unplugged_at;
  std::map<xi::handle, std::unique_ptr<device>> devices;
  std::atomic<int> looking_at{static_cast<int>(target::scene)};
  clock_type::time_point epoch = clock_type::now();

  void update_plug(clock_type::time_point now) {
    if (!plugged && config.replug_ms >= 0 &&
        now - unplugged_at >= std::chrono::milliseconds(config.replug_ms)) {
      plugged = true;
      frames_since_plug = 0;
    }
  }
};

simulator_state& state() {
  static simulator_state s;
  return s;
}

// The open device behind a handle, or null.
device* find(xi::handle handle) {
  simulator_state& s = state();
  std::lock_guard<std::mutex> lock(s.mutex);
  const auto it = s.devices.find(handle);
  return it == s.devices.end() ? nullptr : it->second.get();
}

double frame_period_s(const device& d) {
  return std::max(1.0 / d.fps, d.exposure_us * 1e-6);
}

std::string calibration_text(const configuration& config) {
  if (!config.calibration_file) {
    return simulator_calibration;
  }
  std::ifstream file(*config.calibration_file, std::ios::binary);
  if (!file) {
    return {};
  }
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

xi::status set_number(xi::handle handle, const char* name, double value) {
  device* d = find(handle);
  if (d == nullptr || name == nullptr) {
    return xi::invalid_handle;
  }
  std::lock_guard<std::mutex> lock(d->mutex);
  if (d->dead) {
    return xi::device_not_ready;
  }
  const std::string parameter = name;
  if (parameter == "aeag") {
    d->auto_exposure = value != 0.0;
  } else if (parameter == "exp_priority") {
    if (value < 0.0 || value > 1.0) {
      return xi::invalid_argument;
    }
    d->exposure_priority = static_cast<float>(value);
  } else if (parameter == "exposure") {
    if (value < exposure_min_us || value > exposure_max_us) {
      return xi::invalid_argument;
    }
    d->exposure_us = std::floor(value);
  } else if (parameter == "gain") {
    if (value < gain_min_db || value > gain_max_db) {
      return xi::invalid_argument;
    }
    d->gain_db = value;
  } else if (parameter == "imgdataformat") {
    if (value != xi::raw8 && value != xi::raw16) {
      return xi::not_supported;
    }
    d->format = static_cast<int>(value);
  } else if (parameter == "framerate") {
    if (value <= 0.0 || value > fps_max) {
      return xi::invalid_argument;
    }
    d->fps = value;
  } else {
    return xi::unknown_parameter;
  }
  return xi::ok;
}

std::optional<double> get_number(xi::handle handle, const char* name, xi::status& status) {
  device* d = find(handle);
  if (d == nullptr || name == nullptr) {
    status = xi::invalid_handle;
    return std::nullopt;
  }
  std::lock_guard<std::mutex> lock(d->mutex);
  status = d->dead ? xi::device_not_ready : xi::ok;
  if (d->dead) {
    return std::nullopt;
  }
  const std::string parameter = name;
  const std::map<std::string, double> values = {
      {"aeag", d->auto_exposure ? 1 : 0}, {"exp_priority", d->exposure_priority},
      {"exposure", d->exposure_us},       {"exposure:min", exposure_min_us},
      {"exposure:max", exposure_max_us},  {"gain", d->gain_db},
      {"gain:min", gain_min_db},          {"gain:max", gain_max_db},
      {"imgdataformat", d->format},       {"framerate", 1.0 / frame_period_s(*d)},
      {"width", simulated_sensor::width}, {"height", simulated_sensor::height},
  };
  const auto it = values.find(parameter);
  if (it == values.end()) {
    status = xi::unknown_parameter;
    return std::nullopt;
  }
  return it->second;
}

// Auto exposure: aims at a mean of 30% of full scale, by exposure first and,
// below an exposure priority of 1, by gain once the exposure is at its longest.
void adjust_exposure(device& d, target looking_at, double seconds) {
  const double unit = simulated_sensor::instance().mean_signal(looking_at, seconds);
  if (unit <= 0.0) {
    return;
  }
  const double wanted = 0.3 * simulated_sensor::full_scale / unit * 10000.0;  // us at 0 dB
  const double longest = std::min<double>(exposure_max_us, 1e6 / d.fps);
  const double gain = std::pow(10.0, d.gain_db / 20.0);
  double exposure = wanted / gain;
  if (d.exposure_priority < 1.0f && exposure > longest) {
    const double needed_db = 20.0 * std::log10(wanted / longest);
    d.gain_db = std::clamp(needed_db, double(gain_min_db), double(gain_max_db));
    exposure = wanted / std::pow(10.0, d.gain_db / 20.0);
  }
  d.exposure_us = std::floor(std::clamp(exposure, double(exposure_min_us), longest));
}

}  // namespace

#define SIMULATOR_EXPORT extern "C" __attribute__((visibility("default")))

SIMULATOR_EXPORT xi::status xiGetNumberDevices(xi::dword* count) {
  if (count == nullptr) {
    return xi::invalid_argument;
  }
  simulator_state& s = state();
  std::lock_guard<std::mutex> lock(s.mutex);
  s.update_plug(clock_type::now());
  *count = s.plugged ? static_cast<xi::dword>(s.config.cameras) : 0;
  return xi::ok;
}

SIMULATOR_EXPORT xi::status xiOpenDevice(xi::dword index, xi::handle* handle) {
  if (handle == nullptr) {
    return xi::invalid_argument;
  }
  simulator_state& s = state();
  std::lock_guard<std::mutex> lock(s.mutex);
  s.update_plug(clock_type::now());
  if (!s.plugged || index >= static_cast<xi::dword>(s.config.cameras)) {
    return xi::device_not_ready;
  }
  auto d = std::make_unique<device>();
  d->index = static_cast<int>(index);
  d->fps = s.config.fps;
  *handle = d.get();
  s.devices.emplace(d.get(), std::move(d));
  return xi::ok;
}

SIMULATOR_EXPORT xi::status xiCloseDevice(xi::handle handle) {
  simulator_state& s = state();
  std::lock_guard<std::mutex> lock(s.mutex);
  return s.devices.erase(handle) == 1 ? xi::ok : xi::invalid_handle;
}

SIMULATOR_EXPORT xi::status xiSetParamInt(xi::handle handle, const char* name, int value) {
  return set_number(handle, name, value);
}

SIMULATOR_EXPORT xi::status xiSetParamFloat(xi::handle handle, const char* name, float value) {
  return set_number(handle, name, value);
}

SIMULATOR_EXPORT xi::status xiGetParamInt(xi::handle handle, const char* name, int* value) {
  xi::status status = xi::ok;
  const std::optional<double> number = get_number(handle, name, status);
  if (number && value != nullptr) {
    *value = static_cast<int>(*number);
  }
  return status;
}

SIMULATOR_EXPORT xi::status xiGetParamFloat(xi::handle handle, const char* name, float* value) {
  xi::status status = xi::ok;
  const std::optional<double> number = get_number(handle, name, status);
  if (number && value != nullptr) {
    *value = static_cast<float>(*number);
  }
  return status;
}

SIMULATOR_EXPORT xi::status xiSetParamString(xi::handle handle, const char* name, void* value,
                                             xi::dword size) {
  device* d = find(handle);
  if (d == nullptr || name == nullptr || value == nullptr) {
    return xi::invalid_handle;
  }
  std::lock_guard<std::mutex> lock(d->mutex);
  if (d->dead) {
    return xi::device_not_ready;
  }
  if (std::string(name) != "ffs_file_name") {
    return xi::unknown_parameter;
  }
  const char* text = static_cast<const char*>(value);
  d->ffs_file_name.assign(text, strnlen(text, size));
  return xi::ok;
}

SIMULATOR_EXPORT xi::status xiGetParamString(xi::handle handle, const char* name, void* value,
                                             xi::dword size) {
  device* d = find(handle);
  if (d == nullptr || name == nullptr || value == nullptr || size == 0) {
    return xi::invalid_handle;
  }
  configuration config;
  {
    std::lock_guard<std::mutex> lock(state().mutex);
    config = state().config;
  }
  std::string text;
  {
    std::lock_guard<std::mutex> lock(d->mutex);
    if (d->dead) {
      return xi::device_not_ready;
    }
    const std::string parameter = name;
    if (parameter == "device_name") {
      text = "Simulated 4x4 VIS mosaic camera";
    } else if (parameter == "device_sn") {
      text = "SIM" + std::to_string(10001 + d->index);
    } else if (parameter == "read_file_ffs") {
      if (d->ffs_file_name != "sens_calib.dat") {
        return xi::invalid_argument;
      }
    } else {
      return xi::unknown_parameter;
    }
  }
  if (text.empty()) {
    text = calibration_text(config);
    if (text.empty()) {
      return xi::invalid_argument;
    }
  }
  if (text.size() + 1 > size) {
    return xi::invalid_argument;
  }
  std::memcpy(value, text.c_str(), text.size() + 1);
  return xi::ok;
}

SIMULATOR_EXPORT xi::status xiStartAcquisition(xi::handle handle) {
  device* d = find(handle);
  if (d == nullptr) {
    return xi::invalid_handle;
  }
  simulated_sensor::instance();  // the scene is prepared before the first frame is due
  std::lock_guard<std::mutex> lock(d->mutex);
  if (d->dead) {
    return xi::device_not_ready;
  }
  d->acquiring = true;
  d->frame_number = 0;
  d->last_frame = clock_type::now();
  return xi::ok;
}

SIMULATOR_EXPORT xi::status xiStopAcquisition(xi::handle handle) {
  device* d = find(handle);
  if (d == nullptr) {
    return xi::invalid_handle;
  }
  std::lock_guard<std::mutex> lock(d->mutex);
  d->acquiring = false;
  return xi::ok;
}

SIMULATOR_EXPORT xi::status xiGetImage(xi::handle handle, xi::dword timeout_ms, xi::image* frame) {
  device* d = find(handle);
  if (d == nullptr) {
    return xi::invalid_handle;
  }
  if (frame == nullptr || frame->size < offsetof(xi::image, nframe) + sizeof(xi::dword)) {
    return xi::invalid_argument;
  }
  simulator_state& s = state();
  long drop_every = 0;
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    drop_every = s.config.drop_every;
  }
  const auto now = clock_type::now();
  clock_type::time_point due;
  xi::dword number = 0;
  {
    std::lock_guard<std::mutex> lock(d->mutex);
    if (d->dead) {
      return xi::device_not_ready;
    }
    if (!d->acquiring) {
      return xi::not_supported;
    }
    const auto period = std::chrono::duration_cast<clock_type::duration>(
        std::chrono::duration<double>(frame_period_s(*d)));
    due = d->last_frame + period;
    number = d->frame_number + 1;
    // Frames the caller was too slow to take are gone.
    while (due + period < now) {
      due += period;
      ++number;
    }
    if (drop_every > 0 && number % drop_every == 0) {
      due += period;
      ++number;
    }
  }
  if (due > now + std::chrono::milliseconds(timeout_ms)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(timeout_ms));
    return xi::timeout;
  }
  std::this_thread::sleep_until(due);

  tavr::simulator::exposure_settings settings;
  const auto looking_at = static_cast<target>(s.looking_at.load());
  const double seconds = std::chrono::duration<double>(due - s.epoch).count();
  {
    std::lock_guard<std::mutex> lock(d->mutex);
    if (d->dead) {
      return xi::device_not_ready;
    }
    if (d->auto_exposure) {
      adjust_exposure(*d, looking_at, seconds);
    }
    settings.exposure_us = d->exposure_us;
    settings.gain_db = d->gain_db;
    settings.eight_bit = d->format == xi::raw8;
    d->last_frame = due;
    d->frame_number = number;
  }
  simulated_sensor::instance().render(looking_at, seconds, settings, number, d->buffer.data());
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    ++s.frames_since_plug;
    if (s.plugged && s.config.unplug_after >= 0 && s.frames_since_plug >= s.config.unplug_after) {
      s.plugged = false;
      s.unplugged_at = clock_type::now();
      for (auto& open : s.devices) {
        std::lock_guard<std::mutex> device_lock(open.second->mutex);
        open.second->dead = true;
      }
    }
  }
  const xi::dword bytes = settings.eight_bit ? 1 : 2;
  frame->bp = d->buffer.data();
  frame->bp_size = bytes * simulated_sensor::width * simulated_sensor::height;
  frame->frm = settings.eight_bit ? xi::raw8 : xi::raw16;
  frame->width = simulated_sensor::width;
  frame->height = simulated_sensor::height;
  frame->nframe = number;
  if (frame->size >= offsetof(xi::image, ts_usec) + sizeof(xi::dword)) {
    const auto since = std::chrono::duration_cast<std::chrono::microseconds>(due - s.epoch);
    frame->ts_sec = static_cast<xi::dword>(since.count() / 1000000);
    frame->ts_usec = static_cast<xi::dword>(since.count() % 1000000);
  }
  return xi::ok;
}

// Beyond the vendor's functions, for tests and for the viewer's simulated camera.

// Reads the environment again, plugs the cameras in and points them at the scene.
SIMULATOR_EXPORT void ximea_simulator_reset() {
  simulator_state& s = state();
  std::lock_guard<std::mutex> lock(s.mutex);
  s.config = read_configuration();
  s.plugged = true;
  s.frames_since_plug = 0;
  s.looking_at = static_cast<int>(target::scene);
}

// The number of handles opened and not yet closed.
SIMULATOR_EXPORT int ximea_simulator_open_handles() {
  simulator_state& s = state();
  std::lock_guard<std::mutex> lock(s.mutex);
  return static_cast<int>(s.devices.size());
}

// What the cameras look at: 0 the scene, 1 a capped lens, 2 a white tile.
SIMULATOR_EXPORT void ximea_simulator_set_target(int looking_at) {
  state().looking_at = std::clamp(looking_at, 0, 2);
}

// The declarations above match the function types the driver resolves.
static_assert(std::is_same_v<decltype(&xiGetNumberDevices), xi::get_number_devices_fn>);
static_assert(std::is_same_v<decltype(&xiOpenDevice), xi::open_device_fn>);
static_assert(std::is_same_v<decltype(&xiCloseDevice), xi::close_device_fn>);
static_assert(std::is_same_v<decltype(&xiSetParamInt), xi::set_param_int_fn>);
static_assert(std::is_same_v<decltype(&xiSetParamFloat), xi::set_param_float_fn>);
static_assert(std::is_same_v<decltype(&xiSetParamString), xi::set_param_string_fn>);
static_assert(std::is_same_v<decltype(&xiGetParamInt), xi::get_param_int_fn>);
static_assert(std::is_same_v<decltype(&xiGetParamFloat), xi::get_param_float_fn>);
static_assert(std::is_same_v<decltype(&xiGetParamString), xi::get_param_string_fn>);
static_assert(std::is_same_v<decltype(&xiStartAcquisition), xi::start_acquisition_fn>);
static_assert(std::is_same_v<decltype(&xiGetImage), xi::get_image_fn>);
static_assert(std::is_same_v<decltype(&xiStopAcquisition), xi::stop_acquisition_fn>);
