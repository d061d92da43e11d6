// The four statistical estimates, each computed band by band: the per-band
// maximum (white patch), mean (gray world), Minkowski mean of order p (shade of
// gray) and Minkowski mean of the derivatives (gray edge). Their logged names
// are those the log has always used: the gray-world routine logs "WP" and the
// white-patch routine "GW".
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "corv/io/logger.h"
#include "corv/pipeline/illuminant.h"
#include "corv/pipeline/illuminant_patches.h"

namespace corv {

namespace {

// Runs a per-band statistic over every band, with an abort check between bands.
template <typename Statistic>
vector per_band(const cube& I, Statistic statistic) {
  arma::vec estimate(I.n_slices);
  for (arma::uword b = 0; b < I.n_slices; ++b) {
    logger::instance().check_abort();
    estimate(b) = statistic(I.slice(b));
  }
  return unit_illuminant(estimate);
}

// Folds value(x) of every pixel into one total per band, in double, starting
// from `start`: band by band for band planes (eight running totals a band, so
// that the folds do not wait on each other), pixel by pixel for interleaved
// pixels (every band's total at once). One thread: the work is bound by
// memory, and on a busy machine a second thread costs more in waiting for it
// than it saves.
template <typename Value, typename Fold>
arma::vec band_totals(const image_view& I, double start, Value value, Fold fold) {
  logger::instance().check_abort();
  const arma::uword pixels = I.rows * I.cols;
  arma::vec totals(I.bands);
  if (!I.interleaved) {
    constexpr arma::uword lanes = 8;
    for (arma::uword b = 0; b < I.bands; ++b) {
      const float* x = I.data + b * pixels;
      double lane[lanes];
      std::fill(lane, lane + lanes, start);
      arma::uword p = 0;
      for (; p + lanes <= pixels; p += lanes) {
        for (arma::uword i = 0; i < lanes; ++i) {
          lane[i] = fold(lane[i], value(x[p + i]));
        }
      }
      double total = start;
      for (const double part : lane) {
        total = fold(total, part);
      }
      for (; p < pixels; ++p) {
        total = fold(total, value(x[p]));
      }
      totals(b) = total;
    }
  } else {
    std::vector<double> running(I.bands, start);
    double* share = running.data();
    for (arma::uword p = 0; p < pixels; ++p) {
      const float* x = I.data + p * I.bands;
      for (arma::uword b = 0; b < I.bands; ++b) {
        share[b] = fold(share[b], value(x[b]));
      }
    }
    std::copy(running.begin(), running.end(), totals.begin());
  }
  logger::instance().check_abort();
  return totals;
}

double add(double a, double b) {
  return a + b;
}

void check_order(int order, const std::string& method) {
  if (order < 1) {
    log_and_throw(method + ": order must be positive.");
  }
}

// (mean of x^p)^(1/p) over values produced one at a time.
class minkowski_mean {
 public:
  explicit minkowski_mean(int order) : order_(order) {}
  void add(double value) {
    sum_ += order_ == 1 ? value : std::pow(value, order_);
    ++count_;
  }
  double value() const {
    const double mean = count_ == 0 ? 0.0 : sum_ / static_cast<double>(count_);
    return order_ == 1 ? mean : std::pow(mean, 1.0 / order_);
  }

 private:
  int order_;
  double sum_ = 0.0;
  std::size_t count_ = 0;
};

// Derivative along one direction: central difference (next - previous) / 2
// inside, one-sided at the ends, zero when there is only one sample.
double derivative(const matrix& band, arma::uword r, arma::uword c, bool along_rows) {
  const arma::uword n = along_rows ? band.n_cols : band.n_rows;
  const arma::uword i = along_rows ? c : r;
  if (n < 2) {
    return 0.0;
  }
  auto at = [&](arma::uword j) {
    return static_cast<double>(along_rows ? band(r, j) : band(j, c));
  };
  if (i == 0) {
    return at(1) - at(0);
  }
  if (i == n - 1) {
    return at(n - 1) - at(n - 2);
  }
  return (at(i + 1) - at(i - 1)) / 2.0;
}

}  // namespace

vector recover_illuminant_GW(const image_view& I, int verbosity) {
  check_illuminant_image(I.rows, I.cols, I.bands, "recover_illuminant_GW", verbosity);
  return unit_illuminant(band_totals(
      I, -std::numeric_limits<double>::infinity(), [](float x) { return static_cast<double>(x); },
      [](double a, double b) { return std::max(a, b); }));
}

vector recover_illuminant_WP(const image_view& I, int verbosity) {
  check_illuminant_image(I.rows, I.cols, I.bands, "recover_illuminant_WP", verbosity);
  const arma::vec sums = band_totals(
      I, 0.0, [](float x) { return static_cast<double>(x); }, add);
  return unit_illuminant(sums / static_cast<double>(I.rows * I.cols));
}

vector recover_illuminant_SG(const image_view& I, int order, int verbosity) {
  check_illuminant_image(I.rows, I.cols, I.bands, "recover_illuminant_SG", verbosity);
  check_order(order, "recover_illuminant_SG");
  const arma::vec sums = band_totals(
      I, 0.0,
      [order](float x) { return order == 1 ? double(x) : std::pow(static_cast<double>(x), order); },
      add);
  const arma::vec means = sums / static_cast<double>(I.rows * I.cols);
  return unit_illuminant(order == 1 ? means : arma::vec(arma::pow(means, 1.0 / order)));
}

vector recover_illuminant_GW(const cube& I, int verbosity) {
  return recover_illuminant_GW(image_view::of(I), verbosity);
}

vector recover_illuminant_WP(const cube& I, int verbosity) {
  return recover_illuminant_WP(image_view::of(I), verbosity);
}

vector recover_illuminant_SG(const cube& I, int order, int verbosity) {
  return recover_illuminant_SG(image_view::of(I), order, verbosity);
}

vector recover_illuminant_GE(const cube& I, int order, int verbosity) {
  check_illuminant_image(I.n_rows, I.n_cols, I.n_slices, "recover_illuminant_GE", verbosity);
  check_order(order, "recover_illuminant_GE");
  return per_band(I, [order](const matrix& band) {
    minkowski_mean horizontal(order), vertical(order);
    for (arma::uword c = 0; c < band.n_cols; ++c) {
      for (arma::uword r = 0; r < band.n_rows; ++r) {
        horizontal.add(std::abs(derivative(band, r, c, true)));
        vertical.add(std::abs(derivative(band, r, c, false)));
      }
    }
    return 0.5 * (horizontal.value() + vertical.value());
  });
}

}  // namespace corv
