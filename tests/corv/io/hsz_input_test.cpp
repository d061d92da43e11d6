#include "corv/io/hsz_input.h"

#include <gtest/gtest.h>

#include <functional>

#include "corv/io/hdf5_file.h"
#include "corv/io/hsz_output.h"
#include "corv/io/logger.h"
#include "corv/io/open_input.h"
#include "corv/pipeline/pipeline.h"
#include "tests/corv/io/hsz_test_scene.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using quantised::index_block;
using quantised::value_block;
using test::hsz_scene;
using test::temp_dir;
using test::thrown_text;

// Quantisation keeps each stored value within 1/65535 of its range; composed
// components add a few such steps.
constexpr float tolerance = 2e-4f;

template <typename A, typename B>
void expect_close(const A& read, const B& expected, const char* what, float within = tolerance) {
  ASSERT_EQ(read.n_elem, expected.n_elem) << what;
  EXPECT_LE(arma::abs(arma::vectorise(read) - arma::vectorise(expected)).max(), within) << what;
}

using change = std::function<void(hsz_record&)>;
using accessor = std::function<void(hsz_input&)>;
const accessor read_illuminant = [](hsz_input& in) { in.illuminant(); };
const accessor read_k = [](hsz_input& in) { in.k(); };
const accessor read_g = [](hsz_input& in) { in.g(); };
const accessor read_s = [](hsz_input& in) { in.s(); };

class hsz_input_test : public ::testing::Test {
 protected:
  std::string write_scene(const std::string& name) {
    pipeline image(scene.input());
    hsz_output().write(image, dir / name);
    return dir / name;
  }

  // The text thrown by `call` on an input over `record` after `edit`.
  std::string refusal(const hsz_record& record, const change& edit, const accessor& call) {
    hsz_record changed = record;
    edit(changed);
    EXPECT_TRUE(changed.save(dir / "changed.hsz", true));
    hsz_input in(dir / "changed.hsz");
    return thrown_text([&] { call(in); });
  }

  hsz_scene scene;
  temp_dir dir;
};

TEST_F(hsz_input_test, serves_every_component_of_a_written_image) {
  hsz_input in(write_scene("scene.hsz"));
  EXPECT_EQ(in.input_kind(), 1);
  EXPECT_EQ(in.height(), 2u);
  EXPECT_EQ(in.width(), 3u);
  EXPECT_EQ(in.bands(), 4u);
  expect_close(in.wavelengths(), scene.wavelengths, "wavelengths", 150.0f / 65535.0f);
  expect_close(in.illuminant(), scene.illuminant, "illuminant");
  expect_close(in.k(), scene.k, "k");
  expect_close(in.g(), scene.g, "g");
  expect_close(in.elements(), scene.elements, "elements");
  expect_close(in.element_abundances(), scene.abundances, "abundances");
  EXPECT_TRUE(arma::approx_equal(in.element_abundance_indexes(), scene.indexes, "absdiff", 0.0f));
  expect_close(in.s(), scene.s(), "s");
  expect_close(in.I(), scene.I(), "I");

  // Only held data has pointers.
  EXPECT_EQ(thrown_text([&] { in.I_ptr(); }),
            "hsz_input: tried to access I pointer when data is not stored (turn on hold flag)");
  EXPECT_EQ(thrown_text([&] { in.s_ptr(); }),
            "hsz_input: tried to access s pointer when data is not stored (turn on hold flag)");
  in.set_hold(true);
  const cube_ptr held = in.I_ptr();
  EXPECT_EQ(in.I_ptr(), held);
  expect_close(*in.s_ptr(), scene.s(), "held s");
  in.set_hold(false);
  EXPECT_NE(thrown_text([&] { in.I_ptr(); }), "");

  // No library was attached.
  const std::vector<std::pair<std::string, accessor>> no_library = {
      {"Endmembers", [](hsz_input& i) { i.endmembers(); }},
      {"Endmember labels", [](hsz_input& i) { i.endmember_labels(); }},
      {"Endmember abundances", [](hsz_input& i) { i.endmember_abundances(); }},
      {"Endmember abundance indexes", [](hsz_input& i) { i.endmember_abundance_indexes(); }},
  };
  for (const auto& [name, call] : no_library) {
    EXPECT_EQ(thrown_text([&] { call(in); }), "hsz_input: S->" + name + " contains no data.");
  }

  // Opened by suffix, and saved again from a pipeline over it.
  pipeline again(open_input(dir / "scene.hsz"));
  hsz_output().write(again, dir / "again.hsz");
  expect_close(hsz_input(dir / "again.hsz").s(), scene.s(), "s saved twice", 2 * tolerance);
}

TEST_F(hsz_input_test, construction_refuses_unreadable_files) {
  EXPECT_EQ(thrown_text([&] { open_input(dir / "none.hsz"); }),
            "Error constructing HSZ: HSZ Read: Invalid file name: " + (dir / "none.hsz"));
  // A file on which HDF5 1.10 crashes is refused, and this process lives on.
  const std::string crash = std::string(CORV_SOURCE_DIR) + "/tests/data/hdf5_crash.hsz";
  EXPECT_EQ(thrown_text([&] { hsz_input{crash}; }).rfind("Error constructing HSZ: HSZ Read: ", 0),
            0u);
  {
    hdf5_file file = hdf5_file::create(dir / "broken.hsz");
    file.root().create_group("K").create_group("Factor");  // no DATA
    file.close();
  }
  EXPECT_EQ(thrown_text([&] { hsz_input(dir / "broken.hsz"); }), "Error reading in HSZ file.");
}

TEST_F(hsz_input_test, accessors_check_every_part_against_the_header) {
  hsz_record full;
  ASSERT_TRUE(full.load(write_scene("scene.hsz")));
  const auto ones = [](std::uint32_t rows, std::uint32_t cols) {
    return value_block({rows, cols, 1}, std::vector<double>(rows * cols, 1.0));
  };
  const std::vector<std::tuple<std::string, change, accessor>> cases = {
      {"hsz_input: L->Elements contains no data.",
       [](hsz_record& r) { r.l.elements = value_block(); }, read_illuminant},
      {"hsz_input: Data size mismatch: L->Elements contains incorrect number of bands.",
       [&](hsz_record& r) { r.l.elements = ones(3, 1); }, [](hsz_input& in) { in.I(); }},
      {"hsz_input: Data size mismatch: K->Factor is incorrect size.",
       [&](hsz_record& r) { r.k.factor = ones(3, 2); }, read_k},
      {"hsz_input: K->Element Abundance Indexes contains no data.",
       [](hsz_record& r) { r.k.element_abundance_indexes = index_block(); }, read_k},
      {"hsz_input: S->Factor (g) contains no data.",
       [](hsz_record& r) { r.s.factor = value_block(); }, read_g},
      {"hsz_input: S->Elements contains no data.",
       [](hsz_record& r) { r.s.elements = value_block(); }, read_s},
      // The header's count of elements per pixel must match the arrays.
      {"hsz_input: Data size mismatch: S->Element Abundances Indexes is incorrect size.",
       [](hsz_record& r) { r.header.num_elements_s = 3; }, read_s},
      {"hsz_input: S->Element Abundances Indexes refers to element 4, but S->Elements holds 3.",
       [](hsz_record& r) {
         std::vector<std::int32_t> indexes = r.s.element_abundance_indexes.values();
         indexes[7] = 4;
         r.s.element_abundance_indexes = index_block({2, 3, 2}, indexes);
       },
       read_s},
  };
  for (const auto& [text, edit, call] : cases) {
    EXPECT_EQ(refusal(full, edit, call), text);
  }
}

// The curve x(u) = 400 + 150 u, y(u) = 1 + 2 u: a quadratic without interior
// knots whose control points lie evenly on a line (knots in ElementKnots; control
// points in ElementCP, their wavelengths in slice 0 and values in slice 1).
void store_line(hsz_part& part, std::uint32_t curves, double first = 400) {
  std::vector<double> points;
  for (std::uint32_t j = 0; j < curves; ++j) {
    points.insert(points.end(), {first, (first + 550) / 2, 550.0});
  }
  for (std::uint32_t j = 0; j < curves; ++j) {
    points.insert(points.end(), {1.0 + j, 2.0 + j, 3.0 + j});
  }
  part.elements = value_block();
  part.element_knots = value_block({6, 1, 1}, {0, 0, 0, 1, 1, 1});
  part.element_cp = value_block({3, curves, 2}, points);
}

TEST_F(hsz_input_test, nurbs_parts_are_read_back_from_their_curves) {
  hsz_record record;
  ASSERT_TRUE(record.load(write_scene("scene.hsz")));
  record.header.encoding_l = "NURBS";
  store_line(record.l, 1);
  record.header.encoding_s = "NURBS";
  store_line(record.s, 3);  // element j: 1 + j + 2 u
  ASSERT_TRUE(record.save(dir / "line.hsz", true));

  // At 400, 450, 500 and 550 nm, u is 0, 1/3, 2/3 and 1. Control points
  // (wavelengths and values in one array) are stored to a step of 550 / 65535.
  const vector line = {1.0f, 5.0f / 3.0f, 7.0f / 3.0f, 3.0f};
  const float tolerance = 1.5f * 550.0f / 65535.0f;
  hsz_input in(dir / "line.hsz");
  expect_close(in.illuminant(), line, "illuminant", tolerance);
  hsz_scene on_line = scene;
  on_line.illuminant = line;
  for (arma::uword j = 0; j < 3; ++j) {
    on_line.elements.col(j) = line + float(j);
  }
  expect_close(in.elements(), on_line.elements, "elements", tolerance);
  expect_close(in.s(), on_line.s(), "s", 2 * tolerance);
  expect_close(in.I(), on_line.I(), "I", 8 * tolerance);
  in.set_hold(true);
  expect_close(*in.s_ptr(), on_line.s(), "held s", 2 * tolerance);
  // Another degree drops what is held: the curves no longer fit.
  in.set_nurbs_degree(3);
  EXPECT_EQ(thrown_text([&] { in.s_ptr(); }),
            "hsz_input: Data size mismatch: S->NURBS Knots and Control Points do not fit curves "
            "of degree 3.");

  // Without a degree in the file the degree given is used, and the arrays must fit
  // it; a degree in the file comes first.
  EXPECT_EQ(thrown_text([&] { hsz_input(dir / "line.hsz", false, 3).illuminant(); }),
            "hsz_input: Data size mismatch: L->NURBS Knots and Control Points do not fit curves "
            "of degree 3.");
  record.header.degree_nurbs_l = 2;
  record.header.degree_nurbs_s = 3;
  ASSERT_TRUE(record.save(dir / "degrees.hsz", true));
  expect_close(hsz_input(dir / "degrees.hsz", false, 3).illuminant(), line, "degree from the file",
               tolerance);
  EXPECT_EQ(thrown_text([&] { hsz_input(dir / "degrees.hsz").elements(); }),
            "hsz_input: Data size mismatch: S->NURBS Knots and Control Points do not fit curves "
            "of degree 3.");

  // Parts without their curves, or with curves that do not cover the bands.
  record.header.degree_nurbs_s = -1;
  const std::vector<std::tuple<std::string, change, accessor>> cases = {
      {"hsz_input: L->NURBS Knots or Control Points contain no data.",
       [](hsz_record& r) { r.l.element_knots = value_block(); }, read_illuminant},
      {"hsz_input: S->NURBS Knots or Control Points contain no data.",
       [](hsz_record& r) { r.s.element_cp = value_block(); }, read_s},
      {"hsz_input: S->Element Abundances Indexes refers to element 3, but S->Elements holds 2.",
       [](hsz_record& r) { store_line(r.s, 2); }, read_s},
      {"hsz_input: K->NURBS Knots or Control Points contain no data.",
       [](hsz_record& r) {
         r.header.encoding_k = "NURBS";
         r.k.element_knots = r.l.element_knots;
       },
       read_k},
      // K stored as a curve too: its own spectra are read, k is its factor.
      {"",
       [](hsz_record& r) {
         r.header.encoding_k = "NURBS";
         store_line(r.k, 1);
       },
       [](hsz_input& in) {
         in.k();
         in.illuminant();
       }},
  };
  for (const auto& [text, edit, call] : cases) {
    EXPECT_EQ(refusal(record, edit, call), text);
  }
  EXPECT_EQ(refusal(
                record, [](hsz_record& r) { store_line(r.l, 1, 430); }, read_illuminant)
                .rfind("hsz_input: L->NURBS curves cannot be read back: nurbs_evaluate: "
                       "Wavelength 400 lies outside the curves' range 429.99",
                       0),
            0u);
}

}  // namespace
}  // namespace corv
