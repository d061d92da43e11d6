#include "tavr/camera/ximea_library.h"

#include <dlfcn.h>

#include <sys/stat.h>
#include <cstdlib>
#include <stdexcept>

namespace tavr {

namespace {

template <typename Function>
void resolve(void* handle, const std::string& file, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(handle, name));
  if (function == nullptr) {
    throw std::runtime_error("ximea_library: " + file + " has no function " + name);
  }
}

bool is_file(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

}  // namespace

void ximea_library::closer::operator()(void* handle) const {
  dlclose(handle);
}

ximea_library::ximea_library(const std::string& file) : file_(file) {
  handle_.reset(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL));
  if (!handle_) {
    const char* reason = dlerror();
    throw std::runtime_error("ximea_library: Cannot load " + file + ": " +
                             (reason != nullptr ? reason : "unknown reason"));
  }
  void* h = handle_.get();
  resolve(h, file, "xiGetNumberDevices", get_number_devices);
  resolve(h, file, "xiOpenDevice", open_device);
  resolve(h, file, "xiCloseDevice", close_device);
  resolve(h, file, "xiSetParamInt", set_param_int);
  resolve(h, file, "xiSetParamFloat", set_param_float);
  resolve(h, file, "xiSetParamString", set_param_string);
  resolve(h, file, "xiGetParamInt", get_param_int);
  resolve(h, file, "xiGetParamFloat", get_param_float);
  resolve(h, file, "xiGetParamString", get_param_string);
  resolve(h, file, "xiStartAcquisition", start_acquisition);
  resolve(h, file, "xiGetImage", get_image);
  resolve(h, file, "xiStopAcquisition", stop_acquisition);
  set_target_ = reinterpret_cast<void (*)(int)>(dlsym(h, "ximea_simulator_set_target"));
}

ximea_library::~ximea_library() = default;

std::string ximea_library::default_file() {
  const char* chosen = std::getenv("TAVREL_XIMEA_LIBRARY");
  return chosen != nullptr && *chosen != '\0' ? std::string(chosen) : std::string(vendor_file);
}

std::string ximea_library::simulator_file(const std::string& program_dir) {
  for (const char* place : {"/../lib/", "/../lib/tavrel/"}) {
    const std::string candidate = program_dir + place + "libximea_simulator.so";
    if (is_file(candidate)) {
      return candidate;
    }
  }
  return {};
}

void ximea_library::point_simulator_at(int target) const {
  if (set_target_ != nullptr) {
    set_target_(target);
  }
}

}  // namespace tavr
