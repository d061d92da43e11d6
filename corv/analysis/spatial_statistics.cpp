#include "corv/analysis/spatial_statistics.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <stdexcept>

#include "corv/io/safe_file.h"

namespace corv {

namespace {

constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();

// Even-odd rule over every ring.
bool inside(const vector_polygon& polygon, double x, double y) {
  bool in = false;
  for (const auto& ring : polygon) {
    const std::size_t n = ring.size();
    for (std::size_t i = 0, j = n - 1; i < n; j = i++) {
      const pixel_position& a = ring[i];
      const pixel_position& b = ring[j];
      if ((a.y > y) != (b.y > y) && x < (b.x - a.x) * (y - a.y) / (b.y - a.y) + a.x) {
        in = !in;
      }
    }
  }
  return in;
}

// Whether the segment a-b passes through the open square [x0, x0 + 1] x [y0, y0 + 1]
// (Liang and Barsky's clipping with strict bounds: running along a side or
// through a corner does not count).
bool crosses_square(const pixel_position& a, const pixel_position& b, double x0, double y0) {
  const double dx = b.x - a.x;
  const double dy = b.y - a.y;
  const double p[] = {-dx, dx, -dy, dy};
  const double q[] = {a.x - x0, x0 + 1.0 - a.x, a.y - y0, y0 + 1.0 - a.y};
  double enter = 0.0;
  double leave = 1.0;
  for (int k = 0; k < 4; ++k) {
    if (p[k] == 0.0) {
      if (q[k] <= 0.0) {
        return false;
      }
      continue;
    }
    const double t = q[k] / p[k];
    if (p[k] < 0.0) {
      enter = std::max(enter, t);
    } else {
      leave = std::min(leave, t);
    }
  }
  return enter < leave;
}

bool edge_crosses_square(const vector_polygon& polygon, double x0, double y0) {
  for (const auto& ring : polygon) {
    const std::size_t n = ring.size();
    for (std::size_t i = 0, j = n - 1; i < n; j = i++) {
      if (crosses_square(ring[j], ring[i], x0, y0)) {
        return true;
      }
    }
  }
  return false;
}

float median_of(std::vector<float>& values) {
  const std::size_t n = values.size();
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(n / 2);
  std::nth_element(values.begin(), middle, values.end());
  const float upper = *middle;
  if (n % 2 == 1) {
    return upper;
  }
  const float lower = *std::max_element(values.begin(), middle);
  return static_cast<float>((static_cast<double>(lower) + upper) / 2.0);
}

std::string number_text(double value) {
  if (std::isnan(value)) {
    return "nan";
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", value);
  return text;
}

std::string file_name_of(const spatial_statistics_request& request, const char* kind,
                         spatial_statistic statistic) {
  std::string folder = request.folder;
  if (!folder.empty() && folder.back() != '/') {
    folder += '/';
  }
  return folder + request.name + "_" + kind + "_" + statistic_suffix(statistic) + ".csv";
}

}  // namespace

const char* statistic_suffix(spatial_statistic statistic) {
  static const char* const suffixes[] = {"centre", "mean",           "stddev", "min",
                                         "max",    "mean_no_centre", "median", "range"};
  return statistic < statistic_count ? suffixes[statistic] : "";
}

pixel_index pixel_of(const pixel_position& position) {
  return {static_cast<int>(std::floor(position.x)), static_cast<int>(std::floor(position.y))};
}

std::vector<pixel_index> window_pixels(const pixel_position& centre, int size, int height,
                                       int width) {
  const pixel_index middle = pixel_of(centre);
  const int half = size / 2;
  std::vector<pixel_index> pixels;
  for (int row = std::max(0, middle.row - half); row <= std::min(height - 1, middle.row + half);
       ++row) {
    for (int col = std::max(0, middle.column - half);
         col <= std::min(width - 1, middle.column + half); ++col) {
      pixels.push_back({col, row});
    }
  }
  return pixels;
}

std::vector<pixel_index> polygon_pixels(const vector_polygon& polygon, polygon_pixel_rule rule,
                                        int height, int width) {
  std::vector<pixel_index> pixels;
  if (polygon.empty() || polygon.front().size() < 3) {
    return pixels;
  }
  double left = std::numeric_limits<double>::infinity();
  double right = -left;
  double top = left;
  double bottom = -left;
  for (const pixel_position& p : polygon.front()) {
    left = std::min(left, p.x);
    right = std::max(right, p.x);
    top = std::min(top, p.y);
    bottom = std::max(bottom, p.y);
  }
  const int first_col = std::max(0, static_cast<int>(std::floor(left)));
  const int last_col = std::min(width - 1, static_cast<int>(std::floor(right)));
  const int first_row = std::max(0, static_cast<int>(std::floor(top)));
  const int last_row = std::min(height - 1, static_cast<int>(std::floor(bottom)));
  for (int row = first_row; row <= last_row; ++row) {
    for (int col = first_col; col <= last_col; ++col) {
      const bool centre_in = inside(polygon, col + 0.5, row + 0.5);
      bool taken = centre_in;
      if (rule == polygon_pixel_rule::touching) {
        taken = centre_in || edge_crosses_square(polygon, col, row);
      } else if (rule == polygon_pixel_rule::wholly_contained) {
        // With its centre inside and no edge entering it, the whole square is inside.
        taken = centre_in && !edge_crosses_square(polygon, col, row);
      }
      if (taken) {
        pixels.push_back({col, row});
      }
    }
  }
  return pixels;
}

pixel_position polygon_centroid(const vector_polygon& polygon) {
  const auto& ring = polygon.front();
  double area = 0.0;
  double cx = 0.0;
  double cy = 0.0;
  const std::size_t n = ring.size();
  for (std::size_t i = 0, j = n - 1; i < n; j = i++) {
    const double cross = ring[j].x * ring[i].y - ring[i].x * ring[j].y;
    area += cross;
    cx += (ring[j].x + ring[i].x) * cross;
    cy += (ring[j].y + ring[i].y) * cross;
  }
  if (std::abs(area) < 1e-12) {
    pixel_position mean;
    for (const auto& p : ring) {
      mean.x += p.x / static_cast<double>(n);
      mean.y += p.y / static_cast<double>(n);
    }
    return mean;
  }
  return {cx / (3.0 * area), cy / (3.0 * area)};
}

feature_statistics statistics_of(const cube& data, const std::vector<pixel_index>& pixels,
                                 const pixel_index& centre) {
  feature_statistics result;
  result.centre = centre;
  result.pixels = pixels.size();
  result.values.set_size(statistic_count, data.n_slices);
  result.values.fill(not_a_number);
  const bool centre_in_image = centre.row >= 0 && centre.column >= 0 &&
                               centre.row < static_cast<int>(data.n_rows) &&
                               centre.column < static_cast<int>(data.n_cols);
  std::vector<float> values(pixels.size());
  for (arma::uword band = 0; band < data.n_slices; ++band) {
    if (centre_in_image) {
      result.values(statistic_centre, band) =
          data(static_cast<arma::uword>(centre.row), static_cast<arma::uword>(centre.column), band);
    }
    if (pixels.empty()) {
      continue;
    }
    double sum = 0.0;
    double centre_sum = 0.0;
    std::size_t centre_count = 0;
    for (std::size_t i = 0; i < pixels.size(); ++i) {
      const float v = data(static_cast<arma::uword>(pixels[i].row),
                           static_cast<arma::uword>(pixels[i].column), band);
      values[i] = v;
      sum += v;
      if (pixels[i].row == centre.row && pixels[i].column == centre.column) {
        centre_sum += v;
        ++centre_count;
      }
    }
    const double n = static_cast<double>(pixels.size());
    const double mean = sum / n;
    double squares = 0.0;
    for (const float v : values) {
      squares += (v - mean) * (v - mean);
    }
    const auto [low, high] = std::minmax_element(values.begin(), values.end());
    result.values(statistic_mean, band) = static_cast<float>(mean);
    result.values(statistic_stddev, band) = static_cast<float>(std::sqrt(squares / n));
    result.values(statistic_min, band) = *low;
    result.values(statistic_max, band) = *high;
    result.values(statistic_range, band) = *high - *low;
    if (pixels.size() > centre_count) {
      result.values(statistic_mean_no_centre, band) =
          static_cast<float>((sum - centre_sum) / (n - static_cast<double>(centre_count)));
    }
    result.values(statistic_median, band) = median_of(values);
  }
  return result;
}

std::vector<std::string> statistics_files(const spatial_statistics_request& request,
                                          const vector_features& features) {
  std::vector<std::string> files;
  for (const auto& [wanted, kind] :
       {std::pair{request.points && !features.points.empty(), "point"},
        std::pair{request.polygons && !features.polygons.empty(), "polygon"}}) {
    for (unsigned s = 0; wanted && s < statistic_count; ++s) {
      if (request.chosen[s]) {
        files.push_back(file_name_of(request, kind, static_cast<spatial_statistic>(s)));
      }
    }
  }
  return files;
}

std::vector<std::string> write_spatial_statistics(
    const cube& data, const vector& wavelengths, const vector_features& features,
    const spatial_statistics_request& request,
    const std::function<bool(std::size_t done, std::size_t total)>& progress) {
  if (request.points && (request.window_size < 1 || request.window_size % 2 == 0)) {
    throw std::runtime_error("write_spatial_statistics: Window size must be odd and positive: " +
                             std::to_string(request.window_size) + ".");
  }
  const int height = static_cast<int>(data.n_rows);
  const int width = static_cast<int>(data.n_cols);
  std::string header = "column,row,";
  for (const float wavelength : wavelengths) {
    header += number_text(wavelength) + ",";
  }
  header += "\n";

  const std::size_t total = (request.points ? features.points.size() : 0) +
                            (request.polygons ? features.polygons.size() : 0);
  std::size_t done = 0;
  std::vector<std::unique_ptr<safe_file>> files;
  auto write_kind = [&](const char* kind, std::size_t count, auto statistics_at) {
    std::vector<safe_file*> open;
    for (unsigned s = 0; s < statistic_count; ++s) {
      open.push_back(nullptr);
      if (!request.chosen[s] || count == 0) {
        continue;
      }
      files.push_back(std::make_unique<safe_file>(
          file_name_of(request, kind, static_cast<spatial_statistic>(s))));
      if (!files.back()->is_open()) {
        throw std::runtime_error("write_spatial_statistics: Cannot write " +
                                 files.back()->target() + ".");
      }
      files.back()->stream() << header;
      open.back() = files.back().get();
    }
    for (std::size_t f = 0; f < count; ++f) {
      const feature_statistics stats = statistics_at(f);
      for (unsigned s = 0; s < statistic_count; ++s) {
        if (open[s] == nullptr) {
          continue;
        }
        std::ofstream& out = open[s]->stream();
        out << stats.centre.column << ',' << stats.centre.row << ',';
        for (arma::uword band = 0; band < stats.values.n_cols; ++band) {
          out << number_text(stats.values(s, band)) << ',';
        }
        out << '\n';
      }
      ++done;
      if (progress && !progress(done, total)) {
        throw std::runtime_error("write_spatial_statistics: Export cancelled.");
      }
    }
  };
  if (request.points) {
    write_kind("point", features.points.size(), [&](std::size_t f) {
      const pixel_position& p = features.points[f];
      return statistics_of(data, window_pixels(p, request.window_size, height, width), pixel_of(p));
    });
  }
  if (request.polygons) {
    write_kind("polygon", features.polygons.size(), [&](std::size_t f) {
      const vector_polygon& polygon = features.polygons[f];
      return statistics_of(data, polygon_pixels(polygon, request.rule, height, width),
                           pixel_of(polygon_centroid(polygon)));
    });
  }
  for (const auto& file : files) {
    if (!file->close()) {
      throw std::runtime_error("write_spatial_statistics: Cannot write " + file->target() + ".");
    }
  }
  std::vector<std::string> written;
  for (const auto& file : files) {
    if (!file->commit()) {
      throw std::runtime_error("write_spatial_statistics: Cannot write " + file->target() + ".");
    }
    written.push_back(file->target());
  }
  return written;
}

}  // namespace corv
