#include "corv/analysis/nnls.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "corv/io/logger.h"

namespace corv {

namespace {

// A column counts as dependent on the passive columns when the squared length
// of its part outside their span is below this share of its squared length: in
// the normal equations that is rounding noise of double arithmetic, and in the
// float data it stands for a direction below single precision.
constexpr double dependence_share = 1e-13;

}  // namespace

nnls_solver::nnls_solver(arma::uword max_variables)
    : z_(max_variables),
      factor_(max_variables * max_variables),
      work_(max_variables),
      is_passive_(max_variables),
      refused_(max_variables) {
  passive_.reserve(max_variables);
}

bool nnls_solver::solve_passive(const double* gram, arma::uword stride, const double* correlation) {
  const arma::uword m = passive_.size();
  const arma::uword ld = work_.size();  // the factor's rows and columns are max_variables apart
  // Lower triangle, column major, with the inverse of each diagonal entry on
  // the diagonal. Cholesky rows, and the forward substitution's values, depend
  // only on the rows above them: those of variables that kept their places are
  // still valid, only the rest are computed.
  double* L = factor_.data();
  const arma::uword first = factored_;
  for (arma::uword j = first; j < m; ++j) {
    const arma::uword pj = passive_[j];
    for (arma::uword k = 0; k < j; ++k) {
      double t = gram[pj + passive_[k] * stride];
      for (arma::uword i = 0; i < k; ++i) {
        t -= L[j + i * ld] * L[k + i * ld];
      }
      L[j + k * ld] = t * L[k + k * ld];
    }
    const double diagonal = gram[pj + pj * stride];
    double s = diagonal;
    for (arma::uword i = 0; i < j; ++i) {
      s -= L[j + i * ld] * L[j + i * ld];
    }
    if (!(s > dependence_share * diagonal)) {
      factored_ = j;
      return false;
    }
    L[j + j * ld] = 1.0 / std::sqrt(s);
  }
  factored_ = m;
  // L y = c_P (y in work_), then L' z = y.
  for (arma::uword i = first; i < m; ++i) {
    double t = correlation[passive_[i]];
    for (arma::uword k = 0; k < i; ++k) {
      t -= L[i + k * ld] * work_[k];
    }
    work_[i] = t * L[i + i * ld];
  }
  for (arma::uword i = m; i-- > 0;) {
    double t = work_[i];
    for (arma::uword k = i + 1; k < m; ++k) {
      t -= L[k + i * ld] * z_[k];
    }
    z_[i] = t * L[i + i * ld];
  }
  return true;
}

void nnls_solver::solve(const double* gram, arma::uword stride, const double* correlation,
                        arma::uword n, double b_squared, double* x) {
  std::fill(x, x + n, 0.0);
  std::fill(is_passive_.begin(), is_passive_.begin() + n, 0);
  std::fill(refused_.begin(), refused_.begin() + n, 0);
  passive_.clear();
  factored_ = 0;

  const arma::uword max_solves = 3 * n;
  arma::uword solves = 0;
  while (solves < max_solves) {
    // |b - A x|^2 = b'b - 2 x'A'b + x'A'A x
    double residual = b_squared;
    for (const arma::uword i : passive_) {
      double t = 2.0 * correlation[i];
      for (const arma::uword k : passive_) {
        t -= gram[i + k * stride] * x[k];
      }
      residual -= x[i] * t;
    }
    const double scale = 10.0 * FLT_EPSILON * std::sqrt(std::max(residual, 0.0));
    // The gradient A'(b - A x) of the variables held at zero; the entering
    // variable is the one that lowers the residual fastest.
    arma::uword entering = n;
    double steepest = 0.0;
    for (arma::uword j = 0; j < n; ++j) {
      if (is_passive_[j] || refused_[j]) {
        continue;
      }
      double g = correlation[j];
      for (const arma::uword i : passive_) {
        g -= gram[j + i * stride] * x[i];
      }
      if (g > scale * std::sqrt(gram[j + j * stride]) && g > steepest) {
        steepest = g;
        entering = j;
      }
    }
    if (entering == n) {
      break;
    }
    passive_.push_back(entering);
    is_passive_[entering] = 1;

    for (bool first = true; solves < max_solves; first = false) {
      ++solves;
      const bool solved = solve_passive(gram, stride, correlation);
      if (!solved || (first && !(z_[passive_.size() - 1] > 0.0))) {
        // The newest variable cannot enter: its column depends on the others,
        // or rounding points its solution the wrong way. It waits until x moves.
        const arma::uword last = passive_.back();
        passive_.pop_back();
        factored_ = std::min<arma::uword>(factored_, passive_.size());
        is_passive_[last] = 0;
        x[last] = 0.0;
        refused_[last] = 1;
        break;
      }
      const arma::uword m = passive_.size();
      bool feasible = true;
      for (arma::uword i = 0; i < m; ++i) {
        feasible = feasible && z_[i] > 0.0;
      }
      std::fill(refused_.begin(), refused_.begin() + n, 0);
      if (feasible) {
        for (arma::uword i = 0; i < m; ++i) {
          x[passive_[i]] = z_[i];
        }
        break;
      }
      // Move from x towards z until the first passive variable reaches zero.
      double alpha = 2.0;
      arma::uword blocking = 0;
      for (arma::uword i = 0; i < m; ++i) {
        if (!(z_[i] > 0.0)) {
          const double xi = x[passive_[i]];
          const double step = xi / (xi - z_[i]);
          if (step < alpha) {
            alpha = step;
            blocking = i;
          }
        }
      }
      for (arma::uword i = 0; i < m; ++i) {
        double& xi = x[passive_[i]];
        xi += alpha * (z_[i] - xi);
      }
      x[passive_[blocking]] = 0.0;
      arma::uword kept = 0;
      for (arma::uword i = 0; i < m; ++i) {
        const arma::uword j = passive_[i];
        if (x[j] > 0.0) {
          passive_[kept++] = j;
        } else {
          x[j] = 0.0;
          is_passive_[j] = 0;
          factored_ = std::min(factored_, kept);
        }
      }
      passive_.resize(kept);
    }
  }
}

vector nnls(const matrix& A, const vector& b) {
  if (A.n_rows != b.n_elem) {
    log_and_throw("NNLS: unmatching matrices!");
  }
  const arma::uword n = A.n_cols;
  const arma::mat a = arma::conv_to<arma::mat>::from(A);
  const arma::vec bd = arma::conv_to<arma::vec>::from(b);
  const arma::mat gram = a.t() * a;
  const arma::vec correlation = a.t() * bd;
  arma::vec x(n);
  nnls_solver solver(n);
  solver.solve(gram.memptr(), n, correlation.memptr(), n, arma::dot(bd, bd), x.memptr());
  return arma::conv_to<vector>::from(x);
}

}  // namespace corv
