#ifndef TAVR_CAMERA_XIMEA_LIBRARY_H
#define TAVR_CAMERA_XIMEA_LIBRARY_H

#include <memory>
#include <string>

#include "tavr/camera/ximea_api.h"

namespace tavr {

// The XIMEA camera library, loaded at run time so that the viewer needs no
// vendor files to build or to run. Holds the library open for its lifetime; the
// camera objects share it.
class ximea_library {
 public:
  // The vendor's library on Linux.
  static constexpr const char* vendor_file = "libm3api.so.2";

  // Loads `file` and resolves the twelve functions. Throws std::runtime_error
  // "ximea_library: Cannot load <file>: <reason>" or "ximea_library: <file> has
  // no function <name>".
  explicit ximea_library(const std::string& file);
  ~ximea_library();
  ximea_library(const ximea_library&) = delete;
  ximea_library& operator=(const ximea_library&) = delete;

  // $TAVREL_XIMEA_LIBRARY when set, else the vendor's library.
  static std::string default_file();
  // The simulated camera next to the program: <dir>/../lib/ in a build tree,
  // <dir>/../lib/tavrel/ when installed. Empty when neither exists.
  static std::string simulator_file(const std::string& program_dir);

  const std::string& file() const { return file_; }
  // True for the simulated camera, which can also be pointed at a capped lens or
  // a white tile (see point_simulator_at).
  bool simulated() const { return set_target_ != nullptr; }
  // 0 the scene, 1 a capped lens, 2 a white tile; nothing for a real camera.
  void point_simulator_at(int target) const;

  xi::get_number_devices_fn get_number_devices = nullptr;
  xi::open_device_fn open_device = nullptr;
  xi::close_device_fn close_device = nullptr;
  xi::set_param_int_fn set_param_int = nullptr;
  xi::set_param_float_fn set_param_float = nullptr;
  xi::set_param_string_fn set_param_string = nullptr;
  xi::get_param_int_fn get_param_int = nullptr;
  xi::get_param_float_fn get_param_float = nullptr;
  xi::get_param_string_fn get_param_string = nullptr;
  xi::start_acquisition_fn start_acquisition = nullptr;
  xi::get_image_fn get_image = nullptr;
  xi::stop_acquisition_fn stop_acquisition = nullptr;

 private:
  struct closer {
    void operator()(void* handle) const;
  };
  std::string file_;
  std::unique_ptr<void, closer> handle_;
  void (*set_target_)(int) = nullptr;
};

}  // namespace tavr

#endif
