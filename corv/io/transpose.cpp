#include "corv/io/transpose.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#include <xmmintrin.h>
#endif
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#endif

#include "corv/io/instruction_sets.h"

namespace corv {

namespace {

// A block of 16 x 16 floats: one 64-byte cache line per line on both sides. Moving
// whole lines keeps image widths that are powers of two, whose lines all fall in
// the same cache sets, from evicting each other half used.
constexpr std::size_t block = 16;

// Block (r, c) of the source into a local, column-major 16 x 16 buffer.
inline void load_block(const float* source, std::size_t line_stride, float (&local)[block][block]) {
#if defined(__SSE2__)
  for (std::size_t i = 0; i < block; i += 4) {
    for (std::size_t j = 0; j < block; j += 4) {
      const float* from = source + i * line_stride + j;
      __m128 a = _mm_loadu_ps(from);
      __m128 b = _mm_loadu_ps(from + line_stride);
      __m128 c = _mm_loadu_ps(from + 2 * line_stride);
      __m128 d = _mm_loadu_ps(from + 3 * line_stride);
      _MM_TRANSPOSE4_PS(a, b, c, d);
      _mm_store_ps(&local[j][i], a);
      _mm_store_ps(&local[j + 1][i], b);
      _mm_store_ps(&local[j + 2][i], c);
      _mm_store_ps(&local[j + 3][i], d);
    }
  }
#else
  for (std::size_t i = 0; i < block; ++i) {
    for (std::size_t j = 0; j < block; ++j) {
      local[j][i] = source[i * line_stride + j];
    }
  }
#endif
}

// What is left of a line or a column outside whole blocks, element by element.
void transpose_edge(const float* line_major, std::size_t line_stride, std::size_t r0,
                    std::size_t r1, std::size_t c0, std::size_t c1, float* column_major,
                    std::size_t column_stride) {
  for (std::size_t c = c0; c < c1; ++c) {
    for (std::size_t r = r0; r < r1; ++r) {
      column_major[c * column_stride + r] = line_major[r * line_stride + c];
    }
  }
}

using transpose_function = void (*)(const float*, std::size_t, std::size_t, std::size_t, float*,
                                    std::size_t);

void transpose_baseline(const float* line_major, std::size_t line_stride, std::size_t rows,
                        std::size_t cols, float* column_major, std::size_t column_stride) {
  alignas(64) float local[block][block];
  const std::size_t whole_rows = rows - rows % block;
  const std::size_t whole_cols = cols - cols % block;
  for (std::size_t r = 0; r < whole_rows; r += block) {
    for (std::size_t c = 0; c < whole_cols; c += block) {
      load_block(line_major + r * line_stride + c, line_stride, local);
      for (std::size_t j = 0; j < block; ++j) {
        std::memcpy(column_major + (c + j) * column_stride + r, local[j], sizeof(local[j]));
      }
    }
    transpose_edge(line_major, line_stride, r, r + block, whole_cols, cols, column_major,
                   column_stride);
  }
  transpose_edge(line_major, line_stride, whole_rows, rows, 0, cols, column_major, column_stride);
}

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
// With AVX2, a block goes as four 8 x 8 transposes in registers, each line
// stored straight to its place: half the instructions of the 4 x 4 ones and
// no local copy. Compiled for those processors alone, chosen when the library
// loads.
__attribute__((target("avx2"), always_inline)) inline void transpose_8x8(
    const float* from, std::size_t line_stride, float* to, std::size_t column_stride) {
  __m256 r[8];
  for (int i = 0; i < 8; ++i) {
    r[i] = _mm256_loadu_ps(from + i * line_stride);
  }
  __m256 t[8];
  for (int i = 0; i < 8; i += 2) {
    t[i] = _mm256_unpacklo_ps(r[i], r[i + 1]);
    t[i + 1] = _mm256_unpackhi_ps(r[i], r[i + 1]);
  }
  __m256 s[8];
  for (int i = 0; i < 8; i += 4) {
    s[i] = _mm256_shuffle_ps(t[i], t[i + 2], 0x44);
    s[i + 1] = _mm256_shuffle_ps(t[i], t[i + 2], 0xEE);
    s[i + 2] = _mm256_shuffle_ps(t[i + 1], t[i + 3], 0x44);
    s[i + 3] = _mm256_shuffle_ps(t[i + 1], t[i + 3], 0xEE);
  }
  for (int i = 0; i < 4; ++i) {
    _mm256_storeu_ps(to + i * column_stride, _mm256_permute2f128_ps(s[i], s[i + 4], 0x20));
    _mm256_storeu_ps(to + (i + 4) * column_stride, _mm256_permute2f128_ps(s[i], s[i + 4], 0x31));
  }
}

__attribute__((target("avx2"))) void transpose_avx2(const float* line_major,
                                                    std::size_t line_stride, std::size_t rows,
                                                    std::size_t cols, float* column_major,
                                                    std::size_t column_stride) {
  const std::size_t whole_rows = rows - rows % block;
  const std::size_t whole_cols = cols - cols % block;
  for (std::size_t r = 0; r < whole_rows; r += block) {
    for (std::size_t c = 0; c < whole_cols; c += block) {
      for (std::size_t i = 0; i < block; i += 8) {
        for (std::size_t j = 0; j < block; j += 8) {
          transpose_8x8(line_major + (r + i) * line_stride + c + j, line_stride,
                        column_major + (c + j) * column_stride + r + i, column_stride);
        }
      }
    }
    transpose_edge(line_major, line_stride, r, r + block, whole_cols, cols, column_major,
                   column_stride);
  }
  transpose_edge(line_major, line_stride, whole_rows, rows, 0, cols, column_major, column_stride);
}

const transpose_function transpose =
    processor_has(instruction_set::avx2_fma) ? transpose_avx2 : transpose_baseline;
#else
const transpose_function transpose = transpose_baseline;
#endif

}  // namespace

void transpose_into(const float* line_major, std::size_t line_stride, std::size_t rows,
                    std::size_t cols, float* column_major, std::size_t column_stride) {
  transpose(line_major, line_stride, rows, cols, column_major, column_stride);
}

}  // namespace corv
