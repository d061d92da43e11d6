#include <qwt_plot_curve.h>
#include <QApplication>
#include <QClipboard>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>
#include <cmath>

#include "corv/pipeline/pipeline.h"
#include "tavr/plots/pixel_dialog.h"
#include "tavr/plots/pixel_values.h"
#include "tavr/plots/plot.h"
#include "tavr/plots/plot_dialog.h"
#include "tavr/plots/spectrum_plot.h"

namespace {

QList<const QwtPlotCurve*> curves_of(const QwtPlot& plot) {
  QList<const QwtPlotCurve*> curves;
  for (const QwtPlotItem* item : plot.itemList(QwtPlotItem::Rtti_PlotCurve)) {
    curves.append(static_cast<const QwtPlotCurve*>(item));
  }
  return curves;
}

const QwtPlotCurve* curve_at_z(const QwtPlot& plot, double z) {
  for (const QwtPlotCurve* curve : curves_of(plot)) {
    if (curve->z() == z) {
      return curve;
    }
  }
  return nullptr;
}

tavr::spectrum_curve curve(const QString& name, QVector<double> values) {
  QVector<double> wavelengths;
  for (int i = 0; i < values.size(); ++i) {
    wavelengths.append(400.0 + 10.0 * i);
  }
  return {name, wavelengths, values, QColor()};
}

}  // namespace

class plots_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void curves_have_their_styles_and_scales() {
    tavr::spectrum_plot plot("Pixel Irradiance");

    plot.set_main_curve(curve("a", {1.0, 4.0, 2.0}));
    const QwtPlotCurve* main = curve_at_z(plot, 10.0);
    QVERIFY(main != nullptr);
    QCOMPARE(main->data()->sample(1), QPointF(410.0, 1.0));  // divided by the largest
    QCOMPARE(main->data()->sample(2), QPointF(420.0, 0.5));

    // The highlighted curve is reused, not duplicated.
    plot.set_main_curve(curve("b", {2.0, 2.0, 8.0}));
    QCOMPARE(curves_of(plot).size(), 1);

    plot.demote_main_curve();
    plot.set_main_curve(curve("c", {1.0, 1.0, 1.0}));
    plot.add_curve(curve("d", {3.0, 3.0, 3.0}));
    QCOMPARE(plot.further_curve_count(), 2);
    QCOMPARE(curves_of(plot).size(), 3);
    QColor previous;
    for (const QwtPlotCurve* c : curves_of(plot)) {
      if (c->z() == 10.0) {
        continue;
      }
      QCOMPARE(c->z(), 1.0);
      QVERIFY(c->pen().color() != QColor(0, 0, 255) && c->pen().color() != previous);
      previous = c->pen().color();
    }
    QCOMPARE(plot.further_curves().front().name, QString("b"));

    plot.set_normalised(false);
    plot.add_curve(curve("raw", {3.0, 6.0}));
    for (const QwtPlotCurve* c : curves_of(plot)) {
      if (c->title().text() == "raw") {
        QCOMPARE(c->data()->sample(1).y(), 6.0);
      }
    }

    for (int i = 0; i < tavr::spectrum_plot::max_further_curves + 5; ++i) {
      plot.add_curve(curve(QString::number(i), {1.0, 2.0}));
    }
    QCOMPARE(plot.further_curve_count(), tavr::spectrum_plot::max_further_curves);
    QCOMPARE(plot.further_curves().front().name, QString("5"));  // 3 + 105 curves, 8 dropped

    plot.clear_curves();
    QCOMPARE(curves_of(plot).size(), 0);
    QVERIFY(!plot.has_main_curve());
  }

  void plots_render_to_files() {
    QTemporaryDir dir;
    tavr::spectrum_plot plot("Illuminant");
    plot.set_main_curve(curve("a", {1.0, 4.0, 2.0}));
    for (const QString suffix : {"png", "pdf"}) {
      const QString file = dir.filePath("plot." + suffix);
      QVERIFY(plot.render_to(file));
      QVERIFY(QFileInfo(file).size() > 1000);
    }
    QImage image(dir.filePath("plot.png"));
    // 300 x 200 mm at 85 dots per inch.
    QCOMPARE(image.width(), static_cast<int>(std::lround(300 / 25.4 * 85)));
    QCOMPARE(image.height(), static_cast<int>(std::lround(200 / 25.4 * 85)));
  }

  void dock_plots_follow_pixels_and_pop_out() {
    tavr::plot plots;
    const QVector<double> wl{400, 500, 600};
    plots.show_pixel("(1, 1)", wl, {1, 2, 3}, {});
    plots.show_pixel("(2, 2)", wl, {3, 2, 1}, {0.1, 0.2, 0.3});
    QCOMPARE(plots.source_plot().main_curve().name, QString("(2, 2)"));
    QCOMPARE(plots.source_plot().further_curve_count(), 1);
    QVERIFY(plots.reflectance_plot().has_main_curve());
    QCOMPARE(plots.reflectance_plot().further_curve_count(), 0);
    plots.add_pixel("(5, 5)", wl, {1, 1, 1}, {0.5, 0.5, 0.5});
    QCOMPARE(plots.source_plot().further_curve_count(), 2);
    QCOMPARE(plots.reflectance_plot().further_curve_count(), 1);

    plots.set_illuminant(wl, {2, 2, 2});
    plots.set_materials(wl, {{0.1, 0.2, 0.3}, {0.3, 0.2, 0.1}}, {QColor(Qt::red)});
    QCOMPARE(plots.material_plot().further_curve_count(), 2);
    QCOMPARE(plots.material_plot().further_curves().front().colour, QColor(Qt::red));
    QCOMPARE(plots.material_plot().further_curves().back().name, QString("Material 2"));
    plots.set_illuminant(wl, {});
    QVERIFY(!plots.illuminant_plot().has_main_curve());

    plots.source_enlarge_button_();
    QVERIFY(plots.popout() != nullptr);
    QCOMPARE(plots.popout()->plots().size(), 1);
    tavr::spectrum_plot* copy = plots.popout()->plots().front();
    QCOMPARE(copy->title().text(), QString("Pixel Irradiance"));
    QCOMPARE(copy->further_curve_count(), 2);
    QVERIFY(copy->has_main_curve());
    plots.reflect_enlarge_button_();
    QCOMPARE(plots.popout()->plots().size(), 2);

    plots.source_clear_button_();
    QCOMPARE(curves_of(plots.source_plot()).size(), 0);
    QVERIFY(plots.reflectance_plot().has_main_curve());
    plots.reflect_clear_button_();
    QCOMPARE(curves_of(plots.reflectance_plot()).size(), 0);
    QCOMPARE(plots.popout()->plots().front()->further_curve_count(), 2);  // copies stay
  }

  void pixels_of_points_and_rectangles() {
    QCOMPARE(tavr::pixel_at(QPointF(3.9, 0.2), 10, 5), QPoint(3, 0));
    QCOMPARE(tavr::pixel_at(QPointF(10.0, 1), 10, 5), QPoint(-1, -1));
    QCOMPARE(tavr::pixel_at(QPointF(-0.5, 1), 10, 5), QPoint(-1, -1));

    QCOMPARE(tavr::pixels_in(QRectF(1, 1, 3, 2), 10, 10, 64).size(), 6);
    QCOMPARE(tavr::pixels_in(QRectF(1, 1, 3, 2), 10, 10, 64).front(), QPoint(1, 1));
    QCOMPARE(tavr::pixels_in(QRectF(1, 1, 3, 2), 10, 10, 64).back(), QPoint(3, 2));
    const QVector<QPoint> many = tavr::pixels_in(QRectF(0, 0, 100, 100), 200, 200, 64);
    QVERIFY(many.size() <= 64 && many.size() >= 16);
    QCOMPARE(tavr::pixels_in(QRectF(8, 8, 10, 10), 10, 10, 64).size(), 4);  // clipped
    QVERIFY(tavr::pixels_in(QRectF(20, 20, 5, 5), 10, 10, 64).isEmpty());

    corv::pipeline image;
    corv::cube I(2, 3, 4);
    for (arma::uword i = 0; i < I.n_elem; ++i) {
      I(i) = static_cast<float>(i);
    }
    image.set_I(I, corv::vector{400, 450, 500, 550});
    corv::matrix k(2, 3, arma::fill::zeros);
    k(1, 2) = 0.25f;
    image.set_k(k);
    const tavr::pixel_values values = tavr::read_pixel_values(image, QPoint(2, 1));
    QCOMPARE(values.wavelengths, (QVector<double>{400, 450, 500, 550}));
    QCOMPARE(values.irradiance, (QVector<double>{5, 11, 17, 23}));
    QVERIFY(values.reflectance.isEmpty());
    QCOMPARE(values.specularity, 0.25);
    QVERIFY(std::isnan(values.shading));
    QCOMPARE(values.material, -1);
    QVERIFY(tavr::read_pixel_values(image, QPoint(3, 1)).irradiance.isEmpty());
    QCOMPARE(tavr::join_values({1.5, 2, 0.125}), QString("1.5, 2, 0.125"));
  }

  void inspector_lists_and_copies_pixels() {
    tavr::pixel_dialog dialog;
    tavr::pixel_values values;
    values.location = QPoint(7, 9);
    values.wavelengths = {400, 500};
    values.irradiance = {0.5, 0.25};
    values.shading = 0.75;
    values.material = 2;
    dialog.add_pixel(values);
    dialog.add_pixel(values);
    QCOMPARE(dialog.pixel_count(), 2);

    const QTreeWidgetItem* pixel = dialog.tree().topLevelItem(0);
    QStringList headings;
    for (int i = 0; i < pixel->childCount(); ++i) {
      headings.append(pixel->child(i)->text(0));
    }
    QCOMPARE(headings,
             (QStringList{"Image Components", "Material Discovery", "Classification", "Analysis"}));
    const QTreeWidgetItem* components = pixel->child(0);
    QCOMPARE(components->child(0)->text(0), QString("Location (x, y)"));
    QCOMPARE(components->child(0)->text(1), QString("(7, 9)"));
    QCOMPARE(components->child(2)->text(1), QString("0.5, 0.25"));
    QCOMPARE(components->child(3)->text(1), QString("-"));
    QCOMPARE(components->child(5)->text(1), QString("0.75"));
    QCOMPARE(pixel->child(1)->child(0)->text(1), QString("3"));  // shown 1-based
    QCOMPARE(pixel->child(3)->child(0)->text(0), QString("PCA: Value"));

    dialog.tree().setCurrentItem(components->child(2));
    dialog.save_button_();
    QCOMPARE(QApplication::clipboard()->text(), QString("Irradiance\t0.5, 0.25"));
    QVERIFY(tavr::pixel_dialog::row_text(*pixel).startsWith("Location (x, y)\t(7, 9)\n"));

    dialog.clear_button_();
    QCOMPARE(dialog.pixel_count(), 0);
  }
};

QTEST_MAIN(plots_test)
#include "plots_test.moc"
