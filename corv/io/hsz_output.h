#ifndef CORV_IO_HSZ_OUTPUT_H
#define CORV_IO_HSZ_OUTPUT_H

#include <string>

#include "corv/io/output.h"

namespace corv {

// Writes a pipeline's dichromatic decomposition as an HSZ file: the illuminant
// as L, the specular coefficient k as K, and as S the material elements with
// their per-pixel abundances and the shading g; with a spectral library attached,
// also its spectra, labels and the endmember abundances. The pipeline must hold
// its material components (run material discovery first).
class hsz_output : public output {
 public:
  void write(pipeline& source, const std::string& file_name) override;
};

}  // namespace corv

#endif
