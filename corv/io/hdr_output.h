#ifndef CORV_IO_HDR_OUTPUT_H
#define CORV_IO_HDR_OUTPUT_H

#include <string>

#include "corv/io/output.h"
#include "corv/io/types.h"

namespace corv {

// Writes I (or s) of a pipeline as an ENVI header and a band-sequential data file.
// Data types: 1 (8-bit), 2 (signed 16-bit), 12 (unsigned 16-bit), all scaled so that
// the cube's largest value is the type's largest; 4 (32-bit float) unchanged.
class hdr_output : public output {
 public:
  hdr_output(bool reflectance, int data_type);
  void write(pipeline& source, const std::string& file_name) override;

  bool reflectance() const { return reflectance_; }
  int data_type() const { return data_type_; }

  // The header text for a cube of this output's data type.
  std::string header_text(const cube& data, const vector& wavelengths) const;

 private:
  bool reflectance_;
  int data_type_;
};

// Writes one cube with its wavelengths as an ENVI pair; the same steps and messages
// as hdr_output::write, for callers that hold the cube themselves.
void write_envi(const cube& data, const vector& wavelengths, const std::string& file_name,
                int data_type, bool reflectance);

}  // namespace corv

#endif
