// Spatial statistics of vector points and polygons, and the vector file reader
// that places them on an image.
#include "corv/analysis/spatial_statistics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

// 6 x 7 x 2; the expected statistics below were computed from the same values with numpy
// (np.mean, np.std, np.median, np.min, np.max over the pixel sets).
corv::cube test_cube() {
  corv::cube I(6, 7, 2);
  for (arma::uword r = 0; r < 6; ++r) {
    for (arma::uword c = 0; c < 7; ++c) {
      for (arma::uword b = 0; b < 2; ++b) {
        I(r, c, b) = static_cast<float>((r * 7 + c) * 37 % 11) + 0.5f * b + 0.25f * r;
      }
    }
  }
  return I;
}

corv::vector_polygon square(double from, double to) {
  return {{{from, from}, {to, from}, {to, to}, {from, to}}};
}

std::size_t count(const corv::vector_polygon& p, corv::polygon_pixel_rule rule) {
  return corv::polygon_pixels(p, rule, 6, 7).size();
}

std::string read_file(const fs::path& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

TEST(spatial_statistics, polygon_pixel_rules) {
  using corv::polygon_pixel_rule;
  struct row {
    corv::vector_polygon polygon;
    std::size_t touching, wholly, centroid;
  };
  corv::vector_polygon holed = square(0.0, 5.0);
  holed.push_back(square(2.0, 3.0).front());
  const row rows[] = {
      {square(1.6, 3.4), 9, 1, 1},  // centres 2.5 only; edges enter the 3 x 3 around it
      {square(1.2, 3.8), 9, 1, 9},
      {square(1.0, 4.0), 9, 9, 9},  // on pixel borders: the edges enter no square
      {holed, 24, 24, 24},
      {square(-3.0, 1.4), 4, 1, 1},  // clipped to the image
  };
  for (const row& r : rows) {
    EXPECT_EQ(count(r.polygon, polygon_pixel_rule::touching), r.touching);
    EXPECT_EQ(count(r.polygon, polygon_pixel_rule::wholly_contained), r.wholly);
    EXPECT_EQ(count(r.polygon, polygon_pixel_rule::centroid_contained), r.centroid);
  }
  EXPECT_EQ(corv::window_pixels({0.2, 0.2}, 3, 6, 7).size(), 4u);
  EXPECT_EQ(corv::window_pixels({2.3, 1.7}, 5, 6, 7).size(), 20u);
}

TEST(spatial_statistics, values_and_files_match_numpy) {
  const corv::cube I = test_cube();
  const fs::path folder = fs::temp_directory_path() / "corv_spatial_statistics_test";
  fs::remove_all(folder);
  fs::create_directories(folder);

  corv::vector_features features;
  features.points = {{2.3, 1.7}, {40.0, 40.0}};  // the second lies outside the image
  features.polygons = {square(1.2, 3.8)};
  corv::spatial_statistics_request request;
  request.folder = folder.string();
  request.name = "field";
  request.window_size = 3;
  request.rule = corv::polygon_pixel_rule::centroid_contained;
  request.chosen.fill(true);
  const std::vector<std::string> written =
      corv::write_spatial_statistics(I, corv::vector{500.0f, 610.5f}, features, request);
  ASSERT_EQ(written.size(), 16u);
  EXPECT_EQ(written, corv::statistics_files(request, features));
  EXPECT_EQ(fs::path(written[0]).filename(), "field_point_centre.csv");
  EXPECT_EQ(fs::path(written[5]).filename(), "field_point_mean_no_centre.csv");
  EXPECT_EQ(fs::path(written[15]).filename(), "field_polygon_range.csv");

  // Centre, mean, stddev, min, max, mean without centre, median, range.
  const double point[8][2] = {{3.25, 3.75}, {5.694444, 6.194444}, {3.056818, 3.056818},
                              {1.0, 1.5},   {10.25, 10.75},       {6.0, 6.5},
                              {5.5, 6.0},   {9.25, 9.25}};
  const double polygon[8][2] = {
      {9.5, 10.0},    {5.833333, 6.333333}, {3.133599, 3.133599}, {0.75, 1.25},
      {10.25, 10.75}, {5.375, 5.875},       {5.5, 6.0},           {9.5, 9.5}};
  for (int s = 0; s < 8; ++s) {
    for (const auto& [file, expected, centre] : {std::tuple{written[s], point[s], "2,1,"},
                                                 std::tuple{written[8 + s], polygon[s], "2,2,"}}) {
      std::istringstream lines(read_file(file));
      std::string header, first;
      std::getline(lines, header);
      std::getline(lines, first);
      EXPECT_EQ(header, "column,row,500,610.5,") << file;
      ASSERT_EQ(first.rfind(centre, 0), 0u) << file << ": " << first;
      std::istringstream fields(first.substr(std::string(centre).size()));
      for (int b = 0; b < 2; ++b) {
        std::string field;
        std::getline(fields, field, ',');
        EXPECT_NEAR(std::stod(field), expected[b], 1e-5) << file << " band " << b;
      }
    }
  }
  // A point outside the image keeps its line, without values.
  EXPECT_NE(read_file(written[1]).find("40,40,nan,nan,"), std::string::npos);

  // A cancelled export leaves nothing behind.
  fs::remove_all(folder);
  fs::create_directories(folder);
  try {
    corv::write_spatial_statistics(I, corv::vector{500.0f, 610.5f}, features, request,
                                   [](std::size_t, std::size_t) { return false; });
    FAIL() << "not cancelled";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(e.what(), std::string("write_spatial_statistics: Export cancelled."));
  }
  EXPECT_TRUE(fs::is_empty(folder));
  request.window_size = 4;
  try {
    corv::write_spatial_statistics(I, corv::vector{500.0f, 610.5f}, features, request);
    FAIL() << "even window accepted";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(e.what(),
              std::string("write_spatial_statistics: Window size must be odd and positive: 4."));
  }
  fs::remove_all(folder);
}

TEST(vector_file, places_features_on_the_image) {
  const fs::path file = fs::temp_directory_path() / "corv_vector_file_test.geojson";
  auto write = [&file](const std::string& features) {
    std::ofstream(file) << R"({"type":"FeatureCollection","features":[)" << features << "]}";
  };
  auto feature = [](const std::string& geometry) {
    return R"({"type":"Feature","properties":{},"geometry":)" + geometry + "}";
  };
  // Drawn over an image without georeference whose rows run down to -height.
  write(feature(R"({"type":"Point","coordinates":[2.5,-1.5]})") + "," +
        feature(R"({"type":"Polygon","coordinates":[[[1,-1],[4,-1],[4,-3],[1,-1]]]})") + "," +
        feature(R"({"type":"LineString","coordinates":[[0,0],[1,-1]]})"));
  corv::vector_features found = corv::read_vector_file(file.string(), std::nullopt);
  ASSERT_EQ(found.points.size(), 1u);
  EXPECT_DOUBLE_EQ(found.points[0].y, 1.5);
  ASSERT_EQ(found.polygons.size(), 1u);
  EXPECT_EQ(found.polygons[0].front().size(), 3u);  // the closing vertex is dropped
  EXPECT_DOUBLE_EQ(found.polygons[0].front()[2].y, 3.0);

  // Map coordinates through the image's georeference.
  write(feature(R"({"type":"MultiPoint","coordinates":[[104.6,196.6],[100,200]]})"));
  found = corv::read_vector_file(file.string(), corv::geotransform{100, 2, 0, 200, 0, -2});
  ASSERT_EQ(found.points.size(), 2u);
  EXPECT_NEAR(found.points[0].x, 2.3, 1e-9);
  EXPECT_NEAR(found.points[0].y, 1.7, 1e-9);

  write(feature(R"({"type":"LineString","coordinates":[[0,0],[1,1]]})"));
  try {
    corv::read_vector_file(file.string(), std::nullopt);
    FAIL() << "a file of lines accepted";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(e.what(), "read_vector_file: " + file.string() + " holds no points or polygons.");
  }
  fs::remove(file);
  try {
    corv::read_vector_file(file.string(), std::nullopt);
    FAIL() << "a missing file accepted";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(e.what(), "read_vector_file: Cannot open " + file.string() + " as a vector file.");
  }
}
