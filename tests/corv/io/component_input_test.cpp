#include "corv/io/component_input.h"

#include <gtest/gtest.h>

#include <functional>

#include "corv/io/component_output.h"
#include "corv/io/data_input.h"
#include "corv/io/hdr_output.h"
#include "corv/io/logger.h"
#include "corv/io/spectral_library.h"
#include "corv/pipeline/pipeline.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::coded_cube;
using test::linear_wavelengths;
using test::temp_dir;
using test::thrown_text;

// The lines a component set logs while loading, without those of the ENVI reader.
std::vector<std::string> input_lines() {
  std::vector<std::string> lines;
  for (const auto& entry : logger::instance().entries()) {
    const std::string& line = entry.second;
    if (line.rfind("hdr_input: ", 0) != 0 && line.rfind("pipeline: ", 0) != 0 &&
        line.rfind("spectral_library: ", 0) != 0) {
      lines.push_back(line);
    }
  }
  return lines;
}

bool same(const cube& a, const cube& b) {
  return arma::size(a) == arma::size(b) && arma::approx_equal(a, b, "absdiff", 0.0f);
}
bool same(const matrix& a, const matrix& b) {
  return arma::size(a) == arma::size(b) && arma::approx_equal(a, b, "absdiff", 0.0f);
}

vector numbered(arma::uword count) {
  return linear_wavelengths(count, 1.0f, 1.0f);
}

cube plane(const matrix& values) {
  cube c(values.n_rows, values.n_cols, 1);
  c.slice(0) = values;
  return c;
}

cube spectrum(const vector& values) {
  cube c(1, 1, values.n_elem);
  c.tube(0, 0) = values;
  return c;
}

class component_input_test : public ::testing::Test {
 protected:
  // Writes one file of a set the way component_output lays it out.
  void write(const std::string& name, const cube& data, const vector& wavelengths,
             bool reflectance = false) {
    write_envi(data, wavelengths, dir / (name + ".fla"), 4, reflectance);
  }
  void write_set(const std::shared_ptr<data_input>& source, const std::string& prefix,
                 const std::shared_ptr<spectral_library>& library = nullptr) {
    pipeline image(source);
    image.set_library(library);
    component_output().write(image, dir / prefix);
    logger::instance().clear_entries();
  }
  std::string base(const std::string& prefix) const { return dir / prefix; }

  temp_dir dir;
};

TEST_F(component_input_test, a_written_set_reads_back_exactly) {
  auto source = std::make_shared<data_input>();
  source->set_I(coded_cube(2, 3, 4));
  source->set_wavelengths(vector{450.25f, 500.5f, 550.75f, 601.0f});
  source->set_s(coded_cube(2, 3, 4) / 1000.0f);
  source->set_illuminant(vector{1.5f, 2.0f, 2.5f, 3.0f});
  source->set_k(matrix{{0.1f, 0.2f, 0.3f}, {0.4f, 0.5f, 0.6f}});
  source->set_g(matrix{{1.1f, 1.2f, 1.3f}, {1.4f, 1.5f, 1.6f}});
  source->set_elements(matrix{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {10, 11, 12}});
  source->set_element_abundances(coded_cube(2, 3, 2) / 100.0f);
  source->set_element_abundance_indexes(coded_cube(2, 3, 2) - 1.0f);
  source->set_endmember_abundances(coded_cube(2, 3, 3) / 10.0f);
  source->set_endmember_abundance_indexes(coded_cube(2, 3, 1));
  const auto library = std::make_shared<spectral_library>(
      matrix{{0.25f, 0.5f}, {0.75f, 1.0f}, {0.0f, 0.5f}, {1.0f, 0.0f}},
      std::vector<std::string>{"grass", "soil"}, source->wavelengths());
  write_set(source, "scene", library);

  component_input back(dir.str(), "scene");
  EXPECT_EQ(back.input_kind(), 3);
  EXPECT_EQ(back.endmember_labels(), library->labels());
  EXPECT_TRUE(arma::approx_equal(back.endmembers(), library->endmembers(), "absdiff", 1e-4f));
  EXPECT_EQ(back.height(), 2u);
  EXPECT_EQ(back.width(), 3u);
  EXPECT_EQ(back.bands(), 4u);
  EXPECT_TRUE(same(back.I(), source->I()));
  EXPECT_TRUE(same(back.s(), source->s()));
  EXPECT_TRUE(arma::approx_equal(back.wavelengths(), source->wavelengths(), "absdiff", 0.0f));
  EXPECT_TRUE(arma::approx_equal(back.illuminant(), source->illuminant(), "absdiff", 0.0f));
  EXPECT_TRUE(same(back.k(), source->k()));
  EXPECT_TRUE(same(back.g(), source->g()));
  EXPECT_TRUE(same(back.elements(), source->elements()));
  EXPECT_TRUE(same(back.element_abundances(), source->element_abundances()));
  EXPECT_TRUE(same(back.element_abundance_indexes(), source->element_abundance_indexes()));
  EXPECT_TRUE(same(back.endmember_abundances(), source->endmember_abundances()));
  EXPECT_TRUE(same(back.endmember_abundance_indexes(), source->endmember_abundance_indexes()));
  EXPECT_EQ(back.I_ptr(), back.I_ptr());
  // Files are read as they stand: nothing was rebuilt.
  for (const auto& line : input_lines()) {
    EXPECT_EQ(line.find("reconstructed"), std::string::npos) << line;
  }
}

TEST_F(component_input_test, a_set_of_one_file_serves_that_component_alone) {
  write("scene_s", coded_cube(2, 3, 4), linear_wavelengths(4), true);
  component_input back(dir.str(), "scene");
  const std::string b = base("scene");
  EXPECT_EQ(input_lines(), (std::vector<std::string>{
                               "Loading files from " + dir.str() + " with prefix scene",
                               "component_input: Couldn't find " + b + "_I.hdr",
                               "component_input: Couldn't find " + b + "_illuminant.hdr",
                               "component_input: Couldn't find " + b + "_k.hdr",
                               "component_input: Couldn't find " + b + "_g.hdr",
                               "component_input: Loaded " + b + "_s.hdr",
                               "component_input: Couldn't find " + b + "_elements.hdr",
                               "component_input: Couldn't find " + b + "_abundances.hdr",
                               "component_input: Couldn't find " + b + "_indexes.hdr",
                               "component_input: Couldn't find " + b + "_endindexes.hdr",
                               "component_input: Couldn't find " + b + "_endabundances.hdr",
                               "component_input: Couldn't find " + b + "_spectral_library.slz",
                           }));
  EXPECT_TRUE(same(back.s(), coded_cube(2, 3, 4)));
  EXPECT_TRUE(arma::approx_equal(back.wavelengths(), linear_wavelengths(4), "absdiff", 0.0f));
  EXPECT_EQ(back.height(), 2u);
  EXPECT_EQ(back.bands(), 4u);
  EXPECT_EQ(thrown_text([&] { back.endmember_abundances(); }),
            "corv::component_input: Member 'endmember_abundances' does not exist for this "
            "input.");

  // Per-pixel components alone have a size but neither bands nor wavelengths.
  write("plane_k", plane(matrix(3, 5, arma::fill::ones)), numbered(1));
  component_input k_only(dir.str(), "plane");
  EXPECT_EQ(k_only.height(), 3u);
  EXPECT_EQ(k_only.width(), 5u);
  EXPECT_EQ(k_only.bands(), 0u);
  EXPECT_NE(thrown_text([&] { k_only.wavelengths(); }), "");
}

// A 1 x 3 image of 2 bands: L = (2, 4), k = (0.5, 1, 0), g = (2, 0.25, 0).
class dichromatic_set : public component_input_test {
 protected:
  void SetUp() override {
    component_input_test::SetUp();
    write("scene_illuminant", spectrum(vector{2, 4}), vector{500, 600});
    write("scene_k", plane(matrix{{0.5f, 1.0f, 0.0f}}), numbered(1));
    write("scene_g", plane(matrix{{2.0f, 0.25f, 0.0f}}), numbered(1));
    reflectance.slice(0) = matrix{{1, 4, 3}};
    reflectance.slice(1) = matrix{{0.5f, 8, 0}};
    // I = L(b) * (g s + k)
    image.slice(0) = matrix{{5, 4, 0}};
    image.slice(1) = matrix{{6, 12, 0}};
  }
  cube reflectance = cube(1, 3, 2);
  cube image = cube(1, 3, 2);
};

TEST_F(dichromatic_set, I_is_rebuilt_from_illuminant_k_g_and_s) {
  write("scene_s", reflectance, vector{500, 600}, true);
  component_input back(dir.str(), "scene");
  logger::instance().clear_entries();
  EXPECT_TRUE(same(back.I(), image));
  EXPECT_EQ(back.I_ptr(), back.I_ptr());
  EXPECT_EQ(input_lines(), std::vector<std::string>{"component_input: reconstructed I"});
  EXPECT_EQ(back.bands(), 2u);
  EXPECT_EQ(back.width(), 3u);
}

TEST_F(dichromatic_set, s_is_rebuilt_from_I_illuminant_k_and_g_with_zeros_where_g_is_zero) {
  // Where g = 0 the inversion gives infinity (I = 7) or NaN (I = 0): both become 0.
  image(0, 2, 0) = 7.0f;
  write("scene_I", image, vector{500, 600});
  component_input back(dir.str(), "scene");
  logger::instance().clear_entries();
  cube expected = reflectance;
  expected(0, 2, 0) = 0.0f;
  EXPECT_TRUE(same(back.s(), expected));
  EXPECT_EQ(back.s_ptr(), back.s_ptr());
  EXPECT_EQ(input_lines(), std::vector<std::string>{
                               "component_input: reconstructed s from I, illuminant, k and g."});

  // A zero illuminant band gives no reflectance either.
  write("dark_I", image, vector{500, 600});
  write("dark_illuminant", spectrum(vector{2, 0}), vector{500, 600});
  write("dark_k", plane(matrix{{0.5f, 1.0f, 0.0f}}), numbered(1));
  write("dark_g", plane(matrix{{2.0f, 0.25f, 0.0f}}), numbered(1));
  expected.slice(1).zeros();
  EXPECT_TRUE(same(component_input(dir.str(), "dark").s(), expected));
}

TEST_F(component_input_test, s_is_rebuilt_from_material_elements_when_I_cannot_serve) {
  // Elements (1, 2, 3) and (10, 20, 30); pixel 0 mixes 0.5 of element 1 and 0.25
  // of element 0, pixel 1 is element 0 alone.
  auto source = std::make_shared<data_input>();
  source->set_wavelengths(vector{500, 600, 700});
  source->set_elements(matrix{{1, 10}, {2, 20}, {3, 30}});
  cube abundances(1, 2, 2);
  abundances.slice(0) = matrix{{0.5f, 1.0f}};
  abundances.slice(1) = matrix{{0.25f, 0.0f}};
  cube indexes(1, 2, 2);
  indexes.slice(0) = matrix{{1, 0}};
  indexes.slice(1) = matrix{{0, 1}};
  source->set_element_abundances(abundances);
  source->set_element_abundance_indexes(indexes);
  write_set(source, "mix");

  component_input back(dir.str(), "mix");
  cube expected(1, 2, 3);
  expected.tube(0, 0) = vector{5.25f, 10.5f, 15.75f};
  expected.tube(0, 1) = vector{1, 2, 3};
  logger::instance().clear_entries();
  EXPECT_TRUE(same(back.s(), expected));
  EXPECT_EQ(input_lines(), std::vector<std::string>{
                               "component_input: reconstructed s from elements, abundances and "
                               "indexes."});
  EXPECT_EQ(thrown_text([&] { back.I(); }),
            "corv::component_input: Member 'I' does not exist for this input.");

  // With illuminant, k and g as well, I is rebuilt from the mixed s.
  write("mix_illuminant", spectrum(vector{2, 2, 2}), vector{500, 600, 700});
  write("mix_k", plane(matrix{{0, 1}}), numbered(1));
  write("mix_g", plane(matrix{{1, 1}}), numbered(1));
  component_input lit(dir.str(), "mix");
  cube lit_image(1, 2, 3);
  lit_image.tube(0, 0) = vector{10.5f, 21, 31.5f};
  lit_image.tube(0, 1) = vector{4, 6, 8};
  EXPECT_TRUE(same(lit.I(), lit_image));

  // Element numbers count from 0 and must name a loaded element.
  for (const float bad : {2.0f, -1.0f, 0.5f}) {
    indexes(0, 1, 1) = bad;
    source->set_element_abundance_indexes(indexes);
    write_set(source, "bad");
    std::ostringstream text;
    text << "component_input: Invalid element index " << bad << " (2 elements loaded).";
    EXPECT_EQ(thrown_text([&] { component_input(dir.str(), "bad").s(); }), text.str());
  }
}

TEST_F(component_input_test, the_image_files_take_precedence_when_rebuilding_s) {
  write("both_I", cube(1, 2, 1, arma::fill::value(6.0f)), vector{500});
  write("both_illuminant", spectrum(vector{2}), vector{500});
  write("both_k", plane(matrix{{1, 1}}), numbered(1));
  write("both_g", plane(matrix{{2, 4}}), numbered(1));
  write("both_elements", spectrum(vector{100}), vector{500});
  write("both_abundances", plane(matrix{{1, 1}}), numbered(1));
  write("both_indexes", plane(matrix{{0, 0}}), numbered(1));
  component_input back(dir.str(), "both");
  logger::instance().clear_entries();
  EXPECT_TRUE(same(back.s().slice(0), matrix{{1.0f, 0.5f}}));
  EXPECT_EQ(input_lines(), std::vector<std::string>{
                               "component_input: reconstructed s from I, illuminant, k and g."});
}

TEST_F(component_input_test, sizes_that_disagree_are_refused_in_order) {
  const vector four = linear_wavelengths(4);
  const auto image = [&](const std::string& prefix) {
    write(prefix + "_I", coded_cube(2, 3, 4), four);
  };
  // Two disagreements: the first check reports.
  image("a");
  write("a_s", coded_cube(2, 3, 3), linear_wavelengths(3), true);
  write("a_k", plane(matrix(3, 3, arma::fill::ones)), numbered(1));
  image("b");
  write("b_illuminant", spectrum(vector{1, 2, 3}), linear_wavelengths(3));
  image("c");
  write("c_k", plane(matrix(3, 3, arma::fill::ones)), numbered(1));
  write("d_s", coded_cube(2, 3, 4), four, true);
  write("d_g", plane(matrix(2, 2, arma::fill::ones)), numbered(1));
  write("f_illuminant", spectrum(vector{1, 2, 3, 4}), four);
  write("f_elements", coded_cube(1, 3, 5), linear_wavelengths(5));
  write("g_g", plane(matrix(2, 3, arma::fill::ones)), numbered(1));
  write("g_abundances", coded_cube(3, 3, 2), numbered(2));
  write("h_abundances", coded_cube(2, 3, 2), numbered(2));
  write("h_indexes", coded_cube(2, 3, 3), numbered(3));
  // A component of the wrong shape for its kind.
  image("j");
  write("j_k", coded_cube(2, 3, 2), numbered(2));

  const std::vector<std::pair<std::string, std::string>> cases = {
      {"a", "I and s"},
      {"b", "I and illuminant"},
      {"c", "I/s and k"},
      {"d", "I/s/k and g"},
      {"f", "I/s/illuminant and elements"},
      {"g", "I/s/k/g and abundances"},
      {"h", "I/s/k/g/abundances and indexes"},
      {"j", "I/s and k"},
  };
  for (const auto& [prefix, what] : cases) {
    EXPECT_EQ(thrown_text([&] { component_input(dir.str(), prefix); }),
              "component_input: data size mismatch: " + what)
        << prefix;
  }

  // Components that agree, whatever is missing between them.
  image("fine");
  write("fine_g", plane(matrix(2, 3, arma::fill::ones)), numbered(1));
  write("fine_elements", coded_cube(1, 7, 4), four);
  write("fine_indexes", coded_cube(2, 3, 5), numbered(5));
  EXPECT_NO_THROW(component_input(dir.str(), "fine"));
}

TEST_F(component_input_test, a_set_needs_a_directory_a_prefix_and_one_file) {
  EXPECT_EQ(thrown_text([&] { component_input("", "scene"); }),
            "Error constructing component_input: Directory not given.");
  EXPECT_EQ(thrown_text([&] { component_input(dir.str(), ""); }),
            "Error constructing component_input: Filename prefix not given.");
  write("other_I", coded_cube(2, 2, 2), linear_wavelengths(2));
  EXPECT_EQ(thrown_text([&] { component_input(dir.str(), "scene"); }),
            "component_input: Didn't load any components.");
  EXPECT_EQ(thrown_text([&] { component_input(dir / "absent", "other"); }),
            "component_input: Didn't load any components.");
  EXPECT_EQ(input_lines().back(),
            "component_input: Couldn't find " + dir / "absent/other_spectral_library.slz");
  EXPECT_EQ(input_lines().size(), 24u);

  // The spectral library alone is a set.
  spectral_library(matrix{{1, 2}}, {"a", "b"}, vector{500}).save(dir / "lib_spectral_library.slz");
  component_input library_only(dir.str(), "lib");
  EXPECT_EQ(library_only.endmember_labels(), (labels{"a", "b"}));
  EXPECT_EQ(library_only.bands(), 0u);
  EXPECT_EQ(thrown_text([&] { library_only.wavelengths(); }),
            "corv::component_input: Member 'wavelengths' does not exist for this input.");
}

}  // namespace
}  // namespace corv
