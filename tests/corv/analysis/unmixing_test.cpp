#include "corv/analysis/unmixing.h"

#include <gtest/gtest.h>

#include <cmath>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::linear_wavelengths;
using test::thrown_text;

TEST(unmixing_test, mixtures_worked_by_hand) {
  const matrix references = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  cube image(1, 3, 3);
  image.tube(0, 0) = vector{0.2f, 0.6f, 0.0f};  // best two: 2 (0.6), then 1 (0.2)
  image.tube(0, 1) = vector{3.0f, 0.0f, 0.0f};
  image.tube(0, 2) = vector{0.0f, 0.0f, 0.0f};
  logger::instance().clear_entries();
  cube fractions, indexes;
  unmix_by_spectra(image, linear_wavelengths(3), references, vector(), fractions, indexes, 2);
  const auto entries = logger::instance().entries();
  ASSERT_FALSE(entries.empty());
  EXPECT_EQ(entries.back().second, "Performing Unmixing! ");
  ASSERT_EQ(arma::size(fractions), arma::size(1, 3, 2));
  EXPECT_NEAR(fractions(0, 0, 0), 0.75f, 1e-6f);
  EXPECT_NEAR(fractions(0, 0, 1), 0.25f, 1e-6f);
  EXPECT_EQ(indexes(0, 0, 0), 2.0f);
  EXPECT_EQ(indexes(0, 0, 1), 1.0f);
  EXPECT_NEAR(fractions(0, 1, 0), 1.0f, 1e-6f);
  EXPECT_EQ(fractions(0, 1, 1), 0.0f);
  EXPECT_EQ(indexes(0, 1, 0), 1.0f);
  // Nothing explains a pixel of zeros: 0 / 0.
  EXPECT_TRUE(std::isnan(fractions(0, 2, 0)));
  EXPECT_TRUE(std::isnan(fractions(0, 2, 1)));
}

TEST(unmixing_test, refusals_name_the_routine) {
  const cube image(3, 2, 4, arma::fill::randu);
  cube fractions(1, 1, 1, arma::fill::value(5.0f)), indexes;
  EXPECT_EQ(thrown_text([&] {
              unmix_by_spectra(image, linear_wavelengths(4), matrix(0, 4), vector(), fractions,
                               indexes, 2);
            }),
            "unmix_by_spectra: Spectra are required");
  EXPECT_EQ(thrown_text([&] {
              unmix_by_spectra(image, linear_wavelengths(4), matrix(2, 3, arma::fill::ones),
                               vector{410, 420, 425}, fractions, indexes, 2);
            }),
            "unmix_by_spectra: For some reason, could not align data.");
  EXPECT_EQ(thrown_text([&] {
              unmix_by_spectra(image, linear_wavelengths(4), matrix(2, 3, arma::fill::ones),
                               vector{410, 415, 425}, fractions, indexes, 2);
            }),
            "unmix_by_spectra: No matching image bands between image and library.");
  EXPECT_EQ(fractions(0, 0, 0), 5.0f);
  EXPECT_TRUE(indexes.empty());
}

}  // namespace
}  // namespace corv
