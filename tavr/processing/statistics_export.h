#ifndef TAVR_PROCESSING_STATISTICS_EXPORT_H
#define TAVR_PROCESSING_STATISTICS_EXPORT_H

#include <QString>
#include <QStringList>
#include <functional>

#include "corv/analysis/spatial_statistics.h"

namespace tavr {

class hs_image;

// The outcome of a statistics export: the files written, or the message for
// the user (empty on success and when the user cancelled).
struct statistics_export_result {
  QStringList files;
  QString message;
  bool cancelled = false;
};

// Writes the spatial statistics of a vector file's points and polygons over an
// image's irradiance or reflectance. `progress` gets the features done and
// their count and returns false to cancel; a cancelled or failed export leaves
// no file behind.
statistics_export_result export_statistics(
    hs_image& image, const corv::vector_features& features,
    const corv::spatial_statistics_request& request, bool reflectance,
    const std::function<bool(std::size_t done, std::size_t total)>& progress = {});

}  // namespace tavr

#endif
