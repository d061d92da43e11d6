#ifndef CORV_IO_TYPES_H
#define CORV_IO_TYPES_H

#include <armadillo>
#include <memory>
#include <string>
#include <vector>

namespace corv {

// A cube has rows = image lines, columns = samples, slices = bands; every image
// component is 32-bit float. Element indexes (abundance indexes, material map)
// are float too, so that every component can be written by the same writers.
using cube = arma::fcube;
using matrix = arma::fmat;
using vector = arma::fvec;
using cube_ptr = std::shared_ptr<cube>;
using labels = std::vector<std::string>;
using band_list = std::vector<unsigned>;

// Below this magnitude a range or a wavelength counts as zero.
constexpr double epsilon = 2.220446049250313e-16;

}  // namespace corv

#endif
