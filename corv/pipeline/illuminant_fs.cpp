// Finlayson and Schaefer: every patch of one material spans a plane that holds
// the illuminant, so the illuminant is the direction closest to all the planes,
// the eigenvector of the summed projectors onto their complements that belongs
// to their intersection.
#include <cmath>

#include "corv/io/logger.h"
#include "corv/pipeline/illuminant.h"
#include "corv/pipeline/illuminant_patches.h"
#include "corv/pipeline/patch_decomposition.h"

namespace corv {

vector recover_illuminant_FS(const cube& I, arma::imat& patches, int patch_size, bool wiener_marker,
                             int verbosity) {
  check_illuminant_image(I, "recover_illuminant_FS", verbosity);
  if (patch_size < 1) {
    patch_size = 20;
  }
  const illuminant_patches chosen =
      prepare_illuminant_patches(I, patches, patch_size, wiener_marker, verbosity);
  logger& log = logger::instance();
  const arma::uword bands = I.n_slices;
  const std::size_t count = chosen.cubes.size();

  arma::mat sum(bands, bands, arma::fill::zeros);
  const arma::mat identity(bands, bands, arma::fill::eye);
  for (std::size_t i = 0; i < count; ++i) {
    log.check_abort();
    const int percent = static_cast<int>(100.0 * static_cast<double>(i) / count);
    if (verbosity > 2) {
      log << percent << "% complete"
          << "EOL";
    }
    log.set_progress(percent);
    const arma::mat basis = find_patch_plane(chosen.cubes[i]).basis;
    sum += identity - basis * basis.t();
  }
  log.set_progress(100);

  arma::cx_vec values;
  arma::cx_mat vectors;
  if (!arma::eig_gen(values, vectors, sum)) {
    log_and_throw("Illuminate Recovery: No suitable illumination found.");
  }
  const arma::mat real_vectors = arma::real(vectors);
  arma::vec found(bands, arma::fill::zeros);
  for (arma::uword j = 0; j < real_vectors.n_cols; ++j) {
    const arma::vec candidate = real_vectors.col(j);
    if (std::abs(arma::accu(arma::sign(candidate))) == static_cast<double>(bands)) {
      found = candidate;
      break;
    }
  }
  // The sign of an eigenvector is the decomposition's: one that comes out
  // negative is refused, never turned round.
  if (!(arma::accu(found) > 0.0)) {
    log_and_throw("Illuminate Recovery: No suitable illumination found.");
  }
  if (chosen.selected) {
    patches = chosen.bounds;
  }
  return unit_illuminant(found);
}

}  // namespace corv
