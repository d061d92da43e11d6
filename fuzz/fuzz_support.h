#ifndef CORV_FUZZ_FUZZ_SUPPORT_H
#define CORV_FUZZ_FUZZ_SUPPORT_H

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "corv/io/isolated_call.h"
#include "corv/io/logger.h"

namespace corv::fuzz {

// A folder of this fuzzing process for the files an input becomes; the readers
// under test take file names.
inline std::string scratch(const std::string& name) {
  static const std::filesystem::path folder = [] {
    corv::logger::instance().set_echo(false);
    const auto path =
        std::filesystem::temp_directory_path() / ("corv-fuzz-" + std::to_string(::getpid()));
    std::filesystem::create_directories(path);
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(
          std::filesystem::temp_directory_path() / ("corv-fuzz-" + std::to_string(::getpid())),
          ignored);
    });
    return path;
  }();
  return (folder / name).string();
}

inline std::string write_file(const std::string& name, const std::uint8_t* data, std::size_t size) {
  const std::string path = scratch(name);
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  return path;
}

// The log grows with every input; only the newest lines matter here.
inline void forget_log() {
  corv::logger::instance().clear_entries();
}

// A reader refused the input: what every damaged file must get. A child
// process of a trial read that exited on its own instead of returning or
// throwing (the sanitizer's report on this library's code) is a finding,
// reported here as a crash.
inline void refused(const std::exception&) {
  if (corv::isolated_exits() > 0) {
    std::abort();
  }
}

}  // namespace corv::fuzz

#endif
