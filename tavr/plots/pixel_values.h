#ifndef TAVR_PLOTS_PIXEL_VALUES_H
#define TAVR_PLOTS_PIXEL_VALUES_H

#include <QPoint>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QVector>
#include <limits>

#include "corv/io/types.h"

namespace corv {
class pipeline;
}

namespace tavr {

// Every component value of one pixel, as far as the pipeline holds it (empty
// vectors and NaN for what it does not).
struct pixel_values {
  QPoint location;  // x (column), y (row)
  QVector<double> wavelengths;
  QVector<double> irradiance;
  QVector<double> reflectance;
  double specularity = std::numeric_limits<double>::quiet_NaN();
  double shading = std::numeric_limits<double>::quiet_NaN();
  int material = -1;  // 0-based material number, -1 when none
  QVector<double> material_abundances;
  QVector<double> principal_components;
  int class_number = 0;  // 1-based class, 0 when the image is not classified
  QString class_label;
  QVector<double> class_values;  // angles or abundances, best first
};

// The pixel a picture point falls in, or (-1, -1) outside a picture of that size.
QPoint pixel_at(const QPointF& point, int width, int height);

// Pixels of a rectangle at which spectra are plotted: every pixel when there are
// at most `limit`, else an even grid of about `limit` of them.
QVector<QPoint> pixels_in(const QRectF& rect, int width, int height, int limit);

QVector<double> to_qvector(const corv::vector& values);
// The spectrum of one pixel of a cube (row y, column x).
QVector<double> spectrum_at(const corv::cube& data, const QPoint& pixel);

// Reads every component the pipeline has at a pixel; components that are absent
// (or cannot be read) are left empty.
// With `irradiance` given, that spectrum stands for the pixel's irradiance and
// the image's cube is not read (an image shown from its file).
pixel_values read_pixel_values(corv::pipeline& source, const QPoint& pixel,
                               const QVector<double>* irradiance = nullptr);

// A numeric list as shown in the inspector and copied to the clipboard.
QString join_values(const QVector<double>& values);

}  // namespace tavr

#endif
