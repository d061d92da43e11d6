#include "corv/pipeline/patch_decomposition.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>
#include <utility>

#include "corv/io/logger.h"

namespace corv {

namespace {

void check_patch_size(arma::uword rows, arma::uword cols, arma::uword bands) {
  if (rows == 0 || cols == 0 || bands == 0) {
    log_and_throw("Patch Decompose: Data size is incorrect.");
  }
}

// Sums over neighbouring pixels (along rows and along columns) of the products
// of the differences of two coefficient images laid out as patch columns.
double neighbour_products(const arma::vec& a, const arma::vec& b, arma::uword rows,
                          arma::uword cols) {
  double sum = 0.0;
  for (arma::uword c = 0; c < cols; ++c) {
    for (arma::uword r = 0; r < rows; ++r) {
      const arma::uword p = r + c * rows;
      if (r + 1 < rows) {
        sum += (a(p + 1) - a(p)) * (b(p + 1) - b(p));
      }
      if (c + 1 < cols) {
        sum += (a(p + rows) - a(p)) * (b(p + rows) - b(p));
      }
    }
  }
  return sum;
}

// The plane's basis (the strongest two directions first) and its strength.
std::pair<arma::mat, double> strongest_directions(const arma::mat& spectra) {
  // The left singular vectors of the spectra are the eigenvectors of their
  // bands x bands Gram matrix: a far smaller problem than the pixels' own.
  const arma::mat gram = spectra * spectra.t();
  arma::vec values;
  arma::mat vectors;
  if (!arma::eig_sym(values, vectors, gram, "dc") && !arma::eig_sym(values, vectors, gram, "std")) {
    log_and_throw("Patch Decompose: The decomposition of the patch failed.");
  }
  const arma::uword n = values.n_elem;
  const arma::uword kept = std::min<arma::uword>(2, n);
  // Eigenvalues come in ascending order.
  double strength = n == 2 && values(0) > 0.0 ? 1.0 : 0.0;
  if (n > 2 && values(n - 2) > 0.0) {
    strength = std::max(0.0, 1.0 - values(n - 3) / values(n - 2));
  }
  return {arma::fliplr(vectors.tail_cols(kept)), strength};
}

}  // namespace

arma::mat dichromatic_basis(const arma::mat& spectra) {
  return strongest_directions(spectra).first;
}

double plane_strength(const arma::mat& spectra) {
  return strongest_directions(spectra).second;
}

patch_plane find_patch_plane(const cube& patch) {
  check_patch_size(patch.n_rows, patch.n_cols, patch.n_slices);
  patch_plane plane;
  plane.rows = patch.n_rows;
  plane.cols = patch.n_cols;
  arma::mat by_pixel(patch.n_rows * patch.n_cols, patch.n_slices);
  for (arma::uword b = 0; b < patch.n_slices; ++b) {
    by_pixel.col(b) = arma::conv_to<arma::vec>::from(arma::vectorise(patch.slice(b)));
  }
  plane.spectra = by_pixel.t();
  std::tie(plane.basis, plane.strength) = strongest_directions(plane.spectra);
  plane.coordinates = plane.basis.t() * plane.spectra;
  return plane;
}

patch_decomposition decompose_patch(const cube& patch, const vector& illuminant, float smoothness,
                                    int verbosity) {
  check_patch_size(patch.n_rows, patch.n_cols, patch.n_slices);
  return decompose_patch(find_patch_plane(patch), illuminant, smoothness, verbosity);
}

patch_decomposition decompose_patch(const patch_plane& plane, const vector& illuminant,
                                    float smoothness, int verbosity) {
  const arma::uword rows = plane.rows, cols = plane.cols, bands = plane.spectra.n_rows;
  check_patch_size(rows, cols, bands);
  logger& log = logger::instance();
  if (illuminant.n_elem != bands) {
    log_and_throw("Patch Decompose: The illuminant has " + std::to_string(illuminant.n_elem) +
                  " values for " + std::to_string(bands) + " bands.");
  }
  if (verbosity > 4) {
    log << "Patch Dichromatic Decompose: H: " << rows << " W: " << cols << " B: " << bands << "EOL";
  }
  const arma::uword pixels = rows * cols;
  // A one-band image has a line, not a plane: its second direction is empty.
  arma::mat basis = plane.basis;
  arma::mat coordinates = plane.coordinates;
  if (basis.n_cols < 2) {
    basis.insert_cols(basis.n_cols, 2 - basis.n_cols);
    coordinates.insert_rows(coordinates.n_rows, 2 - coordinates.n_rows);
  }
  const arma::vec L = arma::conv_to<arma::vec>::from(illuminant);
  const arma::vec l = basis.t() * L;
  const double l_norm = arma::norm(l);

  // In the plane every pixel y = k l + m d holds exactly for any diffuse
  // direction d apart from l itself, so the least-squares fit leaves the choice
  // of d to the smoothness term. With e1 along l and e2 across it, a pixel's
  // coordinates (u, v) give m = v / sin(theta) and k = (u - v cot(theta)) / |l|
  // for d at angle theta from l, and the sum of squared neighbour differences of
  // k is a quadratic in cot(theta) whose minimum is closed-form.
  arma::vec k(pixels), m(pixels), d(2);
  if (l_norm <= 1e-12 * std::max(arma::norm(L), 1e-300)) {
    // The illuminant has no part in this plane: nothing here is specular.
    const arma::vec mean = arma::mean(coordinates, 1);
    const double mean_norm = arma::norm(mean);
    d = mean_norm > 0.0 ? arma::vec(mean / mean_norm) : arma::vec{1.0, 0.0};
    k.zeros();
    m = coordinates.t() * d;
  } else {
    const arma::vec e1 = l / l_norm;
    arma::vec e2{-e1(1), e1(0)};
    const arma::vec u = coordinates.t() * e1;
    arma::vec v = coordinates.t() * e2;
    if (arma::accu(v) < 0.0) {
      e2 = -e2;
      v = -v;
    }
    const double across = neighbour_products(v, v, rows, cols);
    const double along = neighbour_products(u, u, rows, cols);
    double cot = 0.0;
    if (across > 1e-10 * along && across > 0.0) {
      cot = neighbour_products(u, v, rows, cols) / across;
    } else if (arma::dot(v, v) > 0.0) {
      // No variation across the illuminant to go by: the diffuse direction is
      // the patch's own colour, which leaves the least to specular reflection.
      cot = arma::dot(u, v) / arma::dot(v, v);
    }
    const double scale = std::sqrt(1.0 + cot * cot);
    d = (cot * e1 + e2) / scale;
    m = v * scale;
    k = (u - cot * v) / l_norm;
  }
  arma::vec diffuse_spectrum = basis * d;
  if (diffuse_spectrum(0) < 0.0) {
    // A body colour starts positive: the direction is turned round, and the
    // specular shares with it. Such a patch comes out with negative specular
    // shares, hence invalid and with its specular image clamped away.
    diffuse_spectrum = -diffuse_spectrum;
    k = -k;
  }

  patch_decomposition result;
  result.valid = k.min() >= -0.0001;
  k.transform([](double value) { return std::max(value, 0.0); });
  m.transform([](double value) { return std::max(value, 0.0); });
  result.dichromatic_error =
      arma::accu(arma::square(plane.spectra - L * k.t() - diffuse_spectrum * m.t()));
  result.smooth_error = static_cast<double>(smoothness) * neighbour_products(k, k, rows, cols);
  result.specular = arma::conv_to<matrix>::from(arma::reshape(k, rows, cols));
  result.diffuse = arma::conv_to<matrix>::from(arma::reshape(m, rows, cols));
  result.diffuse_spectrum = arma::conv_to<vector>::from(diffuse_spectrum);
  if (verbosity > 4) {
    log << "End decompose dichromatic patch"
        << "EOL";
    if (result.valid) {
      log << "Patch is valid!"
          << "EOL";
    }
    log << "Patch Dichromatic Error: " << result.dichromatic_error
        << " Smooth Error: " << result.smooth_error << "EOL";
  }
  return result;
}

}  // namespace corv
