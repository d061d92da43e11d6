#include "corv/pipeline/dichromatic.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::log_lines;
using test::thrown_text;

// Every pixel's unit spectrum (zero for a zero pixel).
cube unit_spectra(const cube& R) {
  cube U(arma::size(R));
  for (arma::uword c = 0; c < R.n_cols; ++c) {
    for (arma::uword r = 0; r < R.n_rows; ++r) {
      const vector spectrum = R.tube(r, c);
      const float length = arma::norm(spectrum);
      U.tube(r, c) =
          length > 0.0f ? vector(spectrum / length) : vector(R.n_slices, arma::fill::zeros);
    }
  }
  return U;
}

// The neighbourhood sum of unit spectra over the part of the square inside the
// image, the slow way.
vector neighbourhood_sum(const cube& U, long r, long c, long n) {
  vector sum(U.n_slices, arma::fill::zeros);
  for (arma::uword b = 0; b < U.n_slices; ++b) {
    for (long cc = std::max(0L, c - n); cc <= std::min<long>(U.n_cols - 1, c + n); ++cc) {
      for (long rr = std::max(0L, r - n); rr <= std::min<long>(U.n_rows - 1, r + n); ++rr) {
        sum(b) += U(rr, cc, b);
      }
    }
  }
  return sum;
}

TEST(dichromatic_test, splits_one_spectrum_by_hand) {
  // R = 5 * (0.6, 0.8, 0) + 1: the direction may come at any length.
  dichromatic_factors split = split_dichromatic(vector{4.0f, 5.0f, 1.0f}, vector{6.0f, 8.0f, 0.0f});
  EXPECT_NEAR(split.k, 1.0f, 1e-5f);
  EXPECT_NEAR(split.g, 5.0f, 1e-5f);
  // A negative diffuse share, a flat direction and no direction: all diffuse.
  split = split_dichromatic(vector{-3.0f, -4.0f, 0.0f}, vector{3.0f, 4.0f, 0.0f});
  EXPECT_EQ(split.k, 0.0f);
  EXPECT_NEAR(split.g, 5.0f, 1e-5f);
  split = split_dichromatic(vector{1.0f, 2.0f, 2.0f}, vector{1.0f, 1.0f, 1.0f});
  EXPECT_EQ(split.k, 0.0f);
  EXPECT_NEAR(split.g, 3.0f, 1e-5f);
  split = split_dichromatic(vector{1.0f, 2.0f, 2.0f}, vector{0.0f, 0.0f, 0.0f});
  EXPECT_EQ(split.k, 0.0f);
  EXPECT_NEAR(split.g, 3.0f, 1e-5f);
  EXPECT_EQ(thrown_text([] {
              split_dichromatic(vector{1.0f, 2.0f}, vector{1.0f});
            }),
            "split_dichromatic: The spectrum has 2 bands and the diffuse direction 1.");
}

// The split of a rendered scene and the image rebuilt from its parts are checked
// against numpy; here the neighbourhoods, the edge cases and the rules.
TEST(dichromatic_test, matches_neighbourhoods_summed_the_slow_way) {
  // Rows enough for several blocks per thread, odd sizes, windows from the
  // pixel alone to wider than the image; per-pixel and single illuminants agree.
  arma::arma_rng::set_seed(5);
  cube I(67, 13, 5, arma::fill::randu);
  I += 0.05f;
  const vector L{0.5f, 1.0f, 1.5f, 0.8f, 1.2f};
  cube per_pixel(arma::size(I));
  for (arma::uword b = 0; b < L.n_elem; ++b) {
    per_pixel.slice(b).fill(L(b));
  }
  cube R(arma::size(I));
  for (arma::uword b = 0; b < L.n_elem; ++b) {
    R.slice(b) = I.slice(b) / L(b);
  }
  const cube U = unit_spectra(R);
  for (const int n : {0, 1, 3, 12, 40}) {
    dichromatic_parameters settings;
    settings.neighbourhood_size = n;
    settings.gray_threshold = 0;  // no achromatic pixels: k and g straight from the split
    matrix k, g, k2, g2;
    cube s, s2;
    recover_dichromatic_parameters(I, L, vector(), settings, 0, k, g, s);
    recover_dichromatic_parameters(I, per_pixel, vector(), settings, 0, k2, g2, s2);
    EXPECT_TRUE(arma::approx_equal(k, k2, "absdiff", 1e-6f)) << n;
    EXPECT_TRUE(arma::approx_equal(g, g2, "absdiff", 1e-6f)) << n;
    EXPECT_TRUE(arma::approx_equal(s, s2, "absdiff", 1e-5f)) << n;
    int wrong = 0;
    for (long c = 0; c < 13; ++c) {
      for (long r = 0; r < 67; ++r) {
        const dichromatic_factors expected =
            split_dichromatic(R.tube(r, c), neighbourhood_sum(U, r, c, n));
        const float scale = arma::norm(vector(R.tube(r, c)));
        if (std::abs(k(r, c) - expected.k) > 1e-3f * scale ||
            std::abs(g(r, c) - expected.g) > 1e-3f * scale) {
          ++wrong;
        }
      }
    }
    EXPECT_EQ(wrong, 0) << "window " << n;
  }
}

TEST(dichromatic_test, zero_illuminant_bands_and_zero_or_broken_pixels) {
  const vector L{1.0f, 0.0f, 2.0f, 0.5f};
  arma::arma_rng::set_seed(9);
  cube I(9, 8, 4, arma::fill::randu);
  I += 0.1f;
  I.tube(4, 4).zeros();                                  // no light at all: g = 0
  I(1, 6, 2) = std::numeric_limits<float>::quiet_NaN();  // a broken pixel
  matrix k, g;
  cube s;
  dichromatic_parameters settings;
  settings.neighbourhood_size = 2;
  recover_dichromatic_parameters(I, L, vector(), settings, 0, k, g, s);
  EXPECT_TRUE(s.is_finite());
  EXPECT_TRUE(k.is_finite());
  EXPECT_TRUE(g.is_finite());
  EXPECT_EQ(g(4, 4), 0.0f);
  EXPECT_TRUE(arma::all(vector(s.tube(4, 4)) == 0.0f));
  EXPECT_EQ(k(1, 6), 0.0f);
  EXPECT_EQ(g(1, 6), 0.0f);
  EXPECT_TRUE(arma::all(vector(s.tube(1, 6)) == 0.0f));
  for (arma::uword c = 0; c < 8; ++c) {
    for (arma::uword r = 0; r < 9; ++r) {
      if ((r == 4 && c == 4) || (r == 1 && c == 6)) {
        continue;
      }
      for (arma::uword b = 0; b < 4; ++b) {
        // The band without light is not divided: R = I there.
        const float R = b == 1 ? I(r, c, b) : I(r, c, b) / L(b);
        EXPECT_NEAR(g(r, c) * s(r, c, b) + k(r, c), R, 1e-5f) << r << "," << c << "," << b;
      }
    }
  }
  // Per pixel: a band that is zero anywhere is left undivided everywhere.
  cube per_pixel(arma::size(I));
  for (arma::uword b = 0; b < 4; ++b) {
    per_pixel.slice(b).fill(b == 1 ? 3.0f : L(b));
  }
  per_pixel(7, 0, 1) = 0.0f;
  matrix k2, g2;
  cube s2;
  recover_dichromatic_parameters(I, per_pixel, vector(), settings, 0, k2, g2, s2);
  EXPECT_TRUE(arma::approx_equal(k, k2, "absdiff", 1e-6f));
  EXPECT_TRUE(arma::approx_equal(s, s2, "absdiff", 1e-6f));
}

TEST(dichromatic_test, gray_threshold) {
  // A pixel 1.5 degrees from flat among coloured neighbours.
  const arma::uword bands = 6;
  cube I(5, 5, bands);
  for (arma::uword b = 0; b < bands; ++b) {
    I.slice(b).fill(1.0f + 0.4f * b);
  }
  vector pixel(bands, arma::fill::ones);
  pixel(bands - 1) += 0.07f;
  const double angle =
      std::acos(arma::accu(pixel) / (arma::norm(pixel) * std::sqrt(double(bands)))) * 180.0 / M_PI;
  ASSERT_GT(angle, 1.0);
  ASSERT_LT(angle, 2.0);
  I.tube(2, 2) = pixel;
  const vector L(bands, arma::fill::ones);
  auto shading = [&](int threshold) {
    dichromatic_parameters settings;
    settings.gray_threshold = threshold;
    matrix k, g;
    cube s;
    recover_dichromatic_parameters(I, L, vector(), settings, 0, k, g, s);
    return g(2, 2);
  };
  EXPECT_FLOAT_EQ(shading(2), arma::norm(pixel));
  EXPECT_FLOAT_EQ(shading(-1), arma::norm(pixel));
  EXPECT_GT(std::abs(shading(1) - arma::norm(pixel)), 1e-3f);
}

TEST(dichromatic_test, logs_by_verbosity) {
  const vector L{0.5f, 1.0f, 1.5f, 0.8f};
  arma::arma_rng::set_seed(2);
  const cube I(45, 7, 4, arma::fill::randu);
  matrix k, g;
  cube s;
  // Above 5, and below 0 (compared unsigned), nothing is logged.
  for (const int verbosity : {6, -1, 0}) {
    recover_dichromatic_parameters(I, L, vector(), {}, verbosity, k, g, s);
    EXPECT_TRUE(log_lines().empty()) << verbosity;
  }
  EXPECT_EQ(logger::instance().stage(), 1);
  recover_dichromatic_parameters(I, L, vector(), {}, 1, k, g, s);
  EXPECT_EQ(log_lines(), (std::vector<std::string>{
                             "Recover Dichromatic Parameters: Start to compute specularities",
                             "Recover Dichromatic Parameters: Beginning computation!",
                             "Recover Dichromatic Parameters: Finished computing S"}));
  logger::instance().clear_entries();
  recover_dichromatic_parameters(I, L, vector(), {}, 5, k, g, s);
  std::vector<std::string> logged = log_lines();
  ASSERT_EQ(logged.size(), 13u);
  // Three blocks of rows (20, 20, 5) done in an order the threads decide; the
  // last one reports 100.
  std::vector<std::string> progress(logged.begin() + 7, logged.begin() + 10);
  std::sort(progress.begin(), progress.end(),
            [](const std::string& a, const std::string& b) { return std::stoi(a) < std::stoi(b); });
  EXPECT_EQ(progress.back(), "100% complete");
  const std::set<std::string> possible{"44% complete", "55% complete", "88% complete"};
  EXPECT_TRUE(possible.count(progress[0]) && possible.count(progress[1]))
      << progress[0] << ", " << progress[1];
  logged.erase(logged.begin() + 7, logged.begin() + 10);
  EXPECT_EQ(logged, (std::vector<std::string>{
                        "Recover Dichromatic Parameters: Start to compute specularities",
                        "Parameters~ ", "Height: 45", "Width:  7", "Bands:  4",
                        "Recover Dichromatic Parameters: Normalising R=I/L.",
                        "Recover Dichromatic Parameters: Beginning computation!",
                        "Recover Dichromatic Parameters: Finished computing K",
                        "Recover Dichromatic Parameters: Computing S",
                        "Recover Dichromatic Parameters: Finished computing S"}));
  EXPECT_EQ(logger::instance().progress(), 100);
}

TEST(dichromatic_test, refuses_and_leaves_outputs_untouched) {
  const vector L(3, arma::fill::ones);
  const cube I(4, 4, 3, arma::fill::ones);
  matrix k(1, 1, arma::fill::value(7.0f)), g = k;
  cube s(1, 1, 1, arma::fill::value(7.0f));
  auto run = [&](const auto& image, const auto& light, dichromatic_parameters settings) {
    return thrown_text(
        [&] { recover_dichromatic_parameters(image, light, vector(), settings, 0, k, g, s); });
  };
  dichromatic_parameters method;
  method.method = 1;
  EXPECT_EQ(run(I, L, method), "recover_dichromatic_parameters: Incorrect method.");
  const std::string size = "Recover Dichromatic Parameters: Data size is incorrect.";
  EXPECT_EQ(run(cube(0, 4, 3), L, {}), size);
  EXPECT_EQ(run(cube(4, 4, 0), vector(), {}), size);
  EXPECT_EQ(run(I, vector(2, arma::fill::ones), {}), size);
  EXPECT_EQ(run(I, cube(4, 3, 3, arma::fill::ones), {}), size);
  dichromatic_parameters negative;
  negative.neighbourhood_size = -1;
  EXPECT_EQ(run(I, L, negative), "recover_dichromatic_parameters: Negative neighbourhood size -1.");
  // Each refusal is logged first, whatever the verbosity.
  EXPECT_EQ(log_lines().front(), "recover_dichromatic_parameters: Incorrect method.");
  EXPECT_EQ(log_lines().size(), 6u);
  logger::instance().request_abort();
  EXPECT_EQ(run(I, L, {}), "Processing was aborted!");
  EXPECT_FALSE(logger::instance().abort_requested());
  EXPECT_EQ(k(0, 0), 7.0f);
  EXPECT_EQ(g(0, 0), 7.0f);
  EXPECT_EQ(s(0, 0, 0), 7.0f);
  EXPECT_EQ(run(I, L, {}), "");
  EXPECT_EQ(arma::size(s), arma::size(I));
}

}  // namespace
}  // namespace corv
