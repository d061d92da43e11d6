#include "corv/analysis/reference_ranking.h"

#include <gtest/gtest.h>

#include "corv/analysis/sam.h"
#include "corv/analysis/unmixing.h"
#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::linear_wavelengths;

// The image's bands as numpy's default order lays them out: pixel after
// pixel, line by line.
std::vector<float> interleaved(const cube& data) {
  std::vector<float> pixels;
  for (arma::uword r = 0; r < data.n_rows; ++r) {
    for (arma::uword c = 0; c < data.n_cols; ++c) {
      for (arma::uword b = 0; b < data.n_slices; ++b) {
        pixels.push_back(data(r, c, b));
      }
    }
  }
  return pixels;
}

// Ranking the image in blocks of rows, or read pixel after pixel, gives what
// sam and unmix_by_spectra give on the whole band-sequential image; the
// references lack two of the image's bands, which every way leaves out.
TEST(reference_ranking_test, blocks_and_layouts_rank_as_the_whole_image) {
  arma::arma_rng::set_seed(7);
  const cube image(40, 7, 6, arma::fill::randu);
  const vector waves = linear_wavelengths(6);
  const vector reference_waves = waves(arma::uvec{0, 2, 3, 5});
  const matrix references(4, 4, arma::fill::randu);
  for (const auto kind :
       {reference_ranking::result::angles, reference_ranking::result::fractions}) {
    cube whole_values, whole_numbers;
    if (kind == reference_ranking::result::angles) {
      sam(image, waves, references, reference_waves, whole_values, whole_numbers, 3);
    } else {
      unmix_by_spectra(image, waves, references, reference_waves, whole_values, whole_numbers, 3);
    }
    const reference_ranking ranking(kind, 40, 7, 6, waves, references, reference_waves, 3);
    ASSERT_EQ(ranking.bands(), (band_list{0, 2, 3, 5}));

    cube values(40, 7, 3), numbers(40, 7, 3);
    for (const auto& [first, last] : {std::pair{0, 22}, std::pair{23, 39}}) {
      cube block(last - first + 1, 7, 4), block_values, block_numbers;
      for (arma::uword i = 0; i < 4; ++i) {
        block.slice(i) = image.slice(ranking.bands()[i]).rows(first, last);
      }
      ranking.rank(image_view::of(block), block_values, block_numbers, {arma::uword(first), 40});
      values.rows(first, last) = block_values;
      numbers.rows(first, last) = block_numbers;
    }
    EXPECT_TRUE(arma::approx_equal(values, whole_values, "absdiff", 0.0f));
    EXPECT_TRUE(arma::approx_equal(numbers, whole_numbers, "absdiff", 0.0f));
    EXPECT_EQ(logger::instance().progress(), 100);

    const std::vector<float> pixels = interleaved(image);
    ranking.rank({pixels.data(), 40, 7, 6, true}, values, numbers);
    EXPECT_TRUE(arma::approx_equal(values, whole_values, "absdiff", 0.0f));
    EXPECT_TRUE(arma::approx_equal(numbers, whole_numbers, "absdiff", 0.0f));
  }
}

}  // namespace
}  // namespace corv
