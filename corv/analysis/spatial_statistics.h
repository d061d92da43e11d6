#ifndef CORV_ANALYSIS_SPATIAL_STATISTICS_H
#define CORV_ANALYSIS_SPATIAL_STATISTICS_H

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "corv/io/types.h"
#include "corv/io/vector_file.h"

namespace corv {

// Which pixels of an image a polygon takes in.
enum class polygon_pixel_rule {
  touching,            // every pixel whose square the polygon overlaps
  wholly_contained,    // pixels whose square lies wholly inside the polygon
  centroid_contained,  // pixels whose centre lies inside the polygon
};

// The per-band statistics of a set of pixels, in the order of their files.
enum spatial_statistic : unsigned {
  statistic_centre,          // the value of the centre pixel
  statistic_mean,            // the mean over the set
  statistic_stddev,          // the population standard deviation (divided by n)
  statistic_min,             // the smallest value
  statistic_max,             // the largest value
  statistic_mean_no_centre,  // the mean over the set without the centre pixel
  statistic_median,          // the middle value (the mean of the two middle ones for even n)
  statistic_range,           // largest minus smallest
  statistic_count
};

// The file name part of a statistic: "centre", "mean", "stddev", "min", "max",
// "mean_no_centre", "median", "range".
const char* statistic_suffix(spatial_statistic statistic);

struct pixel_index {
  int column = 0;
  int row = 0;
};

// The pixel holding a position (its column and row, rounded down).
pixel_index pixel_of(const pixel_position& position);

// The pixels of the square window of `size` pixels (odd) centred on the pixel
// holding `centre`, clipped to the image.
std::vector<pixel_index> window_pixels(const pixel_position& centre, int size, int height,
                                       int width);

// The image pixels a polygon takes in by a rule. Holes are honoured (even-odd).
std::vector<pixel_index> polygon_pixels(const vector_polygon& polygon, polygon_pixel_rule rule,
                                        int height, int width);

// The area centroid of a polygon's outer ring (the vertex mean for a ring of
// no area).
pixel_position polygon_centroid(const vector_polygon& polygon);

// The statistics of one point or polygon.
struct feature_statistics {
  pixel_index centre;      // the point's pixel, or the pixel under the polygon's centroid
  std::size_t pixels = 0;  // pixels in the set
  // statistic_count x bands; NaN where a statistic has no value (no pixels, a
  // centre outside the image, no pixel besides the centre).
  matrix values;
};

// The statistics of a set of image pixels, each band apart.
feature_statistics statistics_of(const cube& data, const std::vector<pixel_index>& pixels,
                                 const pixel_index& centre);

// What to export, and where: each chosen statistic goes to
// "<folder>/<name>_point_<suffix>.csv" for points and
// "<folder>/<name>_polygon_<suffix>.csv" for polygons.
struct spatial_statistics_request {
  std::string folder;
  std::string name = "untitled";
  bool points = true;
  int window_size = 3;
  bool polygons = true;
  polygon_pixel_rule rule = polygon_pixel_rule::centroid_contained;
  std::array<bool, statistic_count> chosen{};
};

// The names of the files a request writes, in the order written.
std::vector<std::string> statistics_files(const spatial_statistics_request& request,
                                          const vector_features& features);

// Computes and writes the statistics of every point and polygon of `features`
// over the image cube. Each file has the header "column,row," followed by the
// wavelengths, and one line per feature in file order. `progress` is called
// with the features done and their count, and returns false to stop; then, as
// on any failure, no file is left behind. Returns the files written. Throws
// std::runtime_error: "write_spatial_statistics: Window size must be odd and
// positive: <n>.", "write_spatial_statistics: Cannot write <file>.",
// "write_spatial_statistics: Export cancelled.".
std::vector<std::string> write_spatial_statistics(
    const cube& data, const vector& wavelengths, const vector_features& features,
    const spatial_statistics_request& request,
    const std::function<bool(std::size_t done, std::size_t total)>& progress = {});

}  // namespace corv

#endif
