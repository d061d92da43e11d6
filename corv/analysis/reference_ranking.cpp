#include "corv/analysis/reference_ranking.h"

#include <vector>

#include "corv/analysis/classification_preamble.h"
#include "corv/analysis/nnls.h"
#include "corv/analysis/spectral_angle.h"
#include "corv/io/huge_pages.h"
#include "corv/io/logger.h"

namespace corv {

struct reference_ranking::prepared {
  explicit prepared(const matrix& references)
      : angles(references), gram([&] {
          const arma::mat r = arma::conv_to<arma::mat>::from(references);
          return arma::mat(r * r.t());
        }()) {}

  reference_angles angles;
  // The normal equations of every pixel draw on one Gram matrix of all the
  // references; a pixel only picks its k x k part.
  arma::mat gram;
};

namespace {

constexpr arma::uword tile = tile_products::tile;

// Writes the angles of a pixel's k best references. A pixel's cosine with
// reference j is cosines[j * tile], its ranking order[i * tile].
class angle_values {
 public:
  explicit angle_values(arma::uword) {}
  void operator()(const double* cosines, double, const arma::uword* order, arma::uword k,
                  float* values, arma::uword plane) {
    for (arma::uword i = 0; i < k; ++i) {
      values[i * plane] = angle_degrees(cosines[order[i * tile] * tile]);
    }
  }
};

// Writes the fractions of a pixel as a non-negative mixture of its k best
// references, by nnls on their part of the Gram matrix.
class mixture_fractions {
 public:
  mixture_fractions(arma::uword k, const arma::mat& gram, const arma::vec& reference_lengths)
      : gram_(gram),
        lengths_(reference_lengths),
        chosen_gram_(k * k),
        correlation_(k),
        weights_(k),
        solver_(k) {}
  void operator()(const double* cosines, double length, const arma::uword* order, arma::uword k,
                  float* values, arma::uword plane) {
    const arma::uword n = gram_.n_rows;
    for (arma::uword i = 0; i < k; ++i) {
      const arma::uword ri = order[i * tile];
      // reference . pixel = cosine x both lengths
      correlation_[i] = cosines[ri * tile] * length * lengths_(ri);
      for (arma::uword j = 0; j < k; ++j) {
        chosen_gram_[i + j * k] = gram_.memptr()[ri + order[j * tile] * n];
      }
    }
    solver_.solve(chosen_gram_.data(), k, correlation_.data(), k, length * length, weights_.data());
    double sum = 0.0;
    for (arma::uword i = 0; i < k; ++i) {
      sum += weights_[i];
    }
    for (arma::uword i = 0; i < k; ++i) {
      values[i * plane] = static_cast<float>(weights_[i] / sum);
    }
  }

 private:
  const arma::mat& gram_;
  const arma::vec& lengths_;
  std::vector<double> chosen_gram_, correlation_, weights_;
  nnls_solver solver_;
};

// The driver over the image: the cosines of a tile of pixels with every
// reference at once, the ranking of all its pixels at once, then each pixel's
// values. Tiles are 16 rows of a column in either layout, so that each
// thread writes whole cache lines of the results.
template <typename Pixel>
void rank_tiles(const image_view& image, const reference_angles& angles, arma::uword k,
                cube& values, cube& numbers, row_share share, const Pixel& make_pixel) {
  const arma::uword n = angles.references();
  const arma::uword rows = image.rows, cols = image.cols, plane = rows * cols;
  cube best_values(rows, cols, k, arma::fill::none);
  cube best_numbers(rows, cols, k, arma::fill::none);
  // Untouched yet: huge pages spare most of the page faults of filling them.
  advise_huge_pages(best_values.memptr(), best_values.n_elem * sizeof(float));
  advise_huge_pages(best_numbers.memptr(), best_numbers.n_elem * sizeof(float));
  float* out_values = best_values.memptr();
  float* out_numbers = best_numbers.memptr();

  // Band planes go four tiles down a column at a time, so that each band's
  // values of them lie together.
  const arma::uword block_rows = image.interleaved ? tile : 4 * tile;
  for_each_row_block(
      rows, block_rows,
      [&](arma::uword first_row, arma::uword end_row) {
        auto pixel_values = make_pixel();
        std::vector<double> cosines(n * tile), lengths(tile);
        std::vector<arma::uword> order(n * tile);
        for (arma::uword c = 0; c < cols; ++c) {
          for (arma::uword first = first_row; first < end_row; first += tile) {
            const pixel_tile pixels = tile_at(image, first, std::min(first + tile, end_row), c);
            angles.cosines(pixels, cosines.data(), lengths.data());
            rank_tile_by_cosine(cosines.data(), n, k, order.data());
            for (arma::uword p = 0; p < pixels.pixels; ++p) {
              const arma::uword at = first + p + c * rows;
              pixel_values(cosines.data() + p, lengths[p], order.data() + p, k, out_values + at,
                           plane);
              for (arma::uword i = 0; i < k; ++i) {
                out_numbers[at + i * plane] = static_cast<float>(order[i * tile + p] + 1);
              }
            }
          }
        }
      },
      share);
  values = std::move(best_values);
  numbers = std::move(best_numbers);
}

}  // namespace

reference_ranking::reference_ranking(result kind, arma::uword rows, arma::uword cols,
                                     arma::uword bands, const vector& wavelengths,
                                     const matrix& spectra, const vector& spectra_waves, int k)
    : kind_(kind), image_bands_(bands) {
  aligned_references aligned =
      align_references(kind == result::angles ? "sam" : "unmix_by_spectra", rows, cols, bands,
                       wavelengths, spectra, spectra_waves);
  bands_ = std::move(aligned.kept);
  results_ = result_count(k, spectra.n_rows);
  prepared_ = std::make_unique<const prepared>(aligned.references);
  logger::instance() << (kind == result::angles ? "Performing SAM! " : "Performing Unmixing! ")
                     << "EOL";
}

reference_ranking::~reference_ranking() = default;

void reference_ranking::rank(const image_view& image, cube& values, cube& numbers,
                             row_share share) const {
  // An image of every band loses the bands the references lack first.
  if (!bands_.empty() && image.bands == image_bands_ && image.bands != bands_.size()) {
    const cube reduced = image.copy(bands_);
    rank(image_view::of(reduced), values, numbers, share);
    return;
  }
  const reference_angles& angles = prepared_->angles;
  if (kind_ == result::angles) {
    rank_tiles(image, angles, results_, values, numbers, share,
               [&] { return angle_values(results_); });
  } else {
    rank_tiles(image, angles, results_, values, numbers, share,
               [&] { return mixture_fractions(results_, prepared_->gram, angles.lengths()); });
  }
}

}  // namespace corv
