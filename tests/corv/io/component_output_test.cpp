#include "corv/io/component_output.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "corv/io/data_input.h"
#include "corv/io/file_path.h"
#include "corv/io/hdr_input.h"
#include "corv/io/hdr_output.h"
#include "corv/io/logger.h"
#include "corv/io/spectral_library.h"
#include "corv/pipeline/pipeline.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::coded_cube;
using test::log_lines;
using test::read_bytes;
using test::temp_dir;
using test::thrown_text;

// The lines a component writer logs, without those of the pipeline's getters.
std::vector<std::string> output_lines() {
  std::vector<std::string> lines;
  for (const auto& line : log_lines()) {
    if (line.rfind("pipeline: ", 0) != 0) {
      lines.push_back(line);
    }
  }
  return lines;
}

// Every component of a processed 2 x 3 image of 4 bands, with 3 material elements
// and 2 entries per pixel.
std::shared_ptr<data_input> processed_image() {
  auto source = std::make_shared<data_input>();
  source->set_I(coded_cube(2, 3, 4));
  source->set_wavelengths(vector{450.25f, 500.5f, 550.75f, 601.0f});
  source->set_s(coded_cube(2, 3, 4) / 1000.0f);
  source->set_illuminant(vector{1.5f, 2.0f, 2.5f, 3.0f});
  source->set_k(matrix{{0.1f, 0.2f, 0.3f}, {0.4f, 0.5f, 0.6f}});
  source->set_g(matrix{{1.1f, 1.2f, 1.3f}, {1.4f, 1.5f, 1.6f}});
  source->set_elements(matrix{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {10, 11, 12}});
  source->set_element_abundances(coded_cube(2, 3, 2) / 100.0f);
  cube indexes(2, 3, 2);
  indexes.slice(0) = matrix{{0, 1, 2}, {2, 1, 0}};
  indexes.slice(1) = matrix{{1, 2, 0}, {0, 0, 1}};
  source->set_element_abundance_indexes(indexes);
  source->set_endmember_abundances(coded_cube(2, 3, 3) / 10.0f);
  source->set_endmember_abundance_indexes(coded_cube(2, 3, 3) - 1.0f);
  return source;
}

class component_output_test : public ::testing::Test {
 protected:
  temp_dir dir;
};

TEST_F(component_output_test, writes_every_component_in_order_in_a_new_directory) {
  const auto source = processed_image();
  pipeline image(source);
  const auto library = std::make_shared<spectral_library>(
      matrix{{0.25f, 0.5f}, {0.75f, 1.0f}, {0.0f, 0.5f}, {1.0f, 0.0f}},
      std::vector<std::string>{"grass", "soil"}, source->wavelengths());
  image.set_library(library);
  const std::string set = dir / "set";
  component_output().write(image, set + "/scene.hdr");

  const std::string base = set + "/scene";
  EXPECT_EQ(log_lines(),
            (std::vector<std::string>{
                "Directory " + set + " doesn't exist, creating it.",
                "Outputting Components of scene to " + set,
                "component_output: Saved I to " + base + "_I.hdr",
                "component_output: Saved Illuminant to " + base + "_illuminant.hdr",
                "component_output: Saved k to " + base + "_k.hdr",
                "component_output: Saved g to " + base + "_g.hdr",
                "component_output: Saved s to " + base + "_s.hdr",
                "component_output: Saved elements to " + base + "_elements.hdr",
                "component_output: Saved abundances to " + base + "_abundances.hdr",
                "component_output: Saved indexes to " + base + "_indexes.hdr",
                "component_output: Saved endmember indexes to " + base + "_endindexes.hdr",
                "component_output: Saved endmember abundances to " + base + "_endabundances.hdr",
                "component_output: Saved Spectral Library to " + base + "_spectral_library.slz",
            }));
  std::vector<std::string> names;
  for (const char* component : {"I", "abundances", "elements", "endabundances", "endindexes", "g",
                                "illuminant", "indexes", "k", "s"}) {
    names.push_back(std::string("scene_") + component + ".fla");
    names.push_back(std::string("scene_") + component + ".hdr");
  }
  names.push_back("scene_spectral_library.slz");
  EXPECT_EQ(files_in(set), names);

  // What each file holds is read back by component_input's tests; here the layouts
  // other programs see: element spectra are the samples of one line (element 2 is
  // sample 2) at the image's wavelengths, per-pixel values number their bands from 1.
  hdr_input elements(base + "_elements.hdr");
  const cube spectra = elements.I();
  ASSERT_EQ(arma::size(spectra), arma::size(1, 3, 4));
  EXPECT_EQ(spectra(0, 2, 3), 12.0f);
  EXPECT_EQ(spectra(0, 0, 1), 4.0f);
  EXPECT_TRUE(arma::approx_equal(elements.wavelengths(), source->wavelengths(), "absdiff", 0.0f));
  EXPECT_NE(read_bytes(base + "_k.hdr").find("bands = 1\ndata type = 4\n"), std::string::npos);
  EXPECT_NE(read_bytes(base + "_indexes.hdr").find("wavelength = {\n 1.0000,\n 2.0000}\n"),
            std::string::npos);
  EXPECT_TRUE(hdr_input(base + "_s.hdr").is_reflectance());
}

TEST_F(component_output_test, missing_components_are_skipped_with_their_own_messages) {
  pipeline recovered;
  recovered.set_I(coded_cube(2, 2, 3), vector{400, 500, 600});
  recovered.set_illuminant(vector{1, 2, 3});
  recovered.set_k(matrix(2, 2, arma::fill::ones));
  recovered.set_g(matrix(2, 2, arma::fill::ones));
  recovered.set_s(coded_cube(2, 2, 3));
  recovered.set_library(std::make_shared<spectral_library>());
  const output_ptr writer = std::make_shared<component_output>(7u);
  recovered.save(writer, dir / "scene");

  const std::string base = dir / "scene";
  EXPECT_EQ(output_lines(), (std::vector<std::string>{
                                "Outputting Components of scene to " + dir.str(),
                                "component_output: Saved I to " + base + "_I.hdr",
                                "component_output: Saved Illuminant to " + base + "_illuminant.hdr",
                                "component_output: Saved k to " + base + "_k.hdr",
                                "component_output: Saved g to " + base + "_g.hdr",
                                "component_output: Saved s to " + base + "_s.hdr",
                                "component_output: elements not available, skipping..",
                                "component_output: abundances not available, skipping..",
                                "component_output: indexes not available, skipping..",
                                "component_output: endmember indexes not available, skipping..",
                                "component_output: endmember abundances not available, skipping..",
                                "component_output: Spectral Library is empty.",
                            }));
  EXPECT_EQ(files_in(dir.str()).size(), 10u);

  // Reflectance alone: the image components are skipped, some with three dots.
  logger::instance().clear_entries();
  pipeline reflectance;
  reflectance.set_s(coded_cube(2, 2, 3), vector{400, 500, 600});
  component_output().write(reflectance, dir / "sub/only");
  const std::vector<std::string> lines = output_lines();
  ASSERT_EQ(lines.size(), 13u);
  EXPECT_EQ(std::vector<std::string>(lines.begin() + 2, lines.begin() + 7),
            (std::vector<std::string>{
                "component_output: I not available, skipping..",
                "component_output: illuminant not available, skipping...",
                "component_output: k not available, skipping..",
                "component_output: g not available, skipping...",
                "component_output: Saved s to " + dir / "sub/only_s.hdr",
            }));
  EXPECT_EQ(lines.back(), "component_output: Spectral Library not available, skipping..");
  EXPECT_EQ(files_in(dir / "sub"), (std::vector<std::string>{"only_s.fla", "only_s.hdr"}));
  EXPECT_EQ(component_output(7u).setting(), 7u);
}

TEST_F(component_output_test, refusals_come_before_any_file_is_written) {
  pipeline image;
  image.set_I(coded_cube(2, 2, 3), vector{400, 500, 600});
  pipeline no_wavelengths;
  test::write_text(dir / "plain.txt", "not a directory");
  const std::vector<std::pair<std::string, std::function<void()>>> cases = {
      {"No filename set for HDR file save.", [&] { component_output().write(image, ""); }},
      {"component_output: Output directory required!",
       [&] { component_output().write(image, "scene"); }},
      {"component_output: Output prefix required!",
       [&] { component_output().write(image, dir / "out/"); }},
      {"component_output: Cannot create directory " + dir / "plain.txt/deeper" + ".",
       [&] { component_output().write(image, dir / "plain.txt/deeper/scene"); }},
      {"Wavelengths not present when saving HDR file.",
       [&] { component_output().write(no_wavelengths, dir / "scene"); }},
  };
  for (const auto& [text, call] : cases) {
    EXPECT_EQ(thrown_text(call), text);
  }
  EXPECT_EQ(files_in(dir.str()), std::vector<std::string>{"plain.txt"});
  EXPECT_FALSE(std::filesystem::exists(dir / "out"));
  EXPECT_EQ(log_lines().back(), "component_output: Error reading Wavelengths.");
}

TEST_F(component_output_test, a_component_that_cannot_be_written_leaves_no_file_of_the_set) {
  // Elements of 2 bands cannot carry the image's 3 wavelengths.
  auto source = std::make_shared<data_input>();
  source->set_I(coded_cube(2, 2, 3));
  source->set_wavelengths(vector{400, 500, 600});
  source->set_elements(matrix(2, 4, arma::fill::ones));
  pipeline image(source);
  EXPECT_EQ(thrown_text([&] { component_output().write(image, dir / "scene"); }),
            "component_output: elements has 2 bands but there are 3 wavelengths.");
  EXPECT_EQ(log_lines().back(),
            "component_output: elements has 2 bands but there are 3 wavelengths.");
  EXPECT_TRUE(files_in(dir.str()).empty());
  EXPECT_TRUE(std::filesystem::is_empty(dir.str()));
}

}  // namespace
}  // namespace corv
