#include "corv/io/zip_archive.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::read_bytes;
using test::temp_dir;
using test::thrown_text;
using test::write_text;

TEST(zip_archive, members_come_back_with_their_comments_and_replace_the_old_file) {
  const temp_dir dir;
  const std::string file = dir / "a.zip";
  const std::string large(100000, 'x');
  write_zip(file, {{"one.dat", "first", "no comment"}, {"two.bin", large, ""}}, 1);
  write_zip(file, {{"tavrel.dat", std::string("\0\1\2", 3), "no comment"}, {"d/big", large, "c"}},
            1);
  EXPECT_LT(std::filesystem::file_size(file), 2000u);  // deflated
  const std::vector<zip_entry> entries = extract_zip(file, dir.str());
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].name, "tavrel.dat");
  EXPECT_EQ(entries[0].comment, "no comment");
  EXPECT_EQ(entries[1].size, large.size());
  EXPECT_EQ(read_bytes(dir / "tavrel.dat"), std::string("\0\1\2", 3));
  EXPECT_EQ(read_bytes(dir / "d/big"), large);
  EXPECT_FALSE(std::filesystem::exists(dir / "one.dat"));
}

// The same bytes with a text replaced everywhere (a member's name is in the
// archive twice, and no checksum covers it).
void replace_all(const std::string& file, const std::string& from, const std::string& to) {
  std::string bytes = read_bytes(file);
  for (auto at = bytes.find(from); at != std::string::npos; at = bytes.find(from, at)) {
    bytes.replace(at, from.size(), to);
  }
  write_text(file, bytes);
}

TEST(zip_archive, hostile_and_damaged_archives_are_refused_before_they_are_extracted) {
  const temp_dir dir;
  const temp_dir out;
  const std::string text = dir / "text.zip";
  write_text(text, "not an archive");
  const std::string escape = dir / "escape.zip";
  write_zip(escape, {{"xx/escape", "x", ""}}, 1);
  replace_all(escape, "xx/escape", "../escape");
  const std::string bomb = dir / "bomb.zip";  // 40 MiB of zeros in about 40 KiB
  write_zip(bomb, {{"zeros", std::string(40 << 20, '\0'), ""}}, 9);
  const std::string truncated = dir / "truncated.zip";
  write_text(truncated, read_bytes(escape).substr(0, 60));
  const std::vector<std::pair<std::string, std::string>> refusals = {
      {text, "zip_archive: Cannot open archive: Not a zip archive (" + text + ")"},
      {escape, "zip_archive: Unsafe member name: ../escape (" + escape + ")"},
      {bomb,
       "zip_archive: Cannot extract: its members would expand to 40 MiB, more than 100 "
       "times its size (" +
           bomb + ")"},
      {truncated, "zip_archive: Cannot open archive: Not a zip archive (" + truncated + ")"},
  };
  for (const auto& [file, message] : refusals) {
    EXPECT_EQ(thrown_text([&] { extract_zip(file, out.str()); }), message);
    EXPECT_TRUE(std::filesystem::is_empty(out.str())) << file;
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "escape"));
  EXPECT_EQ(thrown_text([&] {
              write_zip(escape, {{"../escape", "x", ""}}, 1);
            }),
            "zip_archive: Unsafe member name: ../escape (" + escape + ")");
}

}  // namespace
}  // namespace corv
