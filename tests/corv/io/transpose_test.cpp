#include "corv/io/transpose.h"

#include <gtest/gtest.h>

#include <vector>

namespace corv {
namespace {

// Line-major values that tell where they are: 1000 r + c.
std::vector<float> coded_lines(std::size_t rows, std::size_t stride) {
  std::vector<float> lines(rows * stride, -1.0f);
  for (std::size_t r = 0; r < rows; ++r) {
    for (std::size_t c = 0; c < stride; ++c) {
      lines[r * stride + c] = static_cast<float>(1000 * r + c);
    }
  }
  return lines;
}

TEST(transpose, every_size_around_whole_blocks_lands_column_major) {
  // Sizes below, at and past the 16 x 16 blocks, so that whole blocks, edge
  // columns, edge lines and the corner are all exercised.
  for (const std::size_t rows : {1u, 5u, 16u, 17u, 33u, 48u}) {
    for (const std::size_t cols : {1u, 3u, 16u, 31u, 32u, 50u}) {
      const std::vector<float> lines = coded_lines(rows, cols);
      std::vector<float> slice(rows * cols, -1.0f);
      transpose_into(lines.data(), cols, rows, cols, slice.data(), rows);
      for (std::size_t r = 0; r < rows; ++r) {
        for (std::size_t c = 0; c < cols; ++c) {
          ASSERT_EQ(slice[c * rows + r], static_cast<float>(1000 * r + c))
              << rows << " x " << cols << " at (" << r << ", " << c << ")";
        }
      }
      // Slice columns read as lines come back as the original lines.
      std::vector<float> back(rows * cols, -1.0f);
      transpose_into(slice.data(), rows, cols, rows, back.data(), cols);
      ASSERT_EQ(back, lines) << rows << " x " << cols;
    }
  }
}

TEST(transpose, strides_place_a_window_and_leave_the_rest_alone) {
  // A 20 x 18 window starting at line 3, sample 5 of 40-sample lines, written at
  // line 2 of a 30-line column-major slice.
  const std::size_t rows = 20, cols = 18, line_stride = 40, column_stride = 30;
  const std::vector<float> lines = coded_lines(30, line_stride);
  const float* window = lines.data() + 3 * line_stride + 5;
  std::vector<float> slice(column_stride * cols + 7, -1.0f);
  transpose_into(window, line_stride, rows, cols, slice.data() + 2, column_stride);
  for (std::size_t i = 0; i < slice.size(); ++i) {
    const std::size_t c = (i - 2) / column_stride, r = (i - 2) % column_stride;
    const bool inside = i >= 2 && c < cols && r < rows;
    const float expected = inside ? static_cast<float>(1000 * (r + 3) + (c + 5)) : -1.0f;
    ASSERT_EQ(slice[i], expected) << "at " << i;
  }
}

}  // namespace
}  // namespace corv
