#include "tavr/image/image_information.h"

#include <exception>

#include "corv/io/envi_header.h"
#include "corv/io/hdr_input.h"
#include "tavr/image/hs_image.h"

namespace tavr {

namespace {

QString exposure_times_of(corv::pipeline& image) {
  const auto* envi = dynamic_cast<const corv::hdr_input*>(image.source().get());
  if (envi != nullptr) {
    try {
      const corv::envi_header header = corv::envi_header::read(envi->header_file());
      for (const char* key : {"exposure times", "exposure time", "exposure"}) {
        if (header.has(key)) {
          const auto braced = header.braced_text(key);
          return QString::fromStdString(braced ? *braced : header.value(key)).simplified();
        }
      }
    } catch (const std::exception&) {
      // A header that cannot be read again records nothing more.
    }
  }
  return QStringLiteral("not recorded");
}

}  // namespace

image_information information_of(hs_image& image) {
  image_information info;
  corv::pipeline& p = image.pipeline();
  info.file_name = image.file_name();
  info.height = p.height();
  info.width = p.width();
  info.slices = p.bands();
  info.exposure_times = exposure_times_of(p);
  info.pipeline_settings = image.settings_summary();
  return info;
}

}  // namespace tavr
