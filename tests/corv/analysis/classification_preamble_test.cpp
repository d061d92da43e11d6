#include "corv/analysis/classification_preamble.h"

#include <gtest/gtest.h>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::linear_wavelengths;
using test::thrown_text;

TEST(classification_preamble_test, result_count_rule) {
  EXPECT_EQ(result_count(0, 3), 3u);
  EXPECT_EQ(result_count(4, 3), 3u);
  EXPECT_EQ(result_count(-2, 12), 5u);
  EXPECT_EQ(result_count(13, 12), 5u);
  EXPECT_EQ(result_count(12, 12), 12u);
  EXPECT_EQ(result_count(2, 12), 2u);
  EXPECT_EQ(result_count(1, 1), 1u);
}

TEST(classification_preamble_test, refusals_in_order_of_the_checks) {
  const cube image(2, 2, 3, arma::fill::randu);
  const auto text = [](const cube& I, const vector& w, const matrix& s, const vector& sw) {
    return thrown_text([&] { prepare_classification("svm", I, w, s, sw); });
  };
  // An empty image is refused before anything else is looked at.
  EXPECT_EQ(text(cube(2, 0, 3), vector(), matrix(), vector()), "svm: Data size is incorrect.");
  EXPECT_EQ(text(cube(2, 2, 0), vector(), matrix(), vector()), "svm: Data size is incorrect.");
  EXPECT_EQ(text(image, vector(), matrix(), vector()), "svm: Spectra are required");
  EXPECT_EQ(text(image, vector(), matrix(1, 3), vector()),
            "svm: Wavelengths must have same bands as I");
  EXPECT_EQ(text(image, linear_wavelengths(3), matrix(1, 2), vector()),
            "svm: Data size is incorrect: spectra waves must be given for resize.");
  // Spectra waves that disagree with the spectra reach the resampling.
  const matrix ones(1, 2, arma::fill::ones);
  EXPECT_EQ(text(image, linear_wavelengths(3), ones, vector{1, 2, 3}),
            "resample_endmembers: Incorrect dimensions.");
  EXPECT_EQ(text(image, linear_wavelengths(3), ones, vector{400, 405}),
            "unmix_by_spectra: No matching image bands between image and library.");
  // Two bands in common, but the spectra have waves the image lacks...
  EXPECT_EQ(text(image, linear_wavelengths(3), matrix(1, 4, arma::fill::ones),
                 vector{400, 410, 415, 417}),
            "svm: For some reason, could not align data.");
  // ... or the same waves in another order.
  EXPECT_EQ(text(image, linear_wavelengths(3), ones, vector{410, 400}),
            "svm: For some reason, could not align data.");
  EXPECT_EQ(text(image, linear_wavelengths(3), ones, vector{400, 410}), "");
}

TEST(classification_preamble_test, band_alignment_and_resampling) {
  arma::arma_rng::set_seed(4);
  const cube image = arma::randu<cube>(3, 2, 5);
  const vector waves = linear_wavelengths(5);  // 400 ... 440
  const matrix spectra = arma::randu<matrix>(2, 3);

  // No spectra waves: the caller's image and spectra as they are.
  const matrix full = arma::randu<matrix>(2, 5);
  const classification_inputs same = prepare_classification("sam", image, waves, full, vector());
  EXPECT_EQ(&same.image(), &image);
  EXPECT_TRUE(arma::approx_equal(same.references(), full, "absdiff", 0.0f));

  logger::instance().clear_entries();
  const classification_inputs kept =
      prepare_classification("sam", image, waves, spectra, vector{400, 420, 440});
  ASSERT_EQ(arma::size(kept.image()), arma::size(3, 2, 3));
  EXPECT_TRUE(arma::approx_equal(kept.image().slice(0), image.slice(0), "absdiff", 0.0f));
  EXPECT_TRUE(arma::approx_equal(kept.image().slice(1), image.slice(2), "absdiff", 0.0f));
  EXPECT_TRUE(arma::approx_equal(kept.image().slice(2), image.slice(4), "absdiff", 0.0f));
  // Resampled onto the waves they were given at: unchanged.
  EXPECT_TRUE(arma::approx_equal(kept.references(), spectra, "absdiff", 1e-6f));
  const auto entries = logger::instance().entries();
  ASSERT_FALSE(entries.empty());
  EXPECT_EQ(entries.back().second, "Data matches after band removal.");

  // As many waves as bands: no band is left out, the spectra are resampled.
  matrix line(1, 5);
  const vector other_waves = {395, 405, 415, 425, 450};
  for (arma::uword i = 0; i < 5; ++i) {
    line(0, i) = 2.0f * other_waves(i) - 700.0f;
  }
  const classification_inputs resampled =
      prepare_classification("sam", image, waves, line, other_waves);
  EXPECT_EQ(&resampled.image(), &image);
  EXPECT_TRUE(arma::approx_equal(resampled.references(), matrix(2.0f * waves.t() - 700.0f),
                                 "absdiff", 1e-3f))
      << resampled.references();
}

}  // namespace
}  // namespace corv
