#ifndef CORV_IO_VECTOR_FILE_H
#define CORV_IO_VECTOR_FILE_H

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace corv {

class input;

// A position in pixel coordinates: x along the columns, y down the rows, with
// (0, 0) the top left corner of the first pixel and (0.5, 0.5) its centre.
struct pixel_position {
  double x = 0.0;
  double y = 0.0;
};

// A polygon: its outer ring first, then any holes; rings are not closed (the
// last vertex joins the first).
using vector_polygon = std::vector<std::vector<pixel_position>>;

// The points and polygons of a vector file (every layer, multi-geometries split
// into their parts), in the pixel coordinates of one image.
struct vector_features {
  std::string file_name;
  std::vector<pixel_position> points;
  std::vector<vector_polygon> polygons;
};

// The affine map from pixel to map coordinates, as GDAL gives it:
// X = t[0] + x t[1] + y t[2], Y = t[3] + x t[4] + y t[5].
using geotransform = std::array<double, 6>;

// The image's georeference, when its file has one.
std::optional<geotransform> geotransform_of(input& image);

// Reads a vector file (any GDAL/OGR vector format, such as an ESRI shapefile)
// and maps it into the image's pixels through the inverse of `transform`.
// Without a georeference, coordinates are pixel coordinates; when every y is
// at or below 0 they are taken as drawn over an image whose rows run down from
// 0 to -height (the way GIS programs show an image without georeference), and
// mirrored. Lines and other geometries are skipped. Throws std::runtime_error:
// "read_vector_file: Cannot open <name> as a vector file." or "read_vector_file:
// <name> holds no points or polygons.".
vector_features read_vector_file(const std::string& file_name,
                                 const std::optional<geotransform>& transform);

}  // namespace corv

#endif
