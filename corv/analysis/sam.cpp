#include "corv/analysis/sam.h"

#include <vector>

#include "corv/analysis/classification_preamble.h"
#include "corv/analysis/row_blocks.h"
#include "corv/analysis/spectral_angle.h"
#include "corv/io/logger.h"

namespace corv {

void sam(const cube& I, const vector& wavelengths, const matrix& spectra,
         const vector& spectra_waves, cube& values, cube& indexes, int k) {
  const classification_inputs inputs =
      prepare_classification("sam", I, wavelengths, spectra, spectra_waves);
  const arma::uword n = spectra.n_rows;
  const arma::uword results = result_count(k, n);
  logger::instance() << "Performing SAM! "
                     << "EOL";

  const cube& image = inputs.image();
  const reference_angles angles(inputs.references());
  constexpr arma::uword tile = tile_products::tile;
  const arma::uword rows = image.n_rows, cols = image.n_cols, plane = rows * cols;
  cube best_angles(rows, cols, results, arma::fill::none);
  cube best_numbers(rows, cols, results, arma::fill::none);

  for_each_row_block(rows, tile, [&](arma::uword first, arma::uword end) {
    std::vector<double> cosines(n * tile), lengths(tile), pixel(n);
    std::vector<arma::uword> order(n);
    for (arma::uword c = 0; c < cols; ++c) {
      angles.cosines(tile_at(image, first, end, c), cosines.data(), lengths.data());
      for (arma::uword p = 0; p < end - first; ++p) {
        for (arma::uword j = 0; j < n; ++j) {
          pixel[j] = cosines[j * tile + p];
        }
        rank_by_cosine(pixel.data(), n, results, order.data());
        const arma::uword at = first + p + c * rows;
        for (arma::uword i = 0; i < results; ++i) {
          best_angles[at + i * plane] = angle_degrees(pixel[order[i]]);
          best_numbers[at + i * plane] = static_cast<float>(order[i] + 1);
        }
      }
    }
  });
  values = std::move(best_angles);
  indexes = std::move(best_numbers);
}

}  // namespace corv
