#include "corv/analysis/unmixing.h"

#include <gtest/gtest.h>

#include <cmath>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::linear_wavelengths;
using test::thrown_text;

// The fractions are checked against scipy's NNLS pixel by pixel; here what
// scipy has no answer for, and the routine's name on the shared refusals.
TEST(unmixing_test, a_pixel_of_zeros_has_no_fractions) {
  const matrix references = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  cube image(1, 2, 3, arma::fill::zeros);
  image.tube(0, 1) = vector{3.0f, 0.0f, 0.0f};
  cube fractions, indexes;
  unmix_by_spectra(image, linear_wavelengths(3), references, vector(), fractions, indexes, 2);
  EXPECT_EQ(logger::instance().entries().back().second, "Performing Unmixing! ");
  EXPECT_TRUE(std::isnan(fractions(0, 0, 0)));  // 0 / 0
  EXPECT_TRUE(std::isnan(fractions(0, 0, 1)));
  EXPECT_NEAR(fractions(0, 1, 0), 1.0f, 1e-6f);
}

TEST(unmixing_test, refusals_name_the_routine) {
  const cube image(3, 2, 4, arma::fill::randu);
  cube fractions(1, 1, 1, arma::fill::value(5.0f)), indexes;
  EXPECT_EQ(thrown_text([&] {
              unmix_by_spectra(image, linear_wavelengths(4), matrix(2, 3, arma::fill::ones),
                               vector{410, 420, 425}, fractions, indexes, 2);
            }),
            "unmix_by_spectra: For some reason, could not align data.");
  EXPECT_EQ(fractions(0, 0, 0), 5.0f);
  EXPECT_TRUE(indexes.empty());
}

}  // namespace
}  // namespace corv
