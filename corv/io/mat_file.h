#ifndef CORV_IO_MAT_FILE_H
#define CORV_IO_MAT_FILE_H

#include <string>
#include <vector>

#include "corv/io/types.h"

namespace corv {

// One real numeric array of a MATLAB file, as doubles in MATLAB's column order.
struct mat_variable {
  std::string name;
  arma::uword rows = 0;
  arma::uword cols = 0;
  std::vector<double> values;  // rows x cols, column after column
};

// Reads the real numeric two-dimensional arrays of a MATLAB MAT-file of version
// 5 to 7 (MATLAB's default; compressed or not, little-endian); other variables
// (text, cells, structures, complex, sparse, more than two dimensions) are
// skipped. Throws std::runtime_error: "read_mat_file: Cannot read <name>.",
// "read_mat_file: <name> is not a MATLAB MAT-file.", "read_mat_file: <name> is a
// MATLAB 7.3 (HDF5) file; save it with -v7 or as CSV.", "read_mat_file: <name>
// is big-endian, which is not supported.", "read_mat_file: <name> is damaged."
std::vector<mat_variable> read_mat_file(const std::string& file_name);

}  // namespace corv

#endif
