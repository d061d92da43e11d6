#include "corv/io/huge_pages.h"

#include <sys/mman.h>

#include <cstdint>

namespace corv {

void advise_huge_pages(void* data, std::size_t bytes) {
  constexpr std::uintptr_t huge_page = std::uintptr_t{2} << 20;
  if (data == nullptr || bytes < 2 * huge_page) {
    return;
  }
  // Only whole huge pages inside the buffer can be advised.
  const auto start = reinterpret_cast<std::uintptr_t>(data);
  const std::uintptr_t first = (start + huge_page - 1) & ~(huge_page - 1);
  const std::uintptr_t end = (start + bytes) & ~(huge_page - 1);
  if (end > first) {
    // Advice only: a kernel without transparent huge pages refuses it, and the
    // buffer then works as before.
    ::madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
  }
}

}  // namespace corv
