#include "corv/io/gdal_raster.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::temp_dir;
using test::write_text;

// An ENVI float32 file of the cube in the given interleave ("bsq", "bil", "bip").
void write_float_envi(const cube& data, const std::string& interleave, const std::string& stem) {
  std::vector<float> values;
  values.reserve(data.n_elem);
  for (arma::uword outer = 0; outer < (interleave == "bsq" ? data.n_slices : data.n_rows);
       ++outer) {
    for (arma::uword middle = 0; middle < (interleave == "bsq"   ? data.n_rows
                                           : interleave == "bil" ? data.n_slices
                                                                 : data.n_cols);
         ++middle) {
      for (arma::uword inner = 0; inner < (interleave == "bip" ? data.n_slices : data.n_cols);
           ++inner) {
        if (interleave == "bsq") {
          values.push_back(data(middle, inner, outer));
        } else if (interleave == "bil") {
          values.push_back(data(outer, inner, middle));
        } else {
          values.push_back(data(outer, middle, inner));
        }
      }
    }
  }
  std::string bytes(values.size() * sizeof(float), '\0');
  std::memcpy(bytes.data(), values.data(), bytes.size());
  write_text(stem + ".img", bytes);
  write_text(stem + ".hdr", "ENVI\nsamples = " + std::to_string(data.n_cols) +
                                "\nlines = " + std::to_string(data.n_rows) +
                                "\nbands = " + std::to_string(data.n_slices) +
                                "\nheader offset = 0\ndata type = 4\ninterleave = " + interleave +
                                "\nbyte order = 0\n");
}

TEST(gdal_raster, large_cubes_read_whole_or_cropped_in_every_interleave) {
  // Over 16 MiB, so the bands are shared among threads, and over a thousand lines,
  // so each band is read in several chunks of lines. Values tell where they are.
  const arma::uword lines = 1050, samples = 1030, bands = 4;
  cube data(lines, samples, bands);
  for (arma::uword b = 0; b < bands; ++b) {
    for (arma::uword c = 0; c < samples; ++c) {
      for (arma::uword r = 0; r < lines; ++r) {
        data(r, c, b) = static_cast<float>(r + 2000 * c + 3000000 * b);
      }
    }
  }
  temp_dir dir;
  for (const std::string interleave : {"bsq", "bil", "bip"}) {
    write_float_envi(data, interleave, dir / interleave);
    const gdal_raster raster(dir / (interleave + ".img"));
    ASSERT_TRUE(raster.is_open()) << interleave;
    EXPECT_EQ(raster.height(), lines);
    EXPECT_EQ(raster.width(), samples);
    EXPECT_EQ(raster.bands(), bands);

    const cube whole = raster.read({0, 1, 2, 3}, 0, 0, lines, samples);
    EXPECT_TRUE(arma::approx_equal(whole, data, "absdiff", 0.0f)) << interleave;

    // A window off every chunk and block boundary, bands out of order.
    const cube crop = raster.read({3, 1, 2}, 77, 5, 960, 1003);
    ASSERT_EQ(crop.n_rows, 960u);
    ASSERT_EQ(crop.n_cols, 1003u);
    ASSERT_EQ(crop.n_slices, 3u);
    const band_list order = {3, 1, 2};
    for (arma::uword i = 0; i < order.size(); ++i) {
      EXPECT_TRUE(arma::approx_equal(
          crop.slice(i), data.slice(order[i]).submat(77, 5, 77 + 959, 5 + 1002), "absdiff", 0.0f))
          << interleave << " band " << order[i];
    }

    matrix band(lines, samples);
    raster.read_band(2, 0, 0, lines, samples, band.memptr());
    EXPECT_TRUE(arma::approx_equal(band, data.slice(2), "absdiff", 0.0f)) << interleave;

    // A failure on any thread reaches the caller as the library's exception, with
    // GDAL's own reason.
    const std::string file = dir / (interleave + ".img");
    EXPECT_EQ(test::thrown_text([&] {
                raster.read({0, 1, 7, 2}, 0, 0, lines, samples);
              }),
              "gdal_raster: Cannot read band 8 of " + file + ": " + file +
                  ": GDALDataset::GetRasterBand(8) - Illegal band #\n");
  }
}

}  // namespace
}  // namespace corv
