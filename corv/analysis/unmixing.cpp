#include "corv/analysis/unmixing.h"

#include "corv/analysis/reference_ranking.h"

namespace corv {

void unmix_by_spectra(const image_view& I, const vector& wavelengths, const matrix& spectra,
                      const vector& spectra_waves, cube& fractions, cube& indexes, int k) {
  const reference_ranking ranking(reference_ranking::result::fractions, I.rows, I.cols, I.bands,
                                  wavelengths, spectra, spectra_waves, k);
  ranking.rank(I, fractions, indexes);
}

void unmix_by_spectra(const cube& I, const vector& wavelengths, const matrix& spectra,
                      const vector& spectra_waves, cube& fractions, cube& indexes, int k) {
  unmix_by_spectra(image_view::of(I), wavelengths, spectra, spectra_waves, fractions, indexes, k);
}

}  // namespace corv
