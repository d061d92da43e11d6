#include "corv/analysis/svm.h"

#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/ml.hpp>
#include <vector>

#include "corv/analysis/classification_preamble.h"
#include "corv/analysis/row_blocks.h"
#include "corv/analysis/tile_products.h"
#include "corv/io/logger.h"

namespace corv {

namespace {

// A trained machine as a set of linear decision functions: for the pair of
// classes (a, b), a < b, in OpenCV's order, f(x) = w . x - rho votes for a when
// positive and for b otherwise.
struct linear_machine {
  std::vector<int> classes;  // ascending, as OpenCV orders them
  arma::mat directions;      // bands x pairs: the w of every decision function
  arma::vec offsets;         // the rho of every decision function
};

linear_machine train(const matrix& references, const vector& labels) {
  const int n = static_cast<int>(references.n_rows);
  const int bands = static_cast<int>(references.n_cols);
  cv::Mat samples(n, bands, CV_32F);
  cv::Mat responses(n, 1, CV_32S);
  for (int i = 0; i < n; ++i) {
    for (int b = 0; b < bands; ++b) {
      samples.at<float>(i, b) = references(i, b);
    }
    responses.at<int>(i) = static_cast<int>(labels(i));
  }
  linear_machine machine;
  try {
    const cv::Ptr<cv::ml::SVM> model = cv::ml::SVM::create();
    model->setType(cv::ml::SVM::C_SVC);
    model->setKernel(cv::ml::SVM::LINEAR);
    model->setTermCriteria(cv::TermCriteria(cv::TermCriteria::MAX_ITER, 100, 1e-6));
    model->train(samples, cv::ml::ROW_SAMPLE, responses);

    const arma::ivec classes = arma::unique(arma::conv_to<arma::ivec>::from(labels));
    machine.classes.assign(classes.begin(), classes.end());
    const arma::uword count = classes.n_elem;
    const arma::uword pairs = count * (count - 1) / 2;
    const cv::Mat support = model->getSupportVectors();
    machine.directions.zeros(bands, pairs);
    machine.offsets.zeros(pairs);
    for (arma::uword d = 0; d < pairs; ++d) {
      cv::Mat alpha, index;
      machine.offsets(d) = model->getDecisionFunction(static_cast<int>(d), alpha, index);
      for (int s = 0; s < static_cast<int>(index.total()); ++s) {
        const float* vector_of = support.ptr<float>(index.at<int>(s));
        for (int b = 0; b < bands; ++b) {
          machine.directions(b, d) += alpha.at<double>(s) * vector_of[b];
        }
      }
    }
  } catch (const cv::Exception& error) {
    log_and_throw("svm: OpenCV failed: " + error.err);
  }
  return machine;
}

}  // namespace

bool usable_labels(const vector& labels, arma::uword spectra) {
  if (labels.n_elem != spectra) {
    return false;
  }
  for (const float label : labels) {
    if (!std::isfinite(label) || label < 1.0f || label != std::floor(label) ||
        label > static_cast<float>(spectra)) {
      return false;
    }
  }
  return true;
}

void svm(const cube& I, const vector& wavelengths, const matrix& spectra,
         const vector& spectra_waves, vector& labels, matrix& label_matrix) {
  const classification_inputs inputs =
      prepare_classification("svm", I, wavelengths, spectra, spectra_waves);
  logger& log = logger::instance();
  log << "Performing SVM! "
      << "EOL";
  const arma::uword n = spectra.n_rows;
  vector used = labels;
  if (!usable_labels(labels, n)) {
    log << "SVM: Labels not given or incorrect length or out of range, creating new labels."
        << "EOL";
    used = arma::regspace<vector>(1, static_cast<float>(n));
  }
  const linear_machine machine = train(inputs.references(), used);

  // Every w is a combination of the n references: with more decision
  // functions than the references span, a pixel is reduced to its coordinates
  // in an orthonormal basis of their span first, and each f is read from those.
  // (The basis comes from the references themselves, not from the w, whose
  // rounding would make them look independent.)
  const arma::uword pairs = machine.offsets.n_elem;
  arma::mat basis = machine.directions;
  arma::mat combination = arma::eye(pairs, pairs);
  if (pairs > 0) {
    const arma::mat span = arma::orth(arma::conv_to<arma::mat>::from(inputs.references()).t());
    if (span.n_cols < pairs) {
      basis = span;
      combination = machine.directions.t() * span;
    }
  }
  const tile_products products(basis);
  const arma::uword dimensions = basis.n_cols;
  // Row d of the combination, contiguous: the weights of decision function d.
  const arma::mat weights = combination.t();

  const cube& image = inputs.image();
  constexpr arma::uword tile = tile_products::tile;
  const arma::uword rows = image.n_rows, cols = image.n_cols;
  matrix predicted(rows, cols, arma::fill::none);
  const arma::uword classes = machine.classes.size();

  for_each_row_block(rows, tile, [&](arma::uword first, arma::uword end) {
    std::vector<double> coordinates(dimensions * tile), decisions(pairs * tile);
    std::vector<int> votes(classes * tile);  // class a's votes for pixel p at a * tile + p
    for (arma::uword c = 0; c < cols; ++c) {
      products.compute(tile_at(image, first, end, c), coordinates.data(), nullptr);
      tile_weighted_sums(coordinates.data(), dimensions, weights.memptr(), pairs, decisions.data());
      // The votes of a whole tile at once, without a branch per vote.
      std::fill(votes.begin(), votes.end(), 0);
      arma::uword d = 0;
      for (arma::uword a = 0; a < classes; ++a) {
        for (arma::uword b = a + 1; b < classes; ++b, ++d) {
          const double offset = machine.offsets(d);
          const double* f = decisions.data() + d * tile;
          int* for_a = votes.data() + a * tile;
          int* for_b = votes.data() + b * tile;
          for (arma::uword p = 0; p < tile; ++p) {
            const int positive = f[p] - offset > 0 ? 1 : 0;
            for_a[p] += positive;
            for_b[p] += 1 - positive;
          }
        }
      }
      for (arma::uword p = 0; p < end - first; ++p) {
        arma::uword winner = 0;
        for (arma::uword a = 1; a < classes; ++a) {
          if (votes[a * tile + p] > votes[winner * tile + p]) {
            winner = a;
          }
        }
        predicted(first + p, c) = static_cast<float>(machine.classes[winner]);
      }
    }
  });
  labels = std::move(used);
  label_matrix = std::move(predicted);
}

}  // namespace corv
