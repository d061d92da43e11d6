#ifndef CORV_IO_INSTRUCTION_SETS_H
#define CORV_IO_INSTRUCTION_SETS_H

namespace corv {

// Vector instructions beyond the common x86-64 baseline the library is built
// for. A hot loop may come twice, once compiled for the baseline and once for
// one of these alone; the library picks the second when it loads, where the
// processor runs it.
enum class instruction_set {
  avx2_fma,  // AVX2 and fused multiply-add
  avx512,    // AVX-512 foundation, with fused multiply-add
};

// Whether this processor runs the set (never off x86-64).
bool processor_has(instruction_set set);

}  // namespace corv

#endif
