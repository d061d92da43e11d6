#include "corv/analysis/sam.h"

#include "corv/analysis/reference_ranking.h"

namespace corv {

void sam(const image_view& I, const vector& wavelengths, const matrix& spectra,
         const vector& spectra_waves, cube& values, cube& indexes, int k) {
  const reference_ranking ranking(reference_ranking::result::angles, I.rows, I.cols, I.bands,
                                  wavelengths, spectra, spectra_waves, k);
  ranking.rank(I, values, indexes);
}

void sam(const cube& I, const vector& wavelengths, const matrix& spectra,
         const vector& spectra_waves, cube& values, cube& indexes, int k) {
  sam(image_view::of(I), wavelengths, spectra, spectra_waves, values, indexes, k);
}

}  // namespace corv
