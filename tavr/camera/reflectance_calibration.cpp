#include "tavr/camera/reflectance_calibration.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <cmath>
#include <stdexcept>
#include <string>

#include "corv/io/hdr_input.h"
#include "corv/io/hdr_output.h"

namespace tavr {

const QString reflectance_references::dark_file = QStringLiteral("dark_reference.hdr");
const QString reflectance_references::white_file = QStringLiteral("white_reference.hdr");
const QString reflectance_references::exposure_file = QStringLiteral("camera_references.ini");

namespace {

std::string size_of(const corv::cube& c) {
  return std::to_string(c.n_rows) + " x " + std::to_string(c.n_cols) + " x " +
         std::to_string(c.n_slices);
}

void check_matches(const reference_capture& reference, const char* which, const corv::cube& raw,
                   const corv::vector& wavelengths) {
  if (arma::size(reference.cube) != arma::size(raw)) {
    throw std::runtime_error(std::string("reflectance_references: The ") + which +
                             " reference is " + size_of(reference.cube) + " but the capture is " +
                             size_of(raw) + ".");
  }
  if (reference.wavelengths.n_elem != wavelengths.n_elem ||
      arma::any(arma::abs(reference.wavelengths - wavelengths) > 0.01f)) {
    throw std::runtime_error(std::string("reflectance_references: The ") + which +
                             " reference has other wavelengths than the capture.");
  }
}

}  // namespace

double exposure_ratio(double capture_exposure_us, double capture_gain_db, double white_exposure_us,
                      double white_gain_db) {
  if (capture_exposure_us <= 0.0 || white_exposure_us <= 0.0) {
    return 1.0;
  }
  return white_exposure_us / capture_exposure_us *
         std::pow(10.0, (white_gain_db - capture_gain_db) / 20.0);
}

void reflectance_references::clear() {
  dark_.reset();
  white_.reset();
}

corv::cube reflectance_references::reflectance(const corv::cube& raw,
                                               const corv::vector& wavelengths, double exposure_us,
                                               double gain_db) const {
  if (!complete()) {
    throw std::runtime_error(std::string("reflectance_references: The ") +
                             (dark_ ? "white" : "dark") + " reference is missing.");
  }
  check_matches(*dark_, "dark", raw, wavelengths);
  check_matches(*white_, "white", raw, wavelengths);
  const auto ratio = static_cast<float>(
      exposure_ratio(exposure_us, gain_db, white_->exposure_us, white_->gain_db));
  corv::cube out(arma::size(raw));
  const float* r = raw.memptr();
  const float* d = dark_->cube.memptr();
  const float* w = white_->cube.memptr();
  float* o = out.memptr();
  const auto count = static_cast<long long>(raw.n_elem);
#pragma omp parallel for schedule(static)
  for (long long i = 0; i < count; ++i) {
    o[i] = reflectance_of(r[i], d[i], w[i], ratio);
  }
  return out;
}

void reflectance_references::save(const QString& folder) const {
  if (!QDir().mkpath(folder)) {
    throw std::runtime_error("reflectance_references: Cannot create the folder " +
                             folder.toStdString() + ".");
  }
  const QDir dir(folder);
  const std::pair<const std::optional<reference_capture>*, QString> files[] = {
      {&dark_, dark_file}, {&white_, white_file}};
  for (const auto& [reference, name] : files) {
    if (*reference) {
      corv::write_envi((*reference)->cube, (*reference)->wavelengths,
                       dir.filePath(name).toStdString(), 4, false);
    }
  }
  QSettings exposures(dir.filePath(exposure_file), QSettings::IniFormat);
  exposures.clear();
  for (const auto& [reference, name] : files) {
    if (*reference) {
      const QString group = QFileInfo(name).completeBaseName();
      exposures.setValue(group + "/exposure_us", (*reference)->exposure_us);
      exposures.setValue(group + "/gain_db", (*reference)->gain_db);
    }
  }
  exposures.sync();
  if (exposures.status() != QSettings::NoError) {
    throw std::runtime_error("reflectance_references: Cannot write " +
                             dir.filePath(exposure_file).toStdString() + ".");
  }
}

void reflectance_references::load(const QString& folder) {
  const QDir dir(folder);
  const QSettings exposures(dir.filePath(exposure_file), QSettings::IniFormat);
  std::optional<reference_capture> loaded[2];
  const QString names[2] = {dark_file, white_file};
  for (int i = 0; i < 2; ++i) {
    const QString path = dir.filePath(names[i]);
    const QString group = QFileInfo(names[i]).completeBaseName();
    if (!QFileInfo::exists(path) || !exposures.contains(group + "/exposure_us")) {
      continue;
    }
    corv::hdr_input input(path.toStdString());
    reference_capture capture;
    capture.cube = input.I();
    capture.wavelengths = input.wavelengths();
    capture.exposure_us = exposures.value(group + "/exposure_us").toDouble();
    capture.gain_db = exposures.value(group + "/gain_db").toDouble();
    loaded[i] = std::move(capture);
  }
  dark_ = std::move(loaded[0]);
  white_ = std::move(loaded[1]);
}

}  // namespace tavr
