#include "corv/io/file_path.h"

#include <gtest/gtest.h>

namespace corv {
namespace {

TEST(file_path_test, printable_keeps_utf8_and_escapes_the_rest_on_one_line) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"Unknown HDR parameter: EncodingK", "Unknown HDR parameter: EncodingK"},
      {"0\n3\r\t\x7f", "0\\x0A3\\x0D\\x09\\x7F"},
      {"Enco\xC1ingK", "Enco\\xC1ingK"},                                   // an overlong lead byte
      {"\xE2\x82\xAC 5, 376 \xC2\xB5m", "\xE2\x82\xAC 5, 376 \xC2\xB5m"},  // euro sign, micro
      {"\xE2\x82", "\\xE2\\x82"},                                          // cut short
      {"\xED\xA0\x80 \xF4\x90\x80\x80",
       "\\xED\\xA0\\x80 \\xF4\\x90\\x80\\x80"},  // surrogate, > U+10FFFF
  };
  for (const auto& [text, shown] : cases) {
    EXPECT_EQ(printable(text), shown);
  }
}

}  // namespace
}  // namespace corv
