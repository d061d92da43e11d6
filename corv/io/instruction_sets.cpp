#include "corv/io/instruction_sets.h"

namespace corv {

bool processor_has(instruction_set set) {
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
  __builtin_cpu_init();
  switch (set) {
    case instruction_set::avx2_fma:
      return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    case instruction_set::avx512:
      return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("fma");
  }
  return false;
#else
  static_cast<void>(set);
  return false;
#endif
}

}  // namespace corv
