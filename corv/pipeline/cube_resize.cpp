#include "corv/pipeline/cube_resize.h"

#include <opencv2/imgproc.hpp>

#include <stdexcept>

namespace corv {

void resize_cube(cube& data, int rows, int cols, int interpolation) {
  if (rows < 1 || cols < 1) {
    throw std::runtime_error("Cannot resize smaller than 1 pixel.");
  }
  if (data.empty()) {
    data.zeros(rows, cols, data.n_slices);
    return;
  }
  cube resized(rows, cols, data.n_slices, arma::fill::none);
  const int old_rows = static_cast<int>(data.n_rows), old_cols = static_cast<int>(data.n_cols);
  // A column-major band is a row-major image of its transpose: OpenCV sees the
  // band transposed (its width is the cube's row count) and writes the result
  // back in the same layout, so no copy is needed on either side.
#pragma omp parallel for schedule(dynamic)
  for (long b = 0; b < static_cast<long>(data.n_slices); ++b) {
    const cv::Mat source(old_cols, old_rows, CV_32FC1, data.slice_memptr(b));
    cv::Mat target(cols, rows, CV_32FC1, resized.slice_memptr(b));
    cv::resize(source, target, cv::Size(rows, cols), 0, 0, interpolation);
  }
  data = std::move(resized);
}

}  // namespace corv
