// The four statistical estimates, each computed band by band: the per-band
// maximum (white patch), mean (gray world), Minkowski mean of order p (shade of
// gray) and Minkowski mean of the derivatives (gray edge). Their logged names
// are those the log has always used: the gray-world routine logs "WP" and the
// white-patch routine "GW".
#include <cmath>
#include <string>

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

vector recover_illuminant_GW(const cube& I, int verbosity) {
  check_illuminant_image(I, "recover_illuminant_GW", verbosity);
  return per_band(I, [](const matrix& band) { return static_cast<double>(band.max()); });
}

vector recover_illuminant_WP(const cube& I, int verbosity) {
  check_illuminant_image(I, "recover_illuminant_WP", verbosity);
  return per_band(I, [](const matrix& band) {
    return arma::accu(arma::conv_to<arma::mat>::from(band)) / static_cast<double>(band.n_elem);
  });
}

vector recover_illuminant_SG(const cube& I, int order, int verbosity) {
  check_illuminant_image(I, "recover_illuminant_SG", verbosity);
  check_order(order, "recover_illuminant_SG");
  return per_band(I, [order](const matrix& band) {
    minkowski_mean mean(order);
    for (const float value : band) {
      mean.add(value);
    }
    return mean.value();
  });
}

vector recover_illuminant_GE(const cube& I, int order, int verbosity) {
  check_illuminant_image(I, "recover_illuminant_GE", verbosity);
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
