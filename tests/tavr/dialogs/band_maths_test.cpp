// The band maths dialog and the controller that runs its formulas.
#include <QCheckBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QtTest/QtTest>

#include "corv/analysis/band_maths.h"
#include "corv/io/open_input.h"
#include "tavr/dialogs/band_maths.h"
#include "tavr/image/hs_image.h"
#include "tavr/processing/band_maths_controller.h"

namespace {

std::shared_ptr<tavr::hs_image> image(const char* name, float offset) {
  corv::cube I(5, 6, 4);
  for (arma::uword i = 0; i < I.n_elem; ++i) {
    I(i) = offset + static_cast<float>((i * 37) % 13);
  }
  return std::make_shared<tavr::hs_image>(I, corv::vector{450, 500, 550, 600}, name);
}

}  // namespace

class band_maths_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void dialog_texts_and_history();
  void results_equal_the_library();
};

void band_maths_test::dialog_texts_and_history() {
  tavr::band_maths dialog;
  QCOMPARE(dialog.objectName(), QStringLiteral("Band_Maths"));
  QCOMPARE(dialog.windowTitle(), QStringLiteral("Tavrel - Band Maths"));
  QVERIFY(!dialog.isModal());
  QVERIFY(dialog.isSizeGripEnabled());
  QStringList texts;
  for (QLabel* label : dialog.findChildren<QLabel*>()) {
    texts << label->text();
  }
  for (QAbstractButton* button : dialog.findChildren<QAbstractButton*>()) {
    texts << button->text();
  }
  for (const char* text : {"Formula:", "Command History", "Irradiance", "Reflectance",
                           "Export Current Result", "Colour result", "Close"}) {
    QVERIFY2(texts.contains(QString::fromLatin1(text)), text);
  }
  QVERIFY(
      texts.join(' ').contains("Images - Ix[y] x = image number (listed above), y = band "
                               "number."));
  QVERIFY(!dialog.reflectance());
  QVERIFY(!dialog.colour_result());

  dialog.set_images({"a.hdr", "b.hdr"});
  dialog.set_images({"c.hdr", "d.hdr", "e.hdr"});  // replaces, and selects the first
  auto* list = dialog.findChildren<QListWidget*>().first();
  QCOMPARE(list->count(), 3);
  QCOMPARE(list->currentRow(), 0);

  dialog.set_formula("I1[0]");
  dialog.run_button()->click();
  dialog.set_formula("I1[1] * 2");
  dialog.run_button()->click();
  QCOMPARE(dialog.history(), QStringList({"I1[1] * 2", "I1[0]"}));
  auto* history = dialog.findChildren<QListWidget*>().last();
  dialog.put_command_(history->model()->index(1, 0));
  QCOMPARE(dialog.formula(), QStringLiteral("I1[0]"));  // replaced, not appended
}

void band_maths_test::results_equal_the_library() {
  const QList<std::shared_ptr<tavr::hs_image>> images{image("first.hdr", 1.0f),
                                                      image("second.hdr", 2.0f)};
  tavr::band_maths dialog;
  tavr::band_maths_controller controller;
  QString shown;
  // As the main window wires it: the dialog's history first, then the run.
  QObject::connect(dialog.run_button(), &QPushButton::clicked,
                   [&] { shown = controller.run(images, dialog.formula(), dialog.reflectance()); });

  const QString formula = "(I1[3] - I2[1]) / (I1[3] + I2[1])";
  dialog.set_formula(formula);
  dialog.run_button()->click();
  QCOMPARE(shown, QString());
  const corv::matrix expected =
      corv::band_maths({std::cref(images[0]->pipeline().I()), std::cref(images[1]->pipeline().I())},
                       formula.toStdString());
  QVERIFY(arma::approx_equal(controller.result(), expected, "absdiff", 0.0f));
  QCOMPARE(controller.picture(tavr::value_colours::grey).size(), QSize(6, 5));

  // A syntax error keeps the previous result and still enters the history.
  dialog.set_formula("(I1[0]");
  dialog.run_button()->click();
  QCOMPARE(shown, QStringLiteral("Parse: Mismatched parenthesis!"));
  QCOMPARE(controller.formula(), formula);
  QVERIFY(arma::approx_equal(controller.result(), expected, "absdiff", 0.0f));
  QCOMPARE(dialog.history().first(), QStringLiteral("(I1[0]"));

  // Reflectance must be there for every image.
  dialog.findChildren<QRadioButton*>().last()->click();
  dialog.run_button()->click();
  QCOMPARE(shown, QStringLiteral("first.hdr does not have reflectance, please process it first."));

  // The result as a new image, and saved as a one-band ENVI image.
  const auto layer = controller.make_layer();
  QCOMPARE(layer->file_name(), QStringLiteral("Band Maths Result 1"));
  QCOMPARE(layer->pipeline().bands(), 1u);
  QVERIFY(
      arma::approx_equal(corv::matrix(layer->pipeline().I().slice(0)), expected, "absdiff", 0.0f));
  QCOMPARE(controller.make_layer()->file_name(), QStringLiteral("Band Maths Result 2"));
  QTemporaryDir folder;
  const QString saved = folder.filePath("ratio.fla");
  controller.save(saved);
  const auto input = corv::open_input(saved.toStdString(), false);
  QVERIFY(arma::approx_equal(corv::matrix(input->I().slice(0)), expected, "absdiff", 0.0f));

  tavr::band_maths_controller empty;
  QVERIFY(empty.make_layer() == nullptr);
  try {
    empty.save(saved);
    QFAIL("saved without a result");
  } catch (const std::runtime_error& e) {
    QCOMPARE(QString(e.what()), QStringLiteral("band_maths: There is no result to save."));
  }
}

QTEST_MAIN(band_maths_test)
#include "band_maths_test.moc"
