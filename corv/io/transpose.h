#ifndef CORV_IO_TRANSPOSE_H
#define CORV_IO_TRANSPOSE_H

#include <cstddef>

namespace corv {

// Copies a rows x cols block stored line by line (element (r, c) at
// r * line_stride + c) into column-major order (element (r, c) at
// c * column_stride + r), the layout of a cube's slice. Swapping the roles (a
// slice's columns read as lines) turns a slice back into image lines. The strides
// let a block be part of a larger image; the two buffers must not overlap.
void transpose_into(const float* line_major, std::size_t line_stride, std::size_t rows,
                    std::size_t cols, float* column_major, std::size_t column_stride);

}  // namespace corv

#endif
