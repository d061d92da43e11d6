// The recovery stages as the pipeline runs them: what each stores, what a
// failure leaves behind, and the stage numbers the viewer reads.
#include <gtest/gtest.h>

#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::thrown_text;

constexpr arma::uword rows = 40, cols = 40, bands = 8;

// Four flat materials in quadrants under a sloping light, shaded left to right.
cube quadrant_image(const vector& light) {
  const matrix materials = {{0.9f, 0.8f, 0.6f, 0.4f, 0.3f, 0.2f, 0.2f, 0.1f},
                            {0.1f, 0.2f, 0.3f, 0.6f, 0.8f, 0.6f, 0.3f, 0.2f},
                            {0.2f, 0.2f, 0.2f, 0.3f, 0.4f, 0.6f, 0.8f, 0.9f},
                            {0.5f, 0.1f, 0.5f, 0.1f, 0.5f, 0.1f, 0.5f, 0.1f}};
  cube image(rows, cols, bands);
  for (arma::uword r = 0; r < rows; ++r) {
    for (arma::uword c = 0; c < cols; ++c) {
      const arma::uword m = (r < rows / 2 ? 0 : 2) + (c < cols / 2 ? 0 : 1);
      const float shading = 0.5f + 0.5f * static_cast<float>(c) / cols;
      image.tube(r, c) = shading * (materials.row(m).t() % light);
    }
  }
  return image;
}

class pipeline_stages_test : public ::testing::Test {
 protected:
  void SetUp() override {
    light = arma::linspace<vector>(1.0f, 2.0f, bands);
    image.set_I(quadrant_image(light), test::linear_wavelengths(bands));
  }
  vector light;
  pipeline image;
};

TEST_F(pipeline_stages_test, the_illuminant_stage_stores_the_method_result_and_clears_on_failure) {
  image.set_illuminant_method(5);  // white patch: the per-band maxima
  image.process_recover_illuminant(true);
  EXPECT_EQ(logger::instance().stage(), 0);  // stage numbers as the viewer reads them
  vector maxima(bands);
  for (arma::uword b = 0; b < bands; ++b) {
    maxima(b) = image.I().slice(b).max();
  }
  EXPECT_TRUE(arma::approx_equal(image.illuminant(), arma::normalise(maxima), "absdiff", 1e-6f));

  // A later failure leaves no stale illuminant behind.
  image.set_illuminant_method(6);
  EXPECT_EQ(thrown_text([&] { image.process_recover_illuminant(false); }),
            "recover_global_illuminant: Incorrect method.");
  EXPECT_EQ(thrown_text([&] { image.illuminant(); }),
            "pipeline: illuminant does not exist in pipeline or input.");
}

TEST_F(pipeline_stages_test, the_dichromatic_stage_splits_every_pixel_and_clears_on_failure) {
  image.set_illuminant(light);
  image.process_recover_dichromatic_parameters();
  EXPECT_EQ(logger::instance().stage(), 1);
  const cube& s = image.s();
  ASSERT_EQ(arma::size(s), arma::size(image.I()));
  ASSERT_EQ(arma::size(image.k()), arma::size(rows, cols));
  ASSERT_EQ(arma::size(image.g()), arma::size(rows, cols));
  // The parts rebuild the image: I = (g S + k) L.
  for (arma::uword b = 0; b < bands; ++b) {
    const matrix rebuilt = (image.g() % s.slice(b) + image.k()) * light(b);
    EXPECT_LT(arma::abs(rebuilt - image.I().slice(b)).max(), 1e-4f * image.I().max()) << b;
  }

  image.set_dichromatic_method(1);
  EXPECT_EQ(thrown_text([&] { image.process_recover_dichromatic_parameters(); }),
            "recover_dichromatic_parameters: Incorrect method.");
  EXPECT_EQ(thrown_text([&] { image.k(); }), "pipeline: k does not exist in pipeline or input.");
  EXPECT_EQ(thrown_text([&] { image.s(); }), "pipeline: s does not exist in pipeline or input.");

  // Refused for want of an illuminant, the stage leaves no reflectance of an
  // earlier run behind either.
  image.set_dichromatic_method(0);
  image.process_recover_dichromatic_parameters();
  image.reset_components(false);
  EXPECT_EQ(thrown_text([&] { image.process_recover_dichromatic_parameters(); }),
            "pipeline: I or illuminant is empty in process_recover_dichromatic_parameters()");
  EXPECT_EQ(thrown_text([&] { image.s(); }), "pipeline: s does not exist in pipeline or input.");
}

TEST_F(pipeline_stages_test, the_material_stage_maps_the_quadrants_with_the_selected_mode) {
  // The true reflectance and shading, so that the stage alone is under test.
  cube reflectance = image.I();
  matrix shading(rows, cols);
  for (arma::uword c = 0; c < cols; ++c) {
    shading.col(c).fill(0.5f + 0.5f * static_cast<float>(c) / cols);
  }
  for (arma::uword b = 0; b < bands; ++b) {
    reflectance.slice(b) /= shading * light(b);
  }
  image.set_s(reflectance);
  image.set_g(shading);
  image.set_material_mode(0);
  image.set_materials_per_pixel(2);
  image.process_recover_materials();
  EXPECT_EQ(logger::instance().stage(), 2);
  EXPECT_EQ(logger::instance().progress(), 100);
  EXPECT_EQ(arma::size(image.material_elements()), arma::size(bands, 4));
  EXPECT_EQ(arma::size(image.material_element_abundances()), arma::size(rows, cols, 2));
  EXPECT_EQ(arma::size(image.material_element_abundance_indexes()), arma::size(rows, cols, 2));
  const matrix& map = image.material_map();
  ASSERT_EQ(arma::size(map), arma::size(rows, cols));
  // Each quadrant is one material of its own.
  const float corners[4] = {map(0, 0), map(0, cols - 1), map(rows - 1, 0), map(rows - 1, cols - 1)};
  EXPECT_EQ(arma::fvec(arma::unique(arma::fvec(std::vector<float>(corners, corners + 4)))).n_elem,
            4u);
  for (arma::uword r = 0; r < rows; ++r) {
    for (arma::uword c = 0; c < cols; ++c) {
      ASSERT_EQ(map(r, c), corners[(r < rows / 2 ? 0 : 2) + (c < cols / 2 ? 0 : 1)])
          << r << "," << c;
    }
  }

  // Refused before it reads anything, the stage still leaves the material
  // components empty.
  image.set_material_subsample(5);
  EXPECT_EQ(thrown_text([&] { image.process_recover_materials(); }),
            "pipeline: material_subsample out of range in process_recover_materials()");
  EXPECT_EQ(thrown_text([&] { image.material_map(); }),
            "pipeline: material_map does not exist in pipeline or input.");
}

}  // namespace
}  // namespace corv
