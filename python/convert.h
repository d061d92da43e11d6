#ifndef CORV_PYTHON_CONVERT_H
#define CORV_PYTHON_CONVERT_H

// numpy <-> Armadillo. Cubes are (rows, columns, bands) float32 arrays, matrices
// (rows, columns), vectors 1-D. Armadillo keeps its data column-major, which is
// numpy's Fortran order for the same shape.
//
// Out: a result the library has just made is handed over, not copied: the
// array owns it (through a capsule) in the Fortran order it already has. A
// component the library keeps (a pipeline's, a held cube) is copied once.
//
// In: a float32 array in Fortran order is read where it lies; one in numpy's
// default order is either read where it lies (routines that take an
// image_view) or rearranged in one pass; anything else is converted by numpy
// first.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <string>

#include "corv/io/image_view.h"
#include "corv/io/types.h"

namespace corv::python {

namespace py = pybind11;
// Any array-like argument: a list, an array of any type and layout.
using float_array = py::object;
using fortran_floats = py::array_t<float, py::array::f_style>;
using c_floats = py::array_t<float, py::array::c_style>;
// float32 in Fortran order, converted by numpy when it is not.
using converted_array = py::array_t<float, py::array::f_style | py::array::forcecast>;

template <typename T>
py::array_t<float> handed_over(T&& value, std::vector<py::ssize_t> shape) {
  auto owned = std::make_unique<std::decay_t<T>>(std::move(value));
  const float* data = owned->memptr();
  py::capsule owner(owned.get(), [](void* held) { delete static_cast<std::decay_t<T>*>(held); });
  owned.release();
  return fortran_floats(std::move(shape), data, owner);
}

inline py::array_t<float> to_numpy(cube&& c) {
  std::vector<py::ssize_t> shape = {static_cast<py::ssize_t>(c.n_rows),
                                    static_cast<py::ssize_t>(c.n_cols),
                                    static_cast<py::ssize_t>(c.n_slices)};
  return handed_over(std::move(c), std::move(shape));
}

inline py::array_t<float> to_numpy(matrix&& m) {
  std::vector<py::ssize_t> shape = {static_cast<py::ssize_t>(m.n_rows),
                                    static_cast<py::ssize_t>(m.n_cols)};
  return handed_over(std::move(m), std::move(shape));
}

inline py::array_t<float> to_numpy(vector&& v) {
  std::vector<py::ssize_t> shape = {static_cast<py::ssize_t>(v.n_elem)};
  return handed_over(std::move(v), std::move(shape));
}

// Copies of what the library keeps.
inline py::array_t<float> to_numpy(const cube& c) {
  return to_numpy(cube(c));
}
inline py::array_t<float> to_numpy(const matrix& m) {
  return to_numpy(matrix(m));
}
inline py::array_t<float> to_numpy(const vector& v) {
  return to_numpy(vector(v));
}

// The argument as an array, without a copy when it is one.
inline py::array as_array(const py::handle& value) {
  py::array a = py::array::ensure(value);
  if (!a) {
    throw py::error_already_set();
  }
  return a;
}

inline void check_dimensions(const py::array& a, py::ssize_t wanted, const char* what) {
  if (a.ndim() != wanted) {
    throw py::value_error(std::string("expected a ") + std::to_string(wanted) + "-D array" + what +
                          ", got " + std::to_string(a.ndim()) + "-D");
  }
}

inline bool is_fortran_floats(const py::array& a) {
  return fortran_floats::check_(a);
}
inline bool is_c_floats(const py::array& a) {
  return c_floats::check_(a);
}

// The array as float32 in Fortran order: itself when it is one already.
inline converted_array as_fortran(const py::array& a) {
  return converted_array::ensure(a);
}

// The pixels of a 3-D array where they lie (float32 in either order), else of
// numpy's Fortran-ordered float32 copy, kept alive by `keep`.
inline image_view view_of(const py::handle& value, py::object& keep) {
  const py::array a = as_array(value);
  keep = a;
  check_dimensions(a, 3, " (rows, columns, bands)");
  const auto extent = [&](int axis) { return static_cast<arma::uword>(a.shape(axis)); };
  if (is_c_floats(a) && !is_fortran_floats(a)) {
    return {static_cast<const float*>(a.data()), extent(0), extent(1), extent(2), true};
  }
  const converted_array f = as_fortran(a);
  if (!f) {
    throw py::error_already_set();
  }
  keep = f;
  return {f.data(), extent(0), extent(1), extent(2), false};
}

// A cube that reads the array's memory when it is float32 in Fortran order,
// else a cube of its own. Only for reading: the caller must not change it
// (nor outlive the array).
inline cube to_cube(const py::handle& a) {
  py::object keep;
  const image_view view = view_of(a, keep);
  if (view.interleaved || !keep.is(a)) {
    return view.copy();
  }
  return cube(const_cast<float*>(view.data), view.rows, view.cols, view.bands, false, true);
}

// Arguments that pybind11 converts while it holds the interpreter lock, for
// calls that run without it: their memory is read where it lies, which needs
// no lock.

inline cube cube_over(const converted_array& a) {
  check_dimensions(a, 3, " (rows, columns, bands)");
  return cube(const_cast<float*>(a.data()), a.shape(0), a.shape(1), a.shape(2), false, true);
}

inline matrix matrix_over(const converted_array& a) {
  check_dimensions(a, 2, " (rows, columns)");
  return matrix(const_cast<float*>(a.data()), a.shape(0), a.shape(1), false, true);
}

inline vector vector_over(const converted_array& a) {
  check_dimensions(a, 1, "");
  return vector(const_cast<float*>(a.data()), a.shape(0), false, true);
}

// A cube of its own, to be changed.
inline cube cube_copy(const py::handle& a) {
  cube c = to_cube(a);
  return c.mem_state == 0 ? c : cube(c);
}

inline matrix to_matrix(const py::handle& value) {
  const py::array a = as_array(value);
  check_dimensions(a, 2, " (rows, columns)");
  const converted_array f = as_fortran(a);
  if (!f) {
    throw py::error_already_set();
  }
  return matrix(f.data(), f.shape(0), f.shape(1));
}

inline vector to_vector(const py::handle& value) {
  const py::array a = as_array(value);
  check_dimensions(a, 1, "");
  const converted_array f = as_fortran(a);
  if (!f) {
    throw py::error_already_set();
  }
  return vector(f.data(), f.shape(0));
}

}  // namespace corv::python

#endif
