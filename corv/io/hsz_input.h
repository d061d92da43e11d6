#ifndef CORV_IO_HSZ_INPUT_H
#define CORV_IO_HSZ_INPUT_H

#include <string>

#include "corv/io/hsz_record.h"
#include "corv/io/input.h"

namespace corv {

// An HSZ file. The whole record is read at construction; each accessor rebuilds
// its component from it on demand, after checking the stored sizes against the
// header:
//   s(r, c, b) = sum over j of S abundance(r, c, j) x element[S index(r, c, j) - 1](b)
//   I(:, :, b) = L(b) x (g % s(:, :, b) + k)
// Element and endmember indexes are 1-based in the file and 0-based here.
class hsz_input : public input {
 public:
  // Throws "Error constructing HSZ: <reason>" when the file is refused, "Error
  // reading in HSZ file." when HDF5 fails to read it, and "hsz_input: NURBS
  // encoded spectra are not supported (Encoding<part>): <name>" for a file whose
  // spectra are stored as NURBS curves. With hold set, I and s are composed once
  // and kept.
  explicit hsz_input(const std::string& file_name, bool hold = false);

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
  int input_kind() const override { return kind_hsz; }
  using input::I;

  bool hold() const { return hold_; }
  void set_hold(bool hold);
  const std::string& file_name() const { return file_name_; }
  const hsz_record& record() const { return record_; }

 private:
  void check_pixels(const quantised::value_block& values, std::uint32_t slices,
                    const std::string& name) const;
  void check_pixels(const quantised::index_block& indexes, std::uint32_t slices,
                    const std::string& name) const;
  void check_elements(const quantised::value_block& elements, const std::string& part) const;
  cube compose_s() const;
  cube compose_I();
  cube_ptr held_s();
  cube_ptr held_I();

  std::string file_name_;
  hsz_record record_;
  bool hold_ = false;
  cube_ptr held_I_;
  cube_ptr held_s_;
};

}  // namespace corv

#endif
