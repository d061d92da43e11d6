#include "corv/io/vector_file.h"

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <algorithm>
#include <stdexcept>

#include "corv/io/input.h"

namespace corv {

namespace {

struct vector_dataset_closer {
  void operator()(GDALDataset* dataset) const { GDALClose(dataset); }
};
using vector_dataset = std::unique_ptr<GDALDataset, vector_dataset_closer>;

// Maps map coordinates into pixel coordinates (the inverse of the affine map).
class pixel_mapping {
 public:
  explicit pixel_mapping(const std::optional<geotransform>& transform) {
    if (!transform) {
      return;
    }
    const geotransform& t = *transform;
    const double det = t[1] * t[5] - t[2] * t[4];
    if (det == 0.0) {
      return;
    }
    georeferenced_ = true;
    origin_x_ = t[0];
    origin_y_ = t[3];
    inverse_ = {t[5] / det, -t[2] / det, -t[4] / det, t[1] / det};
  }

  bool georeferenced() const { return georeferenced_; }

  pixel_position operator()(double x, double y) const {
    if (!georeferenced_) {
      return {x, y};
    }
    const double dx = x - origin_x_;
    const double dy = y - origin_y_;
    return {inverse_[0] * dx + inverse_[1] * dy, inverse_[2] * dx + inverse_[3] * dy};
  }

 private:
  bool georeferenced_ = false;
  double origin_x_ = 0.0;
  double origin_y_ = 0.0;
  std::array<double, 4> inverse_{1.0, 0.0, 0.0, 1.0};
};

std::vector<pixel_position> ring_positions(const OGRLinearRing& ring, const pixel_mapping& map) {
  std::vector<pixel_position> positions;
  const int count = ring.getNumPoints();
  for (int i = 0; i < count; ++i) {
    positions.push_back(map(ring.getX(i), ring.getY(i)));
  }
  // Rings repeat their first vertex at the end; the polygons here do not.
  if (positions.size() > 1 && positions.front().x == positions.back().x &&
      positions.front().y == positions.back().y) {
    positions.pop_back();
  }
  return positions;
}

void add_geometry(const OGRGeometry& geometry, const pixel_mapping& map, vector_features& out) {
  switch (wkbFlatten(geometry.getGeometryType())) {
    case wkbPoint: {
      const auto& point = *geometry.toPoint();
      out.points.push_back(map(point.getX(), point.getY()));
      break;
    }
    case wkbPolygon: {
      const auto& polygon = *geometry.toPolygon();
      vector_polygon rings;
      if (polygon.getExteriorRing() != nullptr) {
        rings.push_back(ring_positions(*polygon.getExteriorRing(), map));
      }
      for (int i = 0; i < polygon.getNumInteriorRings(); ++i) {
        rings.push_back(ring_positions(*polygon.getInteriorRing(i), map));
      }
      if (!rings.empty() && rings.front().size() >= 3) {
        out.polygons.push_back(std::move(rings));
      }
      break;
    }
    case wkbMultiPoint:
    case wkbMultiPolygon:
    case wkbGeometryCollection: {
      const auto& collection = *geometry.toGeometryCollection();
      for (int i = 0; i < collection.getNumGeometries(); ++i) {
        add_geometry(*collection.getGeometryRef(i), map, out);
      }
      break;
    }
    default:
      break;
  }
}

// Without a georeference, drawings made over an image shown with rows running
// down from 0 to -height have every y at or below 0: mirror them.
void mirror_negative_rows(vector_features& features) {
  bool all_negative = true;
  bool any = false;
  auto check = [&](const pixel_position& p) {
    any = true;
    all_negative = all_negative && p.y <= 0.0;
  };
  for (const auto& p : features.points) {
    check(p);
  }
  for (const auto& polygon : features.polygons) {
    for (const auto& ring : polygon) {
      std::for_each(ring.begin(), ring.end(), check);
    }
  }
  if (!any || !all_negative) {
    return;
  }
  for (auto& p : features.points) {
    p.y = -p.y;
  }
  for (auto& polygon : features.polygons) {
    for (auto& ring : polygon) {
      for (auto& p : ring) {
        p.y = -p.y;
      }
    }
  }
}

}  // namespace

std::optional<geotransform> geotransform_of(input& image) {
  GDALDataset* dataset = nullptr;
  try {
    dataset = image.gdal_dataset_ptr();
  } catch (const std::exception&) {
    return std::nullopt;
  }
  geotransform transform{};
  if (dataset == nullptr || dataset->GetGeoTransform(transform.data()) != CE_None) {
    return std::nullopt;
  }
  return transform;
}

vector_features read_vector_file(const std::string& file_name,
                                 const std::optional<geotransform>& transform) {
  GDALAllRegister();
  vector_dataset dataset(static_cast<GDALDataset*>(
      GDALOpenEx(file_name.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, nullptr, nullptr, nullptr)));
  if (!dataset) {
    throw std::runtime_error("read_vector_file: Cannot open " + file_name + " as a vector file.");
  }
  const pixel_mapping map(transform);
  vector_features features;
  features.file_name = file_name;
  for (OGRLayer* layer : dataset->GetLayers()) {
    layer->ResetReading();
    for (const auto& feature : *layer) {
      if (const OGRGeometry* geometry = feature->GetGeometryRef()) {
        add_geometry(*geometry, map, features);
      }
    }
  }
  if (features.points.empty() && features.polygons.empty()) {
    throw std::runtime_error("read_vector_file: " + file_name + " holds no points or polygons.");
  }
  if (!map.georeferenced()) {
    mirror_negative_rows(features);
  }
  return features;
}

}  // namespace corv
