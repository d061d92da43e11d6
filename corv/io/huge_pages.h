#ifndef CORV_IO_HUGE_PAGES_H
#define CORV_IO_HUGE_PAGES_H

#include <cstddef>
#include <vector>

namespace corv {

// Asks the kernel to back a large buffer with transparent huge pages. Given
// before the buffer is first touched, it spares most of the page faults of
// filling it, which otherwise cost more than the filling itself (on a virtual
// machine several times more). Buffers under a few megabytes are left alone.
void advise_huge_pages(void* data, std::size_t bytes);

// Resizes an empty vector to `count` value-initialised elements, advising huge
// pages for its storage first.
template <typename T>
void resize_large(std::vector<T>& values, std::size_t count) {
  values.reserve(count);
  advise_huge_pages(values.data(), count * sizeof(T));
  values.resize(count);
}

}  // namespace corv

#endif
