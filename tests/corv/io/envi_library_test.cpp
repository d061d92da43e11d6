#include "corv/io/envi_library.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::temp_dir;
using test::thrown_text;
using test::write_text;

using names = std::vector<std::string>;

matrix rows_of(std::initializer_list<std::initializer_list<float>> rows) {
  return matrix(rows);
}

template <typename T>
void write_values(const std::string& name, const std::vector<T>& values, bool big_endian = false,
                  const std::string& prefix = "") {
  std::ofstream file(name, std::ios::binary);
  file << prefix;
  for (const T value : values) {
    char bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof(T));
    if (big_endian) {
      std::reverse(bytes, bytes + sizeof(T));
    }
    file.write(bytes, sizeof(T));
  }
}

std::string library_header(const std::string& extra) {
  return "ENVI\nsamples = 3\nlines = 2\nbands = 1\nheader offset = 0\n"
         "file type = ENVI Spectral Library\ndata type = 4\ninterleave = bsq\nbyte order = 0\n" +
         extra;
}

class envi_library_test : public ::testing::Test {
 protected:
  temp_dir dir;
};

TEST_F(envi_library_test, reads_a_spectral_library_by_header_or_data_name) {
  write_text(dir / "lib.hdr", library_header("wavelength units = Micrometers\n"
                                             "wavelength = {0.4, 0.5,\n 0.6}\n"
                                             "spectra names = {\n grass 1, red tile }\n"
                                             "description = {\n  field campaign }\n"));
  write_values<float>(dir / "lib.sli", {1, 2, 3, 4, 5, 6});
  write_text(dir / "lib.csv", "not the data");

  for (const std::string& name : {dir / "lib.hdr", dir / "lib.sli"}) {
    const spectral_library library = read_envi_library(name);
    EXPECT_EQ(library.labels(), (names{"grass 1", "red tile"}));
    EXPECT_EQ(library.sources(), names(2, dir / "lib.sli"));
    EXPECT_EQ(library.metadata(), "field campaign");
    ASSERT_EQ(library.bands(), 3u);
    EXPECT_FLOAT_EQ(library.wavelengths()(0), 400.0f);
    EXPECT_FLOAT_EQ(library.wavelengths()(2), 600.0f);
    EXPECT_EQ(library.endmembers()(0, 0), 1.0f);
    EXPECT_EQ(library.endmembers()(2, 0), 3.0f);
    EXPECT_EQ(library.endmembers()(0, 1), 4.0f);
    EXPECT_TRUE(library.has_colours());
  }
}

TEST_F(envi_library_test, reads_big_endian_doubles_after_the_header_offset) {
  write_text(dir / "lib.hdr",
             "ENVI\nsamples = 2\nlines = 1\nbands = 1\nheader offset = 4\n"
             "file type = ENVI Spectral Library\ndata type = 5\n"
             "byte order = 1\nwavelength units = Nanometers\n"
             "wavelength = {1500, 2500}\nspectra names = {only}\n");
  write_values<double>(dir / "lib", {0.125, -2.5}, true, "skip");
  const spectral_library library = read_envi_library(dir / "lib.hdr");
  EXPECT_EQ(library.endmembers()(0, 0), 0.125f);
  EXPECT_EQ(library.endmembers()(1, 0), -2.5f);
  EXPECT_EQ(library.wavelengths()(1), 2500.0f);
  EXPECT_EQ(library.sources(), names{dir / "lib"});
}

TEST_F(envi_library_test, wavelengths_without_units_are_told_apart_by_size) {
  write_values<float>(dir / "lib.sli", {1, 2, 3, 4, 5, 6});
  write_text(dir / "lib.hdr", library_header("wavelength = {0.4, 0.5, 99.9}\n"));
  EXPECT_FLOAT_EQ(read_envi_library(dir / "lib.sli").wavelengths()(2), 99900.0f);
  write_text(dir / "lib.hdr", library_header("wavelength units = Unknown\n"
                                             "wavelength = {0.4, 0.5, 100}\n"));
  EXPECT_FLOAT_EQ(read_envi_library(dir / "lib.sli").wavelengths()(0), 0.4f);
  // Without names, spectra are numbered after the data file.
  EXPECT_EQ(read_envi_library(dir / "lib.sli").labels(), (names{"lib 1", "lib 2"}));
}

TEST_F(envi_library_test, points_at_the_ignore_value_are_missing_or_drop_their_spectrum) {
  write_text(dir / "lib.hdr",
             "ENVI\nsamples = 2\nlines = 3\nbands = 1\n"
             "file type = ENVI Spectral Library\ndata type = 4\n"
             "byte order = 0\nwavelength = {400, 500}\n"
             "data ignore value = -1.23000002e+034\n"
             "spectra names = {a, b, c}\n");
  const float ignore = -1.23000002e+34f;
  write_values<float>(dir / "lib.sli", {1, ignore, 3, 4, 5, std::nanf("")});

  const spectral_library kept = read_envi_library(dir / "lib.sli");
  ASSERT_EQ(kept.size(), 3u);
  EXPECT_TRUE(std::isnan(kept.endmembers()(1, 0)));
  EXPECT_EQ(kept.endmembers()(0, 0), 1.0f);
  EXPECT_TRUE(std::isnan(kept.endmembers()(1, 2)));
  EXPECT_EQ(kept.incomplete_endmembers(), (std::vector<arma::uword>{0, 2}));
  EXPECT_TRUE(logger::instance().entries().empty());

  const spectral_library dropped = read_envi_library(dir / "lib.sli", missing_points::drop);
  EXPECT_EQ(dropped.labels(), names{"b"});
  EXPECT_EQ(dropped.endmembers()(1, 0), 4.0f);
  EXPECT_EQ(dropped.sources(), names{dir / "lib.sli"});
  ASSERT_EQ(logger::instance().entries().size(), 1u);
  EXPECT_EQ(
      logger::instance().entries()[0].second,
      "read_envi_library: left out 2 of 3 spectra with missing points from " + dir / "lib.sli");
}

TEST_F(envi_library_test, an_image_one_pixel_wide_or_high_is_a_list_of_spectra) {
  // Three spectra of two bands, values 10 * spectrum + band.
  const std::string image =
      "ENVI\nfile type = ENVI Standard\ndata type = 4\nbyte order = 0\n"
      "bands = 2\nwavelength = {500, 600}\n";
  const auto check = [&](const std::string& layout, const std::vector<float>& values) {
    write_text(dir / "img.hdr", image + layout);
    write_values<float>(dir / "img.dat", values);
    const spectral_library library = read_envi_library(dir / "img.dat");
    EXPECT_EQ(library.labels(), (names{"img 1", "img 2", "img 3"})) << layout;
    EXPECT_TRUE(arma::approx_equal(library.endmembers(), rows_of({{0, 10, 20}, {1, 11, 21}}),
                                   "absdiff", 0.0f))
        << layout;
  };
  check("samples = 1\nlines = 3\ninterleave = bil\n", {0, 1, 10, 11, 20, 21});
  check("samples = 1\nlines = 3\ninterleave = bsq\n", {0, 10, 20, 1, 11, 21});
  check("samples = 3\nlines = 1\ninterleave = bil\n", {0, 10, 20, 1, 11, 21});
  check("samples = 3\nlines = 1\ninterleave = bip\n", {0, 1, 10, 11, 20, 21});
  check("samples = 1\nlines = 3\ninterleave = BIP\n", {0, 1, 10, 11, 20, 21});
}

TEST_F(envi_library_test, headers_that_do_not_describe_spectra_are_refused) {
  const std::string header = dir / "lib.hdr";
  write_values<float>(dir / "lib.sli", {1, 2, 3, 4, 5, 6});
  const auto refusal = [&](const std::string& text) {
    write_text(header, text);
    return thrown_text([&] { read_envi_library(header); });
  };
  const std::string in = " in header " + header;
  const std::string wavelengths = "wavelength = {400, 500, 600}\n";
  EXPECT_EQ(thrown_text([&] { read_envi_library(dir / "none.sli"); }),
            "read_envi_library: cannot open " + dir / "none.sli");
  write_text(dir / "alone.sli", "");
  EXPECT_EQ(thrown_text([&] { read_envi_library(dir / "alone.sli"); }),
            "read_envi_library: no header found for " + dir / "alone.sli");
  write_text(dir / "bare.hdr", "ENVI\n");
  EXPECT_EQ(thrown_text([&] { read_envi_library(dir / "bare.hdr"); }),
            "read_envi_library: no data file found beside " + dir / "bare.hdr");

  EXPECT_EQ(refusal("ENVI\nsamples = 3\nbands = 1\n"), "read_envi_library: 'lines' missing" + in);
  EXPECT_EQ(refusal("ENVI\nfile type = ENVI Classification\n"),
            "read_envi_library: file type 'ENVI Classification' is not a spectral library or an "
            "image" +
                in);
  EXPECT_EQ(refusal(library_header(wavelengths + "data type = 2\n")),
            "read_envi_library: data type 2 is not supported (only 4 and 5)" + in);
  EXPECT_EQ(refusal("ENVI\nsamples = 2\nlines = 2\nbands = 3\ndata type = 4\n"),
            "read_envi_library: an image of 2 lines x 2 samples is not a list of spectra (it "
            "needs one line or one sample)" +
                in);
  EXPECT_EQ(refusal(library_header("wavelength = {400, five, 600}\n")),
            "read_envi_library: 'wavelength' holds an item that is not a number" + in);
  EXPECT_EQ(refusal(library_header("wavelength = {400, 500}\n")),
            "read_envi_library: 2 wavelengths for 3 channels" + in);
  EXPECT_EQ(refusal(library_header(wavelengths + "spectra names = {a, b, c}\n")),
            "read_envi_library: 3 spectra names for 2 spectra" + in);
  EXPECT_EQ(refusal(library_header(wavelengths + "lines = 3\n")),
            "read_envi_library: " + dir / "lib.sli" + " holds 24 bytes, the header needs 36");
  // Checked before a label is made for each of the spectra the header claims.
  EXPECT_EQ(
      refusal(library_header(wavelengths + "lines = 4000000000\n")),
      "read_envi_library: " + dir / "lib.sli" + " holds 24 bytes, the header needs 48000000000");
  EXPECT_EQ(
      refusal(library_header("lines = 1000000000000000\nsamples = 1000000000000000\n")),
      "read_envi_library: " + dir / "lib.sli" + " holds 24 bytes, the header needs more than 2^64");
}

}  // namespace
}  // namespace corv
