#ifndef CORV_IO_DATA_INPUT_H
#define CORV_IO_DATA_INPUT_H

#include "corv/io/input.h"

namespace corv {

// The in-memory input: serves copies of components that were set on it.
class data_input : public input {
 public:
  cube I() override;
  cube_ptr I_ptr() override;
  vector illuminant() override;
  matrix k() override;
  matrix g() override;
  cube s() override;
  cube_ptr s_ptr() override;
  matrix elements() override;
  matrix endmembers() override;
  labels endmember_labels() override;
  cube element_abundances() override;
  cube element_abundance_indexes() override;
  cube endmember_abundances() override;
  cube endmember_abundance_indexes() override;
  vector wavelengths() override;
  int input_kind() const override { return kind_data; }
  using input::I;

  void set_I(const cube& image);
  void set_s(const cube& reflectance);
  void set_wavelengths(const vector& wavelengths);
  void set_illuminant(const vector& illuminant);
  void set_k(const matrix& k);
  void set_g(const matrix& g);
  void set_elements(const matrix& elements);
  void set_endmembers(const matrix& endmembers);
  void set_endmember_labels(const labels& labels);
  void set_element_abundances(const cube& abundances);
  void set_element_abundance_indexes(const cube& indexes);
  void set_endmember_abundances(const cube& abundances);
  void set_endmember_abundance_indexes(const cube& indexes);

 private:
  void check_cube(const cube& c, const std::string& name) const;

  cube_ptr I_;
  cube_ptr s_;
  vector wavelengths_;
  vector illuminant_;
  matrix k_;
  matrix g_;
  matrix elements_;
  matrix endmembers_;
  labels endmember_labels_;
  cube element_abundances_;
  cube element_abundance_indexes_;
  cube endmember_abundances_;
  cube endmember_abundance_indexes_;
};

}  // namespace corv

#endif
