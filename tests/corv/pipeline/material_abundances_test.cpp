#include "corv/pipeline/material_abundances.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "corv/io/logger.h"
#include "corv/pipeline/materials.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::thrown_text;

// Mixes one pixel given as a spectrum.
struct mixed {
  std::vector<float> weights, numbers;
};

mixed mix(const matrix& elements, const vector& pixel, arma::uword slots) {
  element_mixer mixer(elements, slots);
  const vector products = elements.t() * pixel;
  mixed result{std::vector<float>(slots), std::vector<float>(slots)};
  mixer.mix(products.memptr(), result.weights.data(), result.numbers.data());
  return result;
}

TEST(material_abundances_test, mixes_one_pixel_by_hand) {
  const matrix axes = arma::eye<matrix>(3, 3);
  // The two strongest of three orthogonal elements.
  mixed got = mix(axes, vector{1.0f, 3.0f, 0.5f}, 2);
  EXPECT_EQ(got.numbers, (std::vector<float>{1, 0}));
  EXPECT_NEAR(got.weights[0], 3.0f, 1e-6f);
  EXPECT_NEAR(got.weights[1], 1.0f, 1e-6f);
  // More slots than elements: the extra slots add nothing and repeat the
  // strongest element.
  got = mix(axes, vector{1.0f, 3.0f, 0.5f}, 5);
  EXPECT_EQ(got.numbers, (std::vector<float>{1, 0, 2, 1, 1}));
  EXPECT_EQ(got.weights[3], 0.0f);
  EXPECT_EQ(got.weights[4], 0.0f);
  EXPECT_NEAR(got.weights[2], 0.5f, 1e-6f);

  // Elements at 45 degrees: the least-squares weights, not the projections,
  // sorted by weight (a negative weight last).
  const float h = std::sqrt(0.5f);
  const matrix slanted = {{1.0f, h}, {0.0f, h}, {0.0f, 0.0f}};
  got = mix(slanted, 2.0f * slanted.col(0) + 1.0f * slanted.col(1), 2);
  EXPECT_EQ(got.numbers, (std::vector<float>{0, 1}));
  EXPECT_NEAR(got.weights[0], 2.0f, 1e-5f);
  EXPECT_NEAR(got.weights[1], 1.0f, 1e-5f);
  got = mix(slanted, -0.5f * slanted.col(0) + 2.0f * slanted.col(1), 2);
  EXPECT_EQ(got.numbers, (std::vector<float>{1, 0}));
  EXPECT_NEAR(got.weights[0], 2.0f, 1e-5f);
  EXPECT_NEAR(got.weights[1], -0.5f, 1e-5f);
  // An empty slot (weight 0) comes before a negative weight.
  got = mix(slanted, -0.5f * slanted.col(0) + 2.0f * slanted.col(1), 3);
  EXPECT_EQ(got.numbers, (std::vector<float>{1, 1, 0}));  // the empty slot names element 1
  EXPECT_EQ(got.weights[1], 0.0f);
  EXPECT_NEAR(got.weights[2], -0.5f, 1e-5f);

  // A duplicate element is explained by its twin: weight 0, the twin takes all.
  const matrix doubled = {{1.0f, 0.0f, 1.0f}, {0.0f, 1.0f, 0.0f}, {0.0f, 0.0f, 0.0f}};
  got = mix(doubled, vector{2.0f, 1.0f, 0.0f}, 3);
  EXPECT_EQ(got.numbers, (std::vector<float>{0, 1, 2}));
  EXPECT_NEAR(got.weights[0], 2.0f, 1e-5f);
  EXPECT_NEAR(got.weights[1], 1.0f, 1e-5f);
  EXPECT_EQ(got.weights[2], 0.0f);

  // A zero pixel: weights 0, elements in their order; a pixel that is not a
  // number: weights that are not numbers, still real element numbers.
  got = mix(axes, vector{0.0f, 0.0f, 0.0f}, 2);
  EXPECT_EQ(got.numbers, (std::vector<float>{0, 1}));
  EXPECT_EQ(got.weights, (std::vector<float>{0, 0}));
  got = mix(axes, vector{std::numeric_limits<float>::quiet_NaN(), 1.0f, 2.0f}, 3);
  EXPECT_TRUE(std::isnan(got.weights[0]) || std::isnan(got.weights[2]));
  for (const float number : got.numbers) {
    EXPECT_TRUE(number >= 0.0f && number <= 2.0f);
  }
}

TEST(material_abundances_test, generate_elements_fills_both_cubes) {
  // Every pair of elements at the same angle: a pixel's ranking by
  // association is then its ranking by weight.
  matrix elements(4, 3, arma::fill::value(0.3f));
  elements.diag() += 1.0f;
  elements = arma::normalise(elements);
  // 45 x 3 pixels (three progress blocks), each a known mix of two elements.
  const arma::uword rows = 45, cols = 3;
  cube s(rows, cols, 4);
  for (arma::uword c = 0; c < cols; ++c) {
    for (arma::uword r = 0; r < rows; ++r) {
      const float strong = 1.0f + static_cast<float>(r) * 0.1f, weak = 0.25f;
      s.tube(r, c) = strong * elements.col(c) + weak * elements.col((c + 1) % 3);
    }
  }
  cube weights, numbers;
  generate_elements(elements, s, 2, 3, weights, numbers);
  ASSERT_EQ(arma::size(weights), arma::size(rows, cols, 2));
  ASSERT_EQ(arma::size(numbers), arma::size(rows, cols, 2));
  for (arma::uword c = 0; c < cols; ++c) {
    for (arma::uword r = 0; r < rows; ++r) {
      EXPECT_NEAR(weights(r, c, 0), 1.0f + static_cast<float>(r) * 0.1f, 1e-4f);
      EXPECT_NEAR(weights(r, c, 1), 0.25f, 1e-4f);
      EXPECT_EQ(numbers(r, c, 0), static_cast<float>(c));
      EXPECT_EQ(numbers(r, c, 1), static_cast<float>((c + 1) % 3));
    }
  }
  EXPECT_EQ(logger::instance().progress(), 100);
  const auto entries = logger::instance().entries();
  ASSERT_GE(entries.size(), 5u);
  EXPECT_EQ(entries.front().second, "Beginning to calculate Material Abundances..");
  EXPECT_EQ(entries.back().second, "Finished calculating Material Abundances.");
  EXPECT_EQ(entries[entries.size() - 2].second, "100% complete");

  // Refusals leave the outputs untouched.
  const cube before = weights;
  EXPECT_EQ(thrown_text([&] { generate_elements(elements, cube(), 2, 0, weights, numbers); }),
            "Generate Elements: Data size is incorrect.");
  EXPECT_EQ(thrown_text([&] {
              generate_elements(elements, cube(2, 2, 5, arma::fill::ones), 2, 0, weights, numbers);
            }),
            "Generate Elements: Non-compatible arrays");
  EXPECT_EQ(thrown_text([&] { generate_elements(matrix(4, 0), s, 2, 0, weights, numbers); }),
            "Generate Elements: No elements to mix.");
  EXPECT_EQ(thrown_text([&] { generate_elements(elements, s, 0, 0, weights, numbers); }),
            "Generate Elements: Materials per pixel must be at least 1, not 0.");
  logger::instance().request_abort();
  EXPECT_EQ(thrown_text([&] { generate_elements(elements, s, 1, 0, weights, numbers); }),
            "Processing was aborted!");
  EXPECT_TRUE(arma::approx_equal(weights, before, "absdiff", 0.0f));
  EXPECT_FALSE(logger::instance().abort_requested());
}

}  // namespace
}  // namespace corv
