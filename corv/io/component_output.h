#ifndef CORV_IO_COMPONENT_OUTPUT_H
#define CORV_IO_COMPONENT_OUTPUT_H

#include <string>

#include "corv/io/output.h"

namespace corv {

// Writes every component a pipeline has as its own ENVI pair (32-bit float, band
// sequential) in one directory, all named after one prefix, plus the spectral
// library. For "dir/scene" the files are, in writing order:
//   scene_I, scene_illuminant, scene_k, scene_g, scene_s, scene_elements,
//   scene_abundances, scene_indexes, scene_endindexes, scene_endabundances
// (each a ".hdr" header beside its ".fla" data file) and scene_spectral_library.slz.
// Components the pipeline lacks are logged and skipped.
//
// Layouts, chosen so that every component reads back exactly and spectra stay
// spectra for any ENVI reader:
//   I, s                 height x width x bands, the image's wavelengths; s is
//                        described as REFLECTANCE, everything else as IRRADIANCE
//   illuminant           1 x 1 x bands, the image's wavelengths
//   elements             1 x m x bands: one sample per element spectrum, the
//                        image's wavelengths
//   k, g                 height x width x 1
//   abundances, indexes  height x width x N, N per-pixel entries
// Non-spectral components have no wavelengths, but an ENVI header needs one per
// band: their bands are numbered 1..N instead.
class component_output : public output {
 public:
  // The setting is kept for callers that pass format options; writing ignores it.
  explicit component_output(unsigned setting = 0) : setting_(setting) {}
  void write(pipeline& source, const std::string& file_name) override;

  unsigned setting() const { return setting_; }

 private:
  unsigned setting_;
};

}  // namespace corv

#endif
