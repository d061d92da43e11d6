// Accuracy of the iterative fit (illuminant code 0) on tile scenes whose truth
// is known: real laboratory reflectances under three lights, a highlight in
// every patch (docs/accuracy.md gives the figures; the object scenes of
// scripts/make_scenes.py are checked from Python).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "corv/io/logger.h"
#include "corv/pipeline/illuminant.h"
#include "tests/corv/pipeline/synthetic_scene.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

// The scenes put one material and one highlight in every cell of this size.
constexpr int patch_size = 20;

double iterative_fit_error(const test::scene& scene) {
  illuminant_parameters settings;
  settings.patch_size = patch_size;
  arma::imat patches(0, 1);
  const vector found = recover_global_illuminant(scene.I, patches, ILLUMINANT_ORBEK, settings, 0);
  EXPECT_NEAR(arma::norm(found), 1.0, 1e-5);
  return test::angle_degrees(found, scene.illuminant);
}

TEST(recovery_accuracy_test, iterative_fit_finds_the_light_of_glossy_tiles) {
  CORV_REQUIRE_SHARED_DATA();
  logger::instance().set_echo(false);
  const vector w = test::scene_wavelengths();
  const vector d65 = test::cie_d65();
  struct named_scene {
    std::string name;
    test::scene scene;
    double tolerance;  // degrees
  };
  const std::vector<named_scene> scenes{
      {"D65", test::specular_scene(d65), 0.5},
      {"A", test::specular_scene(test::cie_a(w)), 1.5},
      {"10000 K", test::specular_scene(test::planck(10000.0, w)), 1.5},
      {"noise of 0.5 % of the full scale", test::noisy_scene(d65, 20.0f), 0.5},
      // The brightest patches all lie on one material, around a clipped
      // highlight: their planes fix a plane, not the light, and the fit keeps
      // the direction its start gives within that plane.
      {"one material's patches", test::saturated_scene(d65), 6.0},
  };
  for (const named_scene& entry : scenes) {
    EXPECT_LT(iterative_fit_error(entry.scene), entry.tolerance) << entry.name;
  }
}

}  // namespace
}  // namespace corv
