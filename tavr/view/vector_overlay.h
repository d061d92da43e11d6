#ifndef TAVR_VIEW_VECTOR_OVERLAY_H
#define TAVR_VIEW_VECTOR_OVERLAY_H

#include <QColor>
#include <QGraphicsItemGroup>

#include "corv/io/vector_file.h"

namespace tavr {

// The points and polygons of a vector file drawn over the picture, in picture
// coordinates: points as small crosses, polygons as outlines (holes too). Pens
// are cosmetic, so the drawing keeps its line widths at every zoom.
class vector_overlay : public QGraphicsItemGroup {
 public:
  explicit vector_overlay(const corv::vector_features& features,
                          const QColor& colour = QColor(0, 255, 255));

  const QString& file_name() const { return file_name_; }
  int point_count() const { return points_; }
  int polygon_count() const { return polygons_; }

 private:
  QString file_name_;
  int points_ = 0;
  int polygons_ = 0;
};

}  // namespace tavr

#endif
