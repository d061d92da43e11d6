#ifndef CORV_IO_INPUT_H
#define CORV_IO_INPUT_H

#include <cstdint>
#include <string>
#include <typeinfo>

#include "corv/io/types.h"

class GDALDataset;

namespace corv {

// Numbers returned by input::input_kind().
enum input_kinds : int {
  kind_hdr = 0,
  kind_hsz = 1,
  kind_data = 2,
  kind_component = 3,
  kind_tif = 4,
  kind_abstract = 5,
};

// A source of image components. Each accessor that a source cannot supply throws
// "<class>: Member '<name>' does not exist for this input.".
class input {
 public:
  virtual ~input();

  // Crops are inclusive: first row, first column, last row, last column.
  virtual cube I(const band_list& bands, int first_row, int first_col, int last_row, int last_col);
  virtual cube I(int first_row, int first_col, int last_row, int last_col);
  virtual cube I(const band_list& bands);
  virtual cube I();
  virtual cube_ptr I_ptr();
  virtual vector illuminant();
  virtual matrix k();
  virtual matrix g();
  virtual cube s();
  virtual cube_ptr s_ptr();
  virtual matrix elements();
  virtual matrix endmembers();
  virtual labels endmember_labels();
  virtual cube element_abundances();
  virtual cube element_abundance_indexes();
  virtual cube endmember_abundances();
  virtual cube endmember_abundance_indexes();
  virtual vector wavelengths();
  virtual GDALDataset* gdal_dataset_ptr();
  virtual int input_kind() const;

  std::uint32_t height() const { return height_; }
  std::uint32_t width() const { return width_; }
  std::uint32_t bands() const { return bands_; }

 protected:
  [[noreturn]] void missing_member(const std::string& name) const;

  std::uint32_t height_ = 0;
  std::uint32_t width_ = 0;
  std::uint32_t bands_ = 0;
};

// A type's name as the source spells it ("corv::tif_input").
std::string demangled_name(const std::type_info& type);

}  // namespace corv

#endif
