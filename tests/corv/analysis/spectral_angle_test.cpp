#include "corv/analysis/spectral_angle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "tests/corv/test_support.h"

namespace corv {
namespace {

TEST(spectral_angle_test, degrees_from_cosines_outside_their_range_and_nan) {
  EXPECT_FLOAT_EQ(angle_degrees(1.0), 0.0f);
  EXPECT_FLOAT_EQ(angle_degrees(0.5), 60.0f);
  EXPECT_FLOAT_EQ(angle_degrees(-1.0), 180.0f);
  // Rounding can take the dot product of unit vectors past either end.
  EXPECT_FLOAT_EQ(angle_degrees(-1.0000001), 180.0f);
  EXPECT_EQ(angle_degrees(1.0000001), 0.0f);
  EXPECT_TRUE(std::isnan(angle_degrees(std::numeric_limits<double>::quiet_NaN())));
  // A zero spectrum has no direction.
  EXPECT_TRUE(std::isnan(spectral_angle({0, 0, 0}, {1, 2, 3})));
}

TEST(spectral_angle_test, ranking_puts_the_largest_cosine_first_and_nan_last) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double cosines[] = {0.5, 0.9, nan, 0.9, -1.0, nan};
  arma::uword order[6];
  rank_by_cosine(cosines, 6, 6, order);
  const arma::uword all[] = {1, 3, 0, 4, 2, 5};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(order[i], all[i]) << "rank " << i;
  }
  rank_by_cosine(cosines, 6, 2, order);
  EXPECT_EQ(order[0], 1u);
  EXPECT_EQ(order[1], 3u);
}

// A tile ranks each of its pixels as rank_by_cosine ranks that pixel alone,
// through ties, NaN, any number of results and more than a tile's worth.
TEST(spectral_angle_test, a_tile_ranks_every_pixel_as_it_ranks_alone) {
  constexpr arma::uword tile = tile_products::tile, n = 20;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  arma::arma_rng::set_seed(3);
  std::vector<double> cosines(n * tile);
  for (arma::uword j = 0; j < n; ++j) {
    for (arma::uword p = 0; p < tile; ++p) {
      // Four levels, so that most cosines tie; pixel 5 is all NaN, pixel 6 all equal.
      const double level = std::floor(arma::randu() * 4.0) / 4.0 - 0.5;
      cosines[j * tile + p] = p == 5 || (j + p) % 7 == 0 ? nan : p == 6 ? 0.25 : level;
    }
  }
  for (const arma::uword k : {1, 5, 16, 20}) {
    std::vector<arma::uword> order(n * tile), alone(n);
    rank_tile_by_cosine(cosines.data(), n, k, order.data());
    for (arma::uword p = 0; p < tile; ++p) {
      std::vector<double> pixel(n);
      for (arma::uword j = 0; j < n; ++j) {
        pixel[j] = cosines[j * tile + p];
      }
      rank_by_cosine(pixel.data(), n, k, alone.data());
      for (arma::uword i = 0; i < k; ++i) {
        EXPECT_EQ(order[i * tile + p], alone[i]) << "k " << k << " pixel " << p << " rank " << i;
      }
    }
  }
}

TEST(spectral_angle_test, tile_cosines_match_the_angle_of_each_pixel) {
  arma::arma_rng::set_seed(5);
  const cube image = arma::randu<cube>(21, 3, 9) - 0.2f;
  const matrix references = arma::randu<matrix>(4, 9);
  const reference_angles angles(references);
  ASSERT_EQ(angles.references(), 4u);
  for (arma::uword j = 0; j < 4; ++j) {
    EXPECT_NEAR(angles.lengths()(j), arma::norm(references.row(j)), 1e-5);
  }
  constexpr arma::uword tile = tile_products::tile;
  double cosines[4 * tile], lengths[tile];
  // A whole tile, then the 5 rows left over in the column.
  for (const arma::uword first : {arma::uword{0}, arma::uword{16}}) {
    const arma::uword pixels = first == 0 ? tile : 5;
    angles.cosines(tile_at(image, first, first + pixels, 2), cosines, lengths);
    for (arma::uword p = 0; p < pixels; ++p) {
      const vector pixel = image.tube(first + p, 2);
      EXPECT_NEAR(lengths[p], arma::norm(pixel), 1e-5);
      for (arma::uword j = 0; j < 4; ++j) {
        EXPECT_NEAR(angle_degrees(cosines[j * tile + p]),
                    spectral_angle(pixel, references.row(j).t()), 1e-3)
            << "row " << first + p << " reference " << j;
      }
    }
  }
}

}  // namespace
}  // namespace corv
