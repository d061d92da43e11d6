#include "corv/io/slz_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>

#include "corv/io/hdf5_file.h"
#include "corv/io/logger.h"
#include "corv/io/quantised_storage.h"
#include "corv/io/spectral_library.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::temp_dir;
using test::thrown_text;

// Two spectra over four bands with labels that need care in any text format.
slz_file sample_file() {
  slz_file file;
  file.set_wavelengths(arma::vec{400.25, 500, 600, 700.5});
  file.set_endmember_count(2);
  file.set_endmembers(arma::fmat{{0.1f, 0.9f}, {0.2f, 0.8f}, {0.35f, 0.7f}, {0.4f, -0.05f}});
  file.set_labels({"grass, dry", "tile \"red\" \xC2\xB5m"});
  file.set_metadata("measured 2016");
  return file;
}

TEST(slz_file_test, saving_refuses_incomplete_or_inconsistent_contents) {
  temp_dir dir;
  const std::string name = dir / "x.slz";
  slz_file file;
  EXPECT_EQ(thrown_text([&] { file.save(name, true); }), "invalid object");
  file.set_endmember_count(2);
  EXPECT_EQ(thrown_text([&] { file.save(name, true); }), "wavelengths have not been set");
  file.set_endmember_count(0);
  file.set_wavelengths(arma::vec{1, 2, 3});
  EXPECT_EQ(thrown_text([&] { file.save(name, true); }),
            "The number of Endmember has not been set");
  file.set_endmember_count(2);
  EXPECT_EQ(thrown_text([&] { file.save(name, true); }), "invalid object");  // no endmembers
  // Every member must fit the count and the wavelengths.
  for (const auto& set : std::vector<std::function<void()>>{
           [&] { file.set_endmembers(arma::fmat(4, 2)); }, [&] { file.set_labels({"only one"}); },
           [&] { file.set_colours(arma::mat(2, 4)); }}) {
    EXPECT_EQ(thrown_text(set), "Incorrect Endmember number or wavelength size");
  }
  file.set_endmembers(arma::fmat(3, 2, arma::fill::ones));
  file.set_labels({"a", "b"});
  file.set_endmember_count(3);
  // The count changed after the labels were set: caught before anything is written.
  EXPECT_EQ(thrown_text([&] { file.save(name, true); }),
            "Incorrect Endmember number or wavelength size");
  EXPECT_FALSE(std::filesystem::exists(name));
}

TEST(slz_file_test, saving_replaces_a_file_only_with_the_overwrite_flag) {
  temp_dir dir;
  const std::string name = dir / "x.slz";
  test::write_text(name, "old");
  EXPECT_EQ(thrown_text([&] { sample_file().save(name, false); }), "File already exists: " + name);
  EXPECT_EQ(test::read_bytes(name), "old");
  sample_file().save(name, true);
  EXPECT_TRUE(hdf5_file::is_hdf5(name));
  // Nothing but the file itself is left in the folder.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.str()), {}), 1);
}

// The file as h5py reads it, and what a library reads back from it, are checked
// in Python; here the quantisation's edge and what becomes of colours.
TEST(slz_file_test, a_block_of_one_value_keeps_only_its_integer_part) {
  temp_dir dir;
  const std::string name = dir / "x.slz";
  slz_file read;
  // Negative values never form such a block, as the scan's maximum starts above 0.
  for (const auto& [value, expected] : {std::pair{7.0f, 7.0f}, {0.5f, 0.0f}, {-3.0f, -3.0f}}) {
    slz_file flat = sample_file();
    flat.set_endmembers(arma::fmat(4, 2).fill(value));
    flat.save(name, true);
    read.load(name);
    EXPECT_TRUE(arma::all(arma::vectorise(read.endmembers()) == expected)) << value;
  }
}

TEST(slz_file_test, loading_refuses_unusable_names_and_incomplete_files) {
  temp_dir dir;
  slz_file file;
  EXPECT_EQ(thrown_text([&] { file.load(""); }), "Invalid file name: ");
  EXPECT_EQ(thrown_text([&] { file.load(dir / "none.slz"); }),
            "Invalid file name: " + dir / "none.slz");
  test::write_text(dir / "text.slz", "wavelength,a\n400,1\n");
  EXPECT_EQ(thrown_text([&] { file.load(dir / "text.slz"); }),
            "Invalid file name: " + dir / "text.slz");

  {
    hdf5_file other = hdf5_file::create(dir / "other.h5");
    hdf5_group root = other.root();
    quantised::write_matrix(root, "Endmembers", arma::mat(2, 2, arma::fill::ones));
    root.create_group("Unrelated");
    other.close();
  }
  EXPECT_EQ(thrown_text([&] { file.load(dir / "other.h5"); }),
            "Missing group Labels in file: " + dir / "other.h5");
  EXPECT_TRUE(file.endmembers().empty());
}

TEST(slz_file_test, colours_are_kept_only_by_libraries_that_have_them) {
  temp_dir dir;
  const std::string name = dir / "lib.slz";
  spectral_library library(arma::fmat{{0.5f, 0.25f}, {0.75f, 1.0f}}, {"a", "b"},
                           arma::fvec{450.0f, 550.0f});
  library.save(name);
  spectral_library loaded;
  loaded.load(name);
  EXPECT_TRUE(arma::approx_equal(loaded.colours(), library.colours(), "absdiff", 0.0f));

  // A library read from a file without colours is saved without them.
  sample_file().save(name, true);
  loaded.load(name);
  EXPECT_FALSE(loaded.has_colours());
  loaded.add_endmembers(arma::fmat(4, 1, arma::fill::zeros), {"added"});
  loaded.save(name);
  slz_file reread;
  reread.load(name);
  EXPECT_TRUE(reread.colours().empty());
  EXPECT_EQ(reread.labels().back(), "added");
}

}  // namespace
}  // namespace corv
