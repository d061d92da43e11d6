#include "corv/pipeline/pipeline.h"

#include <gtest/gtest.h>

#include <functional>

#include "corv/io/data_input.h"
#include "corv/io/logger.h"
#include "corv/io/spectral_library.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::coded_cube;
using test::thrown_text;

TEST(pipeline_test, getters_without_component_or_input_name_the_component) {
  pipeline p;
  const std::vector<std::pair<std::string, std::function<void()>>> getters = {
      {"I", [&] { p.I(); }},
      {"illuminant", [&] { p.illuminant(); }},
      {"k", [&] { p.k(); }},
      {"s", [&] { p.s(); }},
      {"g", [&] { p.g(); }},
      {"wavelengths", [&] { p.wavelengths(); }},
      {"material_elements", [&] { p.material_elements(); }},
      {"material_element_abundances", [&] { p.material_element_abundances(); }},
      {"material_element_abundance_indexes", [&] { p.material_element_abundance_indexes(); }},
      {"material_map", [&] { p.material_map(); }},
  };
  for (const auto& [name, call] : getters) {
    EXPECT_EQ(thrown_text(call), "pipeline: " + name + " does not exist in pipeline or input.");
  }
}

TEST(pipeline_test, components_come_from_the_pipeline_first_then_the_input) {
  auto source = std::make_shared<data_input>();
  source->set_I(coded_cube(2, 3, 4));
  source->set_wavelengths(test::linear_wavelengths(4));
  pipeline p(source);
  EXPECT_EQ(p.bands(), 4u);
  EXPECT_EQ(p.I()(1, 2, 3), 322.0f);

  // A stored copy wins over the input.
  p.set_I(coded_cube(2, 3, 4) * 2, test::linear_wavelengths(4, 500));
  EXPECT_EQ(p.I()(1, 2, 3), 644.0f);
  EXPECT_EQ(p.wavelengths()(0), 500.0f);

  // The input's refusal is logged and reported as not found.
  logger::instance().clear_entries();
  EXPECT_EQ(thrown_text([&] { p.k(); }), "pipeline: k does not exist in pipeline or input.");
  EXPECT_EQ(logger::instance().entries().back().second,
            "pipeline: data_input: k has not been set.");
}

TEST(pipeline_test, setters_check_dimensions) {
  pipeline p;
  EXPECT_EQ(thrown_text([&] {
              p.set_I(coded_cube(2, 2, 3), vector{1, 2});
            }),
            "pipeline: set_I:  wavelengths must match I! (Dimensions incompatible)");
  p.set_I(coded_cube(2, 2, 3), vector{1, 2, 3});
  EXPECT_EQ(thrown_text([&] {
              p.set_illuminant(vector{1, 1});
            }),
            "set_illuminant: Incorrect number of elements (must be same as number of bands in I).");
  EXPECT_NO_THROW(p.set_illuminant(vector{1, 1, 1}));
  EXPECT_EQ(thrown_text([&] { p.set_s(coded_cube(2, 3, 3)); }),
            "set_s: Incorrect number of elements (must be same dimensions as I).");
  EXPECT_EQ(thrown_text([&] {
              p.set_s(coded_cube(2, 2, 3), vector{1, 2});
            }),
            "pipeline: set_s:  wavelengths must match s! (Dimensions incompatible)");
  EXPECT_NO_THROW(p.set_s(coded_cube(2, 2, 3)));
}

TEST(pipeline_test, reset_components_keeps_the_image_and_optionally_the_reflectance) {
  pipeline p;
  p.set_I(coded_cube(2, 2, 2), vector{1, 2});
  p.set_illuminant(vector{1, 1});
  p.set_k(matrix(2, 2, arma::fill::zeros));
  p.set_s(coded_cube(2, 2, 2));
  p.reset_components(false);
  EXPECT_THROW(p.illuminant(), std::runtime_error);
  EXPECT_THROW(p.k(), std::runtime_error);
  EXPECT_NO_THROW(p.s());
  p.reset_components(true);
  EXPECT_THROW(p.s(), std::runtime_error);
  EXPECT_NO_THROW(p.I());
}

TEST(pipeline_test, save_needs_an_output) {
  pipeline p;
  p.set_I(coded_cube(1, 1, 3), vector{1, 2, 3});
  EXPECT_EQ(thrown_text([&] { p.save(nullptr, "x"); }),
            "pipeline: No output object available for saving.");
}

TEST(pipeline_test, stages_refuse_to_start_without_their_prerequisites) {
  pipeline p;
  EXPECT_EQ(thrown_text([&] { p.process_recover_illuminant(false); }),
            "pipeline: I is empty in process_recover_illuminant()");
  EXPECT_EQ(thrown_text([&] { p.process_recover_dichromatic_parameters(); }),
            "pipeline: I or illuminant is empty in process_recover_dichromatic_parameters()");
  EXPECT_EQ(thrown_text([&] { p.process_recover_materials(); }),
            "pipeline: S is empty in process_recover_materials()");
  EXPECT_EQ(thrown_text([&] { p.process_recover_endmembers(); }),
            "process_recover_endmembers: The Spectral Library contains no Endmembers. Load an "
            "SLZ file first!");
  EXPECT_EQ(thrown_text([&] { p.process_analysis(false); }), "process_analysis: Image not found,");

  // The subsample check comes before anything is read.
  p.set_material_subsample(5);
  EXPECT_EQ(thrown_text([&] { p.process_recover_materials(); }),
            "pipeline: material_subsample out of range in process_recover_materials()");

  // With an image but no illuminant, the dichromatic stage still refuses; an
  // input's refusal is logged under the stage's name.
  auto source = std::make_shared<data_input>();
  source->set_I(coded_cube(2, 2, 2));
  pipeline q(source);
  logger::instance().clear_entries();
  EXPECT_EQ(thrown_text([&] { q.process_recover_dichromatic_parameters(); }),
            "pipeline: I or illuminant is empty in process_recover_dichromatic_parameters()");
  EXPECT_EQ(logger::instance().entries().back().second,
            "process_recover_dichromatic_parameters: data_input: illuminant has not been set.");
}

TEST(pipeline_test, analysis_projects_the_image_onto_its_principal_components) {
  pipeline p;
  p.set_I(coded_cube(3, 4, 6), test::linear_wavelengths(6));
  p.set_principal_components(2);
  p.process_analysis(false);
  EXPECT_EQ(p.principal_components().n_slices, 2u);
  EXPECT_EQ(p.principal_strengths().n_elem, 2u);
  EXPECT_EQ(logger::instance().stage(), 3);  // the stage number the viewer reads

  // On reflectance with none at hand, the reflectance is generated first.
  logger::instance().clear_entries();
  EXPECT_THROW(p.process_analysis(true), std::runtime_error);
  EXPECT_EQ(logger::instance().entries().front().second,
            "process_analysis: Reflectance not found, generating...");
  EXPECT_TRUE(p.principal_components().empty());
}

TEST(pipeline_test, endmembers_unmix_the_reflectance_against_the_library) {
  const matrix references = {{1, 0}, {0, 1}, {1, 1}};  // 3 bands, 2 spectra
  auto library =
      std::make_shared<spectral_library>(references, labels{"a", "b"}, vector{500, 600, 700});
  cube reflectance(2, 2, 3);
  for (arma::uword r = 0; r < 2; ++r) {
    for (arma::uword c = 0; c < 2; ++c) {
      const float share = 0.25f * static_cast<float>(1 + r + 2 * c);
      reflectance.tube(r, c) = share * references.col(0) + (1 - share) * references.col(1);
    }
  }
  pipeline p;
  p.set_s(reflectance, vector{500, 600, 700});
  p.set_library(library);
  p.set_endmember_setting(2);
  p.process_recover_endmembers();
  ASSERT_EQ(p.endmember_abundances().n_slices, 2u);
  // Pixel (1, 1) is 100 % spectrum 0.
  EXPECT_NEAR(p.endmember_abundances()(1, 1, 0), 1.0f, 1e-5);
  EXPECT_EQ(p.endmember_abundance_indexes()(1, 1, 0), 0.0f);
  // Pixel (0, 0) is 25 % spectrum 0 and 75 % spectrum 1: spectrum 1 ranks first.
  EXPECT_EQ(p.endmember_abundance_indexes()(0, 0, 0), 1.0f);
  EXPECT_NEAR(p.endmember_abundances()(0, 0, 0), 0.75f, 1e-5);
  EXPECT_NEAR(p.endmember_abundances()(0, 0, 1), 0.25f, 1e-5);
}

TEST(pipeline_test, a_verbose_illuminant_run_starts_with_the_banner) {
  pipeline p;
  p.set_verbosity(1);
  EXPECT_THROW(p.process_recover_illuminant(false), std::runtime_error);
  const auto entries = logger::instance().entries();
  ASSERT_GE(entries.size(), 3u);
  EXPECT_EQ(entries[0].second.substr(0, 13), "#> CORVANTIS ");
  EXPECT_NE(entries[0].second.find("Hyperspectral Processing Library <#"), std::string::npos);
  EXPECT_EQ(entries[1].second, "   Version [1.0.3]");
  EXPECT_EQ(entries[2].second, "#>                                                  <#");
}

}  // namespace
}  // namespace corv
