#include "tavr/camera/camera_preferences.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>
#include <algorithm>
#include <cstdlib>

namespace tavr {

camera_preferences camera_preferences::defaults() {
  camera_preferences p;
  QString pictures = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
  if (pictures.isEmpty()) {
    pictures = QDir::homePath();
  }
  p.image_folder = QDir(pictures).filePath("Tavrel");
  p.sequence_folder = QDir(p.image_folder).filePath("sequences");
  return p;
}

camera_preferences camera_preferences::load(const QSettings& settings) {
  camera_preferences p = defaults();
  const auto text = [&](const char* key, const QString& fallback) {
    return settings.value(QStringLiteral("camera/") + key, fallback).toString();
  };
  const auto number = [&](const char* key, double fallback) {
    bool ok = false;
    const double value = settings.value(QStringLiteral("camera/") + key, fallback).toDouble(&ok);
    return ok ? value : fallback;
  };
  const auto flag = [&](const char* key, bool fallback) {
    return settings.value(QStringLiteral("camera/") + key, fallback).toBool();
  };
  p.exposure_mode = text("exposure_mode", p.exposure_mode) == "manual" ? "manual" : "auto";
  p.exposure_ms = number("exposure_ms", p.exposure_ms);
  p.gain_db = number("gain_db", p.gain_db);
  p.bit_depth = static_cast<int>(number("bit_depth", p.bit_depth)) == 8 ? 8 : 10;
  p.smoothed = flag("smoothed", p.smoothed);
  p.smoothed_bands =
      std::clamp(static_cast<int>(number("smoothed_bands", p.smoothed_bands)), 2, 200);
  p.image_name = text("image_name", p.image_name);
  p.counter_start = static_cast<int>(number("counter_start", p.counter_start));
  p.increment = std::max(1, static_cast<int>(number("increment", p.increment)));
  p.digits = std::clamp(static_cast<int>(number("digits", p.digits)), 1, 9);
  p.remember_counter = flag("remember_counter", p.remember_counter);
  p.image_folder = text("image_folder", p.image_folder);
  p.sequence_folder = text("sequence_folder", p.sequence_folder);
  p.show_at_live_start = flag("show_at_live_start", p.show_at_live_start);
  return p;
}

void camera_preferences::save(QSettings& settings) const {
  settings.beginGroup("camera");
  settings.setValue("exposure_mode", exposure_mode);
  settings.setValue("exposure_ms", exposure_ms);
  settings.setValue("gain_db", gain_db);
  settings.setValue("bit_depth", bit_depth);
  settings.setValue("smoothed", smoothed);
  settings.setValue("smoothed_bands", smoothed_bands);
  settings.setValue("image_name", image_name);
  settings.setValue("counter_start", counter_start);
  settings.setValue("increment", increment);
  settings.setValue("digits", digits);
  settings.setValue("remember_counter", remember_counter);
  settings.setValue("image_folder", image_folder);
  settings.setValue("sequence_folder", sequence_folder);
  settings.setValue("show_at_live_start", show_at_live_start);
  settings.endGroup();
}

QString numbered_name(const QString& name, int counter, int digits) {
  const QString number = QString::number(std::abs(static_cast<long long>(counter)))
                             .rightJustified(std::max(1, digits), QLatin1Char('0'));
  return name + QLatin1Char('_') + (counter < 0 ? QStringLiteral("-") : QString()) + number;
}

QString capture_counter::take(const QString& folder, const QString& name, int increment,
                              int digits) {
  const QDir dir(folder);
  const int step = std::max(1, increment);
  QString path;
  do {
    path = dir.filePath(numbered_name(name, next_, digits) + ".hdr");
    next_ += step;
  } while (QFileInfo::exists(path) || QFileInfo::exists(path.chopped(4) + ".fla"));
  return path;
}

}  // namespace tavr
