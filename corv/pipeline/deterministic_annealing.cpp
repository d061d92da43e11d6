#include "corv/pipeline/deterministic_annealing.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "corv/io/logger.h"
#include "corv/pipeline/materials.h"

namespace corv {

namespace {

constexpr arma::uword tile = 64;            // spectra associated together
constexpr arma::uword max_chunks = 64;      // partial sums, added in a fixed order
constexpr arma::uword parallel_tiles = 16;  // fewer tiles are associated on one thread
constexpr int max_iterations = 20;          // per temperature
constexpr float probability_tolerance = 0.005f;
constexpr double centre_tolerance = 0.001;
// Twins closer than this (on the unit sphere, about 0.6 degrees) are pushed
// this far apart before each temperature: identical twins would stay identical
// forever, and pushing them along their own difference lets a slowly growing
// separation carry over from one temperature to the next.
constexpr double twin_gap = 0.01;

std::string text_of(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

arma::vec unit(const arma::vec& v) {
  const double length = arma::norm(v);
  return length > 0.0 ? arma::vec(v / length) : v;
}

// A fixed direction per cluster for twins that coincide exactly, so that a
// run is repeatable.
arma::vec fixed_direction(arma::uword bands, arma::uword cluster) {
  std::mt19937 generator(static_cast<std::uint32_t>(20261121u + cluster));
  arma::vec direction(bands);
  for (arma::uword b = 0; b < bands; ++b) {
    direction(b) = static_cast<double>(generator()) / 4294967295.0 * 2.0 - 1.0;
  }
  return direction;
}

// The twins of every cluster: columns 2k and 2k + 1 belong to cluster k.
struct twin_centres {
  arma::mat centres;  // bands x 2K: probability-weighted means of unit spectra
  arma::vec priors;   // 2K, summing to 1

  arma::uword clusters() const { return priors.n_elem / 2; }
};

// Moves coinciding twins apart along their difference (or a fixed direction),
// evenly sharing the cluster's prior.
void separate_twins(twin_centres& state) {
  const arma::uword bands = state.centres.n_rows;
  for (arma::uword k = 0; k < state.clusters(); ++k) {
    const arma::vec a = unit(state.centres.col(2 * k)), b = unit(state.centres.col(2 * k + 1));
    const arma::vec difference = a - b;
    if (arma::norm(difference) >= twin_gap) {
      continue;
    }
    const arma::vec middle = unit(a + b);
    arma::vec direction = arma::norm(difference) > 1e-9 ? difference : fixed_direction(bands, k);
    direction -= arma::dot(direction, middle) * middle;
    if (arma::norm(direction) <= 1e-12) {
      direction = fixed_direction(bands, k + 1);
      direction -= arma::dot(direction, middle) * middle;
    }
    direction = unit(direction);
    state.centres.col(2 * k) = middle + 0.5 * twin_gap * direction;
    state.centres.col(2 * k + 1) = middle - 0.5 * twin_gap * direction;
    const double prior = 0.5 * (state.priors(2 * k) + state.priors(2 * k + 1));
    state.priors(2 * k) = state.priors(2 * k + 1) = prior;
  }
}

// sum of w[p] x[p] over n values, in eight independent lanes so that the
// compiler can keep them in vector registers (a single running sum would
// have to be added in order).
inline float weighted_sum(const float* w, const float* x, arma::uword n) {
  float lanes[8] = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
  arma::uword p = 0;
  for (; p + 8 <= n; p += 8) {
    for (arma::uword l = 0; l < 8; ++l) {
      lanes[l] += w[p + l] * x[p + l];
    }
  }
  for (; p < n; ++p) {
    lanes[0] += w[p] * x[p];
  }
  return ((lanes[0] + lanes[4]) + (lanes[1] + lanes[5])) +
         ((lanes[2] + lanes[6]) + (lanes[3] + lanes[7]));
}

// One pass over the spectra at temperature T: associations, their largest
// change since the previous pass (when compare is set), and the
// association-weighted sums and masses of every centre.
struct pass_totals {
  arma::mat sums;  // bands x centres
  arma::vec mass;  // centres
  float change = 0.0f;
};

pass_totals associate_all(const matrix& spectra, const twin_centres& state, float temperature,
                          std::vector<float>& stored, bool compare) {
  const arma::uword pixels = spectra.n_rows, bands = spectra.n_cols;
  const arma::uword centres = state.priors.n_elem;
  const arma::uword tiles = (pixels + tile - 1) / tile;
  const arma::uword chunks = std::min(tiles, max_chunks);
  stored.resize(tiles * tile * centres);

  matrix unit_centres(bands, centres);
  vector log_priors(centres);
  for (arma::uword j = 0; j < centres; ++j) {
    unit_centres.col(j) = arma::conv_to<vector>::from(unit(state.centres.col(j)));
    log_priors(j) = state.priors(j) > 0.0 ? static_cast<float>(std::log(state.priors(j)))
                                          : -std::numeric_limits<float>::infinity();
  }
  const float inverse_t = distance_scale / temperature;

  std::vector<arma::mat> chunk_sums(chunks, arma::mat(bands, centres, arma::fill::zeros));
  std::vector<arma::vec> chunk_mass(chunks, arma::vec(centres, arma::fill::zeros));
  std::vector<float> chunk_change(chunks, 0.0f);

  // A few hundred spectra are associated faster than threads wake up.
#pragma omp parallel if (tiles >= parallel_tiles)
  {
    std::vector<float> weights(centres * tile), largest(tile), total(tile);
#pragma omp for schedule(dynamic)
    for (long c = 0; c < static_cast<long>(chunks); ++c) {
      const arma::uword first = static_cast<arma::uword>(c) * tiles / chunks;
      const arma::uword end = (static_cast<arma::uword>(c) + 1) * tiles / chunks;
      arma::mat& sums = chunk_sums[c];
      arma::vec& mass = chunk_mass[c];
      float change = 0.0f;
      for (arma::uword t = first; t < end; ++t) {
        const arma::uword p0 = t * tile, n = std::min(tile, pixels - p0);
        std::fill(weights.begin(), weights.end(), 0.0f);
        for (arma::uword j = 0; j < centres; ++j) {
          float* w = &weights[j * tile];
          for (arma::uword b = 0; b < bands; ++b) {
            const float y = unit_centres(b, j);
            const float* x = spectra.colptr(b) + p0;
            for (arma::uword p = 0; p < n; ++p) {
              w[p] += y * x[p];
            }
          }
        }
        std::fill(largest.begin(), largest.end(), -std::numeric_limits<float>::infinity());
        for (arma::uword j = 0; j < centres; ++j) {
          float* w = &weights[j * tile];
          const float log_prior = log_priors(j);
          for (arma::uword p = 0; p < n; ++p) {
            w[p] = log_prior + (w[p] - 1.0f) * inverse_t;
            largest[p] = std::max(largest[p], w[p]);
          }
        }
        std::fill(total.begin(), total.end(), 0.0f);
        for (arma::uword j = 0; j < centres; ++j) {
          float* w = &weights[j * tile];
          for (arma::uword p = 0; p < n; ++p) {
            // Far centres (most of them at low temperatures) underflow to 0
            // anyway: skip the exponential.
            const float exponent = w[p] - largest[p];
            w[p] = exponent > -88.0f ? std::exp(exponent) : 0.0f;
            total[p] += w[p];
          }
        }
        for (arma::uword p = 0; p < n; ++p) {
          total[p] = 1.0f / total[p];
        }
        float* previous = &stored[t * tile * centres];
        for (arma::uword j = 0; j < centres; ++j) {
          float* w = &weights[j * tile];
          float* old = previous + j * tile;
          for (arma::uword p = 0; p < n; ++p) {
            w[p] *= total[p];
            if (compare) {
              change = std::max(change, std::abs(w[p] - old[p]));
            }
            old[p] = w[p];
          }
        }
        for (arma::uword j = 0; j < centres; ++j) {
          const float* w = &weights[j * tile];
          float weight_sum = 0.0f;
          for (arma::uword p = 0; p < n; ++p) {
            weight_sum += w[p];
          }
          mass(j) += weight_sum;
          for (arma::uword b = 0; b < bands; ++b) {
            sums(b, j) += weighted_sum(w, spectra.colptr(b) + p0, n);
          }
        }
      }
      chunk_change[c] = change;
    }
  }

  pass_totals totals{arma::mat(bands, centres, arma::fill::zeros),
                     arma::vec(centres, arma::fill::zeros), 0.0f};
  for (arma::uword c = 0; c < chunks; ++c) {
    totals.sums += chunk_sums[c];
    totals.mass += chunk_mass[c];
    totals.change = std::max(totals.change, chunk_change[c]);
  }
  return totals;
}

// Iterates associations and centres at one temperature until both settle or
// the iteration limit is reached.
void settle(const matrix& spectra, twin_centres& state, float temperature,
            std::vector<float>& stored) {
  const double pixels = static_cast<double>(spectra.n_rows);
  for (int iteration = 0; iteration < max_iterations; ++iteration) {
    if (iteration > 0) {
      logger::instance().check_abort();
    }
    const pass_totals totals = associate_all(spectra, state, temperature, stored, iteration > 0);
    double centre_change = 0.0;
    for (arma::uword j = 0; j < state.priors.n_elem; ++j) {
      if (totals.mass(j) > 0.0) {
        const arma::vec moved = totals.sums.col(j) / totals.mass(j);
        centre_change =
            std::max(centre_change, arma::norm(unit(moved) - unit(state.centres.col(j))));
        state.centres.col(j) = moved;
      }
      state.priors(j) = totals.mass(j) / pixels;
    }
    if (iteration > 0 && totals.change < probability_tolerance &&
        centre_change < centre_tolerance) {
      break;
    }
  }
}

// Splits every cluster whose twins have moved apart, while the cluster count is
// below the maximum.
void split_clusters(twin_centres& state, const annealing_schedule& schedule, int verbosity) {
  logger& log = logger::instance();
  const arma::uword clusters = state.clusters();
  for (arma::uword k = 0; k < clusters; ++k) {
    const double cosine =
        arma::dot(unit(state.centres.col(2 * k)), unit(state.centres.col(2 * k + 1)));
    if (verbosity > 2) {
      log << "Clusters: " << k << " Angle: " << cosine
          << " < split_threshold: " << schedule.split_threshold << "EOL";
    }
    if (!(cosine < schedule.split_threshold) ||
        state.clusters() >= static_cast<arma::uword>(schedule.max_clusters)) {
      continue;
    }
    const arma::vec a = state.centres.col(2 * k), b = state.centres.col(2 * k + 1);
    const double prior_a = state.priors(2 * k), prior_b = state.priors(2 * k + 1);
    state.centres.col(2 * k + 1) = a;
    state.priors(2 * k) = state.priors(2 * k + 1) = 0.5 * prior_a;
    state.centres = arma::join_rows(state.centres, b, b);
    state.priors = arma::join_cols(state.priors, arma::vec{0.5 * prior_b, 0.5 * prior_b});
    log << "Material Recovery: New cluster split from " << k << "EOL";
  }
}

// One centre per cluster: the twin carrying more of the cluster's prior. A
// cluster associated with less than half a spectrum in all is no material of
// these data and is left out (the heaviest cluster always stays). Clusters
// that split at a higher temperature can drift back together as it falls;
// centres closer than the split angle are one material by the split test's
// own measure, and are merged, the closest pair first, into their
// mass-weighted mean direction.
matrix cluster_centres(const twin_centres& state, arma::uword pixels, double split_threshold) {
  arma::uword heaviest = 0;
  for (arma::uword k = 0; k < state.clusters(); ++k) {
    if (state.priors(2 * k) + state.priors(2 * k + 1) >
        state.priors(2 * heaviest) + state.priors(2 * heaviest + 1)) {
      heaviest = k;
    }
  }
  std::vector<arma::vec> centres;
  std::vector<double> masses;
  for (arma::uword k = 0; k < state.clusters(); ++k) {
    const double mass = (state.priors(2 * k) + state.priors(2 * k + 1)) * pixels;
    if (k == heaviest || mass >= 0.5) {
      const arma::uword twin = state.priors(2 * k + 1) > state.priors(2 * k) ? 2 * k + 1 : 2 * k;
      centres.push_back(unit(state.centres.col(twin)));
      masses.push_back(mass);
    }
  }
  while (centres.size() > 1) {
    double closest = -2.0;
    std::size_t a = 0, b = 0;
    for (std::size_t i = 0; i < centres.size(); ++i) {
      for (std::size_t j = i + 1; j < centres.size(); ++j) {
        const double cosine = arma::dot(centres[i], centres[j]);
        if (cosine > closest) {
          closest = cosine;
          a = i;
          b = j;
        }
      }
    }
    if (!(closest >= split_threshold)) {
      break;
    }
    centres[a] = unit(masses[a] * centres[a] + masses[b] * centres[b]);
    masses[a] += masses[b];
    centres.erase(centres.begin() + static_cast<long>(b));
    masses.erase(masses.begin() + static_cast<long>(b));
  }
  matrix result(state.centres.n_rows, centres.size());
  for (std::size_t i = 0; i < centres.size(); ++i) {
    result.col(i) = arma::conv_to<vector>::from(centres[i]);
  }
  return result;
}

void log_image_information(const annealing_schedule& schedule, arma::uword height,
                           arma::uword width, arma::uword bands) {
  logger& log = logger::instance();
  log << "Material Recovery: Begin material unmixing."
      << "EOL";
  log << "Image Information~"
      << "EOL";
  log << "Height:                      " << height << "EOL";
  log << "Width:                       " << width << "EOL";
  log << "Bands:                       " << bands << "EOL";
  log << "Maximum Temperature:         " << schedule.max_temperature << "EOL";
  log << "Minimum Temperature:         " << schedule.min_temperature << "EOL";
  log << "Maximum Number of Materials: " << schedule.max_clusters << "EOL";
  log << "Cooling Rate:                " << schedule.cooling_rate << "EOL";
  log << "Split Threshold:             " << schedule.split_threshold << "EOL";
}

}  // namespace

annealing_schedule checked_schedule(float max_temperature, float min_temperature,
                                    float cooling_rate, float split_threshold, int max_clusters) {
  const annealing_schedule defaults;
  annealing_schedule schedule;
  schedule.max_clusters = max_clusters < 1 ? defaults.max_clusters : max_clusters;
  schedule.max_temperature = max_temperature < 0.0f ? defaults.max_temperature : max_temperature;
  schedule.min_temperature = min_temperature < 0.0f ? defaults.min_temperature : min_temperature;
  schedule.cooling_rate = cooling_rate < 0.0f ? defaults.cooling_rate : cooling_rate;
  schedule.split_threshold = split_threshold < 0.0f ? defaults.split_threshold : split_threshold;
  if (!(schedule.cooling_rate < 1.0f)) {
    log_and_throw("Material Recovery: Cooling rate must be below 1, not " +
                  text_of(schedule.cooling_rate) + ".");
  }
  if (!(schedule.min_temperature > 0.0f) || !(schedule.max_temperature > 0.0f) ||
      !std::isfinite(schedule.max_temperature)) {
    log_and_throw("Material Recovery: Temperatures must be finite and above 0.");
  }
  return schedule;
}

int cooling_steps(const annealing_schedule& schedule) {
  const double steps =
      std::floor(std::log(double{schedule.min_temperature} / double{schedule.max_temperature}) /
                 std::log(double{schedule.cooling_rate}));
  return steps >= 1.0 && steps < 1e9 ? static_cast<int>(steps) : 1;
}

float spectral_distance(const vector& a, const vector& b) {
  const float lengths = arma::norm(a) * arma::norm(b);
  return lengths > 0.0f ? distance_scale * (1.0f - arma::dot(a, b) / lengths) : 0.0f;
}

void associate(const float* distances, const float* priors, arma::uword centres, float temperature,
               float* probabilities) {
  // Shifting every exponent by the smallest distance keeps exp() in range at
  // low temperatures without changing the normalised result.
  float nearest = std::numeric_limits<float>::infinity();
  for (arma::uword j = 0; j < centres; ++j) {
    if (priors[j] > 0.0f) {
      nearest = std::min(nearest, distances[j]);
    }
  }
  float total = 0.0f;
  for (arma::uword j = 0; j < centres; ++j) {
    probabilities[j] =
        priors[j] > 0.0f ? priors[j] * std::exp(-(distances[j] - nearest) / temperature) : 0.0f;
    total += probabilities[j];
  }
  for (arma::uword j = 0; j < centres; ++j) {
    probabilities[j] = total > 0.0f ? probabilities[j] / total : 0.0f;
  }
}

arma::uvec usable_rows(const matrix& pixels, const vector& shading) {
  const arma::uword count = pixels.n_rows;
  vector squares(count, arma::fill::zeros);
  for (arma::uword b = 0; b < pixels.n_cols; ++b) {
    const float* band = pixels.colptr(b);
    for (arma::uword p = 0; p < count; ++p) {
      squares(p) += band[p] * band[p];
    }
  }
  std::vector<arma::uword> rows;
  rows.reserve(count);
  for (arma::uword p = 0; p < count; ++p) {
    const bool lit = shading.empty() || (std::isfinite(shading(p)) && shading(p) > 0.0f);
    if (lit && std::isfinite(squares(p)) && squares(p) > 0.0f) {
      rows.push_back(p);
    }
  }
  return arma::uvec(rows);
}

matrix unit_rows(const matrix& pixels, const arma::uvec& rows) {
  matrix unit_spectra(rows.n_elem, pixels.n_cols);
  vector squares(rows.n_elem, arma::fill::zeros);
  for (arma::uword b = 0; b < pixels.n_cols; ++b) {
    const float* band = pixels.colptr(b);
    float* out = unit_spectra.colptr(b);
    for (arma::uword i = 0; i < rows.n_elem; ++i) {
      out[i] = band[rows(i)];
      squares(i) += out[i] * out[i];
    }
  }
  for (arma::uword i = 0; i < rows.n_elem; ++i) {
    squares(i) = squares(i) > 0.0f ? 1.0f / std::sqrt(squares(i)) : 0.0f;
  }
  unit_spectra.each_col() %= squares;
  return unit_spectra;
}

matrix anneal_unit_spectra(const matrix& unit_spectra, const annealing_schedule& schedule,
                           arma::uword height, arma::uword width, int verbosity) {
  if (unit_spectra.n_rows == 0 || unit_spectra.n_cols == 0) {
    log_and_throw("Material Recovery: Data size is incorrect.");
  }
  logger& log = logger::instance();
  if (verbosity > 1) {
    log_image_information(schedule, height, width, unit_spectra.n_cols);
  }
  arma::vec mean(unit_spectra.n_cols);
  for (arma::uword b = 0; b < unit_spectra.n_cols; ++b) {
    const float* band = unit_spectra.colptr(b);
    double sum = 0.0;
    for (arma::uword p = 0; p < unit_spectra.n_rows; ++p) {
      sum += band[p];
    }
    mean(b) = sum / static_cast<double>(unit_spectra.n_rows);
  }
  twin_centres state{arma::join_rows(mean, mean), arma::vec{0.5, 0.5}};
  if (verbosity > 1) {
    log << "Material Recovery: Begin deterministic annealing"
        << "EOL";
  }

  const int steps = cooling_steps(schedule);
  std::vector<float> stored;
  float temperature = schedule.max_temperature;
  for (int step = 0;; ++step) {
    log.check_abort();
    const int clusters = static_cast<int>(state.clusters());
    log.set_progress(std::min(50, 50 * step / steps));
    if (verbosity > 2) {
      log << std::min(100, 100 * step / steps) << "% complete"
          << "EOL";
      log << "Current Temperature: " << temperature << "EOL";
      log << "Number of Clusters:  " << clusters << "EOL";
    }
    bool last = false;
    if (clusters >= schedule.max_clusters) {
      log.set_progress(50);
      log << "Material Recovery: Max clusters reached!"
          << "EOL";
      last = true;
    }
    const float next = temperature * schedule.cooling_rate;
    if (next < schedule.min_temperature) {
      log.set_progress(50);
      log << "Material Recovery: Current temperature below min threshold."
          << "EOL";
      last = true;
    }
    separate_twins(state);
    settle(unit_spectra, state, temperature, stored);
    split_clusters(state, schedule, verbosity);
    if (last) {
      break;
    }
    temperature = next;
  }

  const matrix centres = cluster_centres(state, unit_spectra.n_rows, schedule.split_threshold);
  if (verbosity > 1) {
    log << "Material Recovery: End deterministic annealing"
        << "EOL";
    log << "Material Recovery: Done. Found " << centres.n_cols << " materials."
        << "EOL";
  }
  return centres;
}

matrix deterministic_annealing(const matrix& spectra, float max_temperature, float min_temperature,
                               float cooling_rate, float split_threshold, int max_clusters,
                               int verbosity) {
  const annealing_schedule schedule = checked_schedule(max_temperature, min_temperature,
                                                       cooling_rate, split_threshold, max_clusters);
  if (spectra.n_rows == 0 || spectra.n_cols == 0) {
    log_and_throw("Material Recovery: Data size is incorrect.");
  }
  const matrix pixels = spectra.t();
  const arma::uvec rows = usable_rows(pixels, vector());
  if (rows.empty()) {
    log_and_throw("Material Recovery: No spectrum to cluster: every one is zero or not finite.");
  }
  return anneal_unit_spectra(unit_rows(pixels, rows), schedule, 1, spectra.n_cols, verbosity);
}

}  // namespace corv
