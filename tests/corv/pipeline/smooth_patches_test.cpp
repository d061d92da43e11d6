#include "corv/pipeline/smooth_patches.h"

#include <gtest/gtest.h>

#include <string>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::logged;
using test::thrown_text;

// A grid of 4 x 3 patches of side 4, each one flat colour times a gentle
// shading ramp (homogeneous), the colour's brightness set per patch.
cube patch_grid(const matrix& brightness, arma::uword side = 4, arma::uword bands = 5) {
  cube image(brightness.n_rows * side, brightness.n_cols * side, bands);
  for (arma::uword b = 0; b < bands; ++b) {
    for (arma::uword c = 0; c < image.n_cols; ++c) {
      for (arma::uword r = 0; r < image.n_rows; ++r) {
        const float colour = 1.0f + 0.2f * static_cast<float>(b);
        const float shading = 1.0f + 0.02f * static_cast<float>(r % side + c % side);
        image(r, c, b) = brightness(r / side, c / side) * colour * shading;
      }
    }
  }
  return image;
}

TEST(smooth_patches_test, keeps_the_brightest_homogeneous_patches_best_first) {
  const matrix brightness = {{100, 90, 80}, {110, 20, 95}, {70, 105, 85}, {60, 75, 65}};
  const cube image = patch_grid(brightness);
  // Too dark: the band-summed mean must exceed a third of the brightest pixel.
  const patch_list all = select_smooth_patches(image, 4, 100, 1);
  EXPECT_TRUE(logged("Found 11 homogeneous patches."));
  ASSERT_EQ(all.size(), 11u);
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_FALSE(all.rows[i] == 1 && all.cols[i] == 1) << "the dark patch was kept";
  }

  const patch_list best = select_smooth_patches(image, 4, 3, 0);
  ASSERT_EQ(best.size(), 3u);
  EXPECT_EQ(best.rows, (std::vector<int>{1, 2, 0}));
  EXPECT_EQ(best.cols, (std::vector<int>{0, 1, 0}));
  EXPECT_GT(best.scores[0], best.scores[1]);
  EXPECT_GT(best.scores[1], best.scores[2]);
  // The mask covers the kept patches only.
  EXPECT_FLOAT_EQ(arma::accu(best.mask), 48.0f);
  EXPECT_FLOAT_EQ(best.mask(4, 0), 1.0f);
  EXPECT_FLOAT_EQ(best.mask(11, 7), 1.0f);
  EXPECT_FLOAT_EQ(best.mask(0, 4), 0.0f);

  const arma::imat bounds = patch_bounds(best, 4, image.n_rows, image.n_cols);
  EXPECT_TRUE(arma::all(arma::vectorise(bounds.row(1) == arma::irowvec{8, 11, 4, 7})));
  // The last patch of a grid that does not fill the image is clipped to it.
  patch_list edge;
  edge.rows = {2};
  edge.cols = {1};
  EXPECT_TRUE(arma::all(arma::vectorise(patch_bounds(edge, 4, 10, 6) == arma::imat{{8, 9, 4, 5}})));
}

TEST(smooth_patches_test, refuses_saturated_and_mixed_patches) {
  const matrix brightness = {{100, 90}, {95, 85}};
  cube image = patch_grid(brightness, 4, 8);
  // The largest sample is 268.8, so the full scale is 512: one sample at 0.96
  // of it rules its patch out, however uniform the patch is.
  image(5, 6, 2) = 0.96f * 512.0f;
  // Four colours with nothing in common, a quarter of the pixels each: no plane
  // holds 70% of them, so the patch is not homogeneous although bright.
  image.tube(0, 4, 3, 7).zeros();
  for (arma::uword p = 0; p < 16; ++p) {
    const arma::uword band = 2 * (p % 4);
    image(p % 4, 4 + p / 4, band) = 350.0f;
    image(p % 4, 4 + p / 4, band + 1) = 350.0f;
  }
  const patch_list found = select_smooth_patches(image, 4, 10, 0);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found.rows, (std::vector<int>{0, 1}));
  EXPECT_EQ(found.cols, (std::vector<int>{0, 0}));
}

TEST(smooth_patches_test, finds_nothing_in_an_image_smaller_than_a_patch) {
  const cube small(19, 30, 4, arma::fill::value(10.0f));
  const patch_list none = select_smooth_patches(small, 20, 50, 3);
  EXPECT_TRUE(none.empty());
  EXPECT_EQ(none.mask.n_rows, 19u);
  EXPECT_EQ(none.mask.n_cols, 30u);
  EXPECT_FLOAT_EQ(arma::accu(none.mask), 0.0f);
  EXPECT_TRUE(logged("Warning: Select Smooth Patches found no valid patches"));
  EXPECT_TRUE(logged("Patch Selection~"));
  EXPECT_TRUE(logged("Patch Size:       20"));

  EXPECT_EQ(thrown_text([] { select_smooth_patches(cube(0, 4, 3), 2, 5, 0); }),
            "select_smooth_patches Recovery: Data size is incorrect.");
  EXPECT_TRUE(logged("select_smooth_patches Recovery: Data size is incorrect."));
  EXPECT_EQ(thrown_text([] { select_smooth_patches(cube(4, 4, 0), 2, 5, 0); }),
            "select_smooth_patches Recovery: Data size is incorrect.");
}

}  // namespace
}  // namespace corv
