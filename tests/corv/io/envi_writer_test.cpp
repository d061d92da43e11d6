#include "corv/io/envi_writer.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "corv/io/hdr_output.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::coded_cube;
using test::linear_wavelengths;
using test::read_bytes;
using test::temp_dir;
using test::thrown_text;

// Pieces written in any order make the file that one whole write makes.
TEST(envi_writer_test, rows_and_bands_in_any_order_write_what_hdr_output_writes) {
  const temp_dir dir;
  const cube data = coded_cube(37, 11, 5);
  const vector waves = linear_wavelengths(5);
  for (const int type : {4, 12, 1}) {
    write_envi(data, waves, dir / "whole.fla", type, false);
    const double largest = type == 4 ? 0.0 : double(data.max());
    {
      envi_writer rows(dir / "rows.fla", 37, 11, waves, type, false, largest);
      rows.write_rows(data.rows(30, 36), 30);
      rows.write_rows(data.rows(0, 9), 0);
      rows.write_rows(data.rows(10, 29), 10);
      rows.commit();
    }
    {
      envi_writer bands(dir / "bands.fla", 37, 11, waves, type, false, largest);
      for (const arma::uword b : {4, 0, 2, 1, 3}) {
        bands.write_band(data.slice(b), b);
      }
      bands.commit();
    }
    for (const std::string name : {"rows", "bands"}) {
      EXPECT_EQ(read_bytes(dir / (name + ".fla")), read_bytes(dir / "whole.fla")) << name << type;
      EXPECT_EQ(read_bytes(dir / (name + ".hdr")), read_bytes(dir / "whole.hdr")) << name << type;
    }
  }
}

TEST(envi_writer_test, nothing_is_left_of_an_unfinished_or_refused_write) {
  const temp_dir dir;
  {
    envi_writer unfinished(dir / "part.fla", 4, 3, linear_wavelengths(2), 4, false, 0.0);
    unfinished.write_rows(coded_cube(2, 3, 2), 0);
  }
  EXPECT_TRUE(std::filesystem::is_empty(dir.str()));
  const std::string missing = dir / "no/such/x.fla";
  EXPECT_EQ(thrown_text([&] { envi_writer(missing, 1, 1, linear_wavelengths(2), 4, false, 0.0); }),
            "Cannot open file " + dir / "no/such/x.hdr" + " for writing.");
  EXPECT_EQ(envi_data_name(dir / "a.hdr"), dir / "a.fla");
  EXPECT_EQ(thrown_text([] { envi_data_name("a"); }),
            "No file extension on file chosen for HDR save.");
}

}  // namespace
}  // namespace corv
