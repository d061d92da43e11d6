// Band alignment by phase correlation: shifted bands are found and moved back.
#include "corv/pipeline/band_alignment.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

// A textured scene displaced by (dr, dc) pixels, in quarters of a pixel: random
// texture at four times the resolution, averaged over 4 x 4 blocks.
corv::matrix scene(double dr, double dc) {
  static const corv::matrix fine = [] {
    arma::arma_rng::set_seed(7);
    return corv::matrix(arma::randu<arma::fmat>(4 * 64 + 64, 4 * 80 + 64));
  }();
  const auto row0 = static_cast<arma::uword>(32 - std::lround(4 * dr));
  const auto col0 = static_cast<arma::uword>(32 - std::lround(4 * dc));
  corv::matrix band(64, 80);
  for (arma::uword r = 0; r < band.n_rows; ++r) {
    for (arma::uword c = 0; c < band.n_cols; ++c) {
      band(r, c) =
          arma::accu(fine.submat(row0 + 4 * r, col0 + 4 * c, row0 + 4 * r + 3, col0 + 4 * c + 3)) /
          16.0f;
    }
  }
  return band;
}

}  // namespace

TEST(band_alignment, finds_and_undoes_shifts) {
  corv::cube data(64, 80, 3);
  data.slice(0) = scene(3, -2);
  data.slice(1) = scene(0, 0);
  data.slice(2) = 2.0f * scene(-1.5, 4);  // brighter: phase correlation ignores the gain
  const std::vector<corv::band_shift> found = corv::band_shifts(data, 1);
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[1].rows, 0.0);
  EXPECT_NEAR(found[0].rows, 3.0, 0.05);
  EXPECT_NEAR(found[0].columns, -2.0, 0.05);
  EXPECT_NEAR(found[2].rows, -1.5, 0.05);
  EXPECT_NEAR(found[2].columns, 4.0, 0.05);

  // Away from the borders that came in from outside, the bands match the reference far
  // better than before.
  const auto inner = [](const corv::matrix& m) { return m.submat(6, 6, 57, 73); };
  const auto distance = [&](const corv::cube& c, arma::uword band, float gain) {
    return arma::mean(arma::vectorise(arma::abs(inner(c.slice(band)) / gain - inner(c.slice(1)))));
  };
  const corv::cube before = data;
  corv::align_bands(data, 1);
  EXPECT_LT(distance(data, 0, 1.0f), 0.1f * distance(before, 0, 1.0f));
  // Half a pixel of bilinear resampling smooths the texture: a smaller gain.
  EXPECT_LT(distance(data, 2, 2.0f), 0.6f * distance(before, 2, 2.0f));
  EXPECT_EQ(arma::accu(data.slice(1) != before.slice(1)), 0u);

  try {
    corv::align_bands(data, 3);
    FAIL() << "a missing reference band accepted";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(e.what(),
              std::string("align_bands: Reference band 3 does not exist; the image has 3 bands."));
  }
}
