#include "corv/io/hdr_output.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>

#include "corv/io/file_path.h"
#include "corv/io/hdr_input.h"
#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::coded_cube;
using test::read_bytes;
using test::temp_dir;
using test::thrown_text;

template <typename T>
std::vector<T> values_of(const std::string& file) {
  const std::string bytes = read_bytes(file);
  std::vector<T> values(bytes.size() / sizeof(T));
  std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
  return values;
}

class hdr_output_test : public ::testing::Test {
 protected:
  void SetUp() override { image.set_I(coded_cube(2, 3, 2), vector{400.5f, 1000.25f}); }
  pipeline image;
  temp_dir dir;
};

TEST_F(hdr_output_test, writes_the_header_layout_and_band_sequential_floats) {
  hdr_output(false, 4).write(image, dir / "cube.fla");
  EXPECT_EQ(read_bytes(dir / "cube.hdr"),
            "ENVI\ndescription = {\nIRRADIANCE\n}\nsensor type = unknown\n"
            "file type = ENVI Standard\nheader offset = 0\nsamples = 3\nlines = 2\nbands = 2\n"
            "data type = 4\ninterleave = bsq\nbyte order = 0\n"
            "wavelength = {\n 400.5000,\n 1000.2500}\n");
  // Band by band, line by line, sample by sample.
  const auto data = values_of<float>(dir / "cube.fla");
  ASSERT_EQ(data.size(), 12u);
  EXPECT_EQ(data[0], 1.0f);    // (0, 0, 0)
  EXPECT_EQ(data[1], 11.0f);   // (0, 1, 0)
  EXPECT_EQ(data[3], 2.0f);    // (1, 0, 0)
  EXPECT_EQ(data[6], 101.0f);  // (0, 0, 1)

  hdr_input back(dir / "cube.hdr");
  EXPECT_TRUE(arma::approx_equal(back.I(), image.I(), "absdiff", 0.0f));
  EXPECT_TRUE(arma::approx_equal(back.wavelengths(), image.wavelengths(), "absdiff", 1e-4f));
  EXPECT_EQ(files_in(dir.str()).size(), 2u);
}

TEST_F(hdr_output_test, a_header_name_puts_the_data_in_a_fla_file) {
  hdr_output(false, 4).write(image, dir / "named.hdr");
  EXPECT_TRUE(std::filesystem::exists(dir / "named.fla"));
  EXPECT_TRUE(std::filesystem::exists(dir / "named.hdr"));
  EXPECT_EQ(logger::instance().entries().back().second,
            "HDR_Output: Datafile extension supplied as '.hdr', using '.fla'");
}

TEST_F(hdr_output_test, integer_types_scale_the_largest_element_to_the_type_maximum) {
  cube c(1, 2, 2);
  c(0, 0, 0) = 2.0f;
  c(0, 1, 0) = 1.0f;
  c(0, 0, 1) = 0.3f;
  c(0, 1, 1) = -0.5f;
  pipeline p;
  p.set_I(c, vector{1, 2});

  hdr_output(false, 12).write(p, dir / "u16.raw");
  EXPECT_EQ(values_of<std::uint16_t>(dir / "u16.raw"),
            (std::vector<std::uint16_t>{65535, 32767, 9830, 0}));
  hdr_output(false, 2).write(p, dir / "s16.raw");
  EXPECT_EQ(values_of<std::int16_t>(dir / "s16.raw"),
            (std::vector<std::int16_t>{32767, 16383, 4915, -8191}));
  hdr_output(false, 1).write(p, dir / "u8.raw");
  EXPECT_EQ(values_of<std::uint8_t>(dir / "u8.raw"), (std::vector<std::uint8_t>{255, 127, 38, 0}));
  EXPECT_NE(read_bytes(dir / "u8.hdr").find("data type = 1\n"), std::string::npos);

  // Maxima for which x * (type maximum / largest) falls just short of the maximum.
  for (const float largest : {0.7f, 0.9f, 0.3f, 0.35f}) {
    pipeline one;
    one.set_I(cube(1, 1, 1, arma::fill::value(largest)), vector{1});
    hdr_output(false, 12).write(one, dir / "m.raw");
    EXPECT_EQ(values_of<std::uint16_t>(dir / "m.raw")[0], 65535) << largest;
    hdr_output(false, 2).write(one, dir / "m.raw");
    EXPECT_EQ(values_of<std::int16_t>(dir / "m.raw")[0], 32767) << largest;
    hdr_output(false, 1).write(one, dir / "m.raw");
    EXPECT_EQ(values_of<std::uint8_t>(dir / "m.raw")[0], 255) << largest;
  }
}

TEST_F(hdr_output_test, refusals_leave_no_file_behind) {
  pipeline empty;
  pipeline no_image;
  no_image.set_s(coded_cube(2, 2, 2), vector{1, 2});
  const std::vector<std::pair<std::string, std::function<void()>>> cases = {
      {"No filename set for HDR file save.", [&] { hdr_output(false, 4).write(image, ""); }},
      {"No file extension on file chosen for HDR save.",
       [&] { hdr_output(false, 4).write(image, dir / "plain"); }},
      {"Wavelengths not present when saving HDR file.",
       [&] { hdr_output(false, 4).write(empty, dir / "a.fla"); }},
      {"Image not present when saving HDR file.",
       [&] { hdr_output(false, 4).write(no_image, dir / "a.fla"); }},
      {"Image not present when saving HDR file.",
       [&] { hdr_output(true, 4).write(image, dir / "a.fla"); }},
      {"Data type not valid for writing HDR!",
       [&] { hdr_output(false, 3).write(image, dir / "a.fla"); }},
      {"Cannot open file " + dir / "missing/a.hdr" + " for writing.",
       [&] { hdr_output(false, 4).write(image, dir / "missing/a.fla"); }},
  };
  for (const auto& [text, call] : cases) {
    EXPECT_EQ(thrown_text(call), text);
  }
  EXPECT_EQ(files_in(dir.str()).size(), 0u);
}

}  // namespace
}  // namespace corv
