#include "corv/analysis/svm.h"

#include <gtest/gtest.h>

#include <limits>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::linear_wavelengths;
using test::logged;
using test::thrown_text;

const char* const new_labels =
    "SVM: Labels not given or incorrect length or out of range, creating new labels.";

// Pixels scattered closely around the references: pixel (r, c) is a noisy,
// brighter or darker copy of reference (r + 2 c) % n.
cube noisy_copies(const matrix& references, arma::uword rows, arma::uword cols, float noise) {
  cube image(rows, cols, references.n_cols);
  for (arma::uword r = 0; r < rows; ++r) {
    for (arma::uword c = 0; c < cols; ++c) {
      const arma::uword j = (r + 2 * c) % references.n_rows;
      image.tube(r, c) = references.row(j).t() + noise * arma::randn<vector>(references.n_cols);
    }
  }
  return image;
}

TEST(svm_test, usable_labels) {
  EXPECT_TRUE(usable_labels({1, 2, 3}, 3));
  EXPECT_TRUE(usable_labels({3, 3, 1}, 3));
  EXPECT_FALSE(usable_labels({1, 2}, 3));
  EXPECT_FALSE(usable_labels({1, 2, 3, 4}, 3));
  EXPECT_FALSE(usable_labels({1, 2, 4}, 3));
  EXPECT_FALSE(usable_labels({0, 1, 2}, 3));
  EXPECT_FALSE(usable_labels({1, 1.5f, 2}, 3));
  EXPECT_FALSE(usable_labels({1, std::numeric_limits<float>::quiet_NaN(), 2}, 3));
  EXPECT_FALSE(usable_labels(vector(), 3));
}

TEST(svm_test, separable_references_label_their_neighbourhoods) {
  arma::arma_rng::set_seed(12);
  // Far enough apart for the soft margin (C = 1) to separate every pair.
  const matrix references = 5.0f * matrix{{1.0f, 0.2f, 0.1f, 0.1f, 0.0f},
                                          {0.1f, 1.0f, 0.3f, 0.0f, 0.1f},
                                          {0.0f, 0.1f, 0.2f, 1.0f, 0.9f},
                                          {0.5f, 0.5f, 0.5f, 0.5f, 0.5f}};
  const cube image = noisy_copies(references, 35, 6, 0.05f);
  const vector waves = linear_wavelengths(5);

  // Given labels are compared with scikit-learn by the Python tests; a vector of the
  // wrong length is replaced by 1 .. n.
  vector labels = {1, 2};
  logger::instance().clear_entries();
  matrix predicted;
  svm(image, waves, references, vector(), labels, predicted);
  EXPECT_TRUE(logged("Performing SVM! "));
  EXPECT_TRUE(logged(new_labels));
  EXPECT_TRUE(arma::approx_equal(labels, vector{1, 2, 3, 4}, "absdiff", 0.0f));
  for (arma::uword r = 0; r < 35; ++r) {
    for (arma::uword c = 0; c < 6; ++c) {
      ASSERT_EQ(predicted(r, c), float((r + 2 * c) % 4 + 1)) << r << ", " << c;
    }
  }
}

TEST(svm_test, many_classes_and_a_single_class) {
  // More decision functions (66) than bands (8): the projected prediction.
  arma::arma_rng::set_seed(6);
  matrix references = arma::randu<matrix>(12, 8);
  references.each_row() /= arma::sum(references, 0);
  references = 4.0f * references;
  const cube image = noisy_copies(references, 24, 3, 0.001f);
  vector labels;
  matrix predicted;
  svm(image, linear_wavelengths(8), references, vector(), labels, predicted);
  for (arma::uword r = 0; r < 24; ++r) {
    for (arma::uword c = 0; c < 3; ++c) {
      ASSERT_EQ(predicted(r, c), float((r + 2 * c) % 12 + 1)) << r << ", " << c;
    }
  }

  labels = {2, 2};
  svm(image, linear_wavelengths(8), references.rows(0, 1), vector(), labels, predicted);
  EXPECT_TRUE(arma::all(arma::vectorise(predicted) == 2.0f));
}

TEST(svm_test, refusals_name_the_routine_and_leave_the_outputs) {
  const cube image(3, 2, 4, arma::fill::randu);
  vector labels = {9, 9};
  matrix predicted(1, 1, arma::fill::value(4.0f));
  const auto text = [&](const vector& waves, const matrix& spectra, const vector& spectra_waves) {
    return thrown_text([&] { svm(image, waves, spectra, spectra_waves, labels, predicted); });
  };
  EXPECT_EQ(text(linear_wavelengths(4), matrix(0, 4), vector()), "svm: Spectra are required");
  logger::instance().request_abort();
  EXPECT_EQ(text(linear_wavelengths(4), matrix(2, 4, arma::fill::randu), vector()),
            "Processing was aborted!");
  EXPECT_TRUE(arma::approx_equal(labels, vector{9, 9}, "absdiff", 0.0f));
  EXPECT_EQ(predicted(0, 0), 4.0f);
}

}  // namespace
}  // namespace corv
