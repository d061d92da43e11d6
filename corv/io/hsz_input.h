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
// A part whose encoding is "NURBS" stores its element spectra as curves: the
// knot vector in ElementKnots and the control points in ElementCP (one row per
// point, one column per spectrum; slice 0 their wavelengths, slice 1 their
// values). They are read back at the header's wavelengths (nurbs_evaluate).
// The curves' degree is the header's "degreeNURBSK", "degreeNURBSL" or
// "degreeNURBSS" when the file carries it, else the NURBS degree this input was
// given (the pipeline's), a degree below 2 counting as 2 as for the encoder.
class hsz_input : public input {
 public:
  // Throws "Error constructing HSZ: <reason>" when the file is refused and
  // "Error reading in HSZ file." when HDF5 fails to read it. With hold set, I
  // and s are composed once and kept.
  explicit hsz_input(const std::string& file_name, bool hold = false, int nurbs_degree = 2);

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
  int nurbs_degree() const { return nurbs_degree_; }
  void set_nurbs_degree(int degree);
  const std::string& file_name() const { return file_name_; }
  const hsz_record& record() const { return record_; }

 private:
  void check_pixels(const quantised::value_block& values, std::uint32_t slices,
                    const std::string& name) const;
  void check_pixels(const quantised::index_block& indexes, std::uint32_t slices,
                    const std::string& name) const;
  void check_elements(const quantised::value_block& elements, const std::string& part) const;
  // The element spectra of a part (bands x elements, column-major): as stored,
  // or rebuilt from its curves when its encoding is "NURBS".
  std::vector<double> element_spectra(const hsz_part& part, const std::string& encoding,
                                      std::int32_t stored_degree, const std::string& name,
                                      std::size_t& count) const;
  std::vector<double> curve_spectra(const hsz_part& part, std::int32_t stored_degree,
                                    const std::string& name, std::size_t& count) const;
  cube compose_s() const;
  cube compose_I();
  cube_ptr held_s();
  cube_ptr held_I();

  std::string file_name_;
  hsz_record record_;
  bool hold_ = false;
  int nurbs_degree_ = 2;
  cube_ptr held_I_;
  cube_ptr held_s_;
};

}  // namespace corv

#endif
