// MATLAB files written by scipy.io.savemat (see tests/data/README.md).
#include "corv/io/mat_file.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

const std::string data_dir = CORV_SOURCE_DIR "/tests/data/";

}  // namespace

TEST(mat_file, reads_numeric_arrays_compressed_or_not) {
  for (const char* file : {"illuminant.mat", "illuminant_compressed.mat"}) {
    const std::vector<corv::mat_variable> found = corv::read_mat_file(data_dir + file);
    // The text and the three-dimensional array are skipped.
    ASSERT_EQ(found.size(), 3u) << file;
    const corv::mat_variable& illuminant = found[0];
    EXPECT_EQ(illuminant.name, "illuminant");
    EXPECT_EQ(illuminant.rows, 1u);
    EXPECT_EQ(illuminant.cols, 33u);
    EXPECT_DOUBLE_EQ(illuminant.values[0], 1.0);
    EXPECT_NEAR(illuminant.values[32], 1.0 + 0.5 * std::sin(320.0 / 60.0), 1e-12);
    const corv::mat_variable& pairs = found[1];
    EXPECT_EQ(pairs.rows, 41u);
    EXPECT_EQ(pairs.cols, 2u);
    EXPECT_DOUBLE_EQ(pairs.values[40], 780.0);                            // last wavelength
    EXPECT_NEAR(pairs.values[41 + 20], 0.6, 1e-6);                        // single precision
    EXPECT_EQ(found[2].values, std::vector<double>({0, 3, 1, 4, 2, 5}));  // column order
  }
}

TEST(mat_file, refuses_what_it_cannot_read) {
  const struct {
    std::string file;
    std::string message;
  } cases[] = {
      {data_dir + "README.md",
       "read_mat_file: " + data_dir + "README.md is not a MATLAB MAT-file."},
      {data_dir + "missing.mat", "read_mat_file: Cannot read " + data_dir + "missing.mat."},
  };
  for (const auto& c : cases) {
    try {
      corv::read_mat_file(c.file);
      FAIL() << c.file;
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(e.what(), c.message);
    }
  }
}
