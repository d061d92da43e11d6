#ifndef CORV_IO_MEMORY_BUDGET_H
#define CORV_IO_MEMORY_BUDGET_H

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>

namespace corv {

// Sizes read from a file are checked before anything is allocated for them, so
// that a damaged or hostile header is refused instead of exhausting memory.

// The product of the factors, or nothing when it does not fit 64 bits.
std::optional<std::uint64_t> checked_product(std::initializer_list<std::uint64_t> factors);

// The physical memory of this machine in bytes.
std::uint64_t physical_memory();

// Throws "<routine>: <what> needs <n> MiB of memory, more than this machine has
// (<m> MiB)." when the bytes exceed the physical memory; an empty size (one that
// overflowed) always does, reported as "more than 2^64 bytes".
void require_memory(const std::optional<std::uint64_t>& bytes, const std::string& routine,
                    const std::string& what);

}  // namespace corv

#endif
