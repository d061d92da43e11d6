#include "corv/io/hdr_input.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>

#include "corv/io/hdr_output.h"
#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::coded_cube;
using test::logged;
using test::temp_dir;
using test::thrown_text;
using test::write_text;

std::string header(int lines, int samples, int bands, const std::string& extra) {
  return "ENVI\nsamples = " + std::to_string(samples) + "\nlines = " + std::to_string(lines) +
         "\nbands = " + std::to_string(bands) + "\nheader offset = 0\n" + extra;
}

template <typename T>
void write_values(const std::string& name, const std::vector<T>& values) {
  std::string bytes(values.size() * sizeof(T), '\0');
  std::memcpy(bytes.data(), values.data(), bytes.size());
  write_text(name, bytes);
}

class hdr_input_test : public ::testing::Test {
 protected:
  temp_dir dir;
};

TEST_F(hdr_input_test, interleaves_types_and_byte_orders_read_into_the_cube_convention) {
  // 2 lines x 3 samples x 2 bands, value = 1 + line + 10 sample + 100 band.
  const cube expected = coded_cube(2, 3, 2);
  std::vector<std::int16_t> bip, bil;
  for (int r = 0; r < 2; ++r) {
    for (int c = 0; c < 3; ++c) {
      for (int b = 0; b < 2; ++b) {
        bip.push_back(static_cast<std::int16_t>(expected(r, c, b)));
      }
    }
    for (int b = 0; b < 2; ++b) {
      for (int c = 0; c < 3; ++c) {
        bil.push_back(static_cast<std::int16_t>(expected(r, c, b)));
      }
    }
  }
  std::vector<std::uint16_t> big_endian;
  for (const auto v : bip) {
    big_endian.push_back(static_cast<std::uint16_t>(((v & 0xff) << 8) | ((v >> 8) & 0xff)));
  }
  const std::string wavelengths = "wavelength = {\n 450.5 , 460.25\n}\n";
  write_text(dir / "bip.hdr", header(2, 3, 2, "data type = 2\ninterleave = bip\n" + wavelengths));
  write_values(dir / "bip.img", bip);
  write_text(dir / "bil.hdr", header(2, 3, 2, "data type = 2\ninterleave = bil\n" + wavelengths));
  write_values(dir / "bil.img", bil);
  write_text(dir / "be.hdr",
             header(2, 3, 2, "data type = 12\ninterleave = bip\nbyte order = 1\n" + wavelengths));
  write_values(dir / "be.dat", big_endian);

  for (const std::string name : {"bip.img", "bil.hdr", "be.dat"}) {
    hdr_input in(dir / name);
    EXPECT_TRUE(arma::approx_equal(in.I(), expected, "absdiff", 0.0f)) << name;
    EXPECT_FLOAT_EQ(in.wavelengths()(0), 450.5f);
    EXPECT_FLOAT_EQ(in.wavelengths()(1), 460.25f);
    EXPECT_NE(in.gdal_dataset_ptr(), nullptr);
  }
}

TEST_F(hdr_input_test, crops_and_band_lists_read_subsets_and_check_their_range) {
  const cube full = coded_cube(4, 5, 3);
  write_envi(full, test::linear_wavelengths(3), dir / "c.fla", 4, false);
  for (const bool hold : {false, true}) {
    hdr_input in(dir / "c.fla", hold);
    if (hold) {
      in.I();  // later subsets come from the held cube
    }
    const cube crop = in.I(1, 2, 3, 4);
    EXPECT_TRUE(arma::approx_equal(crop, cube(full.tube(1, 2, 3, 4)), "absdiff", 0.0f));
    const cube bands = in.I(band_list{2, 0});
    EXPECT_TRUE(arma::approx_equal(bands.slice(0), full.slice(2), "absdiff", 0.0f));
    EXPECT_TRUE(arma::approx_equal(bands.slice(1), full.slice(0), "absdiff", 0.0f));
    const cube both = in.I(band_list{1}, 0, 0, 0, 0);
    EXPECT_EQ(both(0, 0, 0), full(0, 0, 1));

    EXPECT_EQ(thrown_text([&] { in.I(0, 0, 4, 4); }), "hdr_input: Crop out of range.");
    EXPECT_EQ(thrown_text([&] { in.I(-1, 0, 1, 1); }), "hdr_input: Crop out of range.");
    EXPECT_EQ(thrown_text([&] { in.I(band_list{3}); }), "hdr_input: Bands requested out of range.");
  }
}

TEST_F(hdr_input_test, the_hold_flag_keeps_one_cube_behind_the_pointer) {
  write_envi(coded_cube(2, 2, 2), vector{1, 2}, dir / "h.fla", 4, false);
  hdr_input loose(dir / "h.fla");
  EXPECT_EQ(thrown_text([&] { loose.I_ptr(); }),
            "hdr_input: tried to access I pointer when data is not stored (turn on hold flag)");
  hdr_input held(dir / "h.fla", true);
  const cube_ptr first = held.I_ptr();
  EXPECT_EQ(first.get(), held.I_ptr().get());
  EXPECT_EQ((*first)(1, 1, 1), 112.0f);
  EXPECT_EQ(thrown_text([&] { held.s_ptr(); }),
            "hdr_input: Member 's_ptr' does not exist for this input, image was loaded as "
            "Irradiance");
}

TEST_F(hdr_input_test, the_description_decides_between_irradiance_and_reflectance) {
  write_envi(coded_cube(2, 2, 2), vector{1, 2}, dir / "r.fla", 4, true);
  hdr_input reflectance(dir / "r.hdr");
  EXPECT_TRUE(reflectance.is_reflectance());
  EXPECT_EQ(reflectance.s().n_slices, 2u);
  EXPECT_EQ(thrown_text([&] { reflectance.I(); }),
            "hdr_input: Member 'I' does not exist for this input, image was loaded as "
            "Reflectance");
  EXPECT_EQ(thrown_text([&] { reflectance.s_ptr(); }),
            "hdr_input: tried to access s pointer when data is not stored (turn on hold flag)");
  hdr_input held(dir / "r.hdr", true);
  EXPECT_EQ(held.s_ptr()->n_rows, 2u);

  write_envi(coded_cube(2, 2, 2), vector{1, 2}, dir / "i.fla", 4, false);
  EXPECT_EQ(thrown_text([&] { hdr_input(dir / "i.fla").s(); }),
            "hdr_input: Member 's' does not exist for this input, image was loaded as "
            "Irradiance");
}

TEST_F(hdr_input_test, finds_its_data_file_among_companions) {
  write_envi(coded_cube(2, 2, 1), vector{1}, dir / "a.dat", 4, false);
  write_text(dir / "a.txt", "notes");
  write_text(dir / "a.zzz", "other");
  hdr_input in(dir / "a.hdr");
  EXPECT_EQ(in.data_file(), dir / "a.dat");
  EXPECT_TRUE(logged("hdr_input: Ignoring file a.txt"));
  EXPECT_TRUE(logged("hdr_input: Ignoring file a.zzz"));
  EXPECT_TRUE(logged("hdr_input: Datafile " + dir / "a.dat" + " found."));

  // No known data extension among several candidates: the fallback takes one that
  // cannot be anything else.
  write_envi(coded_cube(2, 2, 1), vector{1}, dir / "b.bsq", 4, false);
  write_text(dir / "b.png", "picture");
  EXPECT_EQ(hdr_input(dir / "b.hdr").data_file(), dir / "b.bsq");
  EXPECT_TRUE(logged("hdr_input: Fallback protocol enacted!"));

  // A data file without an extension, alone beside its header.
  write_envi(coded_cube(2, 2, 1), vector{1}, dir / "c.fla", 4, false);
  std::filesystem::rename(dir / "c.fla", dir / "c");
  EXPECT_EQ(hdr_input(dir / "c").data_file(), dir / "c");

  EXPECT_EQ(thrown_text([&] { hdr_input(dir / "none.fla"); }), "hdr_input: No Header found!");
  write_text(dir / "lonely.hdr", header(1, 1, 1, "data type = 4\n"));
  EXPECT_EQ(thrown_text([&] { hdr_input(dir / "lonely.hdr"); }), "hdr_input: No Datafile found!");
  write_text(dir / "bad.hdr", "not a header at all");
  write_text(dir / "bad.fla", "xx");
  EXPECT_EQ(thrown_text([&] { hdr_input(dir / "bad.fla"); }),
            "Error constructing HDR Input: " + dir / "bad.fla" + ", The file is invalid.");
}

TEST_F(hdr_input_test, headers_that_are_not_spectral_images_are_refused_with_reasons) {
  const std::vector<float> one = {1.0f, 2.0f};
  write_text(dir / "lib.hdr", header(2, 1, 1,
                                     "data type = 4\nfile type = ENVI Spectral Library\n"
                                     "wavelength = {1}\n"));
  write_values(dir / "lib.sli", one);
  EXPECT_EQ(thrown_text([&] { hdr_input(dir / "lib.sli"); }),
            "hdr_input: " + dir / "lib.hdr" +
                " is an ENVI spectral library, not an image; import it as a spectral library.");

  write_text(dir / "gz.hdr", header(1, 2, 1, "data type = 4\nfile compression = 1\n"));
  write_values(dir / "gz.img", one);
  EXPECT_EQ(thrown_text([&] { hdr_input(dir / "gz.img"); }),
            "hdr_input: " + dir / "gz.hdr" +
                " declares a compressed data file (file compression = 1), which is not "
                "supported.");

  write_text(dir / "nowl.hdr", header(1, 2, 1, "data type = 4\nband names = {Latitude}\n"));
  write_values(dir / "nowl.img", one);
  EXPECT_EQ(thrown_text([&] { hdr_input(dir / "nowl.img"); }),
            "hdr_input: No wavelengths in " + dir / "nowl.hdr" + ".");
  EXPECT_TRUE(logged(dir / "nowl.hdr" + ", cannot parse wavelengths."));

  write_text(dir / "short.hdr", header(1, 1, 2, "data type = 4\nwavelength = {500}\n"));
  write_values(dir / "short.img", one);
  EXPECT_EQ(thrown_text([&] { hdr_input(dir / "short.img"); }),
            "hdr_input: Cannot parse the wavelengths of " + dir / "short.hdr" + " (2 bands).");
}

TEST_F(hdr_input_test, data_files_shorter_than_their_header_or_than_memory_are_refused) {
  // 2 x 3 x 2 16-bit values need 24 bytes after the offset.
  const std::string wavelengths = "data type = 12\nwavelength = {1, 2}\n";
  write_text(dir / "cut.hdr", header(2, 3, 2, wavelengths));
  write_text(dir / "cut.fla", std::string(23, '\1'));
  EXPECT_EQ(thrown_text([&] { hdr_input(dir / "cut.hdr"); }),
            "hdr_input: " + dir / "cut.fla" + " is too short: " + dir / "cut.hdr" +
                " describes 24 bytes (2 lines x 3 samples x 2 bands x 2 bytes after a header "
                "offset of 0), the file holds 23.");
  write_text(dir / "cut.hdr",
             "ENVI\nsamples = 3\nlines = 2\nbands = 2\nheader offset = 8\n" + wavelengths);
  write_text(dir / "cut.fla", std::string(31, '\1'));
  EXPECT_NE(thrown_text([&] { hdr_input(dir / "cut.hdr"); }).find("describes 32 bytes"),
            std::string::npos);
  write_text(dir / "cut.fla", std::string(40, '\1'));  // trailing bytes are ignored
  EXPECT_EQ(hdr_input(dir / "cut.hdr").I().n_elem, 12u);

  // A sparse file as large as its header says, far larger than memory.
  write_text(dir / "huge.hdr", header(1000000, 1000000, 2, wavelengths));
  write_text(dir / "huge.fla", "");
  std::filesystem::resize_file(dir / "huge.fla", 4000000000000ull);
  hdr_input huge(dir / "huge.hdr");
  EXPECT_EQ(thrown_text([&] { huge.I(); })
                .rfind("gdal_raster: " + dir / "huge.fla" +
                           " needs 7629395 MiB of memory, more than "
                           "this machine has (",
                       0),
            0u);
}

TEST_F(hdr_input_test, wavelengths_come_from_band_items_even_when_bands_have_names) {
  const std::vector<float> values = {1, 2, 3};
  write_text(dir / "named.hdr",
             header(1, 1, 3,
                    "data type = 4\ninterleave = bsq\nwavelength units = Nanometers\n"
                    "band names = {Band A (500), Band B (600), Band C (700)}\n"
                    "wavelength = {500.5, 600.25, 700.125,}\n"));
  write_values(dir / "named.img", values);
  hdr_input in(dir / "named.img");
  EXPECT_FLOAT_EQ(in.wavelengths()(0), 500.5f);
  EXPECT_FLOAT_EQ(in.wavelengths()(2), 700.125f);
}

TEST_F(hdr_input_test, band_names_that_are_wavelengths_stand_in_for_a_missing_list) {
  const std::vector<float> values = {1, 2, 3};
  write_text(dir / "bn.hdr", header(1, 1, 3,
                                    "data type = 4\nband names = {\n376.44 Nanometers,\n"
                                    "0.5 um,\n 700}\n"));
  write_values(dir / "bn.img", values);
  hdr_input in(dir / "bn.img");
  EXPECT_FLOAT_EQ(in.wavelengths()(0), 376.44f);
  EXPECT_FLOAT_EQ(in.wavelengths()(1), 500.0f);
  EXPECT_FLOAT_EQ(in.wavelengths()(2), 700.0f);
}

}  // namespace
}  // namespace corv
