#include "corv/io/library_csv.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>

#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::read_bytes;
using test::temp_dir;
using test::thrown_text;
using test::write_text;

using names = std::vector<std::string>;

matrix rows_of(std::initializer_list<std::initializer_list<float>> rows) {
  return matrix(rows);
}

TEST(library_csv_test, writes_one_spectrum_per_column_with_quoted_labels_and_reads_it_back) {
  temp_dir dir;
  const float missing = std::numeric_limits<float>::quiet_NaN();
  const spectral_library library(rows_of({{0.1f, 2.0f, -1.5f}, {0.25f, missing, 1e-7f}}),
                                 {"grass, dry", "tile \"red\"", " padded"},
                                 vector{400.5f, 1000.0f});
  write_library_csv(library, dir / "lib.csv");
  EXPECT_EQ(read_bytes(dir / "lib.csv"),
            "wavelength,\"grass, dry\",\"tile \"\"red\"\"\",\" padded\"\n"
            "400.5,0.1,2,-1.5\n"
            "1000,0.25,,1e-07\n");

  const spectral_library read = read_library_csv(dir / "lib.csv");
  EXPECT_EQ(read.labels(), library.labels());
  EXPECT_EQ(read.sources(), names(3, dir / "lib.csv"));
  EXPECT_TRUE(arma::approx_equal(read.wavelengths(), library.wavelengths(), "absdiff", 0.0f));
  EXPECT_EQ(read.endmembers()(0, 0), 0.1f);
  EXPECT_EQ(read.endmembers()(1, 2), 1e-7f);
  EXPECT_TRUE(std::isnan(read.endmembers()(1, 1)));
  EXPECT_EQ(read.incomplete_endmembers(), std::vector<arma::uword>{1});

  EXPECT_EQ(thrown_text([&] { write_library_csv(spectral_library(), dir / "none.csv"); }),
            "spectral_library: No endmembers set.");
  EXPECT_FALSE(std::filesystem::exists(dir / "none.csv"));
}

TEST(library_csv_test, reads_the_layouts_and_line_ends_found_in_the_wild) {
  temp_dir dir;
  // Byte order mark, CRLF, blanks around cells, a label over two lines, blank lines.
  write_text(dir / "columns.csv",
             "\xEF\xBB\xBFWavelength (nm) , \"two\nlines\", b\r\n"
             "\r\n"
             " 450 , 0.5 ,1\r\n"
             "550,0.6, 2 \r\n"
             "\r\n");
  const spectral_library columns = read_library_csv(dir / "columns.csv");
  EXPECT_EQ(columns.labels(), (names{"two\nlines", "b"}));
  EXPECT_EQ(columns.wavelengths()(1), 550.0f);
  EXPECT_EQ(columns.endmembers()(0, 0), 0.5f);
  EXPECT_EQ(columns.endmembers()(1, 1), 2.0f);

  // One spectrum per row, wavelengths in the header.
  write_text(dir / "rows.csv",
             "name,378.19, 381.55, 384.91\n"
             "2016_AM-21, 0.25, 0.26, 0.27\n"
             "\"rock, 2\",1,2,\n");
  const spectral_library rows = read_library_csv(dir / "rows.csv");
  EXPECT_EQ(rows.labels(), (names{"2016_AM-21", "rock, 2"}));
  EXPECT_EQ(rows.bands(), 3u);
  EXPECT_EQ(rows.wavelengths()(2), 384.91f);
  EXPECT_EQ(rows.endmembers()(1, 0), 0.26f);
  EXPECT_EQ(rows.endmembers()(1, 1), 2.0f);
  EXPECT_TRUE(std::isnan(rows.endmembers()(2, 1)));

  // Numeric labels under a "wavelength" heading are still one spectrum per column.
  write_text(dir / "numeric.csv", "wavelength,1,2\n400,0.1,0.2\n500,0.3,0.4\n");
  const spectral_library numeric = read_library_csv(dir / "numeric.csv");
  EXPECT_EQ(numeric.labels(), (names{"1", "2"}));
  EXPECT_EQ(numeric.wavelengths()(1), 500.0f);
}

TEST(library_csv_test, malformed_files_are_refused_with_the_line) {
  temp_dir dir;
  const std::string name = dir / "bad.csv";
  const auto refusal = [&](const std::string& text) {
    write_text(name, text);
    return thrown_text([&] { read_library_csv(name); });
  };
  EXPECT_EQ(thrown_text([&] { read_library_csv(dir / "none.csv"); }),
            "read_library_csv: cannot open " + dir / "none.csv");
  EXPECT_EQ(refusal("\n\n"), "read_library_csv: no header row in " + name);
  EXPECT_EQ(refusal("wavelength,a,b\n400,1,2\n500,1\n"),
            "read_library_csv: expected 3 cells, found 2 in " + name + " line 3");
  EXPECT_EQ(refusal("wavelength,a\n400,1\n500,one\n"),
            "read_library_csv: 'one' is not a number in " + name + " line 3");
  EXPECT_EQ(refusal("wavelength,a\n400,1\n,2\n"),
            "read_library_csv: missing wavelength in " + name + " line 3");
  EXPECT_EQ(refusal("name,400,nan\nx,1,2\n"),
            "read_library_csv: 'nan' is not a wavelength in " + name + " line 1");
  EXPECT_EQ(refusal("wavelength,a\n400,1\n\n500,\"2\n"),
            "read_library_csv: unterminated quote in " + name + " line 4");
  // Line numbers count the lines inside quoted cells.
  EXPECT_EQ(refusal("wavelength,\"a\nb\"\n400,x\n"),
            "read_library_csv: 'x' is not a number in " + name + " line 3");
}

}  // namespace
}  // namespace corv
