#ifndef CORV_PYTHON_CONVERT_H
#define CORV_PYTHON_CONVERT_H

// numpy <-> Armadillo. Cubes are (rows, columns, bands) float32 arrays, matrices
// (rows, columns), vectors 1-D. Armadillo keeps its data column-major, which is
// numpy's Fortran order for the same shape, so a conversion is one copy.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "corv/io/types.h"

namespace corv::python {

namespace py = pybind11;
using float_array = py::array_t<float, py::array::f_style | py::array::forcecast>;

inline py::array_t<float> to_numpy(const cube& c) {
  py::array_t<float, py::array::f_style> out({c.n_rows, c.n_cols, c.n_slices});
  std::copy(c.begin(), c.end(), out.mutable_data());
  return out;
}

inline py::array_t<float> to_numpy(const matrix& m) {
  py::array_t<float, py::array::f_style> out({m.n_rows, m.n_cols});
  std::copy(m.begin(), m.end(), out.mutable_data());
  return out;
}

inline py::array_t<float> to_numpy(const vector& v) {
  py::array_t<float> out(v.n_elem);
  std::copy(v.begin(), v.end(), out.mutable_data());
  return out;
}

inline cube to_cube(const float_array& a) {
  if (a.ndim() != 3) {
    throw py::value_error("expected a 3-D array (rows, columns, bands), got " +
                          std::to_string(a.ndim()) + "-D");
  }
  return cube(a.data(), a.shape(0), a.shape(1), a.shape(2));
}

inline matrix to_matrix(const float_array& a) {
  if (a.ndim() != 2) {
    throw py::value_error("expected a 2-D array (rows, columns), got " + std::to_string(a.ndim()) +
                          "-D");
  }
  return matrix(a.data(), a.shape(0), a.shape(1));
}

inline vector to_vector(const float_array& a) {
  if (a.ndim() != 1) {
    throw py::value_error("expected a 1-D array, got " + std::to_string(a.ndim()) + "-D");
  }
  return vector(a.data(), a.shape(0));
}

}  // namespace corv::python

#endif
