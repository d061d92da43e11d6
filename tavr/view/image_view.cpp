#include "tavr/view/image_view.h"

#include <QApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QGraphicsLineItem>
#include <QGraphicsPathItem>
#include <QGraphicsPixmapItem>
#include <QGraphicsPolygonItem>
#include <QGraphicsRectItem>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainterPath>
#include <QPen>
#include <QWheelEvent>

#include "tavr/labels/label_model.h"
#include "tavr/view/vector_overlay.h"

namespace tavr {

namespace {

// Screen distance within which a click closes the polygon on its first vertex.
constexpr double close_distance_pixels = 8.0;
constexpr double marker_radius = 4.0;

QPen cosmetic_pen(const QColor& colour, double width, Qt::PenStyle style = Qt::SolidLine) {
  QPen pen(colour, width, style);
  pen.setCosmetic(true);
  return pen;
}

}  // namespace

circle_item::circle_item(const QPointF& centre, double radius, const QColor& colour)
    : QGraphicsEllipseItem(-radius, -radius, 2 * radius, 2 * radius) {
  setPos(centre);
  setPen(cosmetic_pen(QColor("Black"), 1.0));
  setBrush(colour);
  setFlag(QGraphicsItem::ItemIgnoresTransformations);
  setZValue(20.0);
}

image_view::image_view(QWidget* parent) : QGraphicsView(parent) {
  setScene(&scene_);
  setAcceptDrops(true);
  setMouseTracking(true);
  setTransformationAnchor(QGraphicsView::AnchorUnderMouse);
  setBackgroundBrush(QColor(48, 48, 48));
  setAlignment(Qt::AlignCenter);
}

void image_view::show_picture(const QImage& picture, const QString& fit_mode,
                              double picture_scale) {
  const QPixmap pixmap = QPixmap::fromImage(picture);
  if (picture_ == nullptr) {
    picture_ = scene_.addPixmap(pixmap);
    picture_->setZValue(0.0);
    picture_->setTransformationMode(Qt::FastTransformation);
  } else {
    picture_->setPixmap(pixmap);
  }
  // A picture of fewer pixels than the image (a first picture) is drawn larger,
  // so that scene coordinates stay image pixels.
  picture_->setScale(picture_scale);
  scene_.setSceneRect(picture_rect());
  if (fit_mode == fit_image_to_window) {
    fit_to_window();
  } else if (fit_mode == actual_size_mode) {
    this->actual_size();
  } else if (fit_mode != zoom_mode && fit_mode != no_fit) {
    resetTransform();
    fitted_ = false;
  }
}

void image_view::show_vector_files(const std::vector<corv::vector_features>& files) {
  for (QGraphicsItem* item : vector_overlays_) {
    scene_.removeItem(item);
    delete item;
  }
  vector_overlays_.clear();
  for (const corv::vector_features& file : files) {
    auto* overlay = new vector_overlay(file);
    scene_.addItem(overlay);
    vector_overlays_.append(overlay);
  }
}

void image_view::clear_picture() {
  vector_overlays_.clear();  // the scene deletes them below
  remove_selection();
  builder_.clear();
  scene_.clear();
  polygons_.clear();
  new_polygon_ = nullptr;
  picture_ = nullptr;
  fitted_ = false;
  marker_ = nullptr;
  construction_ = nullptr;
  guide_ = nullptr;
  scene_.setSceneRect(QRectF());
  resetTransform();
}

bool image_view::has_picture() const {
  return picture_ != nullptr;
}

QRectF image_view::picture_rect() const {
  return picture_ == nullptr ? QRectF() : picture_->sceneBoundingRect();
}

QImage image_view::picture() const {
  return picture_ == nullptr ? QImage() : picture_->pixmap().toImage();
}

double image_view::current_scale() const {
  return transform().m11();
}

void image_view::zoom(double factor) {
  if (scene_.items().isEmpty() || !zoom_allowed(factor, current_scale())) {
    return;
  }
  scale(factor, factor);
  fitted_ = false;
  if (current_scale() < centre_below_scale) {
    centre_on_picture();
  }
}

void image_view::scale_to(double factor) {
  const double current = current_scale();
  if (current == 0.0) {
    return;
  }
  scale(factor / current, factor / current);
  fitted_ = false;
}

void image_view::fit_to_window() {
  if (picture_ == nullptr) {
    return;
  }
  const QRect port = viewport()->rect();
  const QSize inclusive(port.right() - port.left() + 1, port.bottom() - port.top() + 1);
  resetTransform();
  const double s = fit_scale(inclusive, picture_rect().size());
  scale(s, s);
  centre_on_picture();
  fitted_ = true;
}

void image_view::actual_size() {
  const double current = current_scale();
  if (current == 0.0) {
    return;
  }
  scale(1.0 / current, 1.0 / current);
  fitted_ = false;
}

void image_view::centre_on_picture() {
  if (picture_ != nullptr) {
    centerOn(picture_rect().center());
  }
}

void image_view::set_polygon_mode(bool on) {
  if (on == polygon_mode_) {
    return;
  }
  polygon_mode_ = on;
  builder_.clear();
  update_construction(QPointF());
  remove_selection();
  setCursor(on ? Qt::CrossCursor : Qt::ArrowCursor);
  Q_EMIT action_polygon_enable(on);
}

QPolygonF image_view::new_polygon() const {
  return new_polygon_ == nullptr ? QPolygonF() : new_polygon_->polygon();
}

QPolygonF image_view::take_new_polygon() {
  const QPolygonF polygon = new_polygon();
  remove_new_polygon();
  return polygon;
}

void image_view::remove_new_polygon() {
  if (new_polygon_ != nullptr) {
    scene_.removeItem(new_polygon_);
    delete new_polygon_;
    new_polygon_ = nullptr;
  }
}

void image_view::set_labels(label_model* labels) {
  if (labels_ != nullptr) {
    disconnect(labels_, nullptr, this, nullptr);
  }
  labels_ = labels;
  if (labels_ != nullptr) {
    for (auto signal : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved}) {
      connect(labels_, signal, this, &image_view::redraw_labels);
    }
    connect(labels_, &QAbstractItemModel::dataChanged, this, &image_view::redraw_labels);
    connect(labels_, &QAbstractItemModel::modelReset, this, &image_view::redraw_labels);
  }
  redraw_labels();
}

void image_view::redraw_labels() {
  for (QGraphicsPolygonItem* item : polygons_) {
    scene_.removeItem(item);
    delete item;
  }
  polygons_.clear();
  if (labels_ == nullptr) {
    return;
  }
  for (const polygon_label& label : labels_->labels()) {
    QPen pen = cosmetic_pen(label.colour, label.selected ? 4.0 : 2.0);
    auto* item = scene_.addPolygon(label.polygon, pen);
    item->setZValue(label.selected ? 5.5 : 5.0);
    item->setData(0, label.label);
    item->setData(1, label.selected ? QStringLiteral("selected") : QStringLiteral("non_selected"));
    item->setVisible(label.checked || label.selected);
    polygons_.append(item);
  }
}

bool image_view::has_marker() const {
  return marker_ != nullptr;
}

QPointF image_view::marker_position() const {
  return marker_ == nullptr ? QPointF() : marker_->pos();
}

QRectF image_view::selection() const {
  return selection_ == nullptr ? QRectF() : selection_->rect();
}

void image_view::open_dropped(const QList<QUrl>& urls) {
  // In the order dropped: each run of images opens together (one progress
  // dialog), a workspace between them in its place.
  QStringList images;
  auto open_images = [this, &images] {
    if (!images.isEmpty()) {
      Q_EMIT main_open_images(images);
      images.clear();
    }
  };
  for (const QUrl& url : urls) {
    const QString path = url.toLocalFile();
    if (path.isEmpty()) {
      continue;
    }
    if (is_workspace_file(path)) {
      open_images();
      Q_EMIT main_open_workspace(path);
    } else {
      images.append(path);
    }
  }
  open_images();
}

QString image_view::hover_text_at(const QPointF& scene_point) const {
  if (picture_ == nullptr || !picture_rect().contains(scene_point)) {
    return QString();
  }
  QString text = QString("x: %1, y: %2")
                     .arg(static_cast<int>(scene_point.x()))
                     .arg(static_cast<int>(scene_point.y()));
  for (const QGraphicsPolygonItem* item : polygons_) {
    if (item->isVisible() && item->polygon().containsPoint(scene_point, Qt::OddEvenFill)) {
      text += "  Polygon: " + item->data(0).toString();
      break;
    }
  }
  if (hover_lookup_) {
    const QString more =
        hover_lookup_(QPoint(static_cast<int>(scene_point.x()), static_cast<int>(scene_point.y())));
    if (!more.isEmpty()) {
      text += "  " + more;
    }
  }
  return text;
}

void image_view::zoom_in_() {
  zoom(zoom_in_factor);
}

void image_view::zoom_out_() {
  zoom(zoom_out_factor);
}

void image_view::close_polygon_() {
  if (builder_.points().size() + 1 >= polygon_builder::min_points) {
    builder_.add_point(builder_.points().front());
  }
  const QVector<QPointF> points = builder_.finish();
  if (points.isEmpty()) {
    scene_.update();
    return;
  }
  remove_new_polygon();
  new_polygon_ = scene_.addPolygon(QPolygonF(points), cosmetic_pen(QColor("Magenta"), 2.0));
  new_polygon_->setZValue(6.0);
  update_construction(QPointF());
  Q_EMIT add_polygon();
}

void image_view::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || picture_ == nullptr) {
    QGraphicsView::mousePressEvent(event);
    return;
  }
  const QPointF point = mapToScene(event->pos());
  if (polygon_mode_) {
    add_polygon_vertex(point);
    return;
  }
  pressed_ = true;
  press_view_position_ = event->pos();
  press_scene_position_ = point;
  remove_selection();
  selection_ = scene_.addRect(QRectF(point, QSizeF(0, 0)),
                              cosmetic_pen(QColor("Yellow"), 1.5, Qt::DashLine));
  selection_->setZValue(15.0);
  selection_->hide();
}

void image_view::mouseMoveEvent(QMouseEvent* event) {
  const QPointF point = mapToScene(event->pos());
  if (pressed_ && selection_ != nullptr) {
    selection_->setRect(QRectF(press_scene_position_, point).normalized());
    const bool dragged = (event->pos() - press_view_position_).manhattanLength() >=
                         QApplication::startDragDistance();
    selection_->setVisible(dragged);
  }
  if (polygon_mode_) {
    update_construction(point);
  }
  Q_EMIT hover_text(hover_text_at(point));
  QGraphicsView::mouseMoveEvent(event);
}

void image_view::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || !pressed_) {
    QGraphicsView::mouseReleaseEvent(event);
    return;
  }
  pressed_ = false;
  const QPointF point = mapToScene(event->pos());
  if (selection_ != nullptr && selection_->isVisible()) {
    const QRectF rect =
        clamp_selection(QRectF(press_scene_position_, point).normalized(), picture_rect());
    selection_->setRect(rect);
    if (rect.width() > 0 && rect.height() > 0) {
      Q_EMIT selection_rect_set(rect);
    }
    // The pixel under the release is plotted as well.
    if (picture_rect().contains(point)) {
      Q_EMIT image_clicked(point);
    }
    return;
  }
  remove_selection();
  if (picture_rect().contains(point)) {
    mark_point(point);
    // A click inside a labelled polygon selects its label; elsewhere it deselects.
    int hit = -1;
    for (int i = 0; i < polygons_.size() && hit < 0; ++i) {
      if (polygons_[i]->isVisible() &&
          polygons_[i]->polygon().containsPoint(point, Qt::OddEvenFill)) {
        hit = i;
      }
    }
    if (hit >= 0 && labels_ != nullptr) {
      labels_->select(hit);
    } else {
      Q_EMIT deselect_polygon_label_in_list();
    }
    Q_EMIT image_clicked(point);
  }
}

void image_view::mouseDoubleClickEvent(QMouseEvent* event) {
  if (polygon_mode_ && event->button() == Qt::LeftButton) {
    close_polygon_();
    return;
  }
  QGraphicsView::mouseDoubleClickEvent(event);
}

void image_view::wheelEvent(QWheelEvent* event) {
  const int delta = event->angleDelta().y();
  if (delta == 0) {
    QGraphicsView::wheelEvent(event);
    return;
  }
  zoom(wheel_zoom_factor(delta));
  const QPointF cursor = mapToScene(event->position().toPoint());
  if (marker_ != nullptr && marker_->isUnderMouse()) {
    marker_->setPos(cursor);
  }
  event->accept();
}

void image_view::resizeEvent(QResizeEvent* event) {
  QGraphicsView::resizeEvent(event);
  if (fitted_) {
    fit_to_window();
  }
}

void image_view::dragEnterEvent(QDragEnterEvent* event) {
  if (event->mimeData()->hasUrls()) {
    event->acceptProposedAction();
  }
}

void image_view::dragMoveEvent(QDragMoveEvent* event) {
  if (event->mimeData()->hasUrls()) {
    event->acceptProposedAction();
  }
}

void image_view::dropEvent(QDropEvent* event) {
  if (!event->mimeData()->hasUrls()) {
    return;
  }
  event->acceptProposedAction();
  open_dropped(event->mimeData()->urls());
}

void image_view::add_polygon_vertex(const QPointF& point) {
  const double tolerance = close_distance_pixels / std::max(current_scale(), 1e-9);
  if (builder_.closes_at(point, tolerance)) {
    close_polygon_();
    return;
  }
  builder_.add_point(point);
  update_construction(point);
}

void image_view::update_construction(const QPointF& cursor) {
  if (builder_.empty()) {
    if (construction_ != nullptr) {
      construction_->hide();
    }
    if (guide_ != nullptr) {
      guide_->hide();
    }
    return;
  }
  QPainterPath path(builder_.points().front());
  for (const QPointF& p : builder_.points()) {
    path.lineTo(p);
  }
  if (construction_ == nullptr) {
    construction_ = scene_.addPath(path, cosmetic_pen(QColor("Magenta"), 2.0));
    construction_->setZValue(6.0);
    guide_ = scene_.addLine(QLineF(), cosmetic_pen(QColor("Magenta"), 1.0, Qt::DashLine));
    guide_->setZValue(6.0);
  }
  construction_->setPath(path);
  construction_->show();
  if (!cursor.isNull()) {
    guide_->setLine(QLineF(builder_.points().back(), cursor));
    guide_->show();
  }
}

void image_view::mark_point(const QPointF& point) {
  if (marker_ == nullptr) {
    marker_ = new circle_item(point, marker_radius, QColor("Red"));
    scene_.addItem(marker_);
  }
  marker_->setPos(point);
}

void image_view::remove_selection() {
  if (selection_ != nullptr) {
    scene_.removeItem(selection_);
    delete selection_;
    selection_ = nullptr;
  }
}

}  // namespace tavr
