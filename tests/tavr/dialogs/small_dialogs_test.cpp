// The small dialogs: image information, large-image loading, resize, spatial
// statistics and the log, each through the values it hands back.
#include <QDialogButtonBox>
#include <QDir>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QToolButton>
#include <QtTest/QtTest>

#include "corv/io/data_input.h"
#include "corv/io/hdr_output.h"
#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"
#include "tavr/dialogs/image_info_dialog.h"
#include "tavr/dialogs/load_image_dialog.h"
#include "tavr/dialogs/log_dialog.h"
#include "tavr/dialogs/resize_image_dialog.h"
#include "tavr/dialogs/stats_dialog.h"
#include "tavr/image/hs_image.h"
#include "tavr/image/image_information.h"
#include "tavr/image/image_subset.h"
#include "tavr/processing/statistics_export.h"

namespace {

corv::cube numbered_cube(arma::uword rows, arma::uword cols, arma::uword bands) {
  corv::cube I(rows, cols, bands);
  for (arma::uword i = 0; i < I.n_elem; ++i) {
    I(i) = static_cast<float>(i);
  }
  return I;
}

QStringList label_texts(const QWidget& dialog) {
  QStringList texts;
  for (QLabel* label : dialog.findChildren<QLabel*>()) {
    texts << label->text();
  }
  return texts;
}

}  // namespace

class small_dialogs_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void image_information_shows_the_image();
  void large_image_estimate_and_subset();
  void resize_links_width_and_height();
  void statistics_choices_and_export();
  void log_moves_clears_and_saves();
};

void small_dialogs_test::image_information_shows_the_image() {
  tavr::hs_image image(numbered_cube(7, 9, 4), corv::vector{400, 500, 600, 700}, "/data/x.hdr");
  tavr::image_info_dialog dialog;
  QCOMPARE(dialog.windowTitle(), QStringLiteral("Image Information"));
  dialog.set_information(tavr::information_of(image));
  const QStringList texts = label_texts(dialog);
  for (const char* text : {"Height:", "Width:", "Slices:", "Exposure times:", "7", "9", "4",
                           "not recorded", "x.hdr"}) {
    QVERIFY2(texts.contains(QString::fromLatin1(text)), text);
  }
  const QString summary = dialog.findChild<QPlainTextEdit*>()->toPlainText();
  QVERIFY(summary.startsWith("Pipeline settings:\nFilter image: Yes"));
  QVERIFY(summary.endsWith("\nNumber of principal components: 10"));
}

void small_dialogs_test::large_image_estimate_and_subset() {
  QVERIFY(!tavr::is_large_image(1000, 1000, 100));  // exactly 100 million
  QVERIFY(tavr::is_large_image(1000, 1000, 101));

  tavr::load_image_dialog dialog;
  QCOMPARE(dialog.windowTitle(), QStringLiteral("Opening Large Image"));
  dialog.set_image(2048, 2048, arma::linspace<corv::vector>(400, 1000, 128));
  // Everything chosen: OK loads the whole image.
  QCOMPARE(dialog.estimate_text(),
           QStringLiteral("Loaded image will have 537 million elements (approx 2147 MB RAM, more "
                          "required for processing)"));
  // Ranges count end - start, whichever end is entered first.
  dialog.range_box(0)->setValue(2000);
  dialog.range_box(1)->setValue(1000);
  dialog.range_box(2)->setValue(500);
  dialog.range_box(3)->setValue(1500);
  dialog.band_list()->item(3)->setSelected(true);
  dialog.band_list()->item(5)->setSelected(true);
  dialog.selected_button()->click();
  QCOMPARE(dialog.estimate_text(),
           QStringLiteral("Loaded image will have 2 million elements (approx 8 MB RAM, more "
                          "required for processing)"));
  const tavr::image_subset chosen = dialog.subset();
  QCOMPARE(chosen.bands, corv::band_list({3, 5}));
  QCOMPARE(chosen.first_row(), 1000);
  QCOMPARE(chosen.row_count(), 1000);
  dialog.none_button()->click();
  QVERIFY(dialog.estimate_text().startsWith("Loaded image will have 0 million elements"));
  QVERIFY(!dialog.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->isEnabled());

  // The subset read from a file: rows 1..2, columns 2..4, bands 0 and 2.
  QTemporaryDir folder;
  const corv::cube I = numbered_cube(4, 6, 3);
  auto data = std::make_shared<corv::data_input>();
  data->set_I(I);
  data->set_wavelengths(corv::vector{450, 550, 650});
  corv::pipeline source(data);
  const QString file = folder.filePath("cube.fla");
  source.save(std::make_shared<corv::hdr_output>(false, 4), file.toStdString());
  tavr::image_subset subset;
  subset.bands = {0, 2};
  subset.vertical_from = 3;
  subset.vertical_to = 1;
  subset.horizontal_from = 2;
  subset.horizontal_to = 5;
  const auto opened = tavr::open_subset(file, subset);
  corv::pipeline& p = opened->pipeline();
  QCOMPARE(p.height(), 2u);
  QCOMPARE(p.width(), 3u);
  QCOMPARE(p.wavelengths()(1), 650.0f);
  QCOMPARE(p.I()(0, 0, 1), I(1, 2, 2));
  QCOMPARE(p.I()(1, 2, 0), I(2, 4, 0));
  subset.bands.clear();
  try {
    tavr::open_subset(file, subset);
    QFAIL("an empty subset opened");
  } catch (const std::runtime_error& e) {
    QCOMPARE(QString(e.what()), QStringLiteral("open_subset: Nothing to load: choose at least one "
                                               "band, one row and one column."));
  }
}

void small_dialogs_test::resize_links_width_and_height() {
  tavr::resize_image_dialog dialog;
  QCOMPARE(dialog.windowTitle(), QStringLiteral("Resize Image"));
  dialog.set_image_size(333, 101);
  dialog.resize_percent_(50);
  QCOMPARE(dialog.new_width(), 167);
  QCOMPARE(dialog.new_height(), 51);
  QVERIFY(dialog.linked());
  dialog.width_box()->setValue(111);
  QCOMPARE(dialog.new_height(), 34);  // in proportion
  auto icon_of = [](const QString& name) { return QIcon(name).pixmap(24).toImage(); };
  QCOMPARE(dialog.link_button()->icon().pixmap(24).toImage(), icon_of(":/tavrel/icons/link.png"));
  dialog.link_button()->click();
  QVERIFY(!dialog.linked());
  QCOMPARE(dialog.link_button()->icon().pixmap(24).toImage(),
           icon_of(":/tavrel/icons/link_break.png"));
  dialog.height_box()->setValue(100);
  QCOMPARE(dialog.new_width(), 111);

  // The image object turns the percentages into exactly the chosen size.
  for (const auto& [width, height] : {std::pair{111, 100}, std::pair{37, 29}, std::pair{1, 1}}) {
    dialog.width_box()->setValue(width);
    dialog.height_box()->setValue(height);
    tavr::hs_image image(numbered_cube(101, 333, 2), corv::vector{500, 600}, "r.hdr");
    image.resize(dialog.width_percent(), dialog.height_percent());
    QCOMPARE(image.pipeline().width(), static_cast<unsigned>(width));
    QCOMPARE(image.pipeline().height(), static_cast<unsigned>(height));
  }
}

void small_dialogs_test::statistics_choices_and_export() {
  tavr::stats_dialog dialog;
  dialog.set_interactive(false);
  QCOMPARE(dialog.windowTitle(), QStringLiteral("Spatial Statistic Settings"));
  dialog.set_features(2, 0);  // no polygons: their options are off
  dialog.set_folder("/no/such/folder");
  QCOMPARE(dialog.problem(), QStringLiteral("The chosen folder does not exist. Please choose "
                                            "another folder."));
  dialog.accept();
  QCOMPARE(dialog.result(), 0);  // stays open
  QTemporaryDir folder;
  dialog.set_folder(folder.path());
  QCOMPARE(dialog.problem(), QString());
  corv::spatial_statistics_request request = dialog.request();
  QCOMPARE(request.name, std::string("untitled"));
  QVERIFY(request.points);
  QVERIFY(!request.polygons);
  QVERIFY(request.chosen[corv::statistic_mean] && request.chosen[corv::statistic_stddev]);
  QVERIFY(!request.chosen[corv::statistic_median]);

  tavr::hs_image image(numbered_cube(6, 7, 2), corv::vector{500, 600}, "s.hdr");
  corv::vector_features features;
  features.points = {{1.5, 1.5}, {5.5, 4.5}};
  const tavr::statistics_export_result written =
      tavr::export_statistics(image, features, request, false);
  QCOMPARE(written.message, QString());
  QCOMPARE(written.files, QStringList({folder.filePath("untitled_point_mean.csv"),
                                       folder.filePath("untitled_point_stddev.csv")}));
  const tavr::statistics_export_result refused =
      tavr::export_statistics(image, features, request, true);
  QCOMPARE(refused.message,
           QStringLiteral("s.hdr does not have reflectance, please process it first."));
  const tavr::statistics_export_result stopped = tavr::export_statistics(
      image, features, request, false, [](std::size_t, std::size_t) { return false; });
  QVERIFY(stopped.cancelled);
  QCOMPARE(stopped.message, QString());
}

void small_dialogs_test::log_moves_clears_and_saves() {
  corv::logger& log = corv::logger::instance();
  log.set_echo(false);
  log.clear_entries();
  tavr::log_dialog dialog;
  QCOMPARE(dialog.windowTitle(), QStringLiteral("Log Outputs"));
  QVERIFY(dialog.timer().isActive());
  log << "first line"
      << "EOL";
  log << "second " << 2 << "EOL";
  dialog.process_logs_();
  QVERIFY(log.entries().empty());  // moved, not copied
  const QStringList lines = dialog.text().split('\n');
  QCOMPARE(lines.size(), 2);
  QVERIFY(lines[1].endsWith(" second 2"));
  QVERIFY(QRegularExpression("^\\d{8}_\\d{6} first line$").match(lines[0]).hasMatch());

  QTemporaryDir folder;
  QVERIFY(dialog.save_to(folder.filePath("log.txt")));
  QFile saved(folder.filePath("log.txt"));
  QVERIFY(saved.open(QIODevice::ReadOnly));
  QCOMPARE(QString::fromUtf8(saved.readAll()), dialog.text() + '\n');
  QVERIFY(!dialog.save_to(folder.filePath("missing/log.txt")));
  dialog.clear_button_();
  QCOMPARE(dialog.text(), QString());
}

QTEST_MAIN(small_dialogs_test)
#include "small_dialogs_test.moc"
