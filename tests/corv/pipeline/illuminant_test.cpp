#include "corv/pipeline/illuminant.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "corv/io/logger.h"
#include "corv/pipeline/smooth_patches.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::angle_degrees;
using test::logged;
using test::thrown_text;

// A noise-free dichromatic scene I = g S L + k L, 12-bit scaled: vertical stripes
// of four materials with smooth reflectances, smooth shading over the whole
// image and one specular highlight of random place, width and strength in every
// patch cell, so that every patch holds specular variation.
cube dichromatic_scene(const vector& illuminant, arma::uword size = 160, int cell = 20,
                       unsigned seed = 5) {
  const arma::uword bands = illuminant.n_elem;
  const arma::uword stripe = size / 4;
  arma::mat reflectance(bands, 4);
  const double centres[4] = {450.0, 530.0, 600.0, 680.0};
  for (arma::uword b = 0; b < bands; ++b) {
    const double wavelength = 400.0 + 320.0 * b / std::max<arma::uword>(bands - 1, 1);
    for (int i = 0; i < 4; ++i) {
      const double x = (wavelength - centres[i]) / 60.0;
      reflectance(b, i) = 0.15 + 0.7 * std::exp(-0.5 * x * x);
    }
  }
  arma::arma_rng::set_seed(seed);
  matrix shading(size, size), specular(size, size, arma::fill::zeros);
  for (arma::uword c = 0; c < size; ++c) {
    for (arma::uword r = 0; r < size; ++r) {
      const double y = static_cast<double>(r) / size, x = static_cast<double>(c) / size;
      shading(r, c) = static_cast<float>(0.75 + 0.25 * std::sin(5.0 * x + 1.0) * std::cos(4.0 * y));
    }
  }
  for (arma::uword top = 0; top + cell <= size; top += cell) {
    for (arma::uword left = 0; left + cell <= size; left += cell) {
      const arma::vec draw = arma::randu<arma::vec>(4);
      const double centre_r = top + 4 + draw(0) * (cell - 8),
                   centre_c = left + 4 + draw(1) * (cell - 8);
      const double width = 2.0 + 3.0 * draw(2), strength = 0.1 + 0.3 * draw(3);
      for (arma::uword c = left; c < left + cell; ++c) {
        for (arma::uword r = top; r < top + cell; ++r) {
          const double d2 = (r - centre_r) * (r - centre_r) + (c - centre_c) * (c - centre_c);
          specular(r, c) += static_cast<float>(strength * std::exp(-0.5 * d2 / (width * width)));
        }
      }
    }
  }
  cube scene(size, size, bands);
  for (arma::uword b = 0; b < bands; ++b) {
    for (arma::uword c = 0; c < size; ++c) {
      const double body = reflectance(b, std::min<arma::uword>(c / stripe, 3));
      for (arma::uword r = 0; r < size; ++r) {
        scene(r, c, b) =
            static_cast<float>((shading(r, c) * body + specular(r, c)) * illuminant(b));
      }
    }
  }
  return scene * (3000.0f / scene.max());
}

vector scene_illuminant(arma::uword bands = 33) {
  vector L(bands);
  for (arma::uword b = 0; b < bands; ++b) {
    const double t = static_cast<double>(b) / std::max<arma::uword>(bands - 1, 1);
    L(b) = static_cast<float>(0.4 + 0.8 * t + 0.3 * std::exp(-0.5 * std::pow((t - 0.3) / 0.1, 2)));
  }
  return L;
}

TEST(illuminant_test, dichromatic_methods_recover_the_light_of_a_dichromatic_scene) {
  const vector L = scene_illuminant();
  const cube scene = dichromatic_scene(L);
  // The flat start is far from the answer.
  ASSERT_GT(angle_degrees(L, vector(L.n_elem, arma::fill::ones)), 10.0);
  // With the image smoothed here and the faster estimate, then as it stands with
  // every plane found anew in every iteration.
  for (const bool marker : {false, true}) {
    illuminant_parameters settings;
    settings.wiener_marker = marker;
    settings.second_switch = !marker;
    arma::imat patches(0, 1);
    const vector found = recover_global_illuminant(scene, patches, 0, settings, 3);
    EXPECT_LT(angle_degrees(found, L), 2.0) << "marker " << marker;
    EXPECT_NEAR(arma::norm(found), 1.0f, 1e-5f);
    // The patches used come back as bounds, 50 of them, for the next run.
    EXPECT_EQ(patches.n_rows, 50u);
    EXPECT_EQ(patches.n_cols, 4u);
  }
  EXPECT_TRUE(logged("Begin solving!"));
  EXPECT_TRUE(logged("0% complete"));
  EXPECT_EQ(logger::instance().progress(), 100);

  // Pre-selected patches are cut as given and left as they are.
  arma::imat chosen = {{0, 19, 0, 19}, {20, 39, 40, 59}, {60, 79, 80, 99}, {100, 119, 120, 139}};
  const arma::imat given = chosen;
  illuminant_parameters settings;
  const vector from_four = recover_global_illuminant(scene, chosen, 0, settings, 1);
  EXPECT_LT(angle_degrees(from_four, L), 2.0);
  EXPECT_TRUE(arma::all(arma::vectorise(chosen == given)));
  EXPECT_TRUE(logged("Using provided patches."));
  EXPECT_TRUE(logged("Patches selected: 4"));
  EXPECT_TRUE(logged("recover_illuminant_HRK: Image Information~"));
  EXPECT_TRUE(logged("Height: 160"));
  EXPECT_TRUE(logged("Bands:  33"));
  EXPECT_TRUE(logged("Finished Illuminant Recovery."));
  arma::imat outside = {{150, 169, 0, 19}};
  EXPECT_EQ(thrown_text([&] { recover_global_illuminant(scene, outside, 0, settings, 0); }),
            "Illuminant Recovery: Patch 0 (150, 169, 0, 19) does not lie inside the 160 x 160 "
            "image.");

  // A one-column matrix of n rows asks for n patches.
  arma::imat wanted(7, 1, arma::fill::zeros);
  recover_global_illuminant(scene, wanted, 0, settings, 4);
  EXPECT_EQ(wanted.n_rows, 7u);
  EXPECT_TRUE(logged("Number of patches specified: 7"));
}

// The plane intersection is an eigenvector whose sign is the decomposition's
// own: a scene either yields the illuminant or is refused, never a negative one.
TEST(illuminant_test, plane_intersection_finds_the_light_or_refuses) {
  int found_count = 0;
  for (const unsigned seed : {1u, 2u, 3u, 4u}) {
    for (const arma::uword bands : {8u, 33u}) {
      const vector L = scene_illuminant(bands);
      const cube scene = dichromatic_scene(L, 160, 20, seed);
      for (const bool marker : {seed % 2 == 0}) {
        illuminant_parameters settings;
        settings.wiener_marker = marker;
        arma::imat patches(0, 1);
        try {
          const vector found = recover_global_illuminant(scene, patches, 1, settings, 0);
          EXPECT_LT(angle_degrees(found, L), 2.0) << "seed " << seed << " bands " << bands;
          EXPECT_GT(found.min(), 0.0f);
          EXPECT_EQ(patches.n_rows, 50u);
          ++found_count;
        } catch (const std::exception& error) {
          EXPECT_EQ(std::string(error.what()),
                    "Illuminate Recovery: No suitable illumination found.");
          EXPECT_EQ(patches.n_cols, 1u) << "patches replaced by a failed run";
        }
      }
    }
  }
  EXPECT_GT(found_count, 0);
  // One uniform colour: every patch has the same line, never a negative answer.
  cube uniform(40, 40, 4);
  for (arma::uword b = 0; b < 4; ++b) {
    uniform.slice(b).fill(100.0f + 20.0f * b);
  }
  arma::imat patches(0, 1);
  try {
    EXPECT_GE(recover_illuminant_FS(uniform, patches, 20, true, 0).min(), 0.0f);
  } catch (const std::exception& error) {
    EXPECT_EQ(std::string(error.what()), "Illuminate Recovery: No suitable illumination found.");
  }
}

TEST(illuminant_test, statistical_method_codes_reach_their_formulas) {
  // The formulas themselves are checked against numpy; here the method codes, and
  // the logged names of gray world and white patch, which are each other's.
  arma::arma_rng::set_seed(3);
  const cube I(5, 4, 3, arma::fill::randu);
  illuminant_parameters settings;
  settings.order = 2;
  arma::imat patches(0, 1);
  const auto by_code = [&](int method) {
    return recover_global_illuminant(I, patches, method, settings, 1);
  };
  EXPECT_TRUE(arma::approx_equal(by_code(2), recover_illuminant_GE(I, 2, 0), "absdiff", 0.0f));
  EXPECT_TRUE(arma::approx_equal(by_code(4), recover_illuminant_SG(I, 2, 0), "absdiff", 0.0f));
  logger::instance().clear_entries();
  EXPECT_TRUE(arma::approx_equal(by_code(3), recover_illuminant_WP(I, 0), "absdiff", 0.0f));
  EXPECT_TRUE(logged("recover_illuminant_WP: Image Information~"));
  EXPECT_FALSE(logged("recover_illuminant_GW: Image Information~"));
  EXPECT_TRUE(arma::approx_equal(by_code(5), recover_illuminant_GW(I, 0), "absdiff", 0.0f));
  EXPECT_TRUE(logged("recover_illuminant_GW: Image Information~"));
  EXPECT_EQ(arma::size(patches), arma::size(0, 1));
}

TEST(illuminant_test, refusals_carry_their_messages) {
  illuminant_parameters settings;
  arma::imat patches(0, 1);
  const cube one_band(30, 30, 1, arma::fill::value(5.0f));
  for (int method = 0; method <= 5; ++method) {
    EXPECT_EQ(
        thrown_text([&] { recover_global_illuminant(one_band, patches, method, settings, 0); }),
        "Illuminant Recovery: Image must have at least 2 bands for Illumination recovery.")
        << "method " << method;
    EXPECT_EQ(thrown_text(
                  [&] { recover_global_illuminant(cube(0, 3, 3), patches, method, settings, 0); }),
              "Illuminant Recovery: Data size is incorrect.");
  }
  const cube image(30, 30, 3, arma::fill::value(5.0f));
  for (const int method : {6, -1}) {
    EXPECT_EQ(thrown_text([&] { recover_global_illuminant(image, patches, method, settings, 0); }),
              "recover_global_illuminant: Incorrect method.");
  }
  EXPECT_TRUE(logged("recover_global_illuminant: Incorrect method."));
  settings.order = 0;
  EXPECT_EQ(thrown_text([&] { recover_global_illuminant(image, patches, 4, settings, 0); }),
            "recover_illuminant_SG: order must be positive.");
  EXPECT_EQ(thrown_text([&] { recover_global_illuminant(image, patches, 2, settings, 0); }),
            "recover_illuminant_GE: order must be positive.");
  // A patch matrix of neither 1 nor 4 columns.
  for (const int method : {0, 1}) {
    arma::imat odd(2, 2, arma::fill::zeros);
    EXPECT_EQ(thrown_text([&] { recover_global_illuminant(image, odd, method, settings, 0); }),
              "Illuminant Recovery: Unable to determine patch selection parameters.");
  }
  EXPECT_TRUE(logged("Illuminate Recovery: Unable to determine patch selection."));
  // An image smaller than one patch: no patches, a warning, and a refusal.
  const cube small(19, 19, 3, arma::fill::value(5.0f));
  for (const int method : {0, 1}) {
    logger::instance().clear_entries();
    EXPECT_EQ(thrown_text([&] { recover_global_illuminant(small, patches, method, settings, 0); }),
              "Illuminate Recovery: No valid patches found... Exiting.");
    EXPECT_TRUE(logged("Warning: Select Smooth Patches found no valid patches"));
    EXPECT_TRUE(logged("Illuminate Recovery: No valid patches found... Exiting."));
  }
}

TEST(illuminant_test, verbosity_above_five_is_silence_and_abort_stops_a_run) {
  const cube image(4, 4, 3, arma::fill::value(2.0f));
  illuminant_parameters settings;
  arma::imat patches(0, 1);
  for (const int verbosity : {6, -1, 1000}) {
    recover_global_illuminant(image, patches, 3, settings, verbosity);
  }
  EXPECT_TRUE(logger::instance().entries().empty());
  recover_global_illuminant(image, patches, 3, settings, 5);
  EXPECT_TRUE(logged("Width:  4"));

  const cube scene = dichromatic_scene(scene_illuminant(8), 80);
  for (const int method : {0, 1, 2, 3, 4, 5}) {
    logger::instance().request_abort();
    EXPECT_EQ(thrown_text([&] { recover_global_illuminant(scene, patches, method, settings, 0); }),
              "Processing was aborted!")
        << "method " << method;
    EXPECT_FALSE(logger::instance().abort_requested());
  }
}

}  // namespace
}  // namespace corv
