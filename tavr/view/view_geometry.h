#ifndef TAVR_VIEW_VIEW_GEOMETRY_H
#define TAVR_VIEW_VIEW_GEOMETRY_H

#include <QPointF>
#include <QRectF>
#include <QSize>
#include <QSizeF>
#include <QString>
#include <QVector>

namespace tavr {

// Fit modes of the image view's next display.
inline const QString fit_image_to_window = QStringLiteral("fit_image_to_window");
inline const QString actual_size_mode = QStringLiteral("actual_size");
inline const QString zoom_mode = QStringLiteral("zoom");
inline const QString no_fit = QStringLiteral("no_fit");

constexpr double zoom_in_factor = 1.19;
constexpr double zoom_out_factor = 0.84;
// Smallest scale a zoom may reach; there is no largest.
constexpr double min_zoom_scale = 0.1;
// Below this scale the view is centred on the picture after a zoom.
constexpr double centre_below_scale = 1.00001;

// Scale that fits a picture into a viewport without ever enlarging it.
double fit_scale(const QSize& viewport, const QSizeF& picture);

// Whether zooming by a factor keeps the scale at or above the smallest one.
bool zoom_allowed(double factor, double current_scale);

// Factor of one wheel event, from its angle delta in eighths of a degree. Turning
// the wheel away from the user zooms out.
double wheel_zoom_factor(int angle_delta);

// A dragged rectangle pulled inside the picture, keeping a margin of one pixel
// from the top-left corner and from the far edges.
QRectF clamp_selection(const QRectF& rect, const QRectF& picture);

// Whether a dropped file is a workspace (suffix "tvw", compared exactly).
bool is_workspace_file(const QString& path);

// Vertices of a polygon being drawn. A click near the first vertex closes the
// polygon by repeating that vertex; a closed polygon needs at least four entries
// (a triangle and its closing vertex).
class polygon_builder {
 public:
  static constexpr int min_points = 4;

  void add_point(const QPointF& point) { points_.append(point); }
  // Whether a point lies within the tolerance of the first vertex.
  bool closes_at(const QPointF& point, double tolerance) const;
  // Whether the vertex list is long enough to finish the polygon.
  bool can_finish() const { return points_.size() >= min_points; }
  // The finished polygon, clearing the construction; empty when too short (the
  // vertices are kept so that drawing can go on).
  QVector<QPointF> finish();
  void clear() { points_.clear(); }

  const QVector<QPointF>& points() const { return points_; }
  bool empty() const { return points_.isEmpty(); }

 private:
  QVector<QPointF> points_;
};

}  // namespace tavr

#endif
