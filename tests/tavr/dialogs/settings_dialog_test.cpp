// The settings dialog: its tabs, fields, ranges, defaults and tooltips, Restore
// Defaults, the change flags, the illuminant method codes and the copy of its
// values into a pipeline.
#include <QAbstractSpinBox>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>
#include <QTabWidget>
#include <QtTest/QtTest>

#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"
#include "tavr/dialogs/settings_dialog.h"
#include "tavr/image/hs_image.h"

using tavr::processing_settings;
using tavr::settings_dialog;

namespace {

// The field that a label names.
template <typename Field>
Field* field(const settings_dialog& dialog, const QString& label) {
  for (QLabel* text : dialog.findChildren<QLabel*>()) {
    if (text->text() == label) {
      return qobject_cast<Field*>(text->buddy());
    }
  }
  return nullptr;
}

template <typename Button>
Button* button(const settings_dialog& dialog, const QString& text) {
  for (Button* candidate : dialog.findChildren<Button*>()) {
    if (candidate->text() == text) {
      return candidate;
    }
  }
  return nullptr;
}

QStringList tab_names(const QTabWidget* tabs) {
  QStringList names;
  for (int i = 0; i < tabs->count(); ++i) {
    names << tabs->tabText(i);
  }
  return names;
}

}  // namespace

class settings_dialog_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void tabs_and_title();
  void fields_ranges_and_tooltips();
  void restore_defaults_and_round_trip();
  void illuminant_method_codes();
  void change_flags_follow_their_stages();
  void values_reach_the_pipeline_and_the_image();
};

void settings_dialog_test::tabs_and_title() {
  settings_dialog dialog;
  QCOMPARE(dialog.windowTitle(), QStringLiteral("Settings..."));
  QCOMPARE(dialog.objectName(), QStringLiteral("Settings_Dialog"));
  QStringList outer;
  QStringList inner;
  for (QTabWidget* tabs : dialog.findChildren<QTabWidget*>()) {
    (tabs->count() == 4 ? outer : inner) = tab_names(tabs);
  }
  QCOMPARE(outer, QStringList({"Corvantis", "Workspace", "Output", "Logger"}));
  QCOMPARE(inner, QStringList({"Preprocessing", "Illuminant Rec", "Reflectance Rec", "Discovery",
                               "Analysis"}));
  QVERIFY(button<QPushButton>(dialog, QStringLiteral("Restore Defaults")) != nullptr);
}

void settings_dialog_test::fields_ranges_and_tooltips() {
  settings_dialog dialog;
  struct integer_row {
    const char* label;
    int minimum;
    int maximum;
    int value;
    const char* tip;
  };
  const integer_row integers[] = {
      {"Filter size:", 1, 32, 5, ""},
      {"Spatial smoothness:", 1, 200, 50, "Smoothness level"},
      {"Sample patch size:", 2, 200, 20, "Illuminant patch size"},
      {"Neighbourhood size:", 0, 50, 5, "Neighbourhood size"},
      {"Gray threshold (degrees):", 1, 1000, 2,
       "Deviation tolerance (degrees) from uniform spectrum"},
      {"Max num of clusters:", 0, 99, 20, "Max clusters"},
      {"Polynomial degree:", 2, 10, 2, ""},
      {"Knots threshold:", -1, 250, -1, ""},
  };
  for (const integer_row& row : integers) {
    auto* spin = field<QSpinBox>(dialog, QString::fromLatin1(row.label));
    QVERIFY2(spin != nullptr, row.label);
    QCOMPARE(spin->minimum(), row.minimum);
    QCOMPARE(spin->maximum(), row.maximum);
    QCOMPARE(spin->value(), row.value);
    QCOMPARE(spin->toolTip(), QString::fromLatin1(row.tip));
  }
  for (const char* label :
       {"Materials per pixel:", "Number of principle components:", "Max number of iterations:"}) {
    auto* spin = field<QSpinBox>(dialog, QString::fromLatin1(label));
    QVERIFY2(spin != nullptr, label);
    QCOMPARE(spin->minimum(), 1);
  }
  struct decimal_row {
    const char* label;
    int decimals;
    double step;
    double value;
    const char* tip;
  };
  const decimal_row decimals[] = {
      {"Max temperature:", 4, 0.001, 0.02, "Max temperature"},
      {"Min temperature:", 5, 0.00001, 0.00025, "Min temperature"},
      {"Cooling rate:", 3, 0.1, 0.8, "Cooling rate"},
      {"Split threshold:", 6, 0.01, 0.996195, "Split threshold"},
      {"Alpha:", 2, 0.1, 0.1, ""},
  };
  for (const decimal_row& row : decimals) {
    auto* spin = field<QDoubleSpinBox>(dialog, QString::fromLatin1(row.label));
    QVERIFY2(spin != nullptr, row.label);
    QCOMPARE(spin->decimals(), row.decimals);
    QCOMPARE(spin->singleStep(), row.step);
    QCOMPARE(spin->value(), row.value);
    QCOMPARE(spin->toolTip(), QString::fromLatin1(row.tip));
  }
  QCOMPARE(field<QDoubleSpinBox>(dialog, "Max temperature:")->maximum(), 1.0);
  QCOMPARE(field<QDoubleSpinBox>(dialog, "Split threshold:")->minimum(), 0.0);
  // Only what the annealing accepts: a cooling rate below 1, temperatures above 0.
  for (const char* label : {"Min temperature:", "Cooling rate:", "Split threshold:"}) {
    QCOMPARE(field<QDoubleSpinBox>(dialog, QString::fromLatin1(label))->maximum(), 0.999);
  }
  QCOMPARE(field<QDoubleSpinBox>(dialog, "Max temperature:")->minimum(), 0.0001);
  QCOMPARE(field<QDoubleSpinBox>(dialog, "Min temperature:")->minimum(), 0.00001);

  auto* methods = field<QComboBox>(dialog, "Illumination Recovery Method:");
  QVERIFY(methods != nullptr);
  QStringList entries;
  for (int i = 0; i < methods->count(); ++i) {
    entries << methods->itemText(i);
  }
  QCOMPARE(entries, QStringList({"White Patch", "Shade of Gray", "Gray World", "Gray Edge",
                                 "Finlayson and Schaefer", "ORBEK"}));
  auto* filters = dialog.findChild<QComboBox*>(QStringLiteral("filter_method"));
  QStringList filter_entries;
  for (int i = 0; i < filters->count(); ++i) {
    filter_entries << filters->itemText(i);
  }
  QCOMPARE(filter_entries, QStringList({"Wiener (spatial)", "Central Moving Average (spectral)",
                                        "Savitzky Golay (spectral)"}));
  QCOMPARE(button<QCheckBox>(dialog, "Faster material recovery")->toolTip(),
           QStringLiteral("Faster material segmentation"));
  for (const char* text : {"Faster illumination estimation", "Make the workspace portable",
                           "Save polygon data to Spectral Libraries compressed (mean)"}) {
    QVERIFY2(button<QCheckBox>(dialog, QString::fromLatin1(text)) != nullptr, text);
  }
  for (const char* text : {"Irradiance", "Reflectance", "8 Bit Unsigned", "16 Bit Unsigned",
                           "32 Bit Float", "Save as Raw", "Save as NURBS"}) {
    QVERIFY2(button<QRadioButton>(dialog, QString::fromLatin1(text)) != nullptr, text);
  }
  auto* level = field<QSlider>(dialog, "Logger level:");
  QVERIFY(level != nullptr);
  QCOMPARE(level->minimum(), 0);
  QCOMPARE(level->maximum(), 5);
  QStringList labels;
  for (QLabel* text : dialog.findChildren<QLabel*>()) {
    labels << text->text();
  }
  QVERIFY(labels.contains("0: No log information"));
  QVERIFY(labels.contains("5: Maximum log information"));
}

void settings_dialog_test::restore_defaults_and_round_trip() {
  settings_dialog dialog;
  QVERIFY(dialog.values() == processing_settings());

  processing_settings changed;
  changed.filter_method = corv::FILTER_SAVITZKY_GOLAY;
  changed.filter_size = 9;
  changed.illuminant_method = 3;
  changed.faster_illumination = false;
  changed.spatial_smoothness = 120;
  changed.illuminant_patch_size = 33;
  changed.neighbourhood_size = 0;
  changed.gray_threshold = 900;
  changed.faster_materials = false;
  changed.max_clusters = 7;
  changed.max_temperature = 0.5;
  changed.min_temperature = 0.00003;
  changed.cooling_rate = 0.5;
  changed.split_threshold = 0.9;
  changed.materials_per_pixel = 3;
  changed.principal_components = 4;
  changed.pca_on_reflectance = false;
  changed.portable_workspace = true;
  changed.envi_data_type = tavr::envi_uint16;
  changed.nurbs_save = true;
  changed.nurbs_iterations = 20;
  changed.nurbs_alpha = 0.3;
  changed.nurbs_degree = 4;
  changed.nurbs_knot_threshold = 100;
  changed.compressed_library_export = true;
  changed.verbosity = 5;
  dialog.set_values(changed);
  QVERIFY(dialog.values() == changed);

  // The NURBS fields take part only when HSZ files store NURBS curves.
  auto* knots = field<QSpinBox>(dialog, "Knots threshold:");
  QVERIFY(knots->isEnabled());
  button<QRadioButton>(dialog, "Save as Raw")->click();
  QVERIFY(!knots->isEnabled() && !dialog.values().nurbs_save);

  button<QPushButton>(dialog, QStringLiteral("Restore Defaults"))->click();
  const processing_settings restored = dialog.values();
  QVERIFY(restored == processing_settings());
  // The pipeline's own defaults: the viewer processes as the command line does.
  QVERIFY(restored == tavr::settings_from(corv::parameters()));
  QCOMPARE(restored.split_threshold, 0.996195);
  QCOMPARE(restored.filter_method, int{corv::FILTER_WIENER});
  QCOMPARE(restored.envi_data_type, int{tavr::envi_float32});
}

void settings_dialog_test::illuminant_method_codes() {
  settings_dialog dialog;
  auto* methods = field<QComboBox>(dialog, "Illumination Recovery Method:");
  const QPair<QString, int> codes[] = {
      {"ORBEK", 0},      {"Finlayson and Schaefer", 1}, {"Gray Edge", 2},
      {"Gray World", 3}, {"Shade of Gray", 4},          {"White Patch", 5},
  };
  for (const auto& code : codes) {
    methods->setCurrentText(code.first);
    QCOMPARE(methods->currentText(), code.first);
    QCOMPARE(dialog.illuminant_method(), code.second);
    QCOMPARE(dialog.values().illuminant_method, code.second);
  }
  // An entry the list does not know maps to no method, and says so in the log.
  methods->addItem(QStringLiteral("Max RGB"));
  methods->setCurrentText(QStringLiteral("Max RGB"));
  corv::logger::instance().clear_entries();
  corv::logger::instance().set_echo(false);
  QCOMPARE(dialog.illuminant_method(), -1);
  const auto entries = corv::logger::instance().entries();
  QVERIFY(!entries.empty());
  QCOMPARE(QString::fromStdString(entries.back().second),
           QStringLiteral("illuminant_method: Un-matching method"));
}

void settings_dialog_test::change_flags_follow_their_stages() {
  settings_dialog dialog;
  QVERIFY(!dialog.illuminant_dirty() && !dialog.component_dirty() && !dialog.material_dirty());

  field<QSpinBox>(dialog, "Sample patch size:")->setValue(40);
  QVERIFY(dialog.illuminant_dirty());
  QVERIFY(!dialog.component_dirty() && !dialog.material_dirty());

  dialog.clear_dirty();
  field<QSpinBox>(dialog, "Gray threshold (degrees):")->setValue(10);
  QVERIFY(dialog.component_dirty());
  QVERIFY(!dialog.illuminant_dirty() && !dialog.material_dirty());

  dialog.clear_dirty();
  button<QCheckBox>(dialog, "Faster material recovery")->toggle();
  QVERIFY(dialog.material_dirty());
  QVERIFY(!dialog.illuminant_dirty() && !dialog.component_dirty());

  dialog.clear_dirty();
  field<QComboBox>(dialog, "Illumination Recovery Method:")->setCurrentText("Gray Edge");
  QVERIFY(dialog.illuminant_dirty());

  // Output and analysis fields belong to no recovery stage.
  dialog.clear_dirty();
  field<QSpinBox>(dialog, "Filter size:")->setValue(7);
  field<QSpinBox>(dialog, "Polynomial degree:")->setValue(3);
  field<QSpinBox>(dialog, "Number of principle components:")->setValue(3);
  QVERIFY(!dialog.illuminant_dirty() && !dialog.component_dirty() && !dialog.material_dirty());

  // Restore Defaults changes the fields, so the stages are stale again.
  button<QPushButton>(dialog, QStringLiteral("Restore Defaults"))->click();
  QVERIFY(dialog.illuminant_dirty() && dialog.component_dirty() && dialog.material_dirty());
  // Showing a pipeline's values starts afresh.
  dialog.set_values(processing_settings());
  QVERIFY(!dialog.illuminant_dirty() && !dialog.component_dirty() && !dialog.material_dirty());
}

void settings_dialog_test::values_reach_the_pipeline_and_the_image() {
  settings_dialog dialog;
  auto* faster = button<QCheckBox>(dialog, "Faster material recovery");
  corv::pipeline pipeline;
  faster->setChecked(false);
  dialog.values().apply_to(pipeline);
  QCOMPARE(pipeline.parameters().material_mode, 0);
  faster->setChecked(true);
  dialog.values().apply_to(pipeline);
  QCOMPARE(pipeline.parameters().material_mode, 2);

  field<QComboBox>(dialog, "Illumination Recovery Method:")->setCurrentText("White Patch");
  field<QDoubleSpinBox>(dialog, "Min temperature:")->setValue(0.00012);
  field<QSpinBox>(dialog, "Neighbourhood size:")->setValue(9);
  button<QCheckBox>(dialog, "Faster illumination estimation")->setChecked(false);
  button<QRadioButton>(dialog, "Irradiance")->click();
  button<QRadioButton>(dialog, "Save as NURBS")->click();
  field<QSpinBox>(dialog, "Knots threshold:")->setValue(12);
  dialog.values().apply_to(pipeline);
  const corv::parameters& p = pipeline.parameters();
  QCOMPARE(p.illuminant_method, 5);
  QCOMPARE(p.min_temperature, 0.00012f);
  QCOMPARE(p.neighbourhood_size, 9);
  QVERIFY(!p.second_illuminant);
  button<QCheckBox>(dialog, "Faster illumination estimation")->setChecked(true);
  dialog.values().apply_to(pipeline);
  QVERIFY(pipeline.parameters().second_illuminant);
  QCOMPARE(p.pca_source, 0);
  QVERIFY(p.nurbs_encoding);
  QCOMPARE(p.nurbs_knots_threshold, 12);
  QCOMPARE(p.split_threshold, 0.996195f);

  // The pipeline's parameters shown again give the same settings.
  QVERIFY(tavr::settings_from(p) == dialog.values());

  // The image takes its own choices as well.
  tavr::hs_image image(corv::cube(2, 2, 3, arma::fill::ones), corv::vector{500.0f, 550.0f, 600.0f},
                       QStringLiteral("memory"));
  dialog.findChild<QComboBox*>(QStringLiteral("filter_method"))
      ->setCurrentText("Savitzky Golay (spectral)");
  field<QSpinBox>(dialog, "Filter size:")->setValue(7);
  field<QSpinBox>(dialog, "Number of principle components:")->setValue(4);
  dialog.findChild<QSlider*>()->setValue(4);
  dialog.values().apply_to(image);
  QCOMPARE(image.selection().filter_method, int{corv::FILTER_SAVITZKY_GOLAY});
  QCOMPARE(image.selection().filter_size, 7);
  QCOMPARE(image.selection().principal_components, 4);
  QCOMPARE(image.selection().analysis_cube_type, QStringLiteral("Irradiance"));
  QCOMPARE(image.verbosity(), 4);
  QCOMPARE(image.pipeline().parameters().illuminant_method, 5);
}

QTEST_MAIN(settings_dialog_test)
#include "settings_dialog_test.moc"
