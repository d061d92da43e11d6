#include "corv/pipeline/illuminant.h"

#include <cmath>

#include "corv/io/logger.h"
#include "corv/pipeline/illuminant_patches.h"

namespace corv {

void check_illuminant_image(const cube& I, const std::string& method, int verbosity) {
  check_illuminant_image(I.n_rows, I.n_cols, I.n_slices, method, verbosity);
}

void check_illuminant_image(arma::uword rows, arma::uword cols, arma::uword bands,
                            const std::string& method, int verbosity) {
  if (rows == 0 || cols == 0 || bands == 0) {
    log_and_throw("Illuminant Recovery: Data size is incorrect.");
  }
  if (bands < 2) {
    log_and_throw(
        "Illuminant Recovery: Image must have at least 2 bands for Illumination recovery.");
  }
  if (verbosity > 0) {
    logger& log = logger::instance();
    log << method << ": Image Information~"
        << "EOL";
    log << "Height: " << rows << "EOL";
    log << "Width:  " << cols << "EOL";
    log << "Bands:  " << bands << "EOL";
  }
}

vector unit_illuminant(const arma::vec& estimate) {
  const double length = arma::norm(estimate);
  if (!(length > 0.0) || !std::isfinite(length)) {
    log_and_throw("Illuminant Recovery: The estimate is zero or not finite in every band.");
  }
  return arma::conv_to<vector>::from(estimate / length);
}

vector recover_global_illuminant(const cube& I, arma::imat& patches, int method,
                                 const illuminant_parameters& settings, int verbosity) {
  // Verbosity runs from 0 to 5; anything else, negative values included, is silence.
  if (static_cast<unsigned>(verbosity) > 5u) {
    verbosity = 0;
  }
  switch (method) {
    case ILLUMINANT_ORBEK:
      return recover_illuminant_HRK(I, patches, settings.spatial_smoothness, settings.patch_size,
                                    settings.wiener_marker, settings.second_switch, verbosity);
    case ILLUMINANT_FS:
      return recover_illuminant_FS(I, patches, settings.patch_size, settings.wiener_marker,
                                   verbosity);
    case ILLUMINANT_GRAY_EDGE:
      return recover_illuminant_GE(I, settings.order, verbosity);
    case ILLUMINANT_GRAY_WORLD:
      return recover_illuminant_WP(I, verbosity);
    case ILLUMINANT_SHADE_OF_GRAY:
      return recover_illuminant_SG(I, settings.order, verbosity);
    case ILLUMINANT_WHITE_PATCH:
      return recover_illuminant_GW(I, verbosity);
    default:
      log_and_throw("recover_global_illuminant: Incorrect method.");
  }
}

}  // namespace corv
