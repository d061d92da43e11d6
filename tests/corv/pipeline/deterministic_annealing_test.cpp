#include "corv/pipeline/deterministic_annealing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "corv/io/logger.h"
#include "corv/pipeline/materials.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::angle_degrees;
using test::thrown_text;

// count spectra spread around each of the given directions (bands x 1 each),
// by a random angle of a fraction of a degree, with random lengths.
matrix spread_around(const std::vector<vector>& directions, arma::uword count) {
  arma::arma_rng::set_seed(5);
  const arma::uword bands = directions[0].n_elem;
  matrix spectra(bands, count * directions.size());
  for (arma::uword d = 0; d < directions.size(); ++d) {
    for (arma::uword i = 0; i < count; ++i) {
      const vector jitter = 0.004f * arma::randn<vector>(bands);
      spectra.col(d * count + i) =
          (arma::normalise(directions[d]) + jitter) * (0.5f + arma::randu<float>());
    }
  }
  return spectra;
}

// The distance's scale is this implementation's choice; that it depends on the
// direction alone, and never turns a zero spectrum into NaN, is not.
TEST(deterministic_annealing_test, distance_and_association_edge_cases) {
  EXPECT_NEAR(spectral_distance(vector{1, 1, 0}, vector{2, 2, 0}), 0.0f, 1e-6f);
  EXPECT_EQ(spectral_distance(vector{0, 0, 0}, vector{1, 0, 0}), 0.0f);
  float p[3];
  // Far apart at a tiny temperature: the nearest takes all.
  const float far[] = {1.5f, 1.9f, 1.7f}, thirds[] = {0.2f, 0.3f, 0.5f};
  associate(far, thirds, 3, 1e-6f, p);
  EXPECT_FLOAT_EQ(p[0], 1.0f);
  EXPECT_EQ(p[1] + p[2], 0.0f);
  // The priors weigh equal distances.
  const float same[] = {0.2f, 0.2f, 0.2f};
  associate(same, thirds, 3, 0.01f, p);
  EXPECT_NEAR(p[2], 0.5f, 1e-6f);
}

TEST(deterministic_annealing_test, schedule_replacements_and_refusals) {
  const annealing_schedule replaced = checked_schedule(-1, -1, -1, -1, 0);
  EXPECT_EQ(replaced.max_temperature, 0.02f);
  EXPECT_EQ(replaced.min_temperature, 0.00025f);
  EXPECT_EQ(replaced.cooling_rate, 0.8f);
  EXPECT_EQ(replaced.split_threshold, 0.9961947f);
  EXPECT_EQ(replaced.max_clusters, 20);
  EXPECT_EQ(checked_schedule(0.5f, 0.1f, 0.5f, 0.9f, 3).max_clusters, 3);
  EXPECT_EQ(cooling_steps(replaced), 19);
  EXPECT_EQ(cooling_steps(checked_schedule(0.01f, 0.01f, 0.5f, 0.9f, 3)), 1);
  EXPECT_EQ(cooling_steps(checked_schedule(0.8f, 0.1f, 0.5f, 0.9f, 3)), 3);

  EXPECT_EQ(thrown_text([] { checked_schedule(0.02f, 0.001f, 1.5f, 0.9f, 3); }),
            "Material Recovery: Cooling rate must be below 1, not 1.5.");
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(thrown_text([&] { checked_schedule(0.02f, 0.001f, nan, 0.9f, 3); }),
            "Material Recovery: Cooling rate must be below 1, not nan.");
  for (const auto& [high, low] :
       {std::pair(0.02f, 0.0f), std::pair(0.0f, 0.001f),
        std::pair(std::numeric_limits<float>::infinity(), 0.001f), std::pair(nan, 0.001f)}) {
    EXPECT_EQ(thrown_text([&] { checked_schedule(high, low, 0.8f, 0.9f, 3); }),
              "Material Recovery: Temperatures must be finite and above 0.")
        << high << " " << low;
  }
}

TEST(deterministic_annealing_test, separates_distinct_directions_only) {
  const vector a{1.0f, 0.2f, 0.1f, 0.3f}, b{0.2f, 1.0f, 0.4f, 0.1f}, c{0.3f, 0.3f, 1.0f, 0.8f};
  const matrix three = spread_around({a, b, c}, 60);
  const matrix centres = deterministic_annealing(three, -1, -1, -1, -1, 20, 0);
  ASSERT_EQ(centres.n_rows, 4u);
  ASSERT_EQ(centres.n_cols, 3u);
  for (const vector& direction : {a, b, c}) {
    double best = 180.0;
    for (arma::uword j = 0; j < 3; ++j) {
      best = std::min(best, angle_degrees(direction, centres.col(j)));
    }
    EXPECT_LT(best, 0.5);
  }

  // One direction, whatever the lengths and the jitter: one centre, its mean.
  const matrix one = spread_around({a}, 100);
  const matrix single = deterministic_annealing(one, -1, -1, -1, -1, 20, 0);
  ASSERT_EQ(single.n_cols, 1u);
  EXPECT_LT(angle_degrees(a, single.col(0)), 0.2);

  // Directions 3 degrees apart stay together under the default split angle
  // of 5 degrees and part under a split angle of 1 degree.
  const vector near{1.0f, 0.0f, 0.0f, 0.0f};
  const float turn = 3.0f * static_cast<float>(arma::datum::pi) / 180.0f;
  const vector turned{std::cos(turn), std::sin(turn), 0.0f, 0.0f};
  matrix pair(4, 200);
  pair.cols(0, 99).each_col() = near;
  pair.cols(100, 199).each_col() = turned;
  EXPECT_EQ(deterministic_annealing(pair, -1, -1, -1, -1, 20, 0).n_cols, 1u);
  EXPECT_EQ(deterministic_annealing(pair, -1, 1e-6f, -1, std::cos(turn / 3), 20, 0).n_cols, 2u);

  // The maximum number of clusters caps the splits.
  EXPECT_EQ(deterministic_annealing(three, -1, -1, -1, -1, 2, 0).n_cols, 2u);
  EXPECT_EQ(deterministic_annealing(three, -1, -1, -1, -1, 1, 0).n_cols, 1u);
}

TEST(deterministic_annealing_test, skips_unusable_spectra_and_refuses_none) {
  matrix spectra = spread_around({vector{1.0f, 0.5f, 0.2f}}, 20);
  spectra.col(3).zeros();
  spectra(1, 7) = std::numeric_limits<float>::quiet_NaN();
  const matrix centres = deterministic_annealing(spectra, -1, -1, -1, -1, 20, 0);
  ASSERT_EQ(centres.n_cols, 1u);
  EXPECT_TRUE(centres.is_finite());

  EXPECT_EQ(thrown_text([] { deterministic_annealing(matrix(), -1, -1, -1, -1, 20, 0); }),
            "Material Recovery: Data size is incorrect.");
  EXPECT_EQ(thrown_text([] { deterministic_annealing(matrix(3, 0), -1, -1, -1, -1, 20, 0); }),
            "Material Recovery: Data size is incorrect.");
  EXPECT_EQ(thrown_text([] {
              deterministic_annealing(matrix(3, 4, arma::fill::zeros), -1, -1, -1, -1, 20, 0);
            }),
            "Material Recovery: No spectrum to cluster: every one is zero or not finite.");
}

}  // namespace
}  // namespace corv
