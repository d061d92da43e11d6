// The viewer's image object: opening by suffix, background processing and its
// completion signal, analysis steps, preparation history.
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest/QtTest>
#include <memory>

#include "corv/io/hsz_output.h"
#include "corv/io/logger.h"
#include "tavr/image/hs_image.h"
#include "tests/corv/io/hsz_test_scene.h"

using tavr::hs_image;
using tavr::operation_record;
using tavr::processing_selection;

namespace {

const QString sample = QStringLiteral(CORV_SOURCE_DIR "/data/sample/sample.hdr");

corv::vector wavelengths_from(float first, float step, arma::uword count) {
  corv::vector waves(count);
  for (arma::uword b = 0; b < count; ++b) {
    waves(b) = first + step * static_cast<float>(b);
  }
  return waves;
}

// A cube whose every value tells where it is: row x 100 + column + band x 1000.
corv::cube position_cube(arma::uword rows, arma::uword cols, arma::uword bands) {
  corv::cube I(rows, cols, bands);
  for (arma::uword b = 0; b < bands; ++b) {
    for (arma::uword c = 0; c < cols; ++c) {
      for (arma::uword r = 0; r < rows; ++r) {
        I(r, c, b) = static_cast<float>(r * 100 + c + b * 1000);
      }
    }
  }
  return I;
}

processing_selection nothing_selected() {
  processing_selection selection;
  selection.filter_image = false;
  selection.recover_illuminant = false;
  selection.recover_reflectance = false;
  return selection;
}

// Runs process on this thread and returns the completion message.
QString run(hs_image& image) {
  QSignalSpy spy(&image, &hs_image::process_pipeline_complete);
  image.process();
  if (spy.count() != 1) {
    return QStringLiteral("<%1 completion signals>").arg(spy.count());
  }
  return spy.at(0).at(0).toString();
}

}  // namespace

class hs_image_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void cleanup() { corv::logger::instance().clear_progress(); }
  void opens_images_by_suffix();
  void process_runs_the_selected_operations_and_always_reports();
  void process_keeps_the_event_loop_running_and_can_be_aborted();
  void recovers_illuminant_and_reflectance_of_the_sample();
  void preparation_history_undo_redo_and_reload();
  void settings_summary_lists_the_choices();
};

void hs_image_test::opens_images_by_suffix() {
  hs_image envi(sample);
  QCOMPARE(envi.file_name(), sample);
  QCOMPARE(envi.pipeline().height(), 200u);
  QCOMPARE(envi.pipeline().width(), 300u);
  QCOMPARE(envi.pipeline().bands(), 33u);
  QCOMPARE(envi.pipeline().source()->input_kind(), int{corv::kind_hdr});
  QCOMPARE(envi.verbosity(), 0);
  QVERIFY(envi.history().isEmpty());
  // A pixel's spectrum read from the file alone, then from the cube in memory.
  const corv::vector from_file = envi.irradiance_spectrum(17, 33);
  QVERIFY(!envi.pipeline().holds_I());
  const corv::vector from_cube = envi.pipeline().I().tube(33, 17);
  QVERIFY(arma::approx_equal(from_file, from_cube, "absdiff", 0.0f));
  QVERIFY(arma::approx_equal(envi.irradiance_spectrum(17, 33), from_cube, "absdiff", 0.0f));

  // An HSZ file, named with an upper-case suffix, is still read as HSZ.
  QTemporaryDir folder;
  QVERIFY(folder.isValid());
  const QString hsz = folder.filePath(QStringLiteral("small.HSZ"));
  const corv::test::hsz_scene scene;
  {
    corv::pipeline processed(scene.input());
    processed.save(std::make_shared<corv::hsz_output>(), hsz.toStdString());
  }
  hs_image zipped(hsz);
  QCOMPARE(zipped.pipeline().source()->input_kind(), int{corv::kind_hsz});
  QCOMPARE(zipped.pipeline().I().n_cols, arma::uword{3});
  QVERIFY(arma::approx_equal(zipped.pipeline().I(), scene.I(), "absdiff", 1e-3f));

  // Taken as a reflectance image, the cube is the pipeline's s.
  hs_image reflectance(sample, hs_image::open_mode::reflectance);
  QCOMPARE(reflectance.mode(), hs_image::open_mode::reflectance);
  QVERIFY(arma::approx_equal(reflectance.pipeline().s(), envi.pipeline().I(), "absdiff", 0.0f));

  try {
    hs_image missing(folder.filePath(QStringLiteral("missing.hdr")));
    QFAIL("a missing file was opened");
  } catch (const std::runtime_error& e) {
    QVERIFY(QString(e.what()).startsWith(QStringLiteral("hdr_input")));
  }
}

void hs_image_test::process_runs_the_selected_operations_and_always_reports() {
  const corv::cube original = position_cube(6, 7, 5);
  hs_image image(original, wavelengths_from(450.0f, 50.0f, 5), QStringLiteral("memory"));

  // Nothing selected: success at once, nothing changed.
  image.set_selection(nothing_selected());
  QCOMPARE(run(image), QString());
  QVERIFY(arma::approx_equal(image.pipeline().I(), original, "absdiff", 0.0f));

  // Filter, then analysis on the irradiance: the principal components appear.
  processing_selection selection = nothing_selected();
  selection.filter_image = true;
  selection.filter_method = corv::FILTER_MOVING_AVERAGE;
  selection.filter_size = 3;
  selection.analyse = true;
  selection.analysis_cube_type = QStringLiteral("Irradiance");
  selection.principal_components = 3;
  image.set_selection(selection);
  image.set_verbosity(0);
  QVERIFY(!image.filtered());
  QCOMPARE(run(image), QString());
  QVERIFY(image.filtered());
  QCOMPARE(image.pipeline().parameters().verbosity, 0);
  QCOMPARE(image.pipeline().parameters().principal_components, 3);
  QVERIFY(!image.pipeline().principal_components().empty());
  QVERIFY(!arma::approx_equal(image.pipeline().I(), original, "absdiff", 0.0f));

  // Any other cube type performs no analysis and reports success.
  image.reload();
  QVERIFY(!image.filtered());  // the image is rebuilt from its file
  selection.filter_image = false;
  selection.analysis_cube_type = QStringLiteral("Specularity");
  image.set_selection(selection);
  QCOMPARE(run(image), QString());
  QVERIFY(image.pipeline().principal_components().empty());

  // A failing operation stops the run: the analysis after it does not happen.
  selection.filter_image = true;
  selection.filter_size = 40;
  selection.analysis_cube_type = QStringLiteral("Irradiance");
  image.set_selection(selection);
  QCOMPARE(run(image), QStringLiteral("pipeline filter: Error - invalid parameters."));
  QVERIFY(image.pipeline().principal_components().empty());
  QVERIFY(!image.filtered());  // a filter that failed leaves the image unfiltered

  // An image without I: the illuminant stage fails before reflectance recovery.
  hs_image empty(corv::cube(), corv::vector(), QStringLiteral("empty"));
  processing_selection recovery = nothing_selected();
  recovery.recover_illuminant = true;
  recovery.recover_reflectance = true;
  empty.set_selection(recovery);
  QCOMPARE(run(empty), QStringLiteral("pipeline: I is empty in process_recover_illuminant()"));

  // Classification with an unknown method code.
  processing_selection classify = nothing_selected();
  classify.classify = true;
  classify.classification_method = 7;
  image.set_selection(classify);
  QCOMPARE(run(image), QStringLiteral("No classification method selected"));
}

void hs_image_test::process_keeps_the_event_loop_running_and_can_be_aborted() {
  // Large enough that the Wiener filter takes seconds: the timer must keep firing.
  arma::arma_rng::set_seed(7);
  const corv::cube I(400, 400, 64, arma::fill::randu);
  hs_image image(I, wavelengths_from(400.0f, 5.0f, 64), QStringLiteral("large"));
  processing_selection selection = nothing_selected();
  selection.filter_image = true;
  selection.filter_method = corv::FILTER_WIENER;
  selection.filter_size = 5;
  selection.analyse = true;
  selection.analysis_cube_type = QStringLiteral("Irradiance");
  image.set_selection(selection);
  image.set_verbosity(0);

  QSignalSpy spy(&image, &hs_image::process_pipeline_complete);
  int ticks = 0;
  QTimer timer;
  timer.setInterval(5);
  connect(&timer, &QTimer::timeout, this, [&ticks] {
    if (++ticks == 3) {
      corv::logger::instance().request_abort();
    }
  });
  timer.start();
  image.start_process();
  QVERIFY(spy.wait(300000));
  timer.stop();
  QVERIFY2(ticks >= 3, "the event loop stood still while processing ran");
  QCOMPARE(spy.count(), 1);
  QCOMPARE(spy.at(0).at(0).toString(), QStringLiteral("Processing was aborted!"));
  QVERIFY(image.pipeline().principal_components().empty());
}

void hs_image_test::recovers_illuminant_and_reflectance_of_the_sample() {
  hs_image image(sample);
  image.crop(QRectF(100.0, 50.0, 79.0, 79.0));  // 80 x 80 pixels
  processing_selection selection;               // filter, illuminant and reflectance
  image.set_selection(selection);
  image.set_verbosity(0);
  image.pipeline().set_illuminant_patch_size(10);
  QCOMPARE(run(image), QString());
  QCOMPARE(image.pipeline().illuminant().n_elem, arma::uword{33});
  QCOMPARE(arma::size(image.pipeline().s()), arma::size(80, 80, 33));
  QCOMPARE(arma::size(image.pipeline().g()), arma::size(80, 80));
  QVERIFY(image.pipeline().parameters().wiener_marker);
}

void hs_image_test::preparation_history_undo_redo_and_reload() {
  const corv::cube original = position_cube(10, 20, 5);
  hs_image image(original, wavelengths_from(400.0f, 10.0f, 5), QStringLiteral("memory"));
  QVERIFY(!image.can_undo());

  // Crop x 2, y 3, width 4, height 5: rows 3..8 and columns 2..6, inclusive.
  image.crop(QRectF(2.7, 3.2, 4.0, 5.0));
  QCOMPARE(image.pipeline().I().n_rows, arma::uword{6});
  QCOMPARE(image.pipeline().I().n_cols, arma::uword{5});
  QCOMPARE(image.pipeline().I()(0, 0, 0), 302.0f);
  // Percentages of 100 or more change nothing and leave no record.
  image.resize(100.0, 150.0);
  QCOMPARE(image.history().size(), 1);
  image.resize(50.0, 50.0);  // 6 x 5 becomes 3 x 2
  QCOMPARE(image.pipeline().height(), 3u);
  QCOMPARE(image.pipeline().width(), 2u);
  image.remove_bands({1, 3});
  QCOMPARE(image.pipeline().bands(), 3u);
  QCOMPARE(image.pipeline().wavelengths()(1), 420.0f);
  QCOMPARE(image.history().size(), 3);
  QCOMPARE(image.history().at(0).name, QStringLiteral("crop"));
  QCOMPARE(image.history().at(0).rectangle, QRectF(2.7, 3.2, 4.0, 5.0));
  QCOMPARE(image.history().at(1).name, QStringLiteral("resize"));
  QCOMPARE(image.history().at(1).height_percent, 50.0);
  QCOMPARE(image.history().at(2).name, QStringLiteral("remove_band"));
  QCOMPARE(image.history().at(2).bands, QVector<qint32>({1, 3}));

  // A refused operation leaves the history as it was.
  QVERIFY_EXCEPTION_THROWN(image.crop(QRectF(0.0, 0.0, 50.0, 50.0)), std::runtime_error);
  QVERIFY_EXCEPTION_THROWN(image.remove_bands({-1}), std::runtime_error);
  QCOMPARE(image.history().size(), 3);

  image.undo();  // back to crop + resize
  QCOMPARE(image.pipeline().bands(), 5u);
  QCOMPARE(image.pipeline().height(), 3u);
  QCOMPARE(image.redo_list().size(), 1);
  image.undo();
  image.undo();  // back to the original
  QVERIFY(arma::approx_equal(image.pipeline().I(), original, "absdiff", 0.0f));
  QVERIFY(!image.can_undo());
  QCOMPARE(image.redo_list().size(), 3);
  QCOMPARE(image.redo_list().first().name, QStringLiteral("crop"));
  image.undo();  // nothing to undo
  QCOMPARE(image.redo_list().size(), 3);

  image.redo();
  QCOMPARE(image.pipeline().I().n_rows, arma::uword{6});
  QCOMPARE(image.pipeline().I()(0, 0, 0), 302.0f);
  QCOMPARE(image.redo_list().first().name, QStringLiteral("resize"));
  // A new operation empties the redo list.
  image.remove_bands({0});
  QVERIFY(!image.can_redo());
  QCOMPARE(image.history().size(), 2);

  image.reload();
  QVERIFY(arma::approx_equal(image.pipeline().I(), original, "absdiff", 0.0f));
  QVERIFY(image.history().isEmpty());
  QVERIFY(!image.can_redo());

  image.align_bands(2);
  QCOMPARE(image.history().last().name, QStringLiteral("align_bands"));
  QCOMPARE(image.history().last().bands, QVector<qint32>({2}));
  QVERIFY_EXCEPTION_THROWN(image.align_bands(9), std::runtime_error);
  QCOMPARE(image.history().size(), 1);
  image.reload();
  QVERIFY(!image.can_redo());

  // Crop applied to the reflectance first; its redo changes I, never s.
  image.pipeline().set_s(original);
  image.set_prepare_reflectance(true);
  image.crop(QRectF(0.0, 0.0, 1.0, 1.0));
  QCOMPARE(image.pipeline().s().n_rows, arma::uword{2});
  QCOMPARE(image.pipeline().I().n_rows, arma::uword{10});
  image.undo();
  image.redo();
  QCOMPARE(image.pipeline().I().n_rows, arma::uword{2});
}

void hs_image_test::settings_summary_lists_the_choices() {
  hs_image image(position_cube(2, 2, 3), wavelengths_from(500.0f, 10.0f, 3),
                 QStringLiteral("memory"));
  image.pipeline().set_second_illuminant(false);
  image.pipeline().set_material_mode(0);
  image.pipeline().set_max_clusters(12);
  processing_selection selection;
  selection.filter_image = false;
  selection.classification_method = tavr::classify_svm;
  image.set_selection(selection);
  const QString summary = image.settings_summary();
  QVERIFY(summary.startsWith(
      QStringLiteral("Pipeline settings:\nFilter image: No\nFaster illumination estimation: No\n"
                     "Illumination Smoothness level: 50\nIlluminant patch size: 20\n")));
  QVERIFY(summary.contains(QStringLiteral("\nFaster material recovery: No\n")));
  QVERIFY(summary.contains(QStringLiteral("\nMaterials max clusters: 12\n")));
  QVERIFY(summary.contains(QStringLiteral("\nMaterial split threshold: -1\n")));
  QVERIFY(summary.contains(QStringLiteral("\nClassification method: Support Vector Machines\n")));
  QVERIFY(summary.endsWith(
      QStringLiteral("\nCube type: Reflectance\nNumber of principal components: 10")));
}

QTEST_GUILESS_MAIN(hs_image_test)
#include "hs_image_test.moc"
