#include "corv/io/transpose.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#include <xmmintrin.h>
#endif

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

}  // namespace

void transpose_into(const float* line_major, std::size_t line_stride, std::size_t rows,
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

}  // namespace corv
