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
// With the pipeline's NURBS encoding on, the spectra of L and S are stored as
// curves on one knot vector per part (generate_nurbs with the pipeline's NURBS
// settings): EncodingL and EncodingS are "NURBS", Elements stays empty, and
// ElementKnots holds the knot vector and ElementCP the control points (one row
// per point, one column per curve; slice 0 their wavelengths, slice 1 their
// values); "degreeNURBSL" and "degreeNURBSS" record the curves' degree. K keeps
// the illuminant as it is.
class hsz_output : public output {
 public:
  void write(pipeline& source, const std::string& file_name) override;
};

}  // namespace corv

#endif
