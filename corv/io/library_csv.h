#ifndef CORV_IO_LIBRARY_CSV_H
#define CORV_IO_LIBRARY_CSV_H

#include <string>

#include "corv/io/spectral_library.h"

namespace corv {

// Spectral libraries as comma-separated text (RFC 4180 quoting, "\n" or "\r\n"
// line ends, an optional UTF-8 byte order mark, blank lines skipped, blanks
// around unquoted cells ignored). Wavelengths are in nm.
//
// Written, and read, one spectrum per column:
//
//   wavelength,grass,"tile, red"
//   400,0.05,0.12
//   410,0.06,0.13
//
// Also read one spectrum per row, the layout of many field and lab libraries:
// a header row of wavelengths after a first cell such as "name", then per row
// a label followed by the values. A file is read this way when every header cell
// after the first is a number and the first header cell does not start with
// "wavelength"; otherwise it is read one spectrum per column.
//
// An empty cell is a missing value (NaN), except for a wavelength, which must
// be given. Missing values are written as empty cells.
spectral_library read_library_csv(const std::string& file_name);
// Numbers are written in their shortest form that reads back to the same float.
void write_library_csv(const spectral_library& library, const std::string& file_name);

}  // namespace corv

#endif
