// Classification and endmember recovery as the viewer runs them, and the views
// of their results.
#include <QSignalSpy>
#include <QtTest/QtTest>

#include "corv/analysis/sam.h"
#include "corv/analysis/svm.h"
#include "corv/analysis/unmixing.h"
#include "corv/io/logger.h"
#include "corv/io/spectral_library.h"
#include "tavr/image/class_views.h"
#include "tavr/image/hs_image.h"
#include "tavr/processing/processing_controller.h"

namespace {

const corv::vector wavelengths{450, 500, 550, 600, 650};

// Three endmembers, two of them labelled "grass": two classes.
std::shared_ptr<corv::spectral_library> library() {
  const corv::matrix spectra{{0.1f, 0.8f, 0.3f},
                             {0.2f, 0.7f, 0.3f},
                             {0.6f, 0.2f, 0.3f},
                             {0.8f, 0.1f, 0.4f},
                             {0.9f, 0.1f, 0.6f}};
  return std::make_shared<corv::spectral_library>(
      spectra, std::vector<std::string>{"grass", "soil", "grass"}, wavelengths);
}

// A reflectance image of mixtures of the endmembers.
std::shared_ptr<tavr::hs_image> image() {
  const corv::matrix spectra = library()->endmembers();
  corv::cube s(4, 5, 5);
  for (arma::uword r = 0; r < 4; ++r) {
    for (arma::uword c = 0; c < 5; ++c) {
      const float a = (r * 5 + c) / 19.0f;
      s.tube(r, c) = a * spectra.col(0) + (1 - a) * spectra.col(1) + 0.2f * a * spectra.col(2);
    }
  }
  auto made = std::make_shared<tavr::hs_image>(s, wavelengths, "mix.hdr");
  made->pipeline().set_s(s, wavelengths);
  made->pipeline().set_library(library());
  return made;
}

// Runs a command through the processing controller and waits for its end.
QString run(const std::shared_ptr<tavr::hs_image>& target, tavr::processing_command command,
            int method) {
  tavr::processing_controller controller;
  controller.set_classification_method(method);
  QSignalSpy finished(&controller, &tavr::processing_controller::finished);
  if (!controller.start(target, command, tavr::processing_settings())) {
    return "<not started>";
  }
  finished.wait(30000);
  return finished.isEmpty() ? QString("<no end>") : finished.front().at(1).toString();
}

}  // namespace

class class_views_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void initTestCase() { corv::logger::instance().set_echo(false); }
  void classifications_equal_the_library();
  void views_follow_the_legend();
};

void class_views_test::classifications_equal_the_library() {
  const auto lib = library();
  const corv::matrix spectra = lib->endmembers().t();
  for (const int method : {tavr::classify_sam, tavr::classify_svm, tavr::classify_unmixing}) {
    const auto target = image();
    QCOMPARE(run(target, tavr::processing_command::classification, method), QString());
    const tavr::classification_result& result = target->classification();
    QCOMPARE(result.method, method);
    QCOMPARE(result.class_labels, QStringList({"grass", "soil"}));
    corv::cube values;
    corv::cube indexes;
    const corv::cube& s = target->pipeline().s();
    if (method == tavr::classify_svm) {
      corv::vector labels{1, 2, 1};
      corv::matrix predicted;
      corv::svm(s, wavelengths, spectra, lib->wavelengths(), labels, predicted);
      QVERIFY(arma::approx_equal(result.class_map, predicted, "absdiff", 0.0f));
      continue;
    }
    if (method == tavr::classify_sam) {
      corv::sam(s, wavelengths, spectra, lib->wavelengths(), values, indexes, 5);
    } else {
      corv::unmix_by_spectra(s, wavelengths, spectra, lib->wavelengths(), values, indexes, 5);
    }
    QVERIFY(arma::approx_equal(result.values, values, "absdiff", 0.0f));
    QVERIFY(arma::approx_equal(result.indexes, indexes, "absdiff", 0.0f));
    // Pixel (0, 0) is the second endmember itself: class "soil" with every method.
    QCOMPARE(result.class_map(0, 0), 2.0f);
  }

  // Endmember recovery fills the pipeline's endmember abundances.
  const auto target = image();
  QCOMPARE(run(target, tavr::processing_command::endmembers, 0), QString());
  QCOMPARE(target->pipeline().endmember_abundances().n_rows, 4u);

  QCOMPARE(tavr::processing_controller::library_problem(nullptr),
           QStringLiteral("No endmember labels selected. Please select endmember labels using "
                          "the Spectral Library Manager."));
  const corv::spectral_library empty;
  QVERIFY(!tavr::processing_controller::library_problem(&empty).isEmpty());
  QVERIFY(tavr::processing_controller::library_problem(lib.get()).isEmpty());
}

void class_views_test::views_follow_the_legend() {
  const auto target = image();
  QCOMPARE(run(target, tavr::processing_command::classification, tavr::classify_unmixing),
           QString());
  const tavr::classification_result& result = target->classification();
  const auto lib = library();
  QVector<tavr::legend_entry> legend = tavr::class_legend(result, lib.get());
  QCOMPARE(legend.size(), 2);
  const corv::matrix palette = corv::spectral_library::palette_colours(0, 3);
  QCOMPARE(legend[1].colour,
           QColor(static_cast<int>(palette(1, 0)), static_cast<int>(palette(1, 1)),
                  static_cast<int>(palette(1, 2))));
  QCOMPARE(tavr::endmember_legend(*lib).size(), 3);

  QImage map = tavr::class_map_picture(result.class_map, legend);
  QCOMPARE(map.pixelColor(0, 0), legend[1].colour);
  legend[1].checked = false;
  map = tavr::class_map_picture(result.class_map, legend);
  QCOMPARE(map.pixelColor(0, 0), QColor(Qt::black));
  QCOMPARE(tavr::checked_entries(legend), std::vector<int>({0}));

  // The transparency layer blends checked classes only.
  QImage base(5, 4, QImage::Format_RGB32);
  base.fill(QColor(100, 100, 100));
  legend[1].checked = true;
  legend[1].colour = QColor(200, 0, 50);
  const QImage over = tavr::class_overlay(base, result.class_map, legend, 0.5);
  QCOMPARE(over.pixelColor(0, 0), QColor(150, 50, 75));

  // Unmixing scores: the fractions of a class's endmembers add up; together, all classes make 1.
  const corv::matrix grass = tavr::class_scores(result, 1);
  const corv::matrix soil = tavr::class_scores(result, 2);
  QVERIFY(arma::approx_equal(corv::matrix(grass + soil), corv::matrix(4, 5, arma::fill::ones),
                             "absdiff", 1e-4f));
  QVERIFY(soil(0, 0) > 0.99f);
}

QTEST_MAIN(class_views_test)
#include "class_views_test.moc"
