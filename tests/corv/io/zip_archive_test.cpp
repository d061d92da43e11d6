#include "corv/io/zip_archive.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::temp_dir;
using test::thrown_text;

std::string file_text(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(zip_archive, members_come_back_with_their_comments_and_replace_the_old_file) {
  const temp_dir dir;
  const std::string file = dir / "a.zip";
  const std::string large(100000, 'x');
  write_zip(file, {{"one.dat", "first", "no comment"}, {"two.bin", large, ""}}, 1);
  write_zip(file, {{"tavrel.dat", std::string("\0\1\2", 3), "no comment"}, {"big", large, "c"}}, 1);
  const std::vector<zip_member> members = read_zip(file);
  ASSERT_EQ(members.size(), 2u);
  EXPECT_EQ(members[0].name, "tavrel.dat");
  EXPECT_EQ(members[0].data, std::string("\0\1\2", 3));
  EXPECT_EQ(members[0].comment, "no comment");
  EXPECT_EQ(members[1].data, large);
  EXPECT_LT(std::filesystem::file_size(file), 2000u);  // deflated
}

TEST(zip_archive, refusals) {
  const temp_dir dir;
  const std::string text = dir / "text.zip";
  std::ofstream(text) << "not an archive";
  EXPECT_EQ(thrown_text([&] { read_zip(text); }),
            "zip_archive: Cannot open archive: Not a zip archive (" + text + ")");
  const std::string unsafe = dir / "unsafe.zip";
  EXPECT_EQ(thrown_text([&] {
              write_zip(unsafe, {{"../escape", "x", ""}}, 1);
            }),
            "zip_archive: Unsafe member name: ../escape (" + unsafe + ")");
  EXPECT_FALSE(std::filesystem::exists(unsafe));
  // A folder that does not exist: nothing is written, the message names the file.
  const std::string nowhere = dir / "missing/a.zip";
  EXPECT_NE(thrown_text([&] {
              write_zip(nowhere, {{"a", "b", ""}}, 1);
            }).find(nowhere),
            std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(nowhere));
  // A refused write keeps the archive that was there.
  const std::string kept = dir / "kept.zip";
  write_zip(kept, {{"a", "b", ""}}, 1);
  const std::string before = file_text(kept);
  EXPECT_NE(thrown_text([&] { write_zip(kept, {{"/abs", "b", ""}}, 1); }), "");
  EXPECT_EQ(file_text(kept), before);
}

}  // namespace
}  // namespace corv
