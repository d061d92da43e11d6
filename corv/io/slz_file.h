#ifndef CORV_IO_SLZ_FILE_H
#define CORV_IO_SLZ_FILE_H

#include <armadillo>
#include <string>
#include <vector>

namespace corv {

// The SLZ file of a spectral library as it is on disk: an HDF5 file whose
// numbers are held in quantised groups (16-bit "DATA" with "MAX" and "MIN"),
// written in this order:
//
//   /Endmembers                 DATA band count x endmember count, MAX, MIN
//   /Labels/DATA                one variable-length C string per endmember
//   /HDR/numEndmembers          quantised scalar
//   /HDR/wavelength             quantised vector (nm)
//   /HDR attribute wavelength_unit = "Nanometers", attribute metadata
//   /HDR/RGB                    endmember count x 3, only when there are colours
//
// Every dataset is one whole-extent chunk, deflated at level 6. The file is
// written under a temporary name and renamed into place, so a failed save never
// leaves a half-written library behind.
//
// The endmembers are held as float, the spectral library's own type: 16-bit
// quantisation steps are far coarser than float precision, and reading straight
// into float keeps loading a large library as fast as reading the file allows.
class slz_file {
 public:
  // The header first: setting endmembers checks them against it.
  void set_wavelengths(const arma::vec& wavelengths) { wavelengths_ = wavelengths; }
  void set_endmember_count(int count) { count_ = count; }
  // Throws "Incorrect Endmember number or wavelength size" unless the matrix
  // has one row per wavelength and one column per endmember of the header.
  void set_endmembers(const arma::fmat& endmembers);
  // Throws "Incorrect Endmember number or wavelength size" unless there is one
  // label per endmember of the header.
  void set_labels(const std::vector<std::string>& labels);
  void set_metadata(const std::string& metadata) { metadata_ = metadata; }
  // One row of red, green, blue per endmember, or empty for none.
  void set_colours(const arma::mat& colours);

  const arma::vec& wavelengths() const { return wavelengths_; }
  int endmember_count() const { return count_; }
  const arma::fmat& endmembers() const { return endmembers_; }
  // Moves the endmembers out (a large library need not be copied once more).
  arma::fmat take_endmembers() { return std::move(endmembers_); }
  const std::vector<std::string>& labels() const { return labels_; }
  const std::string& wavelength_unit() const { return unit_; }
  const std::string& metadata() const { return metadata_; }
  const arma::mat& colours() const { return colours_; }

  // With overwrite clear, an existing file is refused ("File already exists: "
  // and the name). HDF5 failures throw "HDF5 Error in <operation>: <text>".
  void save(const std::string& file_name, bool overwrite) const;
  // Replaces everything with the file's contents. A file without the
  // "metadata" attribute (an older file) is accepted with a note on stdout. The
  // HDF5 library reads the file in a child process only: a file on which it
  // crashes or loops is refused with "Damaged file: <name>: <why>." (see
  // hdf5_file::read_in_child).
  void load(const std::string& file_name);

 private:
  // Reads the file into this object; true when it is an older file without
  // metadata.
  bool read(const std::string& file_name);
  // The contents through the pipe of the child that read them (see load).
  template <typename Channel, typename File>
  static void transfer(Channel& channel, File& file);

  arma::vec wavelengths_;
  int count_ = 0;
  arma::fmat endmembers_;
  std::vector<std::string> labels_;
  std::string unit_ = "Nanometers";
  std::string metadata_;
  arma::mat colours_;
};

}  // namespace corv

#endif
