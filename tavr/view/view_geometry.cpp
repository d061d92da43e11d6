#include "tavr/view/view_geometry.h"

#include <QFileInfo>
#include <QLineF>
#include <algorithm>
#include <cmath>

namespace tavr {

double fit_scale(const QSize& viewport, const QSizeF& picture) {
  if (picture.width() <= 0 || picture.height() <= 0) {
    return 1.0;
  }
  const double rw = viewport.width() / picture.width();
  const double rh = viewport.height() / picture.height();
  if (rw > 1.0 && rh > 1.0) {
    return 1.0;
  }
  return std::min(rw, rh);
}

bool zoom_allowed(double factor, double current_scale) {
  return factor * current_scale >= min_zoom_scale;
}

double wheel_zoom_factor(int angle_delta) {
  return static_cast<float>(std::pow(1.41, -angle_delta / 240.0));
}

QRectF clamp_selection(const QRectF& rect, const QRectF& picture) {
  QRectF r = rect.normalized();
  double left = r.left();
  double top = r.top();
  double width = r.width();
  double height = r.height();
  if (left < 1.0) {
    width -= 1.0 - left;
    left = 1.0;
  }
  if (left + width > picture.right()) {
    width = picture.right() - 1.0 - left;
  }
  if (top < 1.0) {
    height -= 1.0 - top;
    top = 1.0;
  }
  if (top + height > picture.bottom()) {
    height = picture.bottom() - 1.0 - top;
  }
  return QRectF(left, top, width, height);
}

bool is_workspace_file(const QString& path) {
  return QFileInfo(path).suffix() == "tvw";
}

bool polygon_builder::closes_at(const QPointF& point, double tolerance) const {
  return !points_.isEmpty() && QLineF(points_.front(), point).length() <= tolerance;
}

QVector<QPointF> polygon_builder::finish() {
  if (!can_finish()) {
    return {};
  }
  QVector<QPointF> done;
  done.swap(points_);
  return done;
}

}  // namespace tavr
