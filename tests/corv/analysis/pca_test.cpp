#include "corv/analysis/pca.h"

#include <gtest/gtest.h>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::thrown_text;

std::vector<std::string> lines_after(std::size_t start) {
  std::vector<std::string> lines;
  const auto entries = logger::instance().entries();
  for (std::size_t i = start; i < entries.size(); ++i) {
    lines.push_back(entries[i].second);
  }
  return lines;
}

class pca_test : public ::testing::Test {
 protected:
  void SetUp() override {
    arma::arma_rng::set_seed(11);
    image = arma::randu<cube>(6, 5, 10);
  }
  cube image;
  cube components;
  vector strengths;
};

TEST_F(pca_test, the_passing_count_is_always_one_less_than_the_bands) {
  std::size_t start = logger::instance().entries().size();
  pca(image, components, strengths, 10, 0.0f);
  EXPECT_EQ(components.n_slices, 9u);
  EXPECT_EQ(lines_after(start),
            std::vector<std::string>{
                "pca: Warning - Less components passed the threshold than num_components, "
                "returning 9"});
  start = logger::instance().entries().size();
  pca(image, components, strengths, 20, 1000.0f);
  EXPECT_EQ(components.n_slices, 9u);
  EXPECT_EQ(lines_after(start),
            (std::vector<std::string>{
                "pca: Warning - num_components was clipped to 10",
                "pca: Warning - Less components passed the threshold than num_components, "
                "returning 9"}));
}

TEST_F(pca_test, refusals_and_a_flat_image) {
  EXPECT_EQ(thrown_text([&] { pca(cube(), components, strengths, 3, 0.1f); }),
            "pca: Data size is incorrect.");
  EXPECT_EQ(thrown_text([&] { pca(image, components, strengths, 3, -0.5f); }),
            "pca: Threshold must be greater than 0");
  pca(cube(4, 4, 5, arma::fill::value(2.0f)), components, strengths, 2, 0.0f);
  EXPECT_TRUE(components.is_zero());

  // An abort request stops the work and leaves the outputs as they were.
  components = cube(1, 1, 1, arma::fill::value(7.0f));
  logger::instance().request_abort();
  EXPECT_EQ(thrown_text([&] { pca(image, components, strengths, 3, 0.001f); }),
            "Processing was aborted!");
  EXPECT_EQ(components(0, 0, 0), 7.0f);
}

}  // namespace
}  // namespace corv
