#include "corv/io/data_input.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::coded_cube;
using test::thrown_text;

TEST(data_input_test, unset_components_name_themselves_some_under_their_old_names) {
  data_input in;
  const std::vector<std::pair<std::string, std::function<void()>>> cases = {
      {"data_input: I has not been set.", [&] { in.I_ptr(); }},
      {"data_input: s has not been set.", [&] { in.s_ptr(); }},
      {"data_input: k has not been set.", [&] { in.k(); }},
      {"data_input: endmember_element_abundances has not been set.",
       [&] { in.endmember_abundances(); }},
      {"data_input: endmember_element_abundance_indexes has not been set.",
       [&] { in.endmember_abundance_indexes(); }},
  };
  for (const auto& [text, call] : cases) {
    EXPECT_EQ(thrown_text(call), text);
  }
  // Reads that only the ENVI input serves keep the base class's text.
  EXPECT_EQ(thrown_text([&] { in.I(band_list{0}); }),
            "corv::data_input: Member 'I' does not exist for this input.");
  EXPECT_EQ(thrown_text([&] { in.gdal_dataset_ptr(); }),
            "corv::data_input: Member 'gdal_dataset_ptr' does not exist for this input.");
}

TEST(data_input_test, sizes_are_checked_against_what_is_recorded) {
  data_input in;
  in.set_wavelengths(test::linear_wavelengths(7));  // a fresh input takes any length
  EXPECT_EQ(thrown_text([&] { in.set_I(coded_cube(2, 2, 3)); }),
            "data_input: I does not match bands of previously set components!");

  data_input sized;
  sized.set_I(coded_cube(2, 3, 4));
  EXPECT_EQ(thrown_text([&] { sized.set_s(coded_cube(3, 3, 4)); }),
            "data_input: s does not match height of previously set components!");
  EXPECT_EQ(thrown_text([&] { sized.set_s(coded_cube(2, 2, 4)); }),
            "data_input: s does not match width of previously set components!");
  EXPECT_EQ(thrown_text([&] { sized.set_wavelengths(test::linear_wavelengths(5)); }),
            "data_input: wavelengths does not match bands of previously set components!");
  // Refusals record nothing.
  EXPECT_NO_THROW(sized.set_s(coded_cube(2, 3, 4)));
}

TEST(input_test, the_abstract_input_serves_nothing_and_says_so) {
  struct bare : input {};
  bare in;
  EXPECT_EQ(in.input_kind(), 5);
  EXPECT_EQ(in.height(), 0u);
  const std::string name = demangled_name(typeid(in));
  EXPECT_EQ(thrown_text([&] { in.I(0, 0, 1, 1); }),
            name + ": Member 'I' does not exist for this input.");
  EXPECT_EQ(thrown_text([&] { in.I(band_list{0}, 0, 0, 1, 1); }),
            name + ": Member 'I' does not exist for this input.");
  EXPECT_EQ(thrown_text([&] { in.I_ptr(); }),
            name + ": Member 'I_ptr' does not exist for this input.");
  EXPECT_EQ(thrown_text([&] { in.s_ptr(); }),
            name + ": Member 's_ptr' does not exist for this input.");
  EXPECT_EQ(thrown_text([&] { in.endmember_abundance_indexes(); }),
            name + ": Member 'endmember_abundance_indexes' does not exist for this input.");
}

}  // namespace
}  // namespace corv
