#ifndef CORV_IO_ENVI_LIBRARY_H
#define CORV_IO_ENVI_LIBRARY_H

#include <string>

#include "corv/io/spectral_library.h"

namespace corv {

// What becomes of a spectrum that has missing points: points at the header's
// "data ignore value", or points that are not finite numbers.
enum class missing_points {
  keep,  // kept, the missing points as NaN
  drop,  // the whole spectrum is left out (and the count logged)
};

// Imports spectra stored by ENVI. The name may be the header (".hdr") or the
// data file (".sli", no extension, or any other) beside it.
//
// - "file type = ENVI Spectral Library": one spectrum per line, one channel per
//   sample, bands = 1; labels from "spectra names".
// - An ENVI image ("ENVI Standard", or no file type) one sample wide or one line
//   high: every pixel is a spectrum, in line order, its channels the image's
//   bands, whatever the interleave. Such images carry no names: spectrum n (from
//   1) is labelled with the data file's stem and n ("ecostress_snow_mixtures 7").
//   An image with more than one line and sample is refused: it is a scene, not
//   a list of spectra.
//
// Data types 4 (float) and 5 (double) in either byte order, after "header
// offset" bytes. Wavelengths come from "wavelength" and are returned in nm:
// "wavelength units" of micrometres (Micrometers, um, microns) are multiplied by
// 1000, Nanometers are kept; without units (or "Unknown"), wavelengths that are
// all below 100 are taken as micrometres, others as nm. Other units (wavenumber,
// GHz, index) are refused. Values are kept as stored: "reflectance scale factor"
// is not applied. The header's description becomes the library's metadata, and
// every endmember's source is the data file.
spectral_library read_envi_library(const std::string& file_name,
                                   missing_points missing = missing_points::keep);

}  // namespace corv

#endif
