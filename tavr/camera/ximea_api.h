#ifndef TAVR_CAMERA_XIMEA_API_H
#define TAVR_CAMERA_XIMEA_API_H

// The part of the XIMEA camera API that the driver uses: the twelve functions it
// resolves at run time and the leading fields of the image descriptor. Declared
// here, not taken from the vendor's headers, so that the build needs nothing of
// the vendor's; the static_asserts below state the layout that a machine with the
// vendor's xiApi.h can compare against it.

#include <cstddef>
#include <cstdint>

namespace tavr::xi {

using handle = void*;
using dword = std::uint32_t;
using status = int;  // 0 on success

constexpr status ok = 0;
constexpr status invalid_handle = 1;
constexpr status timeout = 10;
constexpr status invalid_argument = 11;
constexpr status not_supported = 12;
constexpr status device_not_ready = 57;
constexpr status unknown_parameter = 100;

// Values of the "imgdataformat" parameter.
constexpr int raw8 = 5;
constexpr int raw16 = 6;

// The image descriptor filled by xiGetImage. Its `size` field tells the library
// how much of the structure the caller has: the driver declares and announces
// the first 64 bytes.
struct image {
  dword size;
  void* bp;  // the frame's pixels, owned by the library
  dword bp_size;
  int frm;  // pixel format of the frame
  dword width;
  dword height;
  dword nframe;  // frame number counted by the camera since acquisition start
  dword ts_sec;
  dword ts_usec;
  dword reserved[5];
};
constexpr dword image_size = 64;
static_assert(sizeof(image) == image_size, "image descriptor size");
static_assert(offsetof(image, bp) == 8 && offsetof(image, bp_size) == 16, "descriptor layout");
static_assert(offsetof(image, width) == 24 && offsetof(image, height) == 28, "descriptor layout");
static_assert(offsetof(image, nframe) == 32, "descriptor layout");

// The functions, as the library exports them (C linkage, these names).
using get_number_devices_fn = status (*)(dword* count);
using open_device_fn = status (*)(dword index, handle* device);
using close_device_fn = status (*)(handle device);
using set_param_int_fn = status (*)(handle device, const char* name, int value);
using set_param_float_fn = status (*)(handle device, const char* name, float value);
using set_param_string_fn = status (*)(handle device, const char* name, void* value, dword size);
using get_param_int_fn = status (*)(handle device, const char* name, int* value);
using get_param_float_fn = status (*)(handle device, const char* name, float* value);
using get_param_string_fn = status (*)(handle device, const char* name, void* value, dword size);
using start_acquisition_fn = status (*)(handle device);
using get_image_fn = status (*)(handle device, dword timeout_ms, image* frame);
using stop_acquisition_fn = status (*)(handle device);

}  // namespace tavr::xi

#endif
