#include "corv/pipeline/material_sample.h"

#include <gtest/gtest.h>

namespace corv {
namespace {

TEST(material_sample_test, takes_one_interior_lit_pixel_per_block) {
  // Two materials 30 degrees apart meet at column 8; the bottom four rows lie in
  // deep shadow.
  const arma::uword size = 16;
  cube s(size, size, 3);
  matrix g(size, size, arma::fill::ones);
  for (arma::uword c = 0; c < size; ++c) {
    const vector spectrum = c < 8 ? vector{1.0f, 0.0f, 0.0f} : vector{0.866f, 0.5f, 0.0f};
    for (arma::uword r = 0; r < size; ++r) {
      s.tube(r, c) = spectrum;
    }
  }
  g.rows(12, 15).fill(0.001f);

  const matrix coherence = neighbourhood_coherence(s, g);
  EXPECT_FLOAT_EQ(coherence(4, 2), 1.0f);
  EXPECT_LT(coherence(4, 7), std::cos(smooth_angle * arma::datum::pi / 180.0));
  EXPECT_EQ(coherence(14, 2), 0.0f);  // unlit

  const arma::uvec chosen = interior_sample(s, g, 4);
  // One pixel from each lit block (12 of the 16), none next to the border.
  EXPECT_EQ(chosen.n_elem, 12u);
  for (const arma::uword p : chosen) {
    const arma::uword r = p % size, c = p / size;
    EXPECT_LT(r, 12u);
    EXPECT_TRUE(c < 6 || c > 9) << r << ", " << c;
  }
  // Without shading every pixel is lit.
  EXPECT_EQ(interior_sample(s, matrix(), 4).n_elem, 16u);
}

}  // namespace
}  // namespace corv
