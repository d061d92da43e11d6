#ifndef CORV_ANALYSIS_NNLS_H
#define CORV_ANALYSIS_NNLS_H

#include <vector>

#include "corv/io/types.h"

namespace corv {

// Non-negative least squares: the x >= 0 that minimises |A x - b|, by the
// active-set method of Lawson and Hanson. A holds one column per variable; a b
// of another length than A's columns is refused with "NNLS: unmatching
// matrices!". A variable whose column depends on the columns already in the
// solution stays at 0.
vector nnls(const matrix& A, const vector& b);

// The same method on the normal equations (gram = A'A, correlation = A'b), for
// callers that solve many small problems over one set of columns and can form
// both cheaply. Holds its own workspace, so that a solve allocates nothing; one
// solver per thread.
class nnls_solver {
 public:
  explicit nnls_solver(arma::uword max_variables);

  // Solves for n variables (n <= max_variables) into x. gram is n x n, column
  // major, column j starting at gram + j * stride; b_squared is b'b.
  //
  // A variable enters the solution while its gradient a_j'(b - A x) exceeds
  // 10 x single-precision machine epsilon times |a_j| |b - A x|: the residual
  // counts as orthogonal to a column within the precision of float data. The
  // method ends within 3 n solves, as published; should rounding keep it from
  // converging by then, x is the last feasible iterate.
  void solve(const double* gram, arma::uword stride, const double* correlation, arma::uword n,
             double b_squared, double* x);

 private:
  // Solves the normal equations over the passive variables into z, keeping the
  // Cholesky factor rows that are still valid; false when a passive column
  // depends on those before it.
  bool solve_passive(const double* gram, arma::uword stride, const double* correlation);

  std::vector<double> z_;
  std::vector<double> factor_;
  std::vector<double> work_;
  std::vector<arma::uword> passive_;  // passive variables in the order they entered
  arma::uword factored_ = 0;          // leading passive variables whose factor rows hold
  std::vector<char> is_passive_;
  std::vector<char> refused_;
};

}  // namespace corv

#endif
