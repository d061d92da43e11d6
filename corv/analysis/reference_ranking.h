#ifndef CORV_ANALYSIS_REFERENCE_RANKING_H
#define CORV_ANALYSIS_REFERENCE_RANKING_H

#include <string>

#include "corv/analysis/row_blocks.h"
#include "corv/io/image_view.h"
#include "corv/io/types.h"

namespace corv {

// What sam and unmix_by_spectra share, in two steps so that an image may come
// in parts (row blocks of a file larger than memory): the construction checks
// the inputs, aligns the bands and prepares the references once, as
// prepare_classification describes, and logs "Performing SAM! " or
// "Performing Unmixing! "; rank() then ranks the references for every pixel
// of an image, or of one block of its rows after another.
class reference_ranking {
 public:
  enum class result { angles, fractions };

  // The image's size and wavelengths; k as result_count makes it.
  reference_ranking(result kind, arma::uword rows, arma::uword cols, arma::uword bands,
                    const vector& wavelengths, const matrix& spectra, const vector& spectra_waves,
                    int k);
  ~reference_ranking();
  reference_ranking(const reference_ranking&) = delete;
  reference_ranking& operator=(const reference_ranking&) = delete;

  // The image bands that take part, in order; empty when all of them do.
  const band_list& bands() const { return bands_; }
  arma::uword results() const { return results_; }

  // Ranks the pixels of `image`, which holds every band of the image or only
  // bands(): values (angles in degrees, or fractions) and numbers (1-based
  // reference numbers) become rows x columns x results, best first. `share`
  // places these rows in the whole image for the progress shown. On failure
  // (an abort among them) values and numbers are unchanged.
  void rank(const image_view& image, cube& values, cube& numbers, row_share share = {}) const;

 private:
  struct prepared;
  result kind_;
  arma::uword image_bands_;
  band_list bands_;
  arma::uword results_;
  std::unique_ptr<const prepared> prepared_;
};

}  // namespace corv

#endif
