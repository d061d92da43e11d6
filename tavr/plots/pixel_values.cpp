#include "tavr/plots/pixel_values.h"

#include <QStringList>
#include <algorithm>
#include <cmath>
#include <exception>

#include "corv/pipeline/pipeline.h"

namespace tavr {

namespace {

// A component getter's result, or an empty value when the pipeline has none.
template <typename T>
const T& optional_component(corv::pipeline& source, const T& (corv::pipeline::*getter)()) {
  static const T none;
  try {
    return (source.*getter)();
  } catch (const std::exception&) {
    return none;
  }
}

bool inside(const corv::cube& data, const QPoint& pixel) {
  return pixel.y() >= 0 && pixel.x() >= 0 && static_cast<arma::uword>(pixel.y()) < data.n_rows &&
         static_cast<arma::uword>(pixel.x()) < data.n_cols;
}

bool inside(const corv::matrix& data, const QPoint& pixel) {
  return pixel.y() >= 0 && pixel.x() >= 0 && static_cast<arma::uword>(pixel.y()) < data.n_rows &&
         static_cast<arma::uword>(pixel.x()) < data.n_cols;
}

}  // namespace

QPoint pixel_at(const QPointF& point, int width, int height) {
  const int x = static_cast<int>(std::floor(point.x()));
  const int y = static_cast<int>(std::floor(point.y()));
  if (x < 0 || y < 0 || x >= width || y >= height) {
    return QPoint(-1, -1);
  }
  return QPoint(x, y);
}

QVector<QPoint> pixels_in(const QRectF& rect, int width, int height, int limit) {
  const int left = std::max(0, static_cast<int>(std::floor(rect.left())));
  const int top = std::max(0, static_cast<int>(std::floor(rect.top())));
  const int right = std::min(width - 1, static_cast<int>(std::ceil(rect.right())) - 1);
  const int bottom = std::min(height - 1, static_cast<int>(std::ceil(rect.bottom())) - 1);
  QVector<QPoint> pixels;
  if (right < left || bottom < top || limit <= 0) {
    return pixels;
  }
  const int columns = right - left + 1;
  const int rows = bottom - top + 1;
  int step = 1;
  while ((columns + step - 1) / step * ((rows + step - 1) / step) > limit) {
    ++step;
  }
  for (int y = top; y <= bottom; y += step) {
    for (int x = left; x <= right; x += step) {
      pixels.append(QPoint(x, y));
    }
  }
  return pixels;
}

QVector<double> to_qvector(const corv::vector& values) {
  QVector<double> out(static_cast<int>(values.n_elem));
  std::copy(values.begin(), values.end(), out.begin());
  return out;
}

QVector<double> spectrum_at(const corv::cube& data, const QPoint& pixel) {
  if (!inside(data, pixel)) {
    return {};
  }
  QVector<double> out(static_cast<int>(data.n_slices));
  for (arma::uword b = 0; b < data.n_slices; ++b) {
    out[static_cast<int>(b)] = data(pixel.y(), pixel.x(), b);
  }
  return out;
}

pixel_values read_pixel_values(corv::pipeline& source, const QPoint& pixel,
                               const QVector<double>* irradiance) {
  pixel_values values;
  values.location = pixel;
  values.wavelengths = to_qvector(optional_component(source, &corv::pipeline::wavelengths));
  values.irradiance = irradiance != nullptr
                          ? *irradiance
                          : spectrum_at(optional_component(source, &corv::pipeline::I), pixel);
  values.reflectance = spectrum_at(optional_component(source, &corv::pipeline::s), pixel);
  const corv::matrix& k = optional_component(source, &corv::pipeline::k);
  if (inside(k, pixel)) {
    values.specularity = k(pixel.y(), pixel.x());
  }
  const corv::matrix& g = optional_component(source, &corv::pipeline::g);
  if (inside(g, pixel)) {
    values.shading = g(pixel.y(), pixel.x());
  }
  const corv::matrix& map = optional_component(source, &corv::pipeline::material_map);
  if (inside(map, pixel)) {
    values.material = static_cast<int>(map(pixel.y(), pixel.x()));
  }
  values.material_abundances =
      spectrum_at(optional_component(source, &corv::pipeline::material_element_abundances), pixel);
  values.principal_components = spectrum_at(source.principal_components(), pixel);
  return values;
}

QString join_values(const QVector<double>& values) {
  QStringList parts;
  parts.reserve(values.size());
  for (double v : values) {
    parts.append(QString::number(v, 'g', 6));
  }
  return parts.join(", ");
}

}  // namespace tavr
