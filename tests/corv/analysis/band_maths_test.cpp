#include "corv/analysis/band_maths.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::thrown_text;

float scalar(const std::string& formula) {
  const matrix m = band_maths({}, formula);
  EXPECT_EQ(m.n_elem, 1u) << formula;
  return m(0, 0);
}

// Image operands, masks and IEEE division are checked against numpy; here the
// language's quirks and formulas of any size.
TEST(band_maths_test, numbers_follow_the_languages_precedence_rules) {
  EXPECT_FLOAT_EQ(scalar("3"), 3.0f);
  EXPECT_FLOAT_EQ(scalar("1 + 2 * 3"), 7.0f);
  EXPECT_FLOAT_EQ(scalar("2*(3+4)^2"), 196.0f);  // the extra pop after ")" binds * first
  EXPECT_FLOAT_EQ(scalar("2^3^2"), 64.0f);       // left-associative power
  EXPECT_FLOAT_EQ(scalar("-(1+2)"), 1.0f);       // (-1) + 2
  EXPECT_FLOAT_EQ(scalar("5 - -2"), 7.0f);
  EXPECT_FLOAT_EQ(scalar("1e-5"), -4.0f);  // "1e" - 5
  EXPECT_FLOAT_EQ(scalar("2.5 * 2"), 5.0f);
  EXPECT_FLOAT_EQ(scalar("i1[0]"), 0.0f);  // not an image operand: atof gives 0
  EXPECT_FLOAT_EQ(scalar("3 > 2"), 1.0f);
  EXPECT_FLOAT_EQ(scalar("3 < 2"), 0.0f);
  // Formulas of any length or depth, and long runs of blanks.
  std::string sum = "1";
  for (int i = 0; i < 200000; ++i) {
    sum += "+1";
  }
  EXPECT_FLOAT_EQ(scalar(sum + std::string(100000, ' ')), 200001.0f);
  EXPECT_FLOAT_EQ(scalar(std::string(50000, '(') + "2" + std::string(50000, ')')), 2.0f);
}

TEST(band_maths_test, every_failure_has_its_text) {
  const cube ten(1, 1, 10, arma::fill::zeros), twenty(1, 1, 20, arma::fill::zeros);
  const image_list two = {std::cref(ten), std::cref(twenty)}, one = {std::cref(ten)};
  EXPECT_EQ(thrown_text([] { band_maths({}, "(1"); }), "Parse: Mismatched parenthesis!");
  EXPECT_EQ(thrown_text([] { band_maths({}, "1)"); }), "Parse: Mismatched parenthesis!");
  EXPECT_EQ(thrown_text([] { band_maths({}, "+"); }), "band_maths: Not enough operands!");
  EXPECT_EQ(thrown_text([&] { band_maths(two, "I1[0] I1[1]"); }), "band_maths: Invalid formula!");
  EXPECT_EQ(thrown_text([] { band_maths({}, ""); }), "band_maths: Invalid formula!");
  EXPECT_EQ(thrown_text([&] { band_maths(two, "I0[1]"); }),
            "band_maths: Invalid image, first image is I1.");
  EXPECT_EQ(thrown_text([&] { band_maths(two, "I3[0]"); }),
            "band_maths: Invalid image 3, there are only 2");
  // A minus inside the brackets is split off by the tokeniser: "I1[" - "1]".
  EXPECT_NO_THROW(band_maths(two, "I1[-1]"));
  // The count reported is that of the image after the one named.
  EXPECT_EQ(thrown_text([&] { band_maths(two, "I1[15]"); }),
            "band_maths: Invalid band 15, image only has 20 bands.");
  EXPECT_EQ(thrown_text([&] { band_maths(one, "I1[15]"); }), "invalid vector<T> subscript");
  EXPECT_EQ(thrown_text([] { op_priority(")"); }), "op_priority: Operator does not exist.");
}

TEST(band_maths_test, an_unknown_operation_code_is_refused) {
  op_node node(7u);
  node.left = std::make_unique<op_node>(1.0f);
  node.right = std::make_unique<op_node>(2.0f);
  EXPECT_EQ(thrown_text([&] { node.result(); }),
            "op_node result: Requested operation does not exist.");
}

}  // namespace
}  // namespace corv
