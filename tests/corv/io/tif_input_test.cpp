#include "corv/io/tif_input.h"

#include <gdal_priv.h>
#include <gtest/gtest.h>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::coded_cube;
using test::temp_dir;
using test::thrown_text;
using test::write_text;

// Writes a float TIFF whose band b holds slice b of the cube.
void write_tiff(const std::string& name, const cube& c) {
  GDALAllRegister();
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
  GDALDataset* dataset =
      driver->Create(name.c_str(), static_cast<int>(c.n_cols), static_cast<int>(c.n_rows),
                     static_cast<int>(c.n_slices), GDT_Float32, nullptr);
  ASSERT_NE(dataset, nullptr);
  for (arma::uword b = 0; b < c.n_slices; ++b) {
    matrix row_major = c.slice(b).t();  // GDAL wants lines one after another
    ASSERT_EQ(dataset->GetRasterBand(b + 1)->RasterIO(GF_Write, 0, 0, c.n_cols, c.n_rows,
                                                      row_major.memptr(), c.n_cols, c.n_rows,
                                                      GDT_Float32, 0, 0, nullptr),
              CE_None);
  }
  GDALClose(dataset);
}

class tif_input_test : public ::testing::Test {
 protected:
  temp_dir dir;
};

TEST_F(tif_input_test, serves_the_cube_with_band_indexes_as_wavelengths) {
  const cube expected = coded_cube(3, 4, 3);
  write_tiff(dir / "three.tif", expected);
  write_text(dir / "three.hdr", "ENVI\nwavelength = {500, 600, 700}\n");
  tif_input in(dir / "three.tif");
  EXPECT_EQ(in.input_kind(), 4);
  EXPECT_EQ(in.height(), 3u);
  EXPECT_EQ(in.width(), 4u);
  EXPECT_TRUE(arma::approx_equal(in.I(), expected, "absdiff", 0.0f));
  // Several bands never consult a header.
  EXPECT_TRUE(arma::approx_equal(in.wavelengths(), vector{0, 1, 2}, "absdiff", 0.0f));
  EXPECT_EQ(thrown_text([&] { in.k(); }),
            "corv::tif_input: Member 'k' does not exist for this input.");
  EXPECT_EQ(thrown_text([&] { in.I_ptr(); }),
            "hdr_input: tried to access I pointer when data is not stored (turn on hold flag)");
  tif_input held(dir / "three.tif", true);
  EXPECT_TRUE(arma::approx_equal(held.I(), expected, "absdiff", 0.0f));
  EXPECT_EQ(held.I_ptr().get(), held.I_ptr().get());
}

TEST_F(tif_input_test, a_single_band_takes_its_wavelength_from_a_companion_header) {
  write_tiff(dir / "one.tif", coded_cube(2, 2, 1));
  write_text(dir / "one.hdr", "ENVI\nwavelength = {\n 550.5}\n");
  EXPECT_FLOAT_EQ(tif_input(dir / "one.tif").wavelengths()(0), 550.5f);

  write_tiff(dir / "alone.tif", coded_cube(2, 2, 1));
  EXPECT_FLOAT_EQ(tif_input(dir / "alone.tif").wavelengths()(0), 0.0f);
  EXPECT_EQ(logger::instance().entries().back().second,
            "TIF Input: " + dir / "alone.tif" + ", cannot find header file.");
}

TEST_F(tif_input_test, missing_and_invalid_files_are_refused) {
  EXPECT_EQ(thrown_text([&] { tif_input(dir / "absent.tif"); }), "tif_input: No file found!");
  write_text(dir / "broken.tif", "this is no TIFF");
  EXPECT_EQ(thrown_text([&] { tif_input(dir / "broken.tif"); }),
            "Error constructing TIF Input: " + dir / "broken.tif");
}

}  // namespace
}  // namespace corv
