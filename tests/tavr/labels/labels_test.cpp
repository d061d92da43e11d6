#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include "corv/io/logger.h"
#include "tavr/app/image_list_model.h"
#include "tavr/image/hs_image.h"
#include "tavr/labels/label_controller.h"
#include "tavr/labels/label_export.h"
#include "tavr/labels/polygon_labels_dialog.h"
#include "tavr/library/library_model.h"

namespace {

// A 6 x 8 image of 3 bands whose pixel (x, y) holds x + 10 y + 100 b.
std::shared_ptr<tavr::hs_image> small_image(const QString& name) {
  corv::cube I(6, 8, 3);
  for (arma::uword r = 0; r < I.n_rows; ++r) {
    for (arma::uword c = 0; c < I.n_cols; ++c) {
      for (arma::uword b = 0; b < I.n_slices; ++b) {
        I(r, c, b) = static_cast<float>(c + 10 * r + 100 * b);
      }
    }
  }
  return std::make_shared<tavr::hs_image>(I, corv::vector{500.0f, 600.0f, 700.0f}, name);
}

// The square of pixels [x, x + size) x [y, y + size), closed.
QPolygonF square(double x, double y, double size) {
  return QPolygonF(QRectF(x, y, size, size));
}

}  // namespace

class labels_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void initTestCase() { corv::logger::instance().set_echo(false); }

  void labels_are_unique_within_an_image() {
    tavr::image_list_model images;
    tavr::library_model library;
    tavr::label_controller labels(images, library);
    const auto first = small_image("first");
    const auto second = small_image("second");
    images.append(first);
    images.append(second);
    QSignalSpy messages(&labels, &tavr::label_controller::message);

    labels.set_image(first);
    QVERIFY(labels.add_label(square(0, 0, 2), "grass"));
    QVERIFY(labels.add_label(square(4, 2, 2), "road"));
    QVERIFY(!labels.add_label(square(2, 2, 2), "grass"));
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.front().at(0).toString(), QString("Tavrel"));
    QCOMPARE(messages.front().at(1).toString(),
             QString("New label matches an existing label. Please choose a different label."));
    QVERIFY(!labels.rename(1, "grass"));
    QCOMPARE(first->labels().texts(), (QStringList{"grass", "road"}));
    QCOMPARE(first->labels().selected_row(), 1);  // the newest label is selected
    QVERIFY(first->labels().at(0).colour != first->labels().at(1).colour);

    // Editing in the dock's list goes through the model, which refuses as well.
    QSignalSpy refused(&first->labels(), &tavr::label_model::refused);
    QVERIFY(!first->labels().setData(first->labels().index(0), "road"));
    QCOMPARE(refused.size(), 1);

    // Another image may reuse a label: it takes the same colour, and the dialog
    // notes when that label is unchecked somewhere.
    labels.set_image(second);
    QVERIFY(labels.add_label(square(1, 1, 3), "road"));
    QCOMPARE(second->labels().at(0).colour, first->labels().at(1).colour);
    QCOMPARE(labels.label_list().stringList(), (QStringList{"grass", "road"}));
    first->labels().set_checked(1, false);
    tavr::polygon_labels_dialog dialog;
    dialog.set_unchecked([&labels](const QString& text) { return labels.is_unchecked(text); });
    dialog.set_check([&labels](const QString& text) { return labels.problem_with(text); });
    dialog.set_previous_labels(labels.label_list().stringList());
    dialog.set_label_(dialog.previous_list().model()->index(1, 0));
    QCOMPARE(dialog.label(), QString("road"));
    QCOMPARE(dialog.note(), QString("Please note that chosen label is unchecked."));
    QSignalSpy dialog_refused(&dialog, &tavr::polygon_labels_dialog::refused);
    dialog.accept();
    QCOMPARE(dialog_refused.size(), 1);
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
  }

  void labels_follow_crops_and_resizes() {
    const auto image = small_image("scene");
    image->labels().add({"a", QColor("Red"), square(4, 2, 2)});
    auto corner = [&image] { return image->labels().at(0).polygon.boundingRect(); };
    image->crop(QRectF(2, 1, 4, 3));
    QCOMPARE(corner(), QRectF(2, 1, 2, 2));
    image->undo();
    QCOMPARE(corner(), QRectF(4, 2, 2, 2));
    image->redo();
    QCOMPARE(corner(), QRectF(2, 1, 2, 2));
    image->resize(50, 50);  // 5 x 4 pixels become 2 x 2
    QCOMPARE(corner(), QRectF(0.8, 0.5, 0.8, 1));
    image->reload();
    QCOMPARE(corner(), QRectF(4, 2, 2, 2));
  }

  void spectra_library_and_exports() {
    tavr::image_list_model images;
    tavr::library_model library;
    tavr::label_controller labels(images, library);
    const auto image = small_image("scene, one");
    images.append(image);
    labels.set_image(image);
    QCOMPARE(tavr::pixels_inside(square(0, 0, 2), 8, 6).size(), 4);
    QCOMPARE(tavr::pixels_inside(square(7, 5, 3), 8, 6).size(), 1);  // clipped to the picture
    QVERIFY(labels.add_label(square(0, 0, 2), "a"));
    QVERIFY(labels.add_label(square(4, 2, 2), "b, quoted"));

    // Means: pixels (0..1, 0..1) average x = 0.5, y = 0.5.
    const QList<tavr::spectrum_curve> curves =
        labels.mean_curves(tavr::label_controller::cube_kind::source);
    QCOMPARE(curves.size(), 2);
    QCOMPARE(curves[0].values, (QVector<double>{5.5, 105.5, 205.5}));
    QCOMPARE(curves[1].colour, image->labels().at(1).colour);

    QCOMPARE(labels.copy_to_library(), 2);
    QCOMPARE(labels.copy_to_library(), 2);  // copying again updates the entries
    QCOMPARE(library.size(), 2);
    QCOMPARE(library.entries()[0].source, QString("scene, one"));
    QCOMPARE(library.entries()[1].spectrum(0), 4.5f + 25.0f);

    QTemporaryDir dir;
    const QString slz = dir.filePath("labels");
    labels.export_endmembers(slz, true);
    corv::spectral_library means;
    means.load((slz + ".slz").toStdString());
    QCOMPARE(means.size(), arma::uword(2));
    QCOMPARE(means.labels()[1], std::string("b, quoted"));
    QVERIFY(means.has_colours());
    labels.export_endmembers(slz, false);  // every pixel under its label
    corv::spectral_library pixels;
    pixels.load((slz + ".slz").toStdString());
    QCOMPARE(pixels.size(), arma::uword(8));

    // Unchecked labels are left out; a cancelled export leaves no file.
    image->labels().set_checked(0, false);
    const QString csv = dir.filePath("pixels.csv");
    QVERIFY(!labels.export_raw(tavr::label_controller::cube_kind::source, csv,
                               [](int done, int) { return done == 0; }));
    QVERIFY(!QFile::exists(csv));
    QVERIFY(labels.export_raw(tavr::label_controller::cube_kind::source, csv));
    try {
      labels.export_raw(tavr::label_controller::cube_kind::reflectance, csv);
      QFAIL("an image without reflectance was exported");
    } catch (const std::runtime_error& error) {
      QCOMPARE(QString(error.what()),
               QString("export_polygon_data: The image has no reflectance."));
    }

    // Python's csv reader sees the documented layout: a trailing empty cell on every line.
    QProcess python;
    python.start(
        "/usr/bin/python3",
        {"-c",
         "import csv,sys\n"
         "rows = list(csv.reader(open(sys.argv[1], newline='')))\n"
         "assert rows[0] == ['image','x','y','label','500','600','700',''], rows[0]\n"
         "assert len(rows) == 5, len(rows)\n"
         "assert rows[1] == ['scene, one','4','2','b, quoted','24','124','224',''], rows[1]\n"
         "assert [r[1:3] for r in rows[1:]] == [['4','2'],['5','2'],['4','3'],['5','3']]\n",
         csv});
    QVERIFY(python.waitForFinished(30000));
    QVERIFY2(python.exitCode() == 0, python.readAllStandardError().constData());
  }
};

QTEST_MAIN(labels_test)
#include "labels_test.moc"
