#ifndef CORV_IO_HSZ_RECORD_H
#define CORV_IO_HSZ_RECORD_H

#include <cstdint>
#include <string>
#include <vector>

#include "corv/io/quantised_storage.h"

namespace corv {

// The header of an HSZ file: its numbers (each a quantised scalar group under
// /HDR, so that only the low 16 bits of each come back) and its strings
// (attributes of /HDR).
struct hsz_header {
  std::int32_t samples = 0;
  std::int32_t lines = 0;
  std::int32_t bands = 0;
  std::int32_t endmember_indexed_l = 0;
  std::int32_t endmember_indexed_s = 0;
  std::int32_t indexed_k = 0;
  std::int32_t indexed_l = 0;
  std::int32_t indexed_s = 0;
  std::int32_t byteorder = 0;
  std::int32_t datatype = 12;
  std::int32_t header_offset = 0;
  std::int32_t num_elements_k = 0;
  std::int32_t num_elements_l = 0;
  std::int32_t num_elements_s = 0;
  std::int32_t num_endmembers_l = 0;
  std::int32_t num_endmembers_s = 0;
  std::int32_t reflectance_scaler = 0;
  std::int32_t num_gmms_k = 0;
  std::int32_t num_gmms_l = 0;
  std::int32_t num_gmms_s = 0;
  std::vector<double> wavelengths;
  std::string interleave;
  std::string description;
  std::string method;
  std::string sensor;     // written only when not empty
  std::string allothers;  // written only when not empty
  std::string encoding_k;
  std::string encoding_l;
  std::string encoding_s;
  // NURBS curve degrees ("degreeNURBSK", ...), -1 when the file does not carry
  // them; written only when set (hsz_output sets those of its NURBS parts).
  std::int32_t degree_nurbs_k = -1;
  std::int32_t degree_nurbs_l = -1;
  std::int32_t degree_nurbs_s = -1;
};

// The endmember header of L or S: the library's wavelengths, its size and one
// label per endmember (attributes "MAT0", "MAT1", ...).
struct hsz_endmember_header {
  std::vector<double> wavelengths;
  std::int32_t count = 0;
  std::vector<std::string> labels;
  std::string wavelength_unit;
};

// The nine arrays of one part (K, L or S), in the file's order. The index arrays
// hold 1-based element numbers, as the file does.
struct hsz_part {
  quantised::index_block element_abundance_indexes;
  quantised::value_block element_abundances;
  quantised::value_block elements;  // one spectrum per column
  quantised::value_block element_knots;
  quantised::value_block element_cp;
  quantised::index_block endmember_abundance_indexes;
  quantised::value_block endmember_abundances;
  quantised::value_block endmembers;
  quantised::value_block factor;
};

// An HSZ file in memory: header, two endmember headers and 3 x 9 arrays. Does
// all the HDF5 work of reading and writing HSZ files.
struct hsz_record {
  hsz_header header;
  hsz_endmember_header endmembers_l;
  hsz_endmember_header endmembers_s;
  hsz_part k;
  hsz_part l;
  hsz_part s;
  int deflate_level = quantised::default_deflate_level;

  // Lines, samples and bands are positive, there is one wavelength per band and
  // one label per endmember.
  bool valid() const;

  // Writes the file under a temporary name beside it and renames it into place,
  // so that a failed save leaves no partial file. Throws (after logging) "HSZ
  // Save: invalid object" and "HSZ Save: File already exists: <name>" (when
  // overwrite is clear). An HDF5 failure is logged as "HSZ Save: <error> in:
  // <location>" and returns false, with the error's text in `failure` when given.
  bool save(const std::string& file_name, bool overwrite, std::string* failure = nullptr) const;

  // Replaces the record with the file's contents. Throws "HSZ Read: Invalid file
  // name: <name>" (empty, missing or not HDF5), "HSZ Read: unknown group under
  // root: <name>", "Unknown HDR parameter: <name>" and "HSZ Read: unknown sub
  // group name: <name> in root group: <part>". An HDF5 failure is logged as
  // "HSZ Read: <error>\nLocation: <location>" and returns false. On failure the
  // record is left as it was. The HDF5 library reads the file in a child
  // process only: a file on which it crashes or loops is refused with "HSZ
  // Read: <name> is damaged: <why>." (see hdf5_file::read_in_child).
  bool load(const std::string& file_name);

 private:
  // Reads the file into this (empty) record; HDF5 failures throw hdf5_error.
  void read(const std::string& file_name);
};

}  // namespace corv

#endif
