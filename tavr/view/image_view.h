#ifndef TAVR_VIEW_IMAGE_VIEW_H
#define TAVR_VIEW_IMAGE_VIEW_H

#include <QGraphicsEllipseItem>
#include <QGraphicsView>
#include <QList>
#include <QPointF>
#include <QPointer>
#include <QRectF>
#include <QString>
#include <QUrl>
#include <functional>
#include <vector>

#include "corv/io/vector_file.h"
#include "tavr/view/view_geometry.h"

class QGraphicsLineItem;
class QGraphicsPathItem;
class QGraphicsPixmapItem;
class QGraphicsPolygonItem;
class QGraphicsRectItem;

namespace tavr {

class label_model;

// A point marker that keeps its size on screen whatever the zoom.
class circle_item : public QGraphicsEllipseItem {
 public:
  circle_item(const QPointF& centre, double radius, const QColor& colour);
};

// The central view of the rendered picture: zoom, pan, pixel clicks, selection
// rectangles, polygon drawing and file drops. Scene coordinates are picture
// coordinates (the picture item sits at the origin).
class image_view : public QGraphicsView {
  Q_OBJECT

 public:
  explicit image_view(QWidget* parent = nullptr);

  // Shows a picture with a fit mode ("fit_image_to_window", "actual_size",
  // "zoom", or "no_fit" to keep the current transform).
  // `picture_scale`: image pixels per picture pixel (a picture sampled from every
  // n-th pixel is shown n times larger).
  void show_picture(const QImage& picture, const QString& fit_mode, double picture_scale = 1.0);
  void clear_picture();
  // Draws the points and polygons of vector files over the picture (replacing
  // those drawn before).
  void show_vector_files(const std::vector<corv::vector_features>& files);
  bool has_picture() const;
  QRectF picture_rect() const;
  QImage picture() const;

  // Horizontal and vertical scales are always equal.
  double current_scale() const;
  void zoom(double factor);
  void scale_to(double factor);
  // Fits the picture to the view without enlarging it. A fitted picture stays
  // fitted while the view changes size (the window showing for the first time,
  // docks appearing, the user resizing it) until it is zoomed or scaled.
  void fit_to_window();
  bool fitted() const { return fitted_; }
  void actual_size();
  void centre_on_picture();

  void set_polygon_mode(bool on);
  bool polygon_mode() const { return polygon_mode_; }
  const polygon_builder& polygon_in_progress() const { return builder_; }
  // The polygon just finished (drawn in magenta) until its label is given; empty
  // when there is none. Taking it removes it from the view.
  QPolygonF new_polygon() const;
  QPolygonF take_new_polygon();
  // The labelled polygons shown, drawn from the image's labels in their colours
  // (the selected one wider), in label order.
  void set_labels(label_model* labels);
  const QList<QGraphicsPolygonItem*>& polygons() const { return polygons_; }

  // The last clicked point, shown by a marker.
  void mark_point(const QPointF& point);
  bool has_marker() const;
  QPointF marker_position() const;
  // The selection rectangle currently drawn (empty when none).
  QRectF selection() const;

  // Opens dropped files in order: workspaces through main_open_workspace, other
  // files through main_open_image under an "Opening Images" progress dialog.
  void open_dropped(const QList<QUrl>& urls);

  // Text for the pixel under a scene point ("x: 3, y: 4", plus the polygon's
  // label and what the lookup tells of the pixel, such as its material).
  QString hover_text_at(const QPointF& scene_point) const;
  using pixel_lookup = std::function<QString(const QPoint& pixel)>;
  void set_hover_lookup(pixel_lookup lookup) { hover_lookup_ = std::move(lookup); }

 public Q_SLOTS:
  void zoom_in_();
  void zoom_out_();
  // Closes the polygon under construction (also on a double click).
  void close_polygon_();

 Q_SIGNALS:
  void image_clicked(const QPointF& point);
  void selection_rect_set(const QRectF& rect);
  void action_polygon_enable(bool enabled);
  void add_polygon();
  void deselect_polygon_label_in_list();
  void main_open_image(const QString& file_name);
  void main_open_workspace(const QString& file_name);
  // Images dropped together, in the order dropped.
  void main_open_images(const QStringList& file_names);
  void hover_text(const QString& text);

 protected:
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dragMoveEvent(QDragMoveEvent* event) override;
  void dropEvent(QDropEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  void add_polygon_vertex(const QPointF& point);
  void update_construction(const QPointF& cursor);
  void remove_selection();
  void redraw_labels();
  void remove_new_polygon();

  QGraphicsScene scene_;
  QList<QGraphicsItem*> vector_overlays_;
  QGraphicsPixmapItem* picture_ = nullptr;
  QGraphicsRectItem* selection_ = nullptr;
  circle_item* marker_ = nullptr;
  QGraphicsPathItem* construction_ = nullptr;
  QGraphicsLineItem* guide_ = nullptr;
  QList<QGraphicsPolygonItem*> polygons_;
  QGraphicsPolygonItem* new_polygon_ = nullptr;
  QPointer<label_model> labels_;
  polygon_builder builder_;
  pixel_lookup hover_lookup_;
  bool polygon_mode_ = false;
  bool fitted_ = false;
  bool pressed_ = false;
  QPoint press_view_position_;
  QPointF press_scene_position_;
};

}  // namespace tavr

#endif
