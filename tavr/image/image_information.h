#ifndef TAVR_IMAGE_IMAGE_INFORMATION_H
#define TAVR_IMAGE_IMAGE_INFORMATION_H

#include <QString>

namespace tavr {

class hs_image;

// What the image information dialog shows of an image.
struct image_information {
  QString file_name;
  unsigned height = 0;
  unsigned width = 0;
  unsigned slices = 0;
  // The exposure times the image's file records ("not recorded" when none).
  QString exposure_times;
  // The image object's "Pipeline settings:" summary.
  QString pipeline_settings;
};

// Gathers the information of an image. Exposure times come from an ENVI
// header's "exposure time", "exposure times" or "exposure" item, as written.
image_information information_of(hs_image& image);

}  // namespace tavr

#endif
