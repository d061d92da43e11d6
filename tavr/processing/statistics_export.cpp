#include "tavr/processing/statistics_export.h"

#include <QFileInfo>
#include <exception>

#include "tavr/image/component_probe.h"
#include "tavr/image/hs_image.h"

namespace tavr {

statistics_export_result export_statistics(
    hs_image& image, const corv::vector_features& features,
    const corv::spatial_statistics_request& request, bool reflectance,
    const std::function<bool(std::size_t done, std::size_t total)>& progress) {
  statistics_export_result result;
  bool stopped = false;
  auto watched = [&](std::size_t done, std::size_t total) {
    stopped = progress && !progress(done, total);
    return !stopped;
  };
  try {
    corv::pipeline& p = image.pipeline();
    const corv::cube* data = reflectance ? component_or_null(p, &corv::pipeline::s) : &p.I();
    if (data == nullptr) {
      result.message = QFileInfo(image.file_name()).fileName() +
                       " does not have reflectance, please process it first.";
      return result;
    }
    for (const std::string& file :
         corv::write_spatial_statistics(*data, p.wavelengths(), features, request, watched)) {
      result.files << QString::fromStdString(file);
    }
  } catch (const std::exception& error) {
    result.cancelled = stopped;
    if (!stopped) {
      result.message = QString::fromStdString(error.what());
    }
  }
  return result;
}

}  // namespace tavr
