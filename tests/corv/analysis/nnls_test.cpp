#include "corv/analysis/nnls.h"

#include <gtest/gtest.h>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::thrown_text;

TEST(nnls_test, degenerate_problems_solved_by_hand) {
  // Random problems are checked against scipy; here the degenerate ones.
  // A b the columns point away from: nothing is used.
  const matrix A = {{1, 0}, {0, 1}, {1, 1}};
  vector x = nnls(A, vector{-1.0f, -1.0f, -2.0f});
  EXPECT_TRUE(arma::approx_equal(x, vector{0.0f, 0.0f}, "absdiff", 0.0f)) << x;

  // A column that repeats another adds nothing: the first one carries b.
  const matrix twins = {{1, 1, 0}, {1, 1, 0}, {0, 0, 1}};
  x = nnls(twins, vector{2.0f, 2.0f, 0.5f});
  EXPECT_TRUE(arma::approx_equal(x, vector{2.0f, 0.0f, 0.5f}, "absdiff", 1e-5f)) << x;
}

TEST(nnls_test, refuses_a_b_of_another_length_and_logs_it) {
  EXPECT_EQ(thrown_text([] { nnls(matrix(4, 2, arma::fill::ones), vector(3)); }),
            "NNLS: unmatching matrices!");
  const auto entries = logger::instance().entries();
  ASSERT_FALSE(entries.empty());
  EXPECT_EQ(entries.back().second, "NNLS: unmatching matrices!");
}

}  // namespace
}  // namespace corv
