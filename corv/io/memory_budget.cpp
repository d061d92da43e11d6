#include "corv/io/memory_budget.h"

#include <unistd.h>

#include <stdexcept>

namespace corv {

std::optional<std::uint64_t> checked_product(std::initializer_list<std::uint64_t> factors) {
  std::uint64_t product = 1;
  for (const std::uint64_t factor : factors) {
    if (__builtin_mul_overflow(product, factor, &product)) {
      return std::nullopt;
    }
  }
  return product;
}

std::uint64_t physical_memory() {
  const long pages = ::sysconf(_SC_PHYS_PAGES);
  const long page_size = ::sysconf(_SC_PAGE_SIZE);
  if (pages <= 0 || page_size <= 0) {
    return UINT64_MAX;
  }
  return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(page_size);
}

void require_memory(const std::optional<std::uint64_t>& bytes, const std::string& routine,
                    const std::string& what) {
  const std::uint64_t available = physical_memory();
  if (bytes && *bytes <= available) {
    return;
  }
  constexpr std::uint64_t mib = 1024 * 1024;
  const std::string needed =
      bytes ? std::to_string((*bytes + mib - 1) / mib) + " MiB" : "more than 2^64 bytes";
  throw std::runtime_error(routine + ": " + what + " needs " + needed +
                           " of memory, more than this machine has (" +
                           std::to_string(available / mib) + " MiB).");
}

}  // namespace corv
