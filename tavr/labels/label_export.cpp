#include "tavr/labels/label_export.h"

#include <QSaveFile>
#include <charconv>
#include <cmath>
#include <stdexcept>

namespace tavr {

namespace {

void append_number(QByteArray& line, float value) {
  if (!std::isfinite(value)) {
    return;  // a missing value is an empty cell
  }
  char text[32];
  const auto written = std::to_chars(text, text + sizeof text, value);
  line.append(text, static_cast<int>(written.ptr - text));
}

QByteArray csv_cell(const QString& text) {
  QByteArray cell = text.toUtf8();
  if (cell.contains(',') || cell.contains('"') || cell.contains('\n') || cell.contains('\r')) {
    cell.replace("\"", "\"\"");
    cell = '"' + cell + '"';
  }
  return cell;
}

}  // namespace

QVector<QPoint> pixels_inside(const QPolygonF& polygon, int width, int height) {
  QVector<QPoint> pixels;
  const QRect bounds =
      polygon.boundingRect().toAlignedRect().intersected(QRect(0, 0, width, height));
  for (int y = bounds.top(); y <= bounds.bottom(); ++y) {
    for (int x = bounds.left(); x <= bounds.right(); ++x) {
      if (polygon.containsPoint(QPointF(x + 0.5, y + 0.5), Qt::OddEvenFill)) {
        pixels.append(QPoint(x, y));
      }
    }
  }
  return pixels;
}

corv::vector mean_spectrum(const corv::cube& data, const QVector<QPoint>& pixels) {
  if (pixels.isEmpty()) {
    return {};
  }
  arma::vec sum(data.n_slices, arma::fill::zeros);
  for (const QPoint& p : pixels) {
    const auto row = static_cast<arma::uword>(p.y());
    const auto col = static_cast<arma::uword>(p.x());
    for (arma::uword b = 0; b < data.n_slices; ++b) {
      sum(b) += static_cast<double>(data(row, col, b));
    }
  }
  return arma::conv_to<corv::vector>::from(sum / static_cast<double>(pixels.size()));
}

corv::spectral_library polygon_endmembers(const corv::cube& data, const corv::vector& wavelengths,
                                          const QList<polygon_label>& labels) {
  corv::matrix spectra(data.n_slices, static_cast<arma::uword>(labels.size()));
  corv::matrix colours(static_cast<arma::uword>(labels.size()), 3);
  std::vector<std::string> names;
  for (int i = 0; i < labels.size(); ++i) {
    const polygon_label& label = labels[i];
    const QVector<QPoint> pixels =
        pixels_inside(label.polygon, static_cast<int>(data.n_cols), static_cast<int>(data.n_rows));
    if (pixels.isEmpty()) {
      throw std::runtime_error("polygon_endmembers: Label " + label.label.toStdString() +
                               " covers no pixel.");
    }
    const auto column = static_cast<arma::uword>(i);
    spectra.col(column) = mean_spectrum(data, pixels);
    colours(column, 0) = static_cast<float>(label.colour.red());
    colours(column, 1) = static_cast<float>(label.colour.green());
    colours(column, 2) = static_cast<float>(label.colour.blue());
    names.push_back(label.label.toStdString());
  }
  corv::spectral_library library(spectra, names, wavelengths);
  library.set_colours(colours);
  return library;
}

bool write_polygon_csv(const QString& image_name, const corv::cube& data,
                       const corv::vector& wavelengths, const QList<polygon_label>& labels,
                       const QString& file_name, const export_progress& progress) {
  const std::runtime_error failure("export_polygon_data: Cannot write " + file_name.toStdString() +
                                   ".");
  QSaveFile file(file_name);
  if (!file.open(QIODevice::WriteOnly)) {
    throw failure;
  }
  QByteArray line = "image,x,y,label,";
  for (const float wavelength : wavelengths) {
    append_number(line, wavelength);
    line += ',';
  }
  line += '\n';
  file.write(line);
  const QByteArray image = csv_cell(image_name);
  for (int i = 0; i < labels.size(); ++i) {
    if (progress && !progress(i, labels.size())) {
      file.cancelWriting();
      return false;
    }
    const QByteArray label = csv_cell(labels[i].label);
    for (const QPoint& p : pixels_inside(labels[i].polygon, static_cast<int>(data.n_cols),
                                         static_cast<int>(data.n_rows))) {
      line = image + ',' + QByteArray::number(p.x()) + ',' + QByteArray::number(p.y()) + ',' +
             label + ',';
      for (arma::uword b = 0; b < data.n_slices; ++b) {
        append_number(line,
                      data(static_cast<arma::uword>(p.y()), static_cast<arma::uword>(p.x()), b));
        line += ',';
      }
      line += '\n';
      file.write(line);
    }
  }
  if (progress && !progress(labels.size(), labels.size())) {
    file.cancelWriting();
    return false;
  }
  if (!file.commit()) {
    throw failure;
  }
  return true;
}

}  // namespace tavr
