#include "corv/spectral/nurbs.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "corv/io/logger.h"
#include "corv/spectral/nurbs_basis.h"
#include "corv/spectral/nurbs_fit.h"

namespace corv {

namespace {

// Spectra are gathered from, and control points scattered to, cubes whose
// bands are planes apart; every per-pixel step works on contiguous doubles in
// the thread's workspace.
void gather(const cube& data, arma::uword pixel, arma::uword count, double* out) {
  const arma::uword plane = data.n_rows * data.n_cols;
  const float* in = data.memptr() + pixel;
  for (arma::uword b = 0; b < count; ++b) {
    out[b] = in[b * plane];
  }
}

void scatter(const double* in, arma::uword count, arma::uword pixel, cube& data) {
  const arma::uword plane = data.n_rows * data.n_cols;
  float* out = data.memptr() + pixel;
  for (arma::uword b = 0; b < count; ++b) {
    out[b * plane] = static_cast<float>(in[b]);
  }
}

std::vector<double> to_doubles(const vector& values) {
  return std::vector<double>(values.begin(), values.end());
}

bool increasing(const vector& wavelengths) {
  for (arma::uword b = 0; b < wavelengths.n_elem; ++b) {
    if (!std::isfinite(wavelengths(b)) || (b > 0 && !(wavelengths(b) > wavelengths(b - 1)))) {
      return false;
    }
  }
  return true;
}

// Starts with degree + 1 zeros, ends with degree + 1 ones, never decreases.
bool clamped(const vector& knots, std::uint32_t degree) {
  const arma::uword count = knots.n_elem;
  if (count < 2 * (arma::uword(degree) + 1)) {
    return false;
  }
  for (arma::uword i = 0; i < count; ++i) {
    if (!std::isfinite(knots(i)) || (i > 0 && knots(i) < knots(i - 1))) {
      return false;
    }
    if ((i <= degree && knots(i) != 0.0f) || (i + degree + 1 >= count && knots(i) != 1.0f)) {
      return false;
    }
  }
  // An interior knot at an end would make an end span empty, one repeated more
  // than degree times would break the curve.
  for (arma::uword i = degree + 1; i + degree + 1 < count; ++i) {
    if (i >= arma::uword(degree) + 1 + degree && knots(i) == knots(i - degree)) {
      return false;
    }
  }
  return knots(degree + 1) > 0.0f && knots(count - degree - 2) < 1.0f;
}

arma::uword pixels(const cube& data) {
  return data.n_rows * data.n_cols;
}

bool same_grid(const cube& data, const nurbs_control_points& points, arma::uword count) {
  return points.wavelengths.n_rows == data.n_rows && points.wavelengths.n_cols == data.n_cols &&
         points.wavelengths.n_slices == count &&
         arma::size(points.values) == arma::size(points.wavelengths);
}

// Encodes every pixel of an image on the knots (nurbs_encode_spectrum) and
// returns the largest deviation of any pixel read back from its curve. Stops
// encoding, and returns infinity, as soon as a pixel deviates by more than the
// limit.
double encode_image(const cube& data, const std::vector<double>& waves,
                    const std::vector<double>& knots, unsigned degree, nurbs_control_points& points,
                    double limit) {
  const arma::uword bands = data.n_slices;
  const arma::uword count = nurbs_control_count(knots, degree);
  points.wavelengths.set_size(data.n_rows, data.n_cols, count);
  points.values.set_size(data.n_rows, data.n_cols, count);
  const long total = static_cast<long>(pixels(data));
  std::atomic<bool> exceeded{false};
  double largest = 0.0;
#pragma omp parallel
  {
    nurbs_workspace work(bands, degree);
    double local = 0.0;
#pragma omp for schedule(dynamic, 256)
    for (long p = 0; p < total; ++p) {
      if (exceeded.load(std::memory_order_relaxed)) {
        continue;
      }
      gather(data, p, bands, work.values.data());
      const double deviation =
          nurbs_encode_spectrum(knots, degree, waves.data(), work.values.data(), bands,
                                work.control_wavelengths.data(), work.control_values.data(), work);
      if (!(deviation <= limit)) {
        exceeded = true;
        continue;
      }
      local = std::max(local, deviation);
      scatter(work.control_wavelengths.data(), count, p, points.wavelengths);
      scatter(work.control_values.data(), count, p, points.values);
    }
#pragma omp critical(corv_nurbs_largest)
    { largest = std::max(largest, local); }
  }
  return exceeded ? HUGE_VAL : largest;
}

// Raises each candidate's score to the largest removal error over the pixels.
void score_removals(const cube& data, const std::vector<double>& knots, unsigned degree,
                    const nurbs_control_points& points, const std::vector<std::size_t>& candidates,
                    std::vector<double>& scores) {
  const arma::uword bands = data.n_slices;
  const arma::uword count = nurbs_control_count(knots, degree);
  const long total = static_cast<long>(pixels(data));
#pragma omp parallel
  {
    nurbs_workspace work(bands, degree);
    std::vector<double> local(candidates.size(), 0.0);
#pragma omp for schedule(dynamic, 256)
    for (long p = 0; p < total; ++p) {
      gather(points.wavelengths, p, count, work.control_wavelengths.data());
      gather(points.values, p, count, work.control_values.data());
      for (std::size_t c = 0; c < candidates.size(); ++c) {
        const double error = nurbs_removal_error(knots, degree, work.control_wavelengths.data(),
                                                 work.control_values.data(), candidates[c], work);
        local[c] = std::max(local[c], std::isnan(error) ? HUGE_VAL : error);
      }
    }
#pragma omp critical(corv_nurbs_scores)
    {
      for (std::size_t c = 0; c < candidates.size(); ++c) {
        scores[c] = std::max(scores[c], local[c]);
      }
    }
  }
}

bool finite(const cube& data) {
  return data.is_finite();
}

double value_range(const cube& I, const cube& J) {
  double low = I.min(), high = I.max();
  if (!J.is_empty()) {
    low = std::min<double>(low, J.min());
    high = std::max<double>(high, J.max());
  }
  return high - low;
}

}  // namespace

vector nurbs_interpolation_knots(const cube& I, const cube& J, const vector& wavelengths,
                                 std::uint32_t degree) {
  const arma::uword bands = I.n_slices;
  if (I.is_empty() || J.n_slices != bands || wavelengths.n_elem != bands || degree < 1 ||
      bands < arma::uword(degree) + 1) {
    log_and_throw("nurbs_interpolation_knots: Data size is incorrect.");
  }
  const std::vector<double> waves = to_doubles(wavelengths);
  std::vector<double> mean(bands, 0.0);
  for (const cube* data : {&I, &J}) {
    const long total = static_cast<long>(pixels(*data));
#pragma omp parallel
    {
      nurbs_workspace work(bands, degree);
      std::vector<double> sum(bands, 0.0);
#pragma omp for schedule(static)
      for (long p = 0; p < total; ++p) {
        gather(*data, p, bands, work.values.data());
        nurbs_centripetal_parameters(waves.data(), work.values.data(), bands,
                                     work.parameters.data());
        for (arma::uword b = 0; b < bands; ++b) {
          sum[b] += work.parameters[b];
        }
      }
#pragma omp critical(corv_nurbs_mean_parameters)
      {
        for (arma::uword b = 0; b < bands; ++b) {
          mean[b] += sum[b];
        }
      }
    }
  }
  const double count = static_cast<double>(pixels(I) + pixels(J));
  for (double& m : mean) {
    m /= count;
  }
  mean.front() = 0.0;
  mean.back() = 1.0;
  const std::vector<double> knots = nurbs_averaged_knots(mean, degree);
  return arma::conv_to<vector>::from(knots);
}

void nurbs_global_interpolation(const cube& I, const cube& J, const vector& wavelengths,
                                const vector& knots, std::uint32_t degree,
                                nurbs_control_points& I_points, nurbs_control_points& J_points) {
  logger& log = logger::instance();
  log << "Beginning NURBS global interpolation..."
      << "EOL";
  const arma::uword bands = I.n_slices;
  const arma::uword minimum = 2 * (arma::uword(degree) + 1);
  if (I.is_empty() || J.n_slices != bands || wavelengths.n_elem != bands ||
      knots.n_elem < minimum || knots.n_elem - degree - 1 > bands) {
    log_and_throw("nurbs_global_interpolation: Mismatch in data size");
  }
  if (!clamped(knots, degree)) {
    log_and_throw("nurbs_global_interpolation: Knot vector is not clamped to [0, 1] or decreases.");
  }
  if (!increasing(wavelengths)) {
    log_and_throw(
        "nurbs_global_interpolation: Wavelengths must be finite and strictly increasing.");
  }
  if (!finite(I) || !finite(J)) {
    log_and_throw("nurbs_global_interpolation: Data contains values that are not finite.");
  }
  const std::vector<double> waves = to_doubles(wavelengths);
  const std::vector<double> knot_values = to_doubles(knots);
  nurbs_control_points fitted_I, fitted_J;
  encode_image(I, waves, knot_values, degree, fitted_I, HUGE_VAL);
  encode_image(J, waves, knot_values, degree, fitted_J, HUGE_VAL);
  I_points = std::move(fitted_I);
  J_points = std::move(fitted_J);
  log << "Completed NURBS global interpolation!"
      << "EOL";
}

std::size_t nurbs_minimal_knots(const cube& I, const cube& J, const vector& wavelengths,
                                vector& knots, std::uint32_t degree, float alpha,
                                nurbs_control_points& I_points, nurbs_control_points& J_points) {
  logger& log = logger::instance();
  log << "nurbs_minimal_knots: Beginning knot removal."
      << "EOL";
  const arma::uword bands = I.n_slices;
  const arma::uword count = knots.n_elem > degree + 1 ? knots.n_elem - degree - 1 : 0;
  if (I.is_empty() || J.n_slices != bands || wavelengths.n_elem != bands ||
      count < arma::uword(degree) + 1 || count > bands || !same_grid(I, I_points, count) ||
      !same_grid(J, J_points, count)) {
    log_and_throw("nurbs_minimal_knots: Data size is incorrect.");
  }
  if (!clamped(knots, degree)) {
    log_and_throw("nurbs_minimal_knots: Knot vector is not clamped to [0, 1] or decreases.");
  }
  if (!increasing(wavelengths)) {
    log_and_throw("nurbs_minimal_knots: Wavelengths must be finite and strictly increasing.");
  }
  const std::vector<double> waves = to_doubles(wavelengths);
  const double bound = double(alpha) * value_range(I, J);
  // Rounds work on copies, so that an abort leaves the outputs as they were.
  std::vector<double> current = to_doubles(knots);
  nurbs_control_points current_I = I_points, current_J = J_points;
  std::size_t total = 0;
  for (;;) {
    // The last copy of every distinct interior knot.
    std::vector<std::size_t> candidates;
    for (std::size_t r = degree + 1; r + degree + 1 < current.size(); ++r) {
      if (current[r] < current[r + 1]) {
        candidates.push_back(r);
      }
    }
    if (candidates.empty()) {
      log << "nurbs_minimal_knots: No candidate knots detected!"
          << "EOL";
      break;
    }

    std::vector<double> scores(candidates.size(), 0.0);
    score_removals(I, current, degree, current_I, candidates, scores);
    score_removals(J, current, degree, current_J, candidates, scores);
    std::vector<std::size_t> order(candidates.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return scores[a] < scores[b]; });

    // The knots without the first `removed` candidates of the ranking.
    auto without = [&](std::size_t removed) {
      std::vector<bool> drop(current.size(), false);
      for (std::size_t i = 0; i < removed; ++i) {
        drop[candidates[order[i]]] = true;
      }
      std::vector<double> kept;
      for (std::size_t r = 0; r < current.size(); ++r) {
        if (!drop[r]) {
          kept.push_back(current[r]);
        }
      }
      return kept;
    };
    nurbs_control_points trial_I, trial_J, best_I, best_J;
    auto acceptable = [&](std::size_t removed) {
      log.check_abort();
      const std::vector<double> trial = without(removed);
      if (!(encode_image(I, waves, trial, degree, trial_I, bound) <= bound) ||
          !(encode_image(J, waves, trial, degree, trial_J, bound) <= bound)) {
        return false;
      }
      std::swap(trial_I, best_I);
      std::swap(trial_J, best_J);
      return true;
    };
    std::size_t accepted = 0;
    if (acceptable(candidates.size())) {
      accepted = candidates.size();
    } else {
      std::size_t refused = candidates.size();
      while (refused - accepted > 1) {
        const std::size_t middle = accepted + (refused - accepted) / 2;
        if (acceptable(middle)) {
          accepted = middle;
        } else {
          refused = middle;
        }
      }
    }
    if (accepted == 0) {
      log << "nurbs_minimal_knots: No knot can be removed within the error bound " << bound << "."
          << "EOL";
      break;
    }
    std::vector<double> removed;
    for (std::size_t i = 0; i < accepted; ++i) {
      removed.push_back(current[candidates[order[i]]]);
    }
    std::sort(removed.begin(), removed.end());
    for (const double knot : removed) {
      log << "nurbs_minimal_knots: Removed a knot: " << knot << "EOL";
    }
    current = without(accepted);
    current_I = std::move(best_I);
    current_J = std::move(best_J);
    total += accepted;
  }
  if (total > 0) {
    knots = arma::conv_to<vector>::from(current);
    I_points = std::move(current_I);
    J_points = std::move(current_J);
  }
  log << "nurbs_minimal_knots: Finished Knot Removal!"
      << "EOL";
  return total;
}

void generate_nurbs(const cube& I, const cube& J, const vector& wavelengths, vector& knots,
                    nurbs_control_points& points, std::uint32_t degree,
                    std::uint32_t knot_threshold, float alpha, int iterations, int verbosity) {
  logger& log = logger::instance();
  const arma::uword bands = I.n_slices;
  if (I.n_rows == 0 || I.n_cols == 0 || bands == 0 || J.n_slices != bands ||
      wavelengths.n_elem != bands) {
    log_and_throw("generate_nurbs: Data size is incorrect.");
  }
  if (degree < 2) {
    degree = 2;
  }
  if (knot_threshold == 0xFFFFFFFFu) {
    knot_threshold = bands >= 2 ? static_cast<std::uint32_t>(bands - 2) : 0;
  } else if (knot_threshold < 1) {
    knot_threshold = 1;
  }
  if (iterations < 1) {
    iterations = 10;
  }
  if (!(alpha >= 0.0f && alpha <= 1.0f)) {
    alpha = 0.1f;
  }
  if (verbosity > 2) {
    log << "Generating Nurbs. Parameters~"
        << "EOL";
    log << "Polynomial Degree: " << degree << "EOL";
    log << "Knot Threshold:    " << knot_threshold << "EOL";
    log << "Iterations:        " << iterations << "EOL";
    log << "Alpha:             " << alpha << "EOL";
  }
  if (bands < std::uint64_t(degree) + 1) {
    log_and_throw("generate_nurbs: Degree " + std::to_string(degree) + " needs at least " +
                  std::to_string(std::uint64_t(degree) + 1) + " bands.");
  }
  if (!increasing(wavelengths)) {
    log_and_throw("generate_nurbs: Wavelengths must be finite and strictly increasing.");
  }
  if (!finite(I) || !finite(J)) {
    log_and_throw("generate_nurbs: Data contains values that are not finite.");
  }

  vector current = nurbs_interpolation_knots(I, J, wavelengths, degree);
  nurbs_control_points I_points, J_points;
  for (int pass = 0; pass < iterations; ++pass) {
    const int percent = 100 * pass / iterations;
    log.set_progress(percent);
    if (verbosity > 2) {
      log << percent << "% complete"
          << "EOL";
    }
    log.check_abort();
    nurbs_global_interpolation(I, J, wavelengths, current, degree, I_points, J_points);
    const std::size_t removed =
        nurbs_minimal_knots(I, J, wavelengths, current, degree, alpha, I_points, J_points);
    if (current.n_elem <= knot_threshold || removed == 0) {
      break;
    }
  }
  log << "Final number of knots: " << current.n_elem << "EOL";
  knots = std::move(current);
  points = std::move(I_points);
}

cube nurbs_evaluate(const vector& knots, const nurbs_control_points& points, std::uint32_t degree,
                    const vector& wavelengths) {
  const arma::uword count = knots.n_elem > degree + 1 ? knots.n_elem - degree - 1 : 0;
  if (count < arma::uword(degree) + 1 || points.wavelengths.n_slices != count ||
      arma::size(points.values) != arma::size(points.wavelengths)) {
    log_and_throw("nurbs_evaluate: Data size is incorrect.");
  }
  if (!clamped(knots, degree)) {
    log_and_throw("nurbs_evaluate: Knot vector is not clamped to [0, 1] or decreases.");
  }
  if (!increasing(wavelengths)) {
    log_and_throw("nurbs_evaluate: Wavelengths must be finite and strictly increasing.");
  }
  const std::vector<double> waves = to_doubles(wavelengths);
  const std::vector<double> knot_values = to_doubles(knots);
  const arma::uword bands = wavelengths.n_elem;
  cube out(points.values.n_rows, points.values.n_cols, bands);
  const long total = static_cast<long>(points.values.n_rows * points.values.n_cols);
  std::atomic<bool> outside{false};
  double outside_wavelength = 0.0, outside_first = 0.0, outside_last = 0.0;
#pragma omp parallel
  {
    nurbs_workspace work(std::max(bands, count), degree);
#pragma omp for schedule(dynamic, 256)
    for (long p = 0; p < total; ++p) {
      double* cx = work.control_wavelengths.data();
      gather(points.wavelengths, p, count, cx);
      gather(points.values, p, count, work.control_values.data());
      const double first = cx[0], last = cx[count - 1];
      const double slack = 1e-3 * std::fabs(last - first);
      if (waves.front() < first - slack || waves.back() > last + slack) {
#pragma omp critical(corv_nurbs_outside)
        {
          if (!outside) {
            outside_wavelength = waves.front() < first - slack ? waves.front() : waves.back();
            outside_first = first;
            outside_last = last;
            outside = true;
          }
        }
        continue;
      }
      nurbs_read_spectrum(knot_values, degree, cx, work.control_values.data(), waves.data(), bands,
                          work.read.data(), work);
      scatter(work.read.data(), bands, p, out);
    }
  }
  if (outside) {
    std::ostringstream text;
    text << "nurbs_evaluate: Wavelength " << outside_wavelength
         << " lies outside the curves' range " << outside_first << " - " << outside_last << ".";
    log_and_throw(text.str());
  }
  return out;
}

}  // namespace corv
