#ifndef CORV_PIPELINE_CUBE_RESIZE_H
#define CORV_PIPELINE_CUBE_RESIZE_H

#include "corv/io/types.h"

namespace corv {

// Resamples every band of a cube to rows x cols with OpenCV's cv::resize;
// interpolation is an OpenCV code (1: bilinear). Refuses a size below one pixel.
void resize_cube(cube& data, int rows, int cols, int interpolation);

}  // namespace corv

#endif
