#ifndef CORV_CLI_IMAGE_SUMMARY_H
#define CORV_CLI_IMAGE_SUMMARY_H

#include <string>
#include <vector>

#include "corv/io/input.h"

namespace corv::cli {

// What `corv info` tells about an opened image.
struct image_summary {
  std::string file;
  std::string format;
  int input_kind = 0;
  std::uint32_t lines = 0, samples = 0, bands = 0;
  std::vector<float> wavelengths;
  bool reflectance = false;
  std::vector<std::string> components;

  static image_summary of(const std::string& file, input& source);
  std::string text() const;
  std::string json() const;
};

}  // namespace corv::cli

#endif
