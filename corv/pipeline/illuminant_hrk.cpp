// The iterative dichromatic fit: decompose every patch against the current
// illuminant, then refit the illuminant by least squares to all patches' pixels
// given each pixel's specular and diffuse shares, until it settles. Every patch
// with a highlight spans a plane that holds the true illuminant, and each refit
// moves the estimate towards the planes' common direction.
#include <atomic>
#include <cmath>
#include <limits>

#include "corv/io/logger.h"
#include "corv/pipeline/illuminant.h"
#include "corv/pipeline/illuminant_patches.h"
#include "corv/pipeline/patch_decomposition.h"

namespace corv {

namespace {

constexpr int max_iterations = 99;
constexpr double settled_angle = 0.01;   // degrees
constexpr double settled_energy = 0.01;  // relative change
constexpr double pi = 3.1415927;

// Inner rounds of the refit in one iteration, at most.
constexpr int max_refit_rounds = 20;

// The normal equations of the refit, w sum k (x - m D) and w sum k^2, summed
// over patches with weight w.
struct refit_terms {
  arma::vec numerator;
  double denominator = 0.0;
};

// One patch's part in the refit: every pixel's shares of the illuminant and of
// the patch's diffuse spectrum, by least squares in the patch's plane, signs
// included, then the patch's terms of the normal equations. The decomposition's
// clamped shares would leave residuals that drag the refit towards the body
// colours of the pixels they were cut from, whereas the signed shares move it
// straight towards the plane. The weight is how clearly the patch spans a
// plane: a patch of one colour without a highlight has only noise for a second
// direction, and many such patches (a bright matte floor) would otherwise
// outvote the few with highlights.
void add_refit_terms(const patch_plane& plane, const arma::vec& L, const arma::vec& diffuse,
                     refit_terms& terms) {
  arma::mat directions(plane.basis.n_cols, 2);
  directions.col(0) = plane.basis.t() * L;
  directions.col(1) = plane.basis.t() * diffuse;
  arma::mat shares;
  if (directions.n_rows != 2 || !(std::abs(arma::det(directions)) > 1e-12 * arma::norm(L)) ||
      !arma::solve(shares, directions, plane.coordinates, arma::solve_opts::no_approx)) {
    // The illuminant and the body colour coincide in this plane: the patch
    // cannot tell them apart and has no say in the refit.
    return;
  }
  const arma::vec k = shares.row(0).t(), m = shares.row(1).t();
  terms.numerator += plane.strength * (plane.spectra * k - diffuse * arma::dot(m, k));
  terms.denominator += plane.strength * arma::dot(k, k);
}

double angle_degrees(const arma::vec& a, const arma::vec& b) {
  const double lengths = arma::norm(a) * arma::norm(b);
  double cosine = lengths > 0.0 ? arma::dot(a, b) / lengths : 1.0;
  cosine = std::min(1.0, std::max(-1.0, cosine));
  return std::acos(cosine) * 180.0 / pi;
}

}  // namespace

vector recover_illuminant_HRK(const cube& I, arma::imat& patches, float smoothness, int patch_size,
                              bool wiener_marker, bool second_switch, int verbosity) {
  check_illuminant_image(I, "recover_illuminant_HRK", verbosity);
  if (smoothness < 0.0f) {
    smoothness = 50.0f;
  }
  if (patch_size < 1) {
    patch_size = 20;
  }
  const illuminant_patches chosen =
      prepare_illuminant_patches(I, patches, patch_size, wiener_marker, verbosity);
  logger& log = logger::instance();
  const arma::uword bands = I.n_slices;
  const long count = static_cast<long>(chosen.cubes.size());
  if (verbosity > 0) {
    log << "Patches selected: " << count << "EOL";
  }

  // The estimate starts flat at the mean of the brightest value of every band
  // within the patches, and is kept at that level between iterations.
  arma::vec maxima(bands);
  maxima.fill(-std::numeric_limits<double>::infinity());
  double pixels = 0.0;
  for (const cube& patch : chosen.cubes) {
    for (arma::uword b = 0; b < bands; ++b) {
      maxima(b) = std::max(maxima(b), static_cast<double>(patch.slice(b).max()));
    }
    pixels += static_cast<double>(patch.n_rows * patch.n_cols);
  }
  const double level = arma::mean(maxima);
  arma::vec current(bands, arma::fill::value(level));

  // The faster estimate finds each patch's plane once: it does not depend on
  // the illuminant. Otherwise every iteration decomposes the pixels anew.
  std::vector<patch_plane> planes(second_switch ? count : 0);
  std::atomic<bool> aborted{false};
  if (second_switch) {
#pragma omp parallel for schedule(dynamic)
    for (long i = 0; i < count; ++i) {
      if (aborted || log.abort_requested()) {
        aborted = true;
        continue;
      }
      planes[i] = find_patch_plane(chosen.cubes[i]);
    }
    if (aborted) {
      log.check_abort();
    }
  }

  double previous_energy = std::numeric_limits<double>::infinity();
  double lowest_energy = std::numeric_limits<double>::infinity();
  arma::vec lowest_illuminant = current;
  arma::vec next = current;
  for (int t = 0; t < max_iterations; ++t) {
    log.check_abort();
    const int percent = static_cast<int>(100.0 * t / max_iterations);
    if (verbosity > 2) {
      log << percent << "% complete"
          << "EOL";
    }
    log.set_progress(percent);
    if (t == 0 && verbosity > 0) {
      log << "Begin solving!"
          << "EOL";
    }

    // First pass: every patch decomposed against the current illuminant; the
    // decompositions' errors are the iteration's energy.
    const vector illuminant = arma::conv_to<vector>::from(current);
    std::vector<patch_plane> fresh(second_switch ? 0 : count);
    std::vector<arma::vec> diffuse(count);
    std::vector<double> energies(count, 0.0);
#pragma omp parallel for schedule(dynamic)
    for (long i = 0; i < count; ++i) {
      if (aborted || log.abort_requested()) {
        aborted = true;
        continue;
      }
      if (!second_switch) {
        fresh[i] = find_patch_plane(chosen.cubes[i]);
      }
      const patch_decomposition split =
          decompose_patch(second_switch ? planes[i] : fresh[i], illuminant, smoothness, verbosity);
      energies[i] = split.dichromatic_error + split.smooth_error;
      diffuse[i] = arma::conv_to<arma::vec>::from(split.diffuse_spectrum);
    }
    if (aborted) {
      log.check_abort();
    }
    const std::vector<patch_plane>& used = second_switch ? planes : fresh;
    // Summed in patch order, so that the result does not depend on the threads.
    double energy = 0.0;
    for (const double part : energies) {
      energy += part;
    }
    energy /= pixels;
    if (energy < lowest_energy) {
      lowest_energy = energy;
      lowest_illuminant = current;
    }

    // Second and third passes: the shares and the refit, repeated with the
    // patches' diffuse spectra held until the refit settles, so that one
    // iteration goes as far as these spectra allow (a single round moves the
    // estimate only a little when it starts far from the light).
    arma::vec guess = current;
    next = current;
    for (int round = 0; round < max_refit_rounds; ++round) {
      refit_terms terms{arma::vec(bands, arma::fill::zeros), 0.0};
      for (long i = 0; i < count; ++i) {
        add_refit_terms(used[i], guess, diffuse[i], terms);
      }
      // Without a specular share anywhere the pixels say nothing more about
      // the illuminant: it stays as it is, which ends the iterations.
      if (!(terms.denominator > 0.0)) {
        break;
      }
      next = terms.numerator / terms.denominator;
      const double peak = next.max();
      if (angle_degrees(guess, next) < settled_angle || peak == 0.0) {
        break;
      }
      guess = next / peak * level;
    }

    const bool settled = angle_degrees(current, next) < settled_angle ||
                         (std::isfinite(previous_energy) &&
                          (previous_energy == 0.0 || std::abs((previous_energy - energy) /
                                                              previous_energy) < settled_energy));
    previous_energy = energy;
    if (settled) {
      break;
    }
    const double peak = next.max();
    current = peak != 0.0 ? arma::vec(next / peak * level) : next;
  }

  log.set_progress(100);
  if (verbosity > 0) {
    log << "Finished Illuminant Recovery."
        << "EOL";
  }
  if (chosen.selected) {
    patches = chosen.bounds;
  }
  return unit_illuminant(next);
}

}  // namespace corv
