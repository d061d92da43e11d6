#include "corv/io/spectral_library.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::log_lines;
using test::temp_dir;
using test::thrown_text;

using names = std::vector<std::string>;

matrix rows_of(std::initializer_list<std::initializer_list<float>> rows) {
  return matrix(rows);
}

class spectral_library_test : public ::testing::Test {
 protected:
  // Three bands at 400, 500, 600 nm; spectra a = (1, 2, 3), b = (4, 5, 6).
  static spectral_library two_spectra() {
    return spectral_library(rows_of({{1, 4}, {2, 5}, {3, 6}}), {"a", "b"}, vector{400, 500, 600});
  }
};

TEST_F(spectral_library_test, construction_checks_dimensions_and_empty_members_refuse_reading) {
  EXPECT_EQ(thrown_text([] { spectral_library(matrix(3, 2), {"a"}, vector(3)); }),
            "spectral_library: Error: Incompatible dimensions.");
  EXPECT_EQ(thrown_text([] {
              spectral_library(matrix(3, 2), {"a", "b"}, vector(2));
            }),
            "spectral_library: Error: Incompatible dimensions.");

  const spectral_library none;
  EXPECT_EQ(thrown_text([&] { none.endmembers(); }), "spectral_library: No endmembers set.");
  EXPECT_EQ(thrown_text([&] { none.labels(); }), "spectral_library: No labels set.");
  EXPECT_EQ(thrown_text([&] { none.wavelengths(); }), "spectral_library: No wavelengths set.");
  EXPECT_TRUE(none.empty());
}

TEST_F(spectral_library_test, added_endmembers_carry_their_source_and_are_checked) {
  spectral_library library = two_spectra();
  library.add_endmembers(rows_of({{7}, {8}, {9}}), {"c"});
  library.add_endmembers(rows_of({{0, 1}, {0, 1}, {0, 1}}), {"d", "e"}, "field.csv");
  library.add_endmembers(rows_of({{2}, {2}, {2}}), {"f"}, "");
  EXPECT_EQ(library.labels(), (names{"a", "b", "c", "d", "e", "f"}));
  EXPECT_EQ(library.sources(),
            (names{"nofile", "nofile", "nofile", "field.csv", "field.csv", "nofile"}));
  EXPECT_EQ(library.endmembers()(1, 2), 8.0f);
  EXPECT_EQ(library.endmembers()(2, 4), 1.0f);

  EXPECT_EQ(thrown_text([&] {
              library.add_endmembers(matrix(3, 3), {"x", "y"});
            }),
            "add_endmembers: Unmatching arrays! :O");
  EXPECT_EQ(thrown_text([&] { library.add_endmembers(matrix(4, 1), {"x"}); }),
            "add_endmembers: New endmembers have incorrect dimensions.");
  EXPECT_EQ(thrown_text([] { spectral_library().add_endmembers(matrix(3, 1), {"x"}); }),
            "add_endmembers: New endmembers have incorrect dimensions.");
  EXPECT_EQ(library.size(), 6u);  // refused additions left it as it was

  spectral_library started;
  started.set_wavelengths(vector{1, 2});
  started.add_endmembers(rows_of({{1}, {2}}), {"first"});
  EXPECT_EQ(started.labels(), names{"first"});
}

TEST_F(spectral_library_test, every_endmember_gets_a_colour_unless_the_library_has_none) {
  // Which colours is the library's own choice; that each endmember has one is not.
  spectral_library library = two_spectra();
  library.add_endmembers(matrix(3, 1, arma::fill::zeros), {"third"});
  ASSERT_TRUE(library.has_colours());
  EXPECT_EQ(arma::size(library.colours()), arma::size(3, 3));

  library.set_colours(matrix());
  library.add_endmembers(matrix(3, 1, arma::fill::zeros), {"plain"});
  EXPECT_FALSE(library.has_colours());
  EXPECT_EQ(thrown_text([&] { library.set_colours(matrix(13, 4)); }),
            "spectral_library: Colours need one row of red, green and blue per endmember.");
  EXPECT_EQ(thrown_text([&] { library.set_labels({"one"}); }),
            "spectral_library: Error: Incompatible dimensions.");
}

TEST_F(spectral_library_test, wavelengths_of_another_length_clear_the_endmembers_and_log_it) {
  spectral_library library = two_spectra();
  library.set_wavelengths(vector{410, 510, 610});
  EXPECT_EQ(library.size(), 2u);
  EXPECT_TRUE(log_lines().empty());

  library.set_wavelengths(vector{400, 500});
  EXPECT_EQ(log_lines(),
            names{"spectral_library: Cleared endmembers due to new wavelength vector having "
                  "different number of bands"});
  EXPECT_EQ(thrown_text([&] { library.endmembers(); }), "spectral_library: No endmembers set.");
  EXPECT_TRUE(library.sources().empty());
  EXPECT_FALSE(library.has_colours());
  library.add_endmembers(rows_of({{1}, {2}}), {"new"});
  EXPECT_EQ(arma::size(library.colours()), arma::size(1, 3));
}

TEST_F(spectral_library_test, merge_appends_libraries_of_the_same_band_count) {
  spectral_library library = two_spectra();
  spectral_library other(rows_of({{7}, {8}, {9}}), {"c"}, vector{401, 501, 601});
  other.set_sources({"other.sli"});
  other.set_colours(rows_of({{1, 2, 3}}));
  library.merge(other);
  EXPECT_EQ(library.labels(), (names{"a", "b", "c"}));
  EXPECT_EQ(library.sources(), (names{"nofile", "nofile", "other.sli"}));
  EXPECT_EQ(library.endmembers()(2, 2), 9.0f);
  EXPECT_EQ(library.wavelengths()(0), 400.0f);  // this library's wavelengths stay
  EXPECT_EQ(library.colours()(2, 1), 2.0f);

  const spectral_library fewer(rows_of({{1}, {2}}), {"short"}, vector{400, 500});
  EXPECT_EQ(thrown_text([&] { library.merge(fewer); }),
            "spectral_library: New Library has incorrect dimensions, try re_evaluate option.");
  EXPECT_EQ(library.size(), 3u);

  library.merge(spectral_library());
  EXPECT_EQ(library.size(), 3u);

  spectral_library empty;
  empty.merge(other);
  EXPECT_EQ(empty.labels(), names{"c"});
  EXPECT_EQ(empty.wavelengths()(2), 601.0f);
}

TEST_F(spectral_library_test, re_evaluate_interpolates_linearly_and_never_extrapolates) {
  spectral_library library(rows_of({{0}, {0}, {0}}), {"zero"}, vector{450, 550, 600});
  // Given out of order: (600, 4), (400, 1), (500, 2).
  const spectral_library other(rows_of({{4, 40}, {1, 10}, {2, 20}}), {"p", "q"},
                               vector{600, 400, 500});
  library.merge(other, true);
  ASSERT_EQ(library.size(), 3u);
  EXPECT_FLOAT_EQ(library.endmembers()(0, 1), 1.5f);
  EXPECT_FLOAT_EQ(library.endmembers()(1, 1), 3.0f);
  EXPECT_FLOAT_EQ(library.endmembers()(2, 1), 4.0f);
  EXPECT_FLOAT_EQ(library.endmembers()(1, 2), 30.0f);

  // A different band count is no obstacle to re-evaluation.
  const spectral_library two_bands(rows_of({{1}, {3}}), {"r"}, vector{450, 650});
  library.merge(two_bands, true);
  EXPECT_FLOAT_EQ(library.endmembers()(1, 3), 2.0f);

  const spectral_library narrow(rows_of({{1}, {2}}), {"n"}, vector{460, 700});
  EXPECT_EQ(thrown_text([&] { library.merge(narrow, true); }),
            "spectral_library: Cannot re-evaluate, the new library covers 460 to 700 nm but "
            "this library needs 450 to 600 nm.");
  EXPECT_EQ(library.size(), 4u);

  // A missing point stays missing where it is used.
  spectral_library with_gap(rows_of({{1}, {std::numeric_limits<float>::quiet_NaN()}, {3}}), {"g"},
                            vector{400, 500, 600});
  library.merge(with_gap, true);
  EXPECT_TRUE(std::isnan(library.endmembers()(0, 4)));
  EXPECT_FLOAT_EQ(library.endmembers()(2, 4), 3.0f);
}

TEST_F(spectral_library_test, saving_needs_all_members_and_no_missing_values) {
  temp_dir dir;
  EXPECT_EQ(thrown_text([&] { spectral_library().save(dir / "x.slz"); }),
            "spectral_library: Cannot save, one or more data members is not set");
  spectral_library gap = two_spectra();
  gap.add_endmembers(rows_of({{1}, {std::numeric_limits<float>::quiet_NaN()}, {3}}), {"holed"});
  EXPECT_EQ(thrown_text([&] { gap.save(dir / "x.slz"); }),
            "spectral_library: Cannot save, endmember 3 'holed' has missing values");
  EXPECT_EQ(gap.incomplete_endmembers(), std::vector<arma::uword>{2});
  EXPECT_FALSE(std::filesystem::exists(dir / "x.slz"));
}

TEST_F(spectral_library_test, a_failed_save_warns_and_tries_once_more) {
  temp_dir dir;
  const std::string target = dir / "missing/x.slz";
  const std::string text = thrown_text([&] { two_spectra().save(target); });
  EXPECT_EQ(text.rfind("HDF5 Error in ", 0), 0u) << text;
  EXPECT_EQ(log_lines(), names{"spectral_library: Warning - Overwriting file " + target});
}

TEST_F(spectral_library_test, a_failed_load_logs_the_name_and_keeps_the_library) {
  temp_dir dir;
  test::write_text(dir / "text.slz", "not HDF5");
  spectral_library library = two_spectra();
  EXPECT_EQ(thrown_text([&] { library.load(dir / "text.slz"); }),
            "spectral_library: Error loading file.");
  EXPECT_EQ(log_lines(), (names{"spectral_library: Loading file: " + dir / "text.slz",
                                "Invalid file name: " + dir / "text.slz",
                                "spectral_library: Error loading file: " + dir / "text.slz"}));
  EXPECT_EQ(library.size(), 2u);
}

}  // namespace
}  // namespace corv
