#include "corv/pipeline/material_sample.h"

#include <gtest/gtest.h>

namespace corv {
namespace {

TEST(material_sample_test, takes_one_interior_lit_pixel_per_block) {
  // Two materials 30 degrees apart meet at column 16; the bottom eight rows lie
  // in deep shadow; a highlight shines at row 4, column 28.
  const arma::uword size = 32;
  cube s(size, size, 3);
  matrix g(size, size, arma::fill::ones);
  for (arma::uword c = 0; c < size; ++c) {
    const vector spectrum = c < 16 ? vector{1.0f, 0.0f, 0.0f} : vector{0.866f, 0.5f, 0.0f};
    for (arma::uword r = 0; r < size; ++r) {
      s.tube(r, c) = spectrum;
    }
  }
  g.rows(24, 31).fill(0.001f);
  matrix k(size, size, arma::fill::zeros);
  k(4, 28) = 0.5f;

  const matrix coherence = neighbourhood_coherence(s, g, k);
  EXPECT_FLOAT_EQ(coherence(4, 2), 1.0f);
  EXPECT_FLOAT_EQ(coherence(19, 2), 0.5f);  // its neighbourhood reaches the shadow
  EXPECT_FLOAT_EQ(coherence(4, 24), 0.5f);  // and this one the highlight
  EXPECT_LT(coherence(4, 13), std::cos(smooth_angle * arma::datum::pi / 180.0));
  EXPECT_EQ(coherence(28, 2), 0.0f);  // unlit

  // One pixel from each lit block whose neighbourhood can stay clear of the
  // border, the shadow and the highlight (6 x 5 of the 8 x 8 blocks, less 4
  // by the highlight), none within the neighbourhood's reach of them.
  const arma::uvec chosen = interior_sample(s, g, k, 4);
  EXPECT_EQ(chosen.n_elem, 26u);
  for (const arma::uword p : chosen) {
    const arma::uword r = p % size, c = p / size;
    EXPECT_LT(r + neighbourhood_radius, 24u);
    EXPECT_TRUE(c + neighbourhood_radius < 16 || c >= 16 + neighbourhood_radius) << r << ", " << c;
    EXPECT_FALSE(r <= 4 + neighbourhood_radius && c + neighbourhood_radius >= 28) << r << ", " << c;
  }
  // Without shading every pixel is lit.
  EXPECT_EQ(interior_sample(s, matrix(), matrix(), 4).n_elem, 48u);

  // Large images take bigger blocks, so that the sample stays within its cap.
  EXPECT_EQ(sample_block(240, 320, 8), 8u);
  EXPECT_EQ(sample_block(1024, 1024, 8), 16u);
  EXPECT_EQ(sample_block(1025, 1024, 8), 32u);
}

}  // namespace
}  // namespace corv
