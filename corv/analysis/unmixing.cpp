#include "corv/analysis/unmixing.h"

#include <algorithm>
#include <vector>

#include "corv/analysis/classification_preamble.h"
#include "corv/analysis/nnls.h"
#include "corv/analysis/row_blocks.h"
#include "corv/analysis/spectral_angle.h"
#include "corv/io/logger.h"

namespace corv {

void unmix_by_spectra(const cube& I, const vector& wavelengths, const matrix& spectra,
                      const vector& spectra_waves, cube& fractions, cube& indexes, int k) {
  const classification_inputs inputs =
      prepare_classification("unmix_by_spectra", I, wavelengths, spectra, spectra_waves);
  const arma::uword n = spectra.n_rows;
  const arma::uword results = result_count(k, n);
  logger::instance() << "Performing Unmixing! "
                     << "EOL";

  const cube& image = inputs.image();
  const reference_angles angles(inputs.references());
  // The normal equations of every pixel draw on one Gram matrix of all the
  // references; a pixel only picks its k x k part.
  const arma::mat references = arma::conv_to<arma::mat>::from(inputs.references());
  const arma::mat gram = references * references.t();
  const double* gram_of = gram.memptr();
  const arma::vec& reference_lengths = angles.lengths();

  constexpr arma::uword tile = tile_products::tile;
  const arma::uword rows = image.n_rows, cols = image.n_cols, plane = rows * cols;
  cube best_fractions(rows, cols, results, arma::fill::none);
  cube best_numbers(rows, cols, results, arma::fill::none);

  for_each_row_block(rows, tile, [&](arma::uword first, arma::uword end) {
    std::vector<double> cosines(n * tile), lengths(tile), pixel(n);
    std::vector<arma::uword> order(n);
    std::vector<double> chosen_gram(results * results), correlation(results), weights(results);
    nnls_solver solver(results);
    for (arma::uword c = 0; c < cols; ++c) {
      angles.cosines(tile_at(image, first, end, c), cosines.data(), lengths.data());
      for (arma::uword p = 0; p < end - first; ++p) {
        for (arma::uword j = 0; j < n; ++j) {
          pixel[j] = cosines[j * tile + p];
        }
        rank_by_cosine(pixel.data(), n, results, order.data());
        for (arma::uword i = 0; i < results; ++i) {
          const arma::uword ri = order[i];
          // reference . pixel = cosine x both lengths
          correlation[i] = pixel[ri] * lengths[p] * reference_lengths(ri);
          for (arma::uword j = 0; j < results; ++j) {
            chosen_gram[i + j * results] = gram_of[ri + order[j] * n];
          }
        }
        solver.solve(chosen_gram.data(), results, correlation.data(), results,
                     lengths[p] * lengths[p], weights.data());
        double sum = 0.0;
        for (arma::uword i = 0; i < results; ++i) {
          sum += weights[i];
        }
        const arma::uword at = first + p + c * rows;
        for (arma::uword i = 0; i < results; ++i) {
          best_fractions[at + i * plane] = static_cast<float>(weights[i] / sum);
          best_numbers[at + i * plane] = static_cast<float>(order[i] + 1);
        }
      }
    }
  });
  fractions = std::move(best_fractions);
  indexes = std::move(best_numbers);
}

}  // namespace corv
