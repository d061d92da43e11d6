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

using test::shared_data;
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
  void SetUp() override {
    logger::instance().set_echo(false);
    logger::instance().clear_entries();
  }
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
  EXPECT_EQ(thrown_text([&] { read_envi_library(dir / "none.hdr"); }),
            "read_envi_library: cannot open " + dir / "none.hdr");
  write_text(dir / "alone.sli", "");
  EXPECT_EQ(thrown_text([&] { read_envi_library(dir / "alone.sli"); }),
            "read_envi_library: no header found for " + dir / "alone.sli");
  write_text(dir / "bare.hdr", "ENVI\n");
  EXPECT_EQ(thrown_text([&] { read_envi_library(dir / "bare.hdr"); }),
            "read_envi_library: no data file found beside " + dir / "bare.hdr");

  EXPECT_EQ(refusal("ENVI\nsamples = 3\nbands = 1\n"), "read_envi_library: 'lines' missing" + in);
  EXPECT_EQ(refusal("ENVI\nsamples = 3\nlines = 2.5\n"),
            "read_envi_library: 'lines' is not a positive whole number" + in);
  EXPECT_EQ(refusal(library_header(wavelengths) + "header offset = -4\n"),
            "read_envi_library: 'header offset' is not a whole number" + in);
  EXPECT_EQ(refusal("ENVI\nfile type = ENVI Classification\n"),
            "read_envi_library: file type 'ENVI Classification' is not a spectral library or an "
            "image" +
                in);
  EXPECT_EQ(refusal(library_header(wavelengths + "file compression = 1\n")),
            "read_envi_library: compressed data files are not supported" + in);
  EXPECT_EQ(refusal(library_header(wavelengths + "data type = 2\n")),
            "read_envi_library: data type 2 is not supported (only 4 and 5)" + in);
  EXPECT_EQ(refusal(library_header(wavelengths + "byte order = 2\n")),
            "read_envi_library: byte order 2 is not 0 or 1" + in);
  EXPECT_EQ(refusal(library_header(wavelengths + "bands = 3\n")),
            "read_envi_library: a spectral library needs bands = 1, not 3" + in);
  EXPECT_EQ(refusal("ENVI\nsamples = 2\nlines = 2\nbands = 3\ndata type = 4\n"),
            "read_envi_library: an image of 2 lines x 2 samples is not a list of spectra (it "
            "needs one line or one sample)" +
                in);
  EXPECT_EQ(refusal("ENVI\nsamples = 1\nlines = 2\nbands = 3\ndata type = 4\n"),
            "read_envi_library: interleave '' is not bsq, bil or bip" + in);
  EXPECT_EQ(refusal(library_header("")), "read_envi_library: 'wavelength' missing" + in);
  EXPECT_EQ(refusal(library_header("wavelength = {400, five, 600}\n")),
            "read_envi_library: 'wavelength' holds an item that is not a number" + in);
  EXPECT_EQ(refusal(library_header("wavelength = {400, 500}\n")),
            "read_envi_library: 2 wavelengths for 3 channels" + in);
  EXPECT_EQ(refusal(library_header(wavelengths + "wavelength units = Wavenumber\n")),
            "read_envi_library: wavelength units 'Wavenumber' are not supported" + in);
  EXPECT_EQ(refusal(library_header(wavelengths + "spectra names = {a, b, c}\n")),
            "read_envi_library: 3 spectra names for 2 spectra" + in);
  EXPECT_EQ(refusal(library_header(wavelengths + "data ignore value = none\n")),
            "read_envi_library: 'data ignore value' is not a number" + in);
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

TEST_F(envi_library_test, real_libraries_read_with_names_and_wavelengths_in_nanometres) {
  CORV_REQUIRE_SHARED_DATA();
  const spectral_library berlin = read_envi_library(shared_data("enmap-box/library_berlin.sli"));
  ASSERT_EQ(berlin.size(), 75u);
  ASSERT_EQ(berlin.bands(), 177u);
  EXPECT_EQ(berlin.labels().front(), "red clay tile 1");
  EXPECT_EQ(berlin.labels().back(), "water 2");
  EXPECT_EQ(berlin.labels()[15], "white roof material (polyethylene)");
  EXPECT_FLOAT_EQ(berlin.wavelengths()(0), 460.0f);
  EXPECT_FLOAT_EQ(berlin.wavelengths()(176), 2409.0f);
  EXPECT_FLOAT_EQ(berlin.endmembers()(0, 0), 589.9561196565628f);
  EXPECT_FLOAT_EQ(berlin.endmembers()(100, 2), 2850.603461265564f);

  const spectral_library gamsberg =
      read_envi_library(shared_data("enmap-box/gamsberg_field_library.hdr"));
  ASSERT_EQ(gamsberg.size(), 27u);
  ASSERT_EQ(gamsberg.bands(), 2151u);
  EXPECT_EQ(gamsberg.labels()[2], "16_03_12_2_C9_weathered schist");
  EXPECT_FLOAT_EQ(gamsberg.wavelengths()(0), 350.0f);
  EXPECT_FLOAT_EQ(gamsberg.endmembers()(2150, 26), 0.15109555423259735f);

  const std::string usgs = shared_data("usgs-aster-spectra-and-aviris/s07_AV95_envi.sli");
  const spectral_library splib = read_envi_library(usgs);
  ASSERT_EQ(splib.size(), 3139u);
  ASSERT_EQ(splib.bands(), 224u);
  EXPECT_EQ(splib.labels()[2], "Acmite NMNH133746 Pyroxene    BECKa AREF");
  EXPECT_FLOAT_EQ(splib.wavelengths()(0), 383.15f);
  EXPECT_FLOAT_EQ(splib.endmembers()(100, 2), 0.03675142675638199f);
  EXPECT_EQ(arma::uword(arma::accu(splib.endmembers() != splib.endmembers())), 78119u);
  EXPECT_EQ(splib.incomplete_endmembers().size(), 2079u);
  const spectral_library complete = read_envi_library(usgs, missing_points::drop);
  EXPECT_EQ(complete.size(), 1060u);
  EXPECT_TRUE(complete.endmembers().is_finite());
  EXPECT_LT(complete.endmembers().max(), 2.51f);
  EXPECT_GT(complete.endmembers().min(), -0.01f);

  const spectral_library ecostress =
      read_envi_library(shared_data("ecostress-library/ecostress_library_with_mixtures"));
  ASSERT_EQ(ecostress.size(), 2041u);
  ASSERT_EQ(ecostress.bands(), 479u);
  EXPECT_EQ(ecostress.labels()[5], "ecostress_library_with_mixtures 6");
  EXPECT_FLOAT_EQ(ecostress.wavelengths()(478), 12007.6999664307f);
  EXPECT_FLOAT_EQ(ecostress.endmembers()(0, 0), 0.04385285824537277f);
  EXPECT_FLOAT_EQ(ecostress.endmembers()(10, 5), 0.06291431933641434f);
  EXPECT_FLOAT_EQ(ecostress.endmembers()(478, 2040), 0.04105285555124283f);
}

}  // namespace
}  // namespace corv
