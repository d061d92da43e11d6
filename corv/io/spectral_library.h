#ifndef CORV_IO_SPECTRAL_LIBRARY_H
#define CORV_IO_SPECTRAL_LIBRARY_H

#include <string>
#include <vector>

#include "corv/io/types.h"

namespace corv {

// A named set of reference spectra (endmembers) sampled at one set of
// wavelengths in nm: one column of `endmembers` per spectrum, one row per band.
// Every endmember has a label and the name of the file it came from ("nofile"
// when it was added without one). Colours are optional: either none, or one row
// of red, green, blue (0-255) per endmember.
//
// Colours of spectra created or added in memory come from a fixed qualitative
// palette of ten colours, cycled by the endmember's index in the library, so that
// neighbours in the library manager are told apart and a colour never depends on
// the spectrum's values. A library read from a file without colours stays
// without, and the endmembers later added to it too, so that saving it writes no
// colour group it did not have.
//
// A missing point (for instance the "data ignore value" of an imported ENVI
// library) is held as NaN; such a library can be used and exported to CSV but
// not saved as SLZ, whose quantised storage has no code for it.
class spectral_library {
 public:
  spectral_library() = default;
  // Throws "spectral_library: Error: Incompatible dimensions." unless there is
  // one label per column and one wavelength per row.
  spectral_library(const matrix& endmembers, const std::vector<std::string>& labels,
                   const vector& wavelengths);

  // Appends spectra (one per column) with their labels, all from one source file.
  void add_endmembers(const matrix& spectra, const std::vector<std::string>& labels,
                      const std::string& source = "nofile");
  // Appends the other library's endmembers. With re_evaluate, they are first
  // resampled by linear interpolation onto this library's wavelengths; a
  // wavelength outside the other library's range is refused, never extrapolated.
  // Into a library without wavelengths, the other library is taken as it is.
  void merge(const spectral_library& other, bool re_evaluate = false);

  const matrix& endmembers() const;
  const std::vector<std::string>& labels() const;
  const vector& wavelengths() const;
  const std::vector<std::string>& sources() const { return sources_; }
  const matrix& colours() const { return colours_; }
  bool has_colours() const { return !colours_.empty(); }
  const std::string& metadata() const { return metadata_; }

  arma::uword size() const { return endmembers_.n_cols; }
  arma::uword bands() const { return wavelengths_.n_elem; }
  bool empty() const { return endmembers_.empty(); }

  // A vector of another length discards the endmembers (with their labels,
  // sources and colours) and logs that it did.
  void set_wavelengths(const vector& wavelengths);
  void set_labels(const std::vector<std::string>& labels);
  // One row of red, green, blue (0-255) per endmember, or an empty matrix for none.
  void set_colours(const matrix& colours);
  void set_sources(const std::vector<std::string>& sources);
  void set_metadata(const std::string& metadata) { metadata_ = metadata; }

  // Endmembers that hold at least one missing (non-finite) point, by index.
  std::vector<arma::uword> incomplete_endmembers() const;

  // Reads an SLZ file, replacing everything; every endmember's source becomes
  // the file's name.
  void load(const std::string& file_name);
  // Writes an SLZ file, replacing an existing one.
  void save(const std::string& file_name) const;

  // The palette colours of the endmembers first, first + 1, ... (count x 3).
  static matrix palette_colours(arma::uword first, arma::uword count);

 private:
  void append(const matrix& spectra, const std::vector<std::string>& labels,
              const std::vector<std::string>& sources, const matrix& colours);

  matrix endmembers_;
  std::vector<std::string> labels_;
  vector wavelengths_;
  std::vector<std::string> sources_;
  matrix colours_;
  std::string metadata_;
};

}  // namespace corv

#endif
