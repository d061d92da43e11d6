#include "corv/pipeline/pipeline.h"

#include <gtest/gtest.h>

#include <functional>

#include "corv/io/data_input.h"
#include "corv/io/hdr_output.h"
#include "corv/io/logger.h"
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
  logger::instance().set_echo(false);
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

TEST(pipeline_test, save_dispatches_to_the_output_and_needs_one) {
  struct recording_output : output {
    void write(pipeline& source, const std::string& file_name) override {
      written = file_name + ":" + std::to_string(source.bands());
    }
    std::string written;
  };
  pipeline p;
  p.set_I(coded_cube(1, 1, 3), vector{1, 2, 3});
  auto out = std::make_shared<recording_output>();
  p.save(out, "x.hsz");
  EXPECT_EQ(out->written, "x.hsz:3");
  EXPECT_EQ(thrown_text([&] { p.save(nullptr, "x"); }),
            "pipeline: No output object available for saving.");
  EXPECT_EQ(pipeline::version(), "[1.0.3]");
}

}  // namespace
}  // namespace corv
