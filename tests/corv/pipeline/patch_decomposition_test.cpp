#include "corv/pipeline/patch_decomposition.h"

#include <gtest/gtest.h>

#include <string>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::logged;
using test::thrown_text;

// x = m D + k L over a 3 x 4 patch: shading ramps m and the given specular k.
cube mixed_patch(const vector& L, const vector& D, const matrix& k) {
  cube patch(k.n_rows, k.n_cols, L.n_elem);
  for (arma::uword b = 0; b < L.n_elem; ++b) {
    for (arma::uword c = 0; c < k.n_cols; ++c) {
      for (arma::uword r = 0; r < k.n_rows; ++r) {
        const float m = 1.0f + 0.2f * r + 0.1f * c;
        patch(r, c, b) = m * D(b) + k(r, c) * L(b);
      }
    }
  }
  return patch;
}

class patch_decomposition_test : public ::testing::Test {
 protected:
  const vector L = {1.0f, 1.0f, 1.0f, 1.0f};
  const vector D = {1.0f, 2.0f, 3.0f, 4.0f};
};

TEST_F(patch_decomposition_test, splits_a_patch_into_its_specular_and_diffuse_shares) {
  // Shading only: everything is diffuse, in the body colour's direction.
  const matrix none(3, 4, arma::fill::zeros);
  const patch_decomposition flat = decompose_patch(mixed_patch(L, D, none), L, 50.0f, 5);
  EXPECT_TRUE(flat.valid);
  EXPECT_LT(arma::abs(flat.specular).max(), 1e-4f);
  EXPECT_NEAR(arma::dot(arma::normalise(flat.diffuse_spectrum), arma::normalise(D)), 1.0f, 1e-5f);
  EXPECT_NEAR(flat.dichromatic_error, 0.0, 1e-6);
  EXPECT_TRUE(logged("Patch Dichromatic Decompose: H: 3 W: 4 B: 4"));
  EXPECT_TRUE(logged("End decompose dichromatic patch"));
  EXPECT_TRUE(logged("Patch is valid!"));

  // A highlight that does not follow the shading is found as it was put in.
  const matrix highlight = {{0, 0, 0, 0}, {0, 0.5, 0.2, 0}, {0, 0, 0, 0}};
  const patch_decomposition shiny = decompose_patch(mixed_patch(L, D, highlight), L, 50.0f, 0);
  EXPECT_TRUE(shiny.valid);
  EXPECT_TRUE(arma::approx_equal(shiny.specular, highlight, "absdiff", 1e-3f));
  EXPECT_LT(shiny.dichromatic_error, 1e-6);
  EXPECT_GT(shiny.smooth_error, 0.0);
  EXPECT_GT(shiny.diffuse.min(), 0.0f);

  // A fit that needs negative specular shares is invalid, and clamped all the same.
  const matrix below(3, 4, arma::fill::value(-0.3f));
  const patch_decomposition dark = decompose_patch(mixed_patch(L, D, below), L, 50.0f, 0);
  EXPECT_FALSE(dark.valid);
  EXPECT_GE(dark.specular.min(), 0.0f);
  EXPECT_GE(dark.diffuse.min(), 0.0f);
  EXPECT_GT(dark.dichromatic_error, 0.0);

  // A diffuse solution whose first band comes out negative is turned round
  // with the specular shares: the patch is then invalid, its highlight clamped
  // away and left in the error.
  const vector turned = {-1.0f, 2.0f, 3.0f, 4.0f};
  const patch_decomposition negative =
      decompose_patch(mixed_patch(L, turned, highlight), L, 50.0f, 0);
  EXPECT_GE(negative.diffuse_spectrum(0), 0.0f);
  EXPECT_FALSE(negative.valid);
  EXPECT_LT(negative.specular.max(), 1e-4f);
  EXPECT_GT(negative.dichromatic_error, 0.0);
}

TEST_F(patch_decomposition_test, plane_strength_tells_a_plane_from_one_colour_and_noise) {
  const matrix highlight = {{0, 0, 0, 0}, {0, 0.5, 0.2, 0}, {0, 0, 0, 0}};
  EXPECT_NEAR(find_patch_plane(mixed_patch(L, D, highlight)).strength, 1.0, 1e-6);
  arma::arma_rng::set_seed(3);
  cube noisy = mixed_patch(L, D, matrix(3, 4, arma::fill::zeros));
  noisy += 0.01f * arma::randn<cube>(arma::size(noisy));
  EXPECT_LT(find_patch_plane(noisy).strength, 0.9);
  EXPECT_EQ(plane_strength(arma::mat(4, 6, arma::fill::zeros)), 0.0);
}

TEST_F(patch_decomposition_test, refuses_an_empty_patch) {
  EXPECT_EQ(thrown_text([&] { decompose_patch(cube(0, 4, 4), L, 50.0f, 0); }),
            "Patch Decompose: Data size is incorrect.");
  EXPECT_TRUE(logged("Patch Decompose: Data size is incorrect."));
  EXPECT_EQ(thrown_text([&] { decompose_patch(cube(2, 2, 4, arma::fill::ones), vector(3), 1, 0); }),
            "Patch Decompose: The illuminant has 3 values for 4 bands.");
}

}  // namespace
}  // namespace corv
