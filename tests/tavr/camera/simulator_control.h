#ifndef TESTS_TAVR_CAMERA_SIMULATOR_CONTROL_H
#define TESTS_TAVR_CAMERA_SIMULATOR_CONTROL_H

// The simulated camera as the camera tests drive it: its library beside the test
// programs, and its controls beyond the vendor's functions.
#include <dlfcn.h>
#include <QCoreApplication>
#include <QString>

#include <memory>
#include <string>

#include "tavr/camera/ximea_library.h"

namespace camera_testing {

inline std::string simulator_path() {
  return tavr::ximea_library::simulator_file(QCoreApplication::applicationDirPath().toStdString());
}

// Sets the simulator's environment (unset names return to their defaults) and resets it.
inline void configure(std::initializer_list<std::pair<const char*, const char*>> settings) {
  for (const char* name : {"XIMEA_SIMULATOR_CAMERAS", "XIMEA_SIMULATOR_FPS", "XIMEA_SIMULATOR_DROP",
                           "XIMEA_SIMULATOR_UNPLUG_AFTER", "XIMEA_SIMULATOR_REPLUG_MS",
                           "XIMEA_SIMULATOR_CALIBRATION"}) {
    qunsetenv(name);
  }
  for (const auto& [name, value] : settings) {
    qputenv(name, value);
  }
  void* handle = dlopen(simulator_path().c_str(), RTLD_NOW | RTLD_LOCAL);
  reinterpret_cast<void (*)()>(dlsym(handle, "ximea_simulator_reset"))();
  dlclose(handle);
}

inline int open_handles() {
  void* handle = dlopen(simulator_path().c_str(), RTLD_NOW | RTLD_LOCAL);
  const int count = reinterpret_cast<int (*)()>(dlsym(handle, "ximea_simulator_open_handles"))();
  dlclose(handle);
  return count;
}

inline std::shared_ptr<const tavr::ximea_library> simulator() {
  return std::make_shared<tavr::ximea_library>(simulator_path());
}

}  // namespace camera_testing

#endif
