#include "tavr/camera/camera_calibration.h"

#include <QStringList>
#include <QXmlStreamReader>

namespace tavr {

camera_calibration fallback_calibration() {
  camera_calibration c;
  c.bands = 3;
  c.wavelengths = {0.0f, 1.0f, 2.0f};
  return c;
}

camera_calibration parse_calibration(const QByteArray& xml) {
  camera_calibration c;
  QString responses;
  bool have_responses = false;
  QXmlStreamReader reader(xml);
  while (!reader.atEnd() && !reader.hasError()) {
    if (reader.readNext() != QXmlStreamReader::StartElement) {
      continue;
    }
    const QStringRef name = reader.name();
    if (name == QLatin1String("fwhm")) {
      reader.skipCurrentElement();
    } else if (name == QLatin1String("nr_bands")) {
      c.bands = static_cast<int>(reader.readElementText().trimmed().toDouble());
    } else if (name == QLatin1String("offset_x")) {
      c.offset_x = static_cast<int>(reader.readElementText().trimmed().toDouble());
    } else if (name == QLatin1String("offset_y")) {
      c.offset_y = static_cast<int>(reader.readElementText().trimmed().toDouble());
    } else if (name == QLatin1String("mosaic_pattern_width")) {
      c.mosaic_width = static_cast<int>(reader.readElementText().trimmed().toDouble());
    } else if (name == QLatin1String("mosaic_pattern_height")) {
      c.mosaic_height = static_cast<int>(reader.readElementText().trimmed().toDouble());
    } else if (name == QLatin1String("band")) {
      const QStringList parts = reader.readElementText().split(',', Qt::SkipEmptyParts);
      if (!parts.isEmpty()) {
        c.wavelengths.push_back(parts.front().trimmed().toFloat());
      }
    } else if (name == QLatin1String("start_calibration_range")) {
      c.range_start = static_cast<int>(reader.readElementText().trimmed().toDouble());
    } else if (name == QLatin1String("end_calibration_range")) {
      c.range_end = static_cast<int>(reader.readElementText().trimmed().toDouble());
    } else if (name == QLatin1String("filter_responses")) {
      responses = reader.readElementText();
      have_responses = true;
    }
  }
  // The matrix is shaped once every size is known, whatever the order of the elements.
  // A damaged file cannot make it allocate more than a real calibration ever needs.
  const long long samples = static_cast<long long>(c.range_end) - c.range_start + 1;
  constexpr long long most_entries = 1LL << 24;
  if (have_responses && c.bands > 0 && samples > 0 && c.bands * samples <= most_entries) {
    c.filter_responses.zeros(c.bands, samples);
    const QStringList parts = responses.split(',');
    for (long long s = 0; s < samples; ++s) {
      for (int b = 0; b < c.bands; ++b) {
        const long long part = c.bands * s + b;
        if (part < parts.size()) {
          c.filter_responses(b, s) = parts[static_cast<int>(part)].trimmed().toFloat();
        }
      }
    }
  }
  return c;
}

}  // namespace tavr
