#include "tavr/view/vector_overlay.h"

#include <QGraphicsPathItem>
#include <QPainterPath>
#include <QPen>

namespace tavr {

namespace {

// Half the width of a point's cross, in picture pixels.
constexpr double cross_half = 1.5;

}  // namespace

vector_overlay::vector_overlay(const corv::vector_features& features, const QColor& colour)
    : file_name_(QString::fromStdString(features.file_name)) {
  QPen pen(colour, 1.5);
  pen.setCosmetic(true);
  QPainterPath crosses;
  for (const corv::pixel_position& p : features.points) {
    crosses.moveTo(p.x - cross_half, p.y);
    crosses.lineTo(p.x + cross_half, p.y);
    crosses.moveTo(p.x, p.y - cross_half);
    crosses.lineTo(p.x, p.y + cross_half);
    ++points_;
  }
  QPainterPath outlines;
  for (const corv::vector_polygon& polygon : features.polygons) {
    for (const auto& ring : polygon) {
      QPolygonF outline;
      for (const corv::pixel_position& p : ring) {
        outline << QPointF(p.x, p.y);
      }
      outlines.addPolygon(outline);
      outlines.closeSubpath();
    }
    ++polygons_;
  }
  for (const QPainterPath& path : {crosses, outlines}) {
    auto* item = new QGraphicsPathItem(path);
    item->setPen(pen);
    addToGroup(item);
  }
  setZValue(5.0);
}

}  // namespace tavr
