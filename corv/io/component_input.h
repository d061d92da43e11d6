#ifndef CORV_IO_COMPONENT_INPUT_H
#define CORV_IO_COMPONENT_INPUT_H

#include <array>
#include <memory>
#include <string>

#include "corv/io/input.h"

namespace corv {

class hdr_input;
class spectral_library;

// A set of component files as component_output writes them (see
// component_output.h for the names and layouts): every file of the set that
// exists is opened, the sizes of what was found are checked against each other,
// and each component is read when it is asked for. Missing files are not an
// error; a set with none of its files is.
//
// Two components are rebuilt when their file is absent: I from illuminant, k, g
// and s by the dichromatic model, I(:,:,b) = L(b) * (g % s(:,:,b) + k); and s,
// either by inverting that model from I, illuminant, k and g (values that come
// out infinite or NaN, where g or L(b) is 0, become 0), or else as each pixel's
// mix of material elements, s(r,c,:) = sum_j abundance(r,c,j) * element
// index(r,c,j), with element numbers counted from 0. The endmembers and their
// labels come from the set's spectral library file.
class component_input : public input {
 public:
  component_input(const std::string& directory, const std::string& prefix);
  ~component_input() override;

  using input::I;
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
  int input_kind() const override { return kind_component; }

  const std::string& directory() const { return directory_; }
  const std::string& prefix() const { return prefix_; }

 private:
  // The image files of a set, in the order they are written and looked for.
  enum part : std::size_t {
    part_I,
    part_illuminant,
    part_k,
    part_g,
    part_s,
    part_elements,
    part_abundances,
    part_indexes,
    part_endindexes,
    part_endabundances,
    part_count
  };

  void open_files();
  void check_sizes();
  bool has(part p) const { return static_cast<bool>(files_[p]); }
  cube read(part p, const char* member);
  cube_ptr image(const char* member);
  cube_ptr reflectance(const char* member);
  bool can_rebuild_s_from_elements() const;

  std::string directory_;
  std::string prefix_;
  std::array<std::unique_ptr<hdr_input>, part_count> files_;
  std::shared_ptr<spectral_library> library_;
  cube_ptr I_;
  cube_ptr s_;
};

}  // namespace corv

#endif
