#include "corv/pipeline/materials.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::thrown_text;

constexpr arma::uword bands = 33;  // 400 to 720 nm every 10 nm

float smooth_step(float x, float edge, float width) {
  return 1.0f / (1.0f + std::exp(-(x - edge) / width));
}

float bump(float x, float centre, float width) {
  return std::exp(-0.5f * (x - centre) * (x - centre) / (width * width));
}

// Reflectances shaped like common surfaces: green vegetation (chlorophyll
// bump and red edge), a dry soil (a rising ramp), a red paint (a step at
// 600 nm) and a blue plastic (a peak at 460 nm).
std::vector<vector> surfaces() {
  std::vector<vector> result(4, vector(bands));
  for (arma::uword b = 0; b < bands; ++b) {
    const float nm = 400.0f + 10.0f * static_cast<float>(b);
    result[0](b) = 0.04f + 0.08f * bump(nm, 550.0f, 25.0f) + 0.45f * smooth_step(nm, 705.0f, 8.0f);
    result[1](b) = 0.12f + 0.25f * (nm - 400.0f) / 320.0f;
    result[2](b) = 0.06f + 0.6f * smooth_step(nm, 600.0f, 12.0f);
    result[3](b) = 0.08f + 0.45f * bump(nm, 460.0f, 40.0f);
  }
  return result;
}

// A size x size reflectance image of the four surfaces in its quadrants, each
// pixel scaled by a random shading between 0.6 and 1 and given a little noise.
struct quadrant_image {
  cube s;
  arma::umat truth;
};

quadrant_image quadrants(arma::uword size, float noise = 0.003f) {
  arma::arma_rng::set_seed(11);
  const std::vector<vector> materials = surfaces();
  quadrant_image scene{cube(size, size, bands), arma::umat(size, size)};
  const matrix shading = 0.6f + 0.4f * arma::randu<matrix>(size, size);
  for (arma::uword c = 0; c < size; ++c) {
    for (arma::uword r = 0; r < size; ++r) {
      const arma::uword m = (r < size / 2 ? 0 : 2) + (c < size / 2 ? 0 : 1);
      scene.truth(r, c) = m;
      scene.s.tube(r, c) = materials[m] * shading(r, c);
    }
  }
  scene.s += noise * arma::randn<cube>(size, size, bands);
  return scene;
}

double angle_degrees(const vector& a, const vector& b) {
  const double cosine = arma::dot(a, b) / (arma::norm(a) * arma::norm(b));
  return std::acos(std::min(1.0, cosine)) * 180.0 / arma::datum::pi;
}

bool logged(const std::string& line) {
  for (const auto& entry : logger::instance().entries()) {
    if (entry.second == line) {
      return true;
    }
  }
  return false;
}

class materials_test : public ::testing::Test {
 protected:
  void SetUp() override {
    logger::instance().set_echo(false);
    logger::instance().clear_entries();
    logger::instance().clear_progress();
  }
};

TEST_F(materials_test, discovers_four_flat_materials_in_every_mode) {
  // Every pixel is clustered on a small image, the shrunk or sampled copy of
  // a larger one.
  const quadrant_image small = quadrants(32), large = quadrants(64);
  const std::vector<vector> truth = surfaces();
  for (const int mode : {MATERIALS_FULL, MATERIALS_SHRUNK, MATERIALS_SAMPLED}) {
    SCOPED_TRACE(mode);
    const quadrant_image& scene = mode == MATERIALS_FULL ? small : large;
    const int size = static_cast<int>(scene.s.n_rows), half = size / 2;
    const material_parameters defaults;
    const material_result found = recover_materials(scene.s, matrix(), defaults, mode, 0);
    ASSERT_EQ(found.elements.n_rows, bands);
    ASSERT_EQ(found.elements.n_cols, 4u);
    std::set<arma::uword> matched;
    for (const vector& surface : truth) {
      arma::uword best = 0;
      for (arma::uword j = 1; j < 4; ++j) {
        if (angle_degrees(surface, found.elements.col(j)) <
            angle_degrees(surface, found.elements.col(best))) {
          best = j;
        }
      }
      EXPECT_LT(angle_degrees(surface, found.elements.col(best)), 1.0);
      EXPECT_NEAR(arma::norm(found.elements.col(best)), 1.0f, 1e-5f);
      matched.insert(best);
    }
    EXPECT_EQ(matched.size(), 4u);

    // Every quadrant maps to one element of its own, and its pixels are
    // rebuilt by their weights.
    ASSERT_EQ(arma::size(found.abundances), arma::size(size, size, 5));
    ASSERT_EQ(arma::size(found.abundance_indexes), arma::size(size, size, 5));
    ASSERT_EQ(arma::size(found.map), arma::size(size, size));
    std::set<float> quadrant_elements;
    for (const auto& corner :
         {std::pair(0, 0), std::pair(0, half), std::pair(half, 0), std::pair(half, half)}) {
      const float element = found.map(corner.first, corner.second);
      quadrant_elements.insert(element);
      for (int r = corner.first; r < corner.first + half; ++r) {
        for (int c = corner.second; c < corner.second + half; ++c) {
          ASSERT_EQ(found.map(r, c), element) << r << " " << c;
        }
      }
    }
    EXPECT_EQ(quadrant_elements.size(), 4u);
    for (const auto& pixel : {std::pair(3, 5), std::pair(size - 14, size - 4)}) {
      vector rebuilt(bands, arma::fill::zeros);
      for (arma::uword i = 0; i < 5; ++i) {
        const float weight = found.abundances(pixel.first, pixel.second, i);
        const float number = found.abundance_indexes(pixel.first, pixel.second, i);
        if (i > 0) {
          EXPECT_LE(weight, found.abundances(pixel.first, pixel.second, i - 1));
        }
        ASSERT_GE(number, 0.0f);
        rebuilt += weight * found.elements.col(static_cast<arma::uword>(number));
      }
      // Four elements for five slots: one slot adds nothing and names the
      // pixel's strongest element.
      const vector weights = found.abundances.tube(pixel.first, pixel.second);
      const vector numbers = found.abundance_indexes.tube(pixel.first, pixel.second);
      const arma::uvec empty = arma::find(weights == 0.0f);
      ASSERT_EQ(empty.n_elem, 1u);
      EXPECT_EQ(numbers(empty(0)), found.map(pixel.first, pixel.second));
      const vector original = scene.s.tube(pixel.first, pixel.second);
      EXPECT_LT(arma::norm(rebuilt - original), 0.2 * arma::norm(original));
    }
  }
}

TEST_F(materials_test, validates_before_any_work) {
  const quadrant_image scene = quadrants(16);
  material_parameters settings;
  settings.max_temperature = 0.001f;
  settings.min_temperature = 0.01f;
  const std::string temperatures =
      "Recover Materials: Temperature Min > Temperature Max, this doesn't make sense!";
  // Even an empty image, an unknown mode and shading of the wrong size wait
  // for the temperature check.
  EXPECT_EQ(thrown_text([&] { recover_materials(cube(), matrix(3, 3), settings, 7, 0); }),
            temperatures);
  EXPECT_TRUE(logged(temperatures));
  EXPECT_TRUE(logger::instance().entries().size() == 1);

  settings = material_parameters();
  for (const int q : {5, -1}) {
    settings.subsample = q;
    settings.max_temperature = 0.001f;  // q is checked before the temperatures
    EXPECT_EQ(thrown_text([&] { recover_materials(scene.s, matrix(), settings, 1, 0); }),
              "q_factor out of range in recover_materials()");
  }
  settings = material_parameters();
  EXPECT_EQ(thrown_text([&] { recover_materials(cube(), matrix(), settings, 0, 0); }),
            "Material Recovery: Data size is incorrect.");
  EXPECT_EQ(thrown_text([&] { recover_materials(scene.s, matrix(), settings, 3, 0); }),
            "Recover Materials: Mode 3 does not exist (0 every pixel, 1 shrunk, 2 sampled).");
  EXPECT_EQ(thrown_text([&] { recover_materials(scene.s, matrix(4, 4), settings, 0, 0); }),
            "Recover Materials: Shading size 4 x 4 does not match the reflectance's 16 x 16.");
  EXPECT_EQ(
      thrown_text([&] { recover_materials(scene.s, matrix(), settings, 2, 0, matrix(2, 3)); }),
      "Recover Materials: Specularity size 2 x 3 does not match the reflectance's 16 x 16.");
  settings.materials_per_pixel = 0;
  EXPECT_EQ(thrown_text([&] { recover_materials(scene.s, matrix(), settings, 0, 0); }),
            "Recover Materials: Materials per pixel must be at least 1, not 0.");
  settings = material_parameters();
  settings.cooling_rate = 1.0f;
  EXPECT_EQ(thrown_text([&] { recover_materials(scene.s, matrix(), settings, 0, 0); }),
            "Material Recovery: Cooling rate must be below 1, not 1.");
  settings = material_parameters();
  settings.min_temperature = 0.0f;
  EXPECT_EQ(thrown_text([&] { recover_materials(scene.s, matrix(), settings, 0, 0); }),
            "Material Recovery: Temperatures must be finite and above 0.");
  // Unlit pixels are not clustered: with no light anywhere nothing is left.
  EXPECT_EQ(thrown_text([&] {
              recover_materials(scene.s, matrix(16, 16, arma::fill::zeros), material_parameters(),
                                0, 0);
            }),
            "Recover Materials: No lit pixel has a spectrum to cluster (every one is zero or not "
            "finite).");
}

TEST_F(materials_test, negative_settings_take_their_defaults) {
  const quadrant_image scene = quadrants(32);
  material_parameters explicit_settings;
  explicit_settings.split_threshold = 0.9961947f;
  explicit_settings.subsample = 1;
  const material_result expected =
      recover_materials(scene.s, matrix(), explicit_settings, MATERIALS_SHRUNK, 0);

  material_parameters negative;
  negative.cooling_rate = -1.0f;
  negative.split_threshold = -1.0f;
  negative.max_temperature = -1.0f;
  negative.min_temperature = -1.0f;
  negative.max_clusters = 0;
  negative.subsample = 1;
  const material_result replaced =
      recover_materials(scene.s, matrix(), negative, MATERIALS_SHRUNK, 2);
  EXPECT_TRUE(arma::approx_equal(replaced.elements, expected.elements, "absdiff", 0.0f));
  EXPECT_TRUE(arma::approx_equal(replaced.abundances, expected.abundances, "absdiff", 0.0f));
  EXPECT_TRUE(logged("Cooling Rate:                0.8"));
  EXPECT_TRUE(logged("Split Threshold:             0.996195"));
  EXPECT_TRUE(logged("Maximum Temperature:         0.02"));
  EXPECT_TRUE(logged("Minimum Temperature:         0.00025"));
  EXPECT_TRUE(logged("Maximum Number of Materials: 20"));
}

TEST_F(materials_test, one_cluster_at_most_gives_one_material) {
  const quadrant_image scene = quadrants(32);
  material_parameters settings;
  settings.max_clusters = 1;
  settings.materials_per_pixel = 3;
  const material_result found = recover_materials(scene.s, matrix(), settings, MATERIALS_FULL, 3);
  ASSERT_EQ(found.elements.n_cols, 1u);
  EXPECT_TRUE(arma::all(arma::vectorise(found.map) == 0.0f));
  EXPECT_TRUE(arma::all(arma::vectorise(found.abundance_indexes) == 0.0f));
  EXPECT_TRUE(arma::all(arma::vectorise(found.abundances.slices(1, 2)) == 0.0f));
  EXPECT_TRUE(arma::all(arma::vectorise(found.abundances.slice(0)) > 0.0f));
  // It stops at the first temperature.
  EXPECT_TRUE(logged("Material Recovery: Max clusters reached!"));
  EXPECT_TRUE(logged("Current Temperature: 0.02"));
  EXPECT_FALSE(logged("Current Temperature: 0.016"));
  EXPECT_TRUE(logged("Material Recovery: Done. Found 1 materials."));
}

TEST_F(materials_test, modes_cluster_the_image_or_its_shrunk_copy) {
  const quadrant_image scene = quadrants(64);
  const auto clustered_height = [&](int mode, int q) {
    logger::instance().clear_entries();
    material_parameters settings;
    settings.subsample = q;
    settings.max_clusters = 1;
    recover_materials(scene.s, matrix(), settings, mode, 2);
    for (const auto& entry : logger::instance().entries()) {
      if (entry.second.rfind("Height:", 0) == 0) {
        return entry.second;
      }
    }
    return std::string();
  };
  EXPECT_EQ(clustered_height(MATERIALS_FULL, 4), "Height:                      64");
  EXPECT_EQ(clustered_height(MATERIALS_SHRUNK, 4), "Height:                      4");
  EXPECT_EQ(clustered_height(MATERIALS_SHRUNK, 3), "Height:                      8");
  EXPECT_EQ(clustered_height(MATERIALS_SHRUNK, 0), "Height:                      64");
  EXPECT_EQ(clustered_height(MATERIALS_SAMPLED, 4), "Height:                      4");
  // An image smaller than 2^q shrinks to a single pixel.
  material_parameters settings;
  settings.subsample = 4;
  const material_result tiny =
      recover_materials(scene.s.subcube(0, 0, 0, 7, 7, bands - 1), matrix(), settings, 1, 0);
  EXPECT_EQ(tiny.elements.n_cols, 1u);
  EXPECT_EQ(arma::size(tiny.map), arma::size(8, 8));
}

TEST_F(materials_test, logs_the_run_and_fills_the_progress) {
  const quadrant_image scene = quadrants(32);
  material_parameters settings;
  settings.subsample = 1;
  const material_result found =
      recover_materials(scene.s, matrix(32, 32, arma::fill::ones), settings, MATERIALS_SHRUNK, 3);
  for (const char* line : {"Material Recovery: Begin material unmixing.", "Image Information~",
                           "Width:                       16", "Bands:                       33",
                           "Material Recovery: Begin deterministic annealing", "0% complete",
                           "Number of Clusters:  1", "Material Recovery: New cluster split from 0",
                           "Material Recovery: Current temperature below min threshold.",
                           "Material Recovery: End deterministic annealing",
                           "Material Recovery: Done. Found 4 materials.",
                           "Beginning to calculate Material Abundances..", "100% complete",
                           "Finished calculating Material Abundances."}) {
    EXPECT_TRUE(logged(line)) << line;
  }
  EXPECT_EQ(logger::instance().stage(), stage_materials);
  EXPECT_EQ(logger::instance().progress(), 100);
  EXPECT_EQ(found.elements.n_cols, 4u);
  bool compared = false;
  for (const auto& entry : logger::instance().entries()) {
    compared = compared || entry.second.rfind("Clusters: 0 Angle: ", 0) == 0;
  }
  EXPECT_TRUE(compared);

  // Quiet below verbosity 1.
  logger::instance().clear_entries();
  recover_materials(scene.s, matrix(), material_parameters(), 1, 0);
  EXPECT_FALSE(logged("Beginning to calculate Material Abundances.."));
  EXPECT_FALSE(logged("Image Information~"));
}

TEST_F(materials_test, abort_stops_the_annealing) {
  const quadrant_image scene = quadrants(16);
  logger::instance().request_abort();
  EXPECT_EQ(thrown_text([&] { recover_materials(scene.s, matrix(), material_parameters(), 0, 0); }),
            "Processing was aborted!");
  EXPECT_EQ(recover_materials(scene.s, matrix(), material_parameters(), 0, 0).elements.n_cols, 4u);
}

}  // namespace
}  // namespace corv
