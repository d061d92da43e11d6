#include <QGraphicsPolygonItem>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>
#include <cmath>

#include "tavr/labels/label_model.h"
#include "tavr/view/image_view.h"

namespace {

QImage picture(int width, int height) {
  QImage image(width, height, QImage::Format_RGB32);
  image.fill(Qt::darkGreen);
  return image;
}

// A view whose viewport is exactly the given size.
void make_viewport(tavr::image_view& view, int width, int height) {
  view.setFrameShape(QFrame::NoFrame);
  view.setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  view.setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  view.resize(width, height);
  view.show();
  QVERIFY(QTest::qWaitForWindowExposed(&view));
}

void send_mouse(tavr::image_view& view, QEvent::Type type, const QPointF& scene_point,
                Qt::MouseButtons buttons) {
  const QPoint at = view.mapFromScene(scene_point);
  QMouseEvent event(type, at, view.viewport()->mapToGlobal(at), Qt::LeftButton, buttons,
                    Qt::NoModifier);
  QApplication::sendEvent(view.viewport(), &event);
}

void drag(tavr::image_view& view, const QPointF& from, const QPointF& to) {
  send_mouse(view, QEvent::MouseButtonPress, from, Qt::LeftButton);
  send_mouse(view, QEvent::MouseMove, to, Qt::LeftButton);
  send_mouse(view, QEvent::MouseButtonRelease, to, Qt::NoButton);
}

void click(tavr::image_view& view, const QPointF& at) {
  drag(view, at, at);
}

}  // namespace

class image_view_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void fitting_never_enlarges() {
    QCOMPARE(tavr::fit_scale(QSize(500, 400), QSizeF(100, 100)), 1.0);
    QCOMPARE(tavr::fit_scale(QSize(500, 400), QSizeF(1000, 800)), 0.5);
    QCOMPARE(tavr::fit_scale(QSize(500, 400), QSizeF(500, 1600)), 0.25);

    tavr::image_view view;
    make_viewport(view, 500, 400);
    view.show_picture(picture(100, 100), tavr::fit_image_to_window);
    QCOMPARE(view.current_scale(), 1.0);
    view.show_picture(picture(1000, 800), tavr::fit_image_to_window);
    QCOMPARE(view.current_scale(), 0.5);
    view.show_picture(picture(1000, 800), tavr::actual_size_mode);
    QCOMPARE(view.current_scale(), 1.0);
    view.scale_to(2.5);
    QCOMPARE(view.current_scale(), 2.5);
    view.show_picture(picture(1000, 800), tavr::no_fit);
    QCOMPARE(view.current_scale(), 2.5);
    QCOMPARE(view.picture_rect(), QRectF(0, 0, 1000, 800));
  }

  void zoom_stops_at_a_tenth() {
    tavr::image_view view;
    view.zoom(0.5);  // no picture: nothing happens
    QCOMPARE(view.current_scale(), 1.0);

    view.show_picture(picture(200, 100), tavr::actual_size_mode);
    for (int i = 0; i < 20; ++i) {
      view.zoom_out_();
    }
    QVERIFY(std::abs(view.current_scale() - std::pow(0.84, 13)) < 1e-9);
    view.zoom_in_();
    QVERIFY(std::abs(view.current_scale() - std::pow(0.84, 13) * 1.19) < 1e-9);
    view.scale_to(50.0);
    view.zoom_in_();  // there is no largest scale
    QVERIFY(std::abs(view.current_scale() - 50.0 * 1.19) < 1e-9);

    QVERIFY(tavr::zoom_allowed(0.84, std::pow(0.84, 12)));
    QVERIFY(!tavr::zoom_allowed(0.84, std::pow(0.84, 13)));
  }

  void wheel_direction_and_factor() {
    QCOMPARE(tavr::wheel_zoom_factor(120),
             static_cast<double>(static_cast<float>(std::pow(1.41, -0.5))));
    QVERIFY(std::abs(tavr::wheel_zoom_factor(120) - 0.842) < 1e-3);
    QVERIFY(tavr::wheel_zoom_factor(-120) > 1.0);
    QCOMPARE(tavr::wheel_zoom_factor(-240), static_cast<double>(1.41f));

    tavr::image_view view;
    make_viewport(view, 300, 300);
    view.show_picture(picture(100, 100), tavr::actual_size_mode);
    const QPoint centre(150, 150);
    QWheelEvent away(centre, view.mapToGlobal(centre), QPoint(), QPoint(0, 120), Qt::NoButton,
                     Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(view.viewport(), &away);
    QCOMPARE(view.current_scale(), tavr::wheel_zoom_factor(120));
  }

  void rubber_band_keeps_one_pixel_margins() {
    const QRectF pic(0, 0, 100, 80);
    QCOMPARE(tavr::clamp_selection(QRectF(-5, 10, 20, 30), pic), QRectF(1, 10, 14, 30));
    QCOMPARE(tavr::clamp_selection(QRectF(10, 0.5, 20, 30), pic), QRectF(10, 1, 20, 29.5));
    QCOMPARE(tavr::clamp_selection(QRectF(90, 70, 30, 30), pic), QRectF(90, 70, 9, 9));
    QCOMPARE(tavr::clamp_selection(QRectF(30, 20, -10, -10), pic), QRectF(20, 10, 10, 10));

    tavr::image_view view;
    make_viewport(view, 300, 300);
    view.show_picture(picture(100, 80), tavr::actual_size_mode);
    QSignalSpy rects(&view, &tavr::image_view::selection_rect_set);
    QSignalSpy clicks(&view, &tavr::image_view::image_clicked);
    drag(view, QPointF(-20, 10), QPointF(40, 50));
    QCOMPARE(rects.size(), 1);
    const QRectF rect = rects.front().front().toRectF();
    QCOMPARE(rect.left(), 1.0);
    QCOMPARE(rect.right(), 40.0);
    QCOMPARE(clicks.size(), 1);  // the pixel under the release is plotted too
    QVERIFY(std::abs(clicks.front().front().toPointF().x() - 40.0) <= 0.5);
    QCOMPARE(view.selection(), rect);

    // A rectangle left of the picture has no width once clamped: nothing emitted.
    drag(view, QPointF(-40, 10), QPointF(-10, 50));
    QCOMPARE(rects.size(), 1);
  }

  void clicks_report_picture_coordinates() {
    tavr::image_view view;
    make_viewport(view, 400, 400);
    view.show_picture(picture(100, 80), tavr::actual_size_mode);
    view.scale_to(2.0);
    QSignalSpy clicks(&view, &tavr::image_view::image_clicked);
    QSignalSpy rects(&view, &tavr::image_view::selection_rect_set);
    click(view, QPointF(30.5, 20.5));
    QCOMPARE(clicks.size(), 1);
    const QPointF at = clicks.front().front().toPointF();
    QVERIFY(std::abs(at.x() - 30.5) <= 0.5 && std::abs(at.y() - 20.5) <= 0.5);
    QVERIFY(view.has_marker());
    QCOMPARE(rects.size(), 0);
    QCOMPARE(view.hover_text_at(QPointF(3.7, 4.2)), QString("x: 3, y: 4"));
    QCOMPARE(view.hover_text_at(QPointF(300, 4)), QString());

    click(view, QPointF(150, 20));  // outside the picture
    QCOMPARE(clicks.size(), 1);
  }

  void polygons_need_four_vertices() {
    tavr::polygon_builder builder;
    builder.add_point(QPointF(0, 0));
    builder.add_point(QPointF(10, 0));
    builder.add_point(QPointF(0, 10));
    QVERIFY(builder.finish().isEmpty());
    QCOMPARE(builder.points().size(), 3);
    QVERIFY(builder.closes_at(QPointF(1, 1), 2.0));
    QVERIFY(!builder.closes_at(QPointF(3, 3), 2.0));
    builder.add_point(QPointF(0, 0));
    QCOMPARE(builder.finish().size(), 4);
    QVERIFY(builder.empty());

    tavr::image_view view;
    make_viewport(view, 300, 300);
    view.show_picture(picture(100, 100), tavr::actual_size_mode);
    QSignalSpy enabled(&view, &tavr::image_view::action_polygon_enable);
    QSignalSpy added(&view, &tavr::image_view::add_polygon);
    QSignalSpy clicks(&view, &tavr::image_view::image_clicked);
    view.set_polygon_mode(true);
    QCOMPARE(enabled.size(), 1);
    QCOMPARE(enabled.front().front().toBool(), true);

    // Two vertices and a closing click: too short, drawing goes on.
    send_mouse(view, QEvent::MouseButtonPress, QPointF(10, 10), Qt::LeftButton);
    send_mouse(view, QEvent::MouseButtonPress, QPointF(50, 10), Qt::LeftButton);
    send_mouse(view, QEvent::MouseButtonPress, QPointF(11, 11), Qt::LeftButton);
    QCOMPARE(added.size(), 0);
    QCOMPARE(view.polygon_in_progress().points().size(), 2);

    send_mouse(view, QEvent::MouseButtonPress, QPointF(50, 50), Qt::LeftButton);
    send_mouse(view, QEvent::MouseButtonPress, QPointF(11, 11), Qt::LeftButton);
    QCOMPARE(added.size(), 1);
    const QPolygonF polygon = view.new_polygon();
    QCOMPARE(polygon.size(), 4);
    QCOMPARE(polygon.front(), polygon.back());
    QVERIFY(view.polygon_in_progress().empty());
    QCOMPARE(clicks.size(), 0);
    // Labelled, it is drawn in its label's colour and named under the mouse.
    tavr::label_model labels;
    labels.add({"wall", QColor("Green"), view.take_new_polygon()});
    QVERIFY(view.new_polygon().isEmpty());
    view.set_labels(&labels);
    QCOMPARE(view.polygons().size(), 1);
    QCOMPARE(view.polygons().front()->pen().color(), QColor("Green"));
    QVERIFY(view.hover_text_at(QPointF(30, 20)).endsWith("Polygon: wall"));

    // A double click closes a triangle as well.
    for (const QPointF& p : {QPointF(60, 60), QPointF(90, 60), QPointF(90, 90)}) {
      send_mouse(view, QEvent::MouseButtonPress, p, Qt::LeftButton);
    }
    view.close_polygon_();
    QCOMPARE(added.size(), 2);

    view.set_polygon_mode(false);
    QCOMPARE(enabled.size(), 2);
    QCOMPARE(enabled.back().front().toBool(), false);
  }

  void drops_open_images_and_workspaces() {
    // In the order dropped; images next to each other open together.
    tavr::image_view view;
    QStringList opened;
    QObject::connect(&view, &tavr::image_view::main_open_images,
                     [&opened](const QStringList& files) { opened << files.join('+'); });
    QObject::connect(&view, &tavr::image_view::main_open_workspace,
                     [&opened](const QString& file) { opened << "workspace " + file; });
    view.open_dropped({QUrl::fromLocalFile("/data/a.hdr"), QUrl::fromLocalFile("/data/w.tvw"),
                       QUrl::fromLocalFile("/data/W.TVW"), QUrl::fromLocalFile("/data/b.hsz")});
    QCOMPARE(opened,
             QStringList({"/data/a.hdr", "workspace /data/w.tvw", "/data/W.TVW+/data/b.hsz"}));
  }
};

QTEST_MAIN(image_view_test)
#include "image_view_test.moc"
