#ifndef CORV_IO_ENVI_WRITER_H
#define CORV_IO_ENVI_WRITER_H

#include <memory>
#include <string>
#include <vector>

#include "corv/io/types.h"

namespace corv {

class safe_file;

// Writes a band-sequential ENVI pair, the header and the data file, piece by
// piece: blocks of rows with every band, or whole bands, in any order, so that
// a cube larger than memory can be written as it is computed. Both files are
// written under temporary names and put in place together by commit(); a
// writer destroyed before that leaves nothing behind.
//
// The header is hdr_output's. Data types 1, 2 and 12 store
// trunc(x / largest * type maximum), with `largest` the whole cube's largest
// value, given up front; type 4 stores x. Failures are logged and thrown with
// hdr_output's messages ("Cannot open file <name> for writing.", "Error
// writing HDR file.", "Error writing HDR data file.").
class envi_writer {
 public:
  // data_name is the data file; the header takes its stem and ".hdr".
  envi_writer(const std::string& data_name, arma::uword rows, arma::uword cols,
              const vector& wavelengths, int data_type, bool reflectance, double largest);
  ~envi_writer();
  envi_writer(const envi_writer&) = delete;
  envi_writer& operator=(const envi_writer&) = delete;

  // Rows first_row .. first_row + block.n_rows - 1 of every band.
  void write_rows(const cube& block, arma::uword first_row);
  // Rows first_row .. first_row + plane.n_rows - 1 of one band (all of it by
  // default).
  void write_band(const matrix& plane, arma::uword band, arma::uword first_row = 0);
  // Rows first_row .. first_row + count - 1 of one band, given line after line
  // as they lie in the image (element (r, c) at lines[r * columns + c]).
  void write_band_lines(const float* lines, arma::uword count, arma::uword band,
                        arma::uword first_row);
  // Puts the data file and then the header in place.
  void commit();

 private:
  // Writes `count` lines of a band from a column-major slice of that many rows.
  void write_slice(const float* slice, arma::uword count, arma::uword band, arma::uword first_row);
  // Lines of floats in the data type, into `to`.
  void convert(const float* lines, std::size_t count, char* to) const;
  // Room for `bytes` at a byte offset of the data file, in the staged bytes.
  char* stage(std::size_t bytes, std::uint64_t offset);
  void flush();
  // Writes bytes at a byte offset of the data file.
  void put(const char* bytes, std::size_t count, std::uint64_t offset);
  [[noreturn]] void fail() const;

  arma::uword rows_, cols_, bands_;
  int data_type_;
  std::size_t type_size_;
  double largest_ = 0.0;
  std::unique_ptr<safe_file> header_;
  std::unique_ptr<safe_file> data_;
  // Lines given a band at a time wait here until a write that does not follow
  // on, or a full buffer, sends them to the file in one call.
  std::vector<char> staged_;
  std::size_t staged_bytes_ = 0;
  std::uint64_t staged_offset_ = 0;
  std::uint64_t position_ = 0;  // of the data file's stream
  // A piece of a slice turned into lines, and stored in the data type.
  std::vector<float> lines_;
  std::vector<char> stored_;
};

// The data file hdr_output writes for a file name: the name itself, or for a
// ".hdr" name the same with ".fla". An empty name or one without an extension
// is logged and refused with hdr_output's messages.
std::string envi_data_name(const std::string& file_name);

// Refuses a data type other than 1, 2, 4 and 12 as hdr_output does: "Data type
// not valid for writing HDR!", logged and thrown.
void check_envi_data_type(int data_type);

// The header hdr_output writes for a cube of this size.
std::string envi_header_text(arma::uword rows, arma::uword cols, const vector& wavelengths,
                             int data_type, bool reflectance);

}  // namespace corv

#endif
