#include "corv/io/safe_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "corv/io/component_output.h"
#include "corv/io/hdr_output.h"
#include "corv/io/hsz_output.h"
#include "corv/io/library_csv.h"
#include "corv/io/logger.h"
#include "corv/io/spectral_library.h"
#include "corv/io/zip_archive.h"
#include "corv/pipeline/pipeline.h"
#include "tests/corv/io/hsz_test_scene.h"
#include "tests/corv/test_support.h"
#include "tests/file_size_limit.h"

namespace corv {
namespace {

using test::file_size_limit;
using test::temp_dir;
using test::thrown_text;

TEST(safe_file_test, every_writer_fails_with_the_reason_and_leaves_nothing_behind) {
  temp_dir dir;
  test::hsz_scene scene;
  pipeline image(scene.input());
  pipeline large;
  large.set_I(cube(40, 40, 4, arma::fill::ones), test::linear_wavelengths(4));
  const spectral_library library(matrix(400, 30, arma::fill::randu),
                                 std::vector<std::string>(30, "grass"),
                                 test::linear_wavelengths(400));
  std::string noise(9000, '\0');  // bytes that deflate cannot shrink
  std::uint32_t state = 1;
  for (char& byte : noise) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<char>(state >> 24);
  }
  const std::vector<std::pair<std::string, std::function<void()>>> writers = {
      {"hsz_output: Could not save " + dir / "a.hsz" + ": File too large",
       [&] { hsz_output().write(image, dir / "a.hsz"); }},
      {"HDF5 Error in " + dir / "a.slz" + ": File too large", [&] { library.save(dir / "a.slz"); }},
      {"write_library_csv: Cannot write " + dir / "a.csv" + ": File too large.",
       [&] { write_library_csv(library, dir / "a.csv"); }},
      {"Error writing HDR data file.", [&] { hdr_output(false, 4).write(large, dir / "a.fla"); }},
      {"Error writing HDR data file.", [&] { component_output().write(large, dir / "set/a"); }},
      {"zip_archive: Cannot write archive: Write error: File too large (" + dir / "a.tvw" + ")",
       [&] {
         write_zip(dir / "a.tvw", {{"a", noise, ""}}, 1);
       }},
  };
  const file_size_limit limit(4000);
  for (const auto& [text, write] : writers) {
    logger::instance().clear_entries();
    EXPECT_EQ(thrown_text(write), text);
    EXPECT_TRUE(std::filesystem::is_empty(dir.str())) << text;
  }
  // The ENVI writer keeps its documented texts and logs the system's reason first.
  logger::instance().clear_entries();
  thrown_text([&] { hdr_output(false, 4).write(large, dir / "a.fla"); });
  EXPECT_EQ(logger::instance().entries().front().second,
            "HDR_Output: " + dir / "a.fla" + ": File too large");
}

}  // namespace
}  // namespace corv
