#include "tests/corv/pipeline/synthetic_scene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::thrown_text;

TEST(synthetic_scene_test, resampling_interpolates_and_skips_overlaps_and_gaps) {
  // 415 nm comes after 420 nm (a second spectrometer): it is not used.
  const vector wavelengths{400.0f, 410.0f, 420.0f, 415.0f, 430.0f};
  const vector values{1.0f, 2.0f, 3.0f, 99.0f, 5.0f};
  const vector onto{400.0f, 405.0f, 417.5f, 425.0f, 430.0f};
  const vector expected{1.0f, 1.5f, 2.75f, 4.0f, 5.0f};
  EXPECT_TRUE(arma::approx_equal(test::resample_spectrum(wavelengths, values, onto), expected,
                                 "absdiff", 1e-6f));

  vector gap = values;
  gap(1) = std::numeric_limits<float>::quiet_NaN();
  EXPECT_FLOAT_EQ(test::resample_spectrum(wavelengths, gap, vector{410.0f})(0), 2.0f);

  EXPECT_EQ(thrown_text([&] { test::resample_spectrum(wavelengths, values, vector{399.0f}); }),
            "resample_spectrum: 399 nm is outside 400..430 nm.");
  EXPECT_EQ(thrown_text([&] { test::resample_spectrum(wavelengths, values, vector{431.0f}); }),
            "resample_spectrum: 431 nm is outside 400..430 nm.");
}

TEST(synthetic_scene_test, illuminants_match_the_published_tables_and_planck) {
  const vector w = test::scene_wavelengths();
  ASSERT_EQ(w.n_elem, 33u);
  EXPECT_FLOAT_EQ(w(0), 400.0f);
  EXPECT_FLOAT_EQ(w(32), 720.0f);

  // CIE illuminant A as published (10 nm table) against its defining formula.
  const vector a = test::cie_a(vector{400.0f, 450.0f, 500.0f, 560.0f, 600.0f, 650.0f, 700.0f});
  const vector published{14.7080f, 33.0859f, 59.8611f, 100.0f, 129.043f, 165.028f, 198.261f};
  EXPECT_TRUE(arma::approx_equal(a, published, "absdiff", 2e-3f)) << a.t();

  const vector d65 = test::cie_d65();
  ASSERT_EQ(d65.n_elem, w.n_elem);
  EXPECT_FLOAT_EQ(d65(16), 100.0f);  // 560 nm
  EXPECT_EQ(d65.index_max(), 6u);    // 460 nm

  // A is a 2848 K black body with an older radiation constant: close, not equal.
  const vector body = test::planck(2848.0, w);
  const vector ratio = body / test::cie_a(w);
  EXPECT_NEAR(ratio.min(), 1.0, 0.02);
  EXPECT_NEAR(ratio.max(), 1.0, 0.02);
  EXPECT_GT(ratio.max() - ratio.min(), 1e-3);
  // Wien's displacement law: a 5000 K body peaks at 579.6 nm.
  const vector fine = arma::regspace<vector>(500.0f, 0.1f, 660.0f);
  EXPECT_NEAR(fine(test::planck(5000.0, fine).index_max()), 579.55, 0.15);
  EXPECT_FLOAT_EQ(test::planck(5000.0, w)(16), 100.0f);
}

TEST(synthetic_scene_test, materials_are_real_visible_reflectances) {
  CORV_REQUIRE_SHARED_DATA();
  const std::vector<std::string> names{"red_vinyl",       "blue_pipe", "yellow_hdpe", "malachite",
                                       "pink_fiberglass", "pine_wood", "white_hdpe",  "soil",
                                       "vegetation",      "red_leaf"};
  const std::vector<test::material> materials = test::library_materials(names);
  ASSERT_EQ(materials.size(), names.size());
  for (const test::material& m : materials) {
    ASSERT_EQ(m.reflectance.n_elem, 33u) << m.name;
    EXPECT_TRUE(m.reflectance.is_finite()) << m.name;
    EXPECT_GT(m.reflectance.min(), 0.0f) << m.name;
    EXPECT_LT(m.reflectance.max(), 1.0f) << m.name;
  }
  EXPECT_EQ(materials[0].label.substr(0, 20), "Plastic_Vinyl GDS398");
  EXPECT_EQ(materials[7].label, "ecostress_library_with_mixtures 765");
  // Their colours: red reflects at 700 nm, blue at 450 nm, vegetation peaks in the green.
  EXPECT_GT(materials[0].reflectance(30), 5.0f * materials[0].reflectance(5));
  EXPECT_GT(materials[1].reflectance(5), 1.5f * materials[1].reflectance(30));
  EXPECT_GT(materials[8].reflectance(15), 1.5f * materials[8].reflectance(25));
  // White is nearly flat, the colours are not.
  const vector flat(33, arma::fill::ones);
  EXPECT_LT(test::angle_degrees(materials[6].reflectance.subvec(3, 32), flat.subvec(3, 32)), 3.0);
  EXPECT_GT(test::angle_degrees(materials[0].reflectance, flat), 30.0);

  EXPECT_EQ(thrown_text([] { test::library_material("chalk"); }),
            "library_material: Unknown material chalk.");
}

TEST(synthetic_scene_test, scenes_hold_what_the_recovery_tests_rely_on) {
  CORV_REQUIRE_SHARED_DATA();
  const vector L = test::cie_d65();
  const test::scene specular = test::specular_scene(L);
  ASSERT_EQ(arma::size(specular.I), arma::size(120, 120, 33));
  EXPECT_NEAR(specular.I.max(), 0.8f * test::sensor_full_scale, 1e-3f * test::sensor_full_scale);
  EXPECT_EQ(specular.saturated, 0u);
  EXPECT_LT(test::angle_degrees(specular.illuminant, L), 1e-4);

  // The image is the dichromatic model of its own truth.
  const cube S = specular.reflectance();
  for (const auto& [r, c] : std::vector<std::pair<arma::uword, arma::uword>>{
           {0, 0}, {29, 29}, {30, 71}, {119, 119}, {64, 3}}) {
    const vector pixel = specular.I.tube(r, c);
    const vector S_pixel = S.tube(r, c);
    const vector model = (specular.g(r, c) * S_pixel + specular.k(r, c)) % specular.illuminant;
    EXPECT_TRUE(arma::approx_equal(pixel, model, "reldiff", 1e-5f)) << r << ", " << c;
  }

  // Every 20-pixel patch is one material with a highlight inside and shading.
  for (arma::uword top = 0; top < 120; top += 20) {
    for (arma::uword left = 0; left < 120; left += 20) {
      const arma::umat index = specular.material_index.submat(top, left, top + 19, left + 19);
      EXPECT_EQ(index.min(), index.max());
      const matrix k = specular.k.submat(top, left, top + 19, left + 19);
      EXPECT_GT(k.max() - k.min(), 0.25f);
      const matrix g = specular.g.submat(top, left, top + 19, left + 19);
      EXPECT_GT(g.max() - g.min(), 0.2f);
    }
  }
  // Nine materials on 40-pixel tiles.
  EXPECT_EQ(specular.materials.size(), 9u);
  EXPECT_EQ(specular.material_index(0, 40), 1u);
  EXPECT_EQ(specular.material_index(119, 119), 8u);

  const test::scene flat = test::flat_scene(L);
  EXPECT_EQ(flat.k.max(), 0.0f);
  EXPECT_EQ(flat.g.min(), flat.g.max());
  const test::scene shaded = test::shaded_scene(L);
  EXPECT_EQ(shaded.k.max(), 0.0f);
  EXPECT_GT(shaded.g.max() - shaded.g.min(), 0.5f);
  EXPECT_LE(shaded.g.max(), 1.0f);

  // Noise: the requested spread, reproducible, and absent from the truth.
  const test::scene noisy = test::noisy_scene(L, 12.0f);
  const cube difference = noisy.I - specular.I;
  EXPECT_NEAR(arma::stddev(arma::vectorise(difference)), 12.0, 0.2);
  EXPECT_NEAR(arma::mean(arma::vectorise(difference)), 0.0, 0.2);
  EXPECT_TRUE(arma::approx_equal(noisy.I, test::noisy_scene(L, 12.0f).I, "absdiff", 0.0f));
  EXPECT_TRUE(arma::approx_equal(noisy.k, specular.k, "absdiff", 0.0f));

  // Saturation: one highlight clipped at the full scale, inside patch (1, 4) only.
  const test::scene saturated = test::saturated_scene(L);
  EXPECT_GT(saturated.saturated, 100u);
  EXPECT_EQ(saturated.I.max(), test::sensor_full_scale);
  const arma::uvec clipped = arma::find(saturated.I >= test::sensor_full_scale);
  EXPECT_EQ(clipped.n_elem, saturated.saturated);
  for (const arma::uword i : clipped) {
    const arma::uvec where = arma::ind2sub(arma::size(saturated.I), i);
    EXPECT_TRUE(where(0) >= 20 && where(0) < 40 && where(1) >= 80 && where(1) < 100);
  }
  const cube outside = saturated.I.tube(60, 60, 119, 119);
  EXPECT_TRUE(
      arma::approx_equal(outside, cube(specular.I.tube(60, 60, 119, 119)), "absdiff", 0.0f));

  const test::scene quadrants = test::quadrant_scene(L);
  ASSERT_EQ(arma::size(quadrants.I), arma::size(128, 128, 33));
  EXPECT_EQ(quadrants.materials.size(), 4u);
  EXPECT_EQ(quadrants.material_index(63, 63), 0u);
  EXPECT_EQ(quadrants.material_index(63, 64), 1u);
  EXPECT_EQ(quadrants.material_index(64, 63), 2u);
  EXPECT_EQ(quadrants.material_index(127, 127), 3u);

  EXPECT_EQ(thrown_text([&] {
              test::flat_scene(test::cie_a(vector{400.0f, 500.0f}));
            }),
            "render: The illuminant has 2 bands, the scene 33.");
}

}  // namespace
}  // namespace corv
