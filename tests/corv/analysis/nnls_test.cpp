#include "corv/analysis/nnls.h"

#include <gtest/gtest.h>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::thrown_text;

TEST(nnls_test, small_problems_solved_by_hand) {
  // Orthonormal columns: the negative component is dropped, the others kept.
  matrix identity = arma::eye<matrix>(3, 3);
  vector x = nnls(identity, vector{1.0f, -2.0f, 3.0f});
  EXPECT_TRUE(arma::approx_equal(x, vector{1.0f, 0.0f, 3.0f}, "absdiff", 1e-6f)) << x;

  // Unconstrained least squares gives (4/3, -2/3); with x >= 0 the second
  // variable stays at 0 and the first alone fits b: x1 = a1.b / a1.a1 = 1.
  const matrix A = {{1, 0}, {0, 1}, {1, 1}};
  x = nnls(A, vector{2.0f, 0.0f, 0.0f});
  EXPECT_TRUE(arma::approx_equal(x, vector{1.0f, 0.0f}, "absdiff", 1e-6f)) << x;

  // Inside the cone of the columns the solution is the exact combination.
  x = nnls(A, vector{0.5f, 2.0f, 2.5f});
  EXPECT_TRUE(arma::approx_equal(x, vector{0.5f, 2.0f}, "absdiff", 1e-5f)) << x;

  // A b the columns point away from: nothing is used.
  x = nnls(A, vector{-1.0f, -1.0f, -2.0f});
  EXPECT_TRUE(arma::approx_equal(x, vector{0.0f, 0.0f}, "absdiff", 0.0f)) << x;

  // A column that repeats another adds nothing: the first one carries b.
  const matrix twins = {{1, 1, 0}, {1, 1, 0}, {0, 0, 1}};
  x = nnls(twins, vector{2.0f, 2.0f, 0.5f});
  EXPECT_TRUE(arma::approx_equal(x, vector{2.0f, 0.0f, 0.5f}, "absdiff", 1e-5f)) << x;
}

TEST(nnls_test, refuses_a_b_of_another_length_and_logs_it) {
  logger::instance().clear_entries();
  EXPECT_EQ(thrown_text([] { nnls(matrix(4, 2, arma::fill::ones), vector(3)); }),
            "NNLS: unmatching matrices!");
  const auto entries = logger::instance().entries();
  ASSERT_FALSE(entries.empty());
  EXPECT_EQ(entries.back().second, "NNLS: unmatching matrices!");
}

}  // namespace
}  // namespace corv
