#include "corv/io/hsz_output.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>
#include <limits>

#include "corv/io/file_path.h"
#include "corv/io/hsz_input.h"
#include "corv/io/hsz_record.h"
#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"
#include "tests/corv/io/hsz_test_scene.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::hsz_scene;
using test::log_lines;
using test::temp_dir;
using test::thrown_text;

template <typename Array>
void expect_close(const quantised::value_block& stored, const Array& expected, const char* what) {
  ASSERT_EQ(stored.values().size(), expected.n_elem) << what;
  const double step = (stored.max() - stored.min()) / 65535.0 + 1e-6;
  for (std::size_t i = 0; i < expected.n_elem; ++i) {
    EXPECT_NEAR(stored.values()[i], expected[i], step) << what << " " << i;
  }
}

class hsz_output_test : public ::testing::Test {
 protected:
  hsz_record written(const std::string& name) {
    hsz_record record;
    EXPECT_TRUE(record.load(name));
    return record;
  }

  hsz_scene scene;
  temp_dir dir;
};

TEST_F(hsz_output_test, writes_illuminant_specularity_and_materials_as_l_k_and_s) {
  pipeline image(scene.input());
  hsz_output().write(image, dir / "scene.hsz");
  EXPECT_EQ(log_lines().back(), "hsz_output: Saved " + (dir / "scene.hsz"));
  EXPECT_EQ(files_in(dir.str()).size(), 1u);

  // What lands where is checked with h5py; here the writer's own choices: S mixes
  // two elements per pixel and numbers them from 1 in the file.
  const hsz_record record = written(dir / "scene.hsz");
  EXPECT_EQ(record.header.num_elements_s, 2);
  const std::vector<std::int32_t> one_based = {1, 2, 3, 1, 2, 3, 2, 3, 1, 2, 3, 1};
  EXPECT_EQ(record.s.element_abundance_indexes.values(), one_based);

  // The decomposition alone, without the image it came from, is enough.
  pipeline decomposition(scene.input("s"));
  ASSERT_EQ(decomposition.height(), 0u);
  hsz_output().write(decomposition, dir / "decomposition.hsz");
  const hsz_record alone = written(dir / "decomposition.hsz");
  EXPECT_EQ(alone.header.lines, 2);
  EXPECT_EQ(alone.header.samples, 3);
  EXPECT_EQ(alone.header.bands, 4);
  EXPECT_EQ(alone.s.element_abundance_indexes.values(), one_based);
}

TEST_F(hsz_output_test, replaces_existing_files_through_any_output_pointer) {
  pipeline image(scene.input());
  hsz_output().write(image, dir / "scene.hsz");
  image.set_k(scene.k + 1.0f);
  image.set_nurbs_encoding(true);
  logger::instance().clear_entries();
  const output_ptr out = std::make_shared<hsz_output>();
  image.save(out, dir / "scene.hsz");
  EXPECT_EQ(log_lines().back(), "hsz_output: Saved " + (dir / "scene.hsz"));
  EXPECT_EQ(files_in(dir.str()).size(), 1u);
  const hsz_record record = written(dir / "scene.hsz");
  expect_close(record.k.factor, matrix(scene.k + 1.0f), "k");
  EXPECT_EQ(record.header.encoding_l, "NURBS");
  EXPECT_EQ(record.header.encoding_s, "NURBS");
}

TEST_F(hsz_output_test, values_that_are_not_finite_are_stored_as_zero) {
  pipeline image(scene.input());
  matrix k = scene.k;
  k(0, 0) = std::numeric_limits<float>::quiet_NaN();
  k(1, 2) = std::numeric_limits<float>::infinity();
  image.set_k(k);
  matrix g = scene.g;
  g(1, 1) = -std::numeric_limits<float>::infinity();
  image.set_g(g);
  logger::instance().clear_entries();
  hsz_output().write(image, dir / "scene.hsz");
  EXPECT_EQ(log_lines(),
            (std::vector<std::string>{
                "hsz_output: K->Factor holds 2 values that are not finite numbers; they are "
                "stored as 0.",
                "hsz_output: S->Factor (g) holds 1 values that are not finite numbers; they are "
                "stored as 0.",
                "hsz_output: Saved " + (dir / "scene.hsz")}));
  const hsz_record record = written(dir / "scene.hsz");
  k(0, 0) = k(1, 2) = g(1, 1) = 0.0f;
  expect_close(record.k.factor, k, "k");
  expect_close(record.s.factor, g, "g");
}

TEST_F(hsz_output_test, nurbs_encoding_stores_the_spectra_of_l_and_s_as_curves) {
  pipeline image(scene.input());
  image.set_nurbs_encoding(true);
  image.set_nurbs_alpha(0.01f);
  image.set_verbosity(3);
  hsz_output().write(image, dir / "curves.hsz");
  // Each part is encoded with the pipeline's settings.
  const std::vector<std::string> lines = log_lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "Alpha:             0.01"), 2);

  // What lands where, and how close the curves read back come, is checked with
  // h5py and scipy; here that another degree is recorded and read back, whatever
  // the reader's setting.
  const hsz_record record = written(dir / "curves.hsz");
  const float storage = 2.0f * float(record.l.element_cp.max() - record.l.element_cp.min()) / 65535;
  const float light_bound = 0.01f * (scene.illuminant.max() - scene.illuminant.min()) + storage;
  const float element_bound = 0.01f * (scene.elements.max() - scene.elements.min()) + storage;
  image.set_nurbs_degree(3);
  hsz_output().write(image, dir / "cubic.hsz");
  const hsz_record cubic = written(dir / "cubic.hsz");
  EXPECT_EQ(cubic.header.degree_nurbs_l, 3);
  EXPECT_EQ(cubic.l.element_knots.rows(), cubic.l.element_cp.rows() + 4);
  EXPECT_LE(arma::abs(hsz_input(dir / "cubic.hsz").illuminant() - scene.illuminant).max(),
            light_bound);
  EXPECT_LE(arma::abs(hsz_input(dir / "cubic.hsz", false, 5).s() - scene.s()).max(), element_bound);

  // Too few bands for the degree: nothing is written.
  image.set_nurbs_degree(4);
  EXPECT_EQ(thrown_text([&] { hsz_output().write(image, dir / "quartic.hsz"); }),
            "generate_nurbs: Degree 4 needs at least 5 bands.");
  EXPECT_FALSE(std::filesystem::exists(dir / "quartic.hsz"));
}

TEST_F(hsz_output_test, refuses_pipelines_without_the_components_it_stores) {
  pipeline image(scene.input());
  EXPECT_EQ(thrown_text([&] { hsz_output().write(image, ""); }),
            "Filename not specified for HSZ save.");
  EXPECT_EQ(log_lines().back(), "HSZ_Output: Oops, looks like you forgot to set a filename!");

  struct refusal {
    std::string omitted;
    std::function<void(data_input&)> change;
    std::string logged;
    std::string thrown;
  };
  const std::string s_log = "HSZ Out: Error reading S (Maybe you didn't generate abundances).";
  const std::string s_thrown = "Error retrieving S components.";
  const auto unchanged = [](data_input&) {};
  const auto mismatch = [](const std::string& name) {
    return "hsz_output: Data size mismatch: " + name + " is incorrect size.";
  };
  const std::string not_element =
      "hsz_output: S->Element Abundances Indexes holds a value that is not an element number.";
  const std::vector<refusal> refusals = {
      {"wavelengths", unchanged, "HSZ Out: Error reading Wavelengths.",
       "Error retrieving wavelengths."},
      {"illuminant", unchanged, "HSZ Out: Error reading Illuminant.",
       "Error retrieving Illuminant."},
      {"g", unchanged, s_log, s_thrown},
      {"", [](data_input& in) { in.set_illuminant(vector(3, arma::fill::ones)); },
       mismatch("Illuminant"), mismatch("Illuminant")},
      {"", [](data_input& in) { in.set_elements(matrix(5, 3, arma::fill::ones)); },
       mismatch("S->Elements"), mismatch("S->Elements")},
      {"",
       [](data_input& in) {
         cube indexes(2, 3, 2, arma::fill::zeros);
         indexes(1, 2, 1) = -1.0f;
         in.set_element_abundance_indexes(indexes);
       },
       not_element, not_element},
  };
  for (const refusal& r : refusals) {
    const std::shared_ptr<data_input> in = scene.input(r.omitted);
    r.change(*in);
    pipeline incomplete(in);
    EXPECT_EQ(thrown_text([&] { hsz_output().write(incomplete, dir / "x.hsz"); }), r.thrown)
        << r.omitted;
    EXPECT_EQ(log_lines().back(), r.logged) << r.omitted;
  }
  EXPECT_EQ(files_in(dir.str()).size(), 0u);
}

TEST_F(hsz_output_test, a_failed_save_is_retried_once_then_reported) {
  pipeline image(scene.input());
  const std::string name = dir / "no such folder/scene.hsz";
  const std::string failure = "HSZ Save: No such file or directory in: " + name;
  EXPECT_EQ(thrown_text([&] { hsz_output().write(image, name); }),
            "hsz_output: Could not save " + name + ": No such file or directory");
  EXPECT_EQ(log_lines(),
            (std::vector<std::string>{
                failure, "hsz_output: Warning - Overwriting file " + name, failure,
                "hsz_output: Could not save " + name + ": No such file or directory"}));
  EXPECT_EQ(files_in(dir.str()).size(), 0u);
}

TEST_F(hsz_output_test, endmember_results_are_written_only_with_their_library) {
  // What a library adds to S is checked with h5py; without one, the endmember
  // setting and abundances are left out even when the pipeline has them.
  const std::shared_ptr<data_input> in = scene.input();
  in->set_endmember_abundances(cube(2, 3, 1, arma::fill::value(0.5f)));
  in->set_endmember_abundance_indexes(cube(2, 3, 1, arma::fill::zeros));
  pipeline image(in);
  image.set_endmember_setting(2);
  hsz_output().write(image, dir / "plain.hsz");
  const hsz_record record = written(dir / "plain.hsz");
  EXPECT_EQ(record.header.endmember_indexed_s, 0);
  EXPECT_TRUE(record.s.endmember_abundances.empty());
}

}  // namespace
}  // namespace corv
