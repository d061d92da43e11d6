#include "corv/analysis/sam.h"

#include <gtest/gtest.h>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::linear_wavelengths;
using test::logged;
using test::thrown_text;

TEST(sam_test, a_dark_pixel_has_nan_angles_and_the_references_in_order) {
  cube image(2, 1, 3, arma::fill::zeros);
  image.tube(1, 0) = vector{0, 1, 0};
  const matrix references = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  cube values, indexes;
  sam(image, linear_wavelengths(3), references, vector(), values, indexes, 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(std::isnan(values(0, 0, i)));
    EXPECT_EQ(indexes(0, 0, i), float(i + 1));
  }
  EXPECT_EQ(indexes(1, 0, 0), 2.0f);
}

TEST(sam_test, refusals_name_the_routine_are_logged_and_leave_the_outputs) {
  const cube image(3, 2, 4, arma::fill::randu);
  const vector waves = linear_wavelengths(4);
  const matrix references(2, 4, arma::fill::randu);
  cube values(1, 1, 1, arma::fill::value(7.0f)), indexes = values;
  const auto refusal = [&](const cube& I, const vector& w, const matrix& s, const vector& sw) {
    logger::instance().clear_entries();
    const std::string text = thrown_text([&] { sam(I, w, s, sw, values, indexes, 2); });
    EXPECT_TRUE(logged(text)) << text;
    return text;
  };
  // Every refusal of the shared checks is tested with them; here that they carry
  // this routine's name.
  EXPECT_EQ(refusal(cube(0, 2, 4), waves, references, vector()), "sam: Data size is incorrect.");
  EXPECT_EQ(refusal(image, waves, matrix(2, 3, arma::fill::ones), vector{410, 420, 425}),
            "sam: For some reason, could not align data.");
  EXPECT_EQ(values(0, 0, 0), 7.0f);
  EXPECT_EQ(arma::size(indexes), arma::size(1, 1, 1));

  logger::instance().request_abort();
  EXPECT_EQ(thrown_text([&] { sam(image, waves, references, vector(), values, indexes, 2); }),
            "Processing was aborted!");
  EXPECT_EQ(values(0, 0, 0), 7.0f);
  EXPECT_FALSE(logger::instance().abort_requested());
}

TEST(sam_test, bands_the_references_lack_are_left_out) {
  arma::arma_rng::set_seed(8);
  const cube image = arma::randu<cube>(5, 4, 6);
  const vector waves = linear_wavelengths(6);  // 400 ... 450
  const matrix references = arma::randu<matrix>(3, 3);
  logger::instance().clear_entries();
  cube values, indexes;
  sam(image, waves, references, vector{410, 430, 440}, values, indexes, 3);
  EXPECT_TRUE(logged("Data matches after band removal."));

  const cube kept =
      arma::join_slices(arma::join_slices(image.slice(1), image.slice(3)), image.slice(4));
  cube expected_values, expected_indexes;
  sam(kept, vector{410, 430, 440}, references, vector(), expected_values, expected_indexes, 3);
  EXPECT_TRUE(arma::approx_equal(values, expected_values, "absdiff", 1e-3f));
  EXPECT_TRUE(arma::approx_equal(indexes, expected_indexes, "absdiff", 0.0f));
}

TEST(sam_test, references_at_other_wavelengths_are_resampled) {
  // A pixel that is a straight line over 400-450 nm matches the reference that
  // is the same line sampled at other wavelengths, rather than a flat one.
  cube image(1, 1, 6);
  for (arma::uword b = 0; b < 6; ++b) {
    image(0, 0, b) = 1.0f + 0.1f * b;
  }
  // As many waves as the image has bands, so no band is left out.
  const vector reference_waves = {380, 397, 415, 437, 452, 470};
  matrix references(2, 6);
  for (arma::uword i = 0; i < 6; ++i) {
    references(0, i) = 1.0f;
    references(1, i) = 1.0f + 0.01f * (reference_waves(i) - 400.0f);
  }
  cube values, indexes;
  sam(image, linear_wavelengths(6), references, reference_waves, values, indexes, 2);
  EXPECT_EQ(indexes(0, 0, 0), 2.0f);
  EXPECT_NEAR(values(0, 0, 0), 0.0f, 1e-3f);
}

}  // namespace
}  // namespace corv
