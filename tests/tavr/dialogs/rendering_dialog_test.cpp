// The image rendering dialog: its groups and defaults, and the choices it gives back.
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QtTest/QtTest>

#include "tavr/dialogs/rendering_dialog.h"

using tavr::rendering_dialog;
using tavr::rendering_options;

class rendering_dialog_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void layout_and_defaults();
  void choices_round_trip();
};

void rendering_dialog_test::layout_and_defaults() {
  rendering_dialog dialog;
  QCOMPARE(dialog.windowTitle(), QStringLiteral("Image Rendering"));
  QCOMPARE(dialog.objectName(), QStringLiteral("Image_Rendering_Dialog"));
  QStringList groups;
  for (QGroupBox* group : dialog.findChildren<QGroupBox*>()) {
    groups << group->title();
  }
  QCOMPARE(groups, QStringList({"Data Ignore Value", "RGB Rendering", "Contrast Enhacement"}));
  QStringList labels;
  for (QLabel* label : dialog.findChildren<QLabel*>()) {
    labels << label->text();
  }
  for (const char* text : {"Data Ignore Value:", "Red:", "Green:", "Blue:", "CDF Min/Max Cutoff:",
                           "Min Cutoff:", "Max Cutoff:"}) {
    QVERIFY2(labels.contains(QString::fromLatin1(text)), text);
  }
  QCOMPARE(dialog.findChild<QLineEdit*>()->text(), QStringLiteral("-9999.0"));
  const rendering_options shown = dialog.options();
  QCOMPARE(shown.data_ignore_val, -9999.0);
  QVERIFY(shown.auto_rgb);
  QVERIFY(!shown.contrast_enhancement);
  // The band lists wait for manual mode.
  for (QComboBox* list : dialog.findChildren<QComboBox*>()) {
    QVERIFY(!list->isEnabled());
  }
}

void rendering_dialog_test::choices_round_trip() {
  rendering_dialog dialog;
  rendering_options options;
  options.data_ignore_val = 0.25;
  options.auto_rgb = false;
  options.rgb_bands = {4, 2, 9};  // blue beyond the last band
  options.contrast_enhancement = true;
  options.min_cum_val = 0.05;
  options.max_cum_val = 0.9;
  dialog.set_options(options, corv::vector{400.0f, 450.0f, 500.0f, 550.0f, 600.0f});
  const QList<QComboBox*> lists = dialog.findChildren<QComboBox*>();
  QCOMPARE(lists.size(), 3);
  QCOMPARE(lists.first()->count(), 5);
  QCOMPARE(lists.first()->itemText(4), QStringLiteral("600 nm (band 4)"));
  QVERIFY(lists.first()->isEnabled());
  const rendering_options shown = dialog.options();
  QCOMPARE(shown.data_ignore_val, 0.25);
  QVERIFY(!shown.auto_rgb);
  QCOMPARE(shown.rgb_bands[0], 4);
  QCOMPARE(shown.rgb_bands[1], 2);
  QCOMPARE(shown.rgb_bands[2], 4);
  QVERIFY(shown.contrast_enhancement);
  QCOMPARE(shown.min_cum_val, 0.05);
  QCOMPARE(shown.max_cum_val, 0.9);

  // A text that is not a number keeps the value the dialog was given.
  dialog.findChild<QLineEdit*>()->setText(QStringLiteral("-"));
  QCOMPARE(dialog.options().data_ignore_val, 0.25);
  dialog.findChild<QLineEdit*>()->setText(QStringLiteral("-1.5"));
  QCOMPARE(dialog.options().data_ignore_val, -1.5);
  dialog.findChildren<QRadioButton*>().first()->click();  // Automatic
  QVERIFY(dialog.options().auto_rgb);
  QVERIFY(!lists.first()->isEnabled());

  // Manual bands never chosen start nearest red, green and blue.
  dialog.set_options(rendering_options{}, corv::vector{400.0f, 450.0f, 500.0f, 550.0f, 650.0f});
  QCOMPARE(dialog.options().rgb_bands, (std::array<int, 3>{4, 3, 1}));
}

QTEST_MAIN(rendering_dialog_test)
#include "rendering_dialog_test.moc"
