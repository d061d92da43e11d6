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

double angle_degrees(const arma::vec& a, const arma::vec& b) {
  const double lengths = arma::norm(a) * arma::norm(b);
  double cosine = lengths > 0.0 ? arma::dot(a, b) / lengths : 1.0;
  cosine = std::min(1.0, std::max(-1.0, cosine));
  return std::acos(cosine) * 180.0 / pi;
}

// Rounds of the refit's weights in one iteration, at most.
constexpr int max_refit_rounds = 20;
// Eigenvalues of the refit's matrix this close to the largest (its ratio to
// the largest at least this) belong to directions that the patches' planes do
// not tell apart: planes within about 2 degrees of each other (cos^2 2 degrees).
// Planes of different materials under one light are 15 degrees apart and more
// on the test scenes (ratios up to 0.93); one material's, a degree (0.9997).
constexpr double undetermined_ratio = 0.99878;

// One patch's part in the refit, for its diffuse spectrum D held.
//
// Every pixel's shares of the illuminant L and of D are solved by least
// squares in the patch's plane, signs included, and the illuminant is refitted
// to the pixels given those shares: L' = sum w k (x - m D) / sum w k^2 over
// all patches' pixels, with w the patch's weight. In the plane a pixel's
// specular share is k = q / (n . L), where n is the plane's direction across D
// and q the pixel's coordinate along it, so the numerator is
// (w / (n . L)^2) (|q|^2 U U' + (R q) n') L, with U the plane's basis and R the
// part of the pixels off the plane. The matrix in brackets does not depend on
// L: it is found once per iteration, and the refit weighs it by w / (n . L)^2.
//
// The signed shares, not the decomposition's clamped ones: clamped shares leave
// residuals that drag the refit towards the body colours of the pixels they
// were cut from. The weight is how clearly the patch spans a plane: a patch of
// one colour without a highlight has only noise for a second direction, and
// many such patches (a bright matte floor) would otherwise outvote the few
// with highlights.
struct refit_part {
  arma::mat numerator;  // bands x bands, the bracket above
  arma::vec across;     // n
  double weight = 0.0;  // w
};

refit_part patch_refit_part(const patch_plane& plane, const arma::vec& diffuse) {
  refit_part part;
  if (plane.basis.n_cols != 2) {
    // One band: a line, not a plane; the patch has no say in the refit.
    return part;
  }
  const arma::vec d = plane.basis.t() * diffuse;
  const arma::vec across_d{d(1), -d(0)};
  const arma::rowvec q = across_d.t() * plane.coordinates;
  const arma::vec off_plane = (plane.spectra - plane.basis * plane.coordinates) * q.t();
  part.across = plane.basis * across_d;
  part.numerator = arma::dot(q, q) * plane.basis * plane.basis.t() + off_plane * part.across.t();
  part.weight = plane.strength;
  return part;
}

// The refit's limit: the illuminant that the least-squares refit, repeated
// with the shares solved anew against its own result, gives back unchanged
// (in direction). Each refit L' = A(L) L / sum w k^2 moves the estimate only
// part of the way when the patches' planes are nearly parallel (two warm
// materials under a warm light), and repeating it creeps towards the limit by
// a fraction of a degree a round; with the weights of A held, the limit is the
// dominant eigenvector of A. The weights are then taken anew from that
// eigenvector until the direction settles.
//
// When the patches' planes all but coincide (highlights on one material only),
// they fix a plane, not a line: A has two eigenvalues within
// `undetermined_ratio` of each other, and repeated refits would keep what the
// estimate already holds within that plane. The estimate is then projected
// onto the plane rather than turned to an arbitrary direction in it. The
// estimate stays as it is when no patch can tell the illuminant from its body
// colour.
void refit_limit(const std::vector<refit_part>& parts, arma::vec& estimate) {
  const arma::uword bands = estimate.n_elem;
  for (int round = 0; round < max_refit_rounds; ++round) {
    arma::mat refit(bands, bands, arma::fill::zeros);
    bool any = false;
    for (const refit_part& part : parts) {
      if (part.weight <= 0.0) {
        continue;
      }
      const double share = arma::dot(part.across, estimate);
      // The illuminant and the body colour coincide in this plane: the patch
      // cannot tell them apart.
      if (!(std::abs(share) > 1e-12 * arma::norm(estimate))) {
        continue;
      }
      refit += part.weight / (share * share) * part.numerator;
      any = true;
    }
    arma::cx_vec values;
    arma::cx_mat vectors;
    if (!any || !arma::eig_gen(values, vectors, refit)) {
      return;
    }
    const arma::vec strengths = arma::real(values);
    const arma::uvec leading = arma::find(strengths >= undetermined_ratio * strengths.max());
    arma::vec limit = arma::real(vectors.col(leading(0)));
    if (leading.n_elem > 1) {
      const arma::mat span = arma::real(vectors.cols(leading));
      arma::vec along;
      if (!arma::solve(along, span, estimate)) {
        return;
      }
      limit = span * along;
    }
    if (arma::accu(limit) < 0.0) {
      limit = -limit;
    }
    const double peak = limit.max();
    if (!(peak > 0.0)) {
      return;
    }
    limit *= estimate.max() / peak;
    const double step = angle_degrees(estimate, limit);
    estimate = limit;
    if (step < settled_angle) {
      return;
    }
  }
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
    std::vector<refit_part> parts(count);
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
      // Second pass, on the same patch: its pixels' shares, as its part in
      // the refit.
      parts[i] = patch_refit_part(second_switch ? planes[i] : fresh[i],
                                  arma::conv_to<arma::vec>::from(split.diffuse_spectrum));
    }
    if (aborted) {
      log.check_abort();
    }
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

    // Third pass: the refit, carried to its limit with the patches' diffuse
    // spectra held. Without a specular share anywhere the pixels say nothing
    // more about the illuminant: it stays as it is, which ends the iterations.
    next = current;
    refit_limit(parts, next);

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
