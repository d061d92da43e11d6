#include "tavr/dialogs/settings_dialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

#include "corv/io/logger.h"

namespace tavr {

namespace {

// One upper bound for the minimum temperature, cooling rate and split threshold:
// each is a fraction, the cooling rate must stay below 1 for the annealing to
// end, and the split threshold's default, cos 5 degrees (0.996195), must fit.
constexpr double fraction_maximum = 0.999;
// The smallest temperatures the fields can show: the annealing refuses 0.
constexpr double smallest_max_temperature = 0.0001;
constexpr double smallest_min_temperature = 0.00001;

QSpinBox* integer_field(int minimum, int maximum, const QString& tip = QString()) {
  auto* field = new QSpinBox;
  field->setRange(minimum, maximum);
  if (!tip.isEmpty()) {
    field->setToolTip(tip);
  }
  return field;
}

QDoubleSpinBox* decimal_field(double minimum, double maximum, int decimals, double step,
                              const QString& tip = QString()) {
  auto* field = new QDoubleSpinBox;
  field->setDecimals(decimals);
  field->setRange(minimum, maximum);
  field->setSingleStep(step);
  if (!tip.isEmpty()) {
    field->setToolTip(tip);
  }
  return field;
}

// A form row whose label carries the field's tooltip as well.
void add_row(QFormLayout* form, const QString& label, QWidget* field) {
  auto* text = new QLabel(label);
  text->setToolTip(field->toolTip());
  text->setBuddy(field);
  form->addRow(text, field);
}

// Illuminant method codes by the text of the method list.
struct method_name {
  const char* text;
  int code;
};
constexpr method_name illuminant_methods[] = {
    {"ORBEK", 0},      {"Finlayson and Schaefer", 1}, {"Gray Edge", 2},
    {"Gray World", 3}, {"Shade of Gray", 4},          {"White Patch", 5},
};

}  // namespace

settings_dialog::settings_dialog(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("Settings_Dialog"));
  setWindowTitle(QStringLiteral("Settings..."));

  auto* tabs = new QTabWidget;
  tabs->addTab(build_corvantis_tab(), QStringLiteral("Corvantis"));
  tabs->addTab(build_workspace_tab(), QStringLiteral("Workspace"));
  tabs->addTab(build_output_tab(), QStringLiteral("Output"));
  tabs->addTab(build_logger_tab(), QStringLiteral("Logger"));

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel |
                                       QDialogButtonBox::RestoreDefaults);
  buttons->button(QDialogButtonBox::RestoreDefaults)->setText(QStringLiteral("Restore Defaults"));
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(buttons->button(QDialogButtonBox::RestoreDefaults), &QPushButton::clicked, this,
          &settings_dialog::restore_defaults_);

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(tabs);
  layout->addWidget(buttons);

  set_values(processing_settings());
  connect_dirty_slots();
}

QWidget* settings_dialog::build_corvantis_tab() {
  auto* stages = new QTabWidget;
  // Every stage in sight: the dialog grows to show all their tabs.
  stages->setUsesScrollButtons(false);

  // Preprocessing
  auto* filter_group = new QGroupBox(QStringLiteral("Filter"));
  auto* filter_form = new QFormLayout(filter_group);
  filter_method_ = new QComboBox;
  filter_method_->setObjectName(QStringLiteral("filter_method"));
  filter_method_->addItem(QStringLiteral("Wiener (spatial)"), int{corv::FILTER_WIENER});
  filter_method_->addItem(QStringLiteral("Central Moving Average (spectral)"),
                          int{corv::FILTER_MOVING_AVERAGE});
  filter_method_->addItem(QStringLiteral("Savitzky Golay (spectral)"),
                          int{corv::FILTER_SAVITZKY_GOLAY});
  filter_form->addRow(filter_method_);
  filter_size_ = integer_field(1, 32);
  add_row(filter_form, QStringLiteral("Filter size:"), filter_size_);
  auto* preprocessing = new QWidget;
  auto* preprocessing_layout = new QVBoxLayout(preprocessing);
  preprocessing_layout->addWidget(filter_group);
  preprocessing_layout->addStretch();
  stages->addTab(preprocessing, QStringLiteral("Preprocessing"));

  // Illuminant recovery
  auto* illuminant = new QWidget;
  auto* illuminant_form = new QFormLayout(illuminant);
  illuminant_method_ = new QComboBox;
  illuminant_method_->addItems({QStringLiteral("White Patch"), QStringLiteral("Shade of Gray"),
                                QStringLiteral("Gray World"), QStringLiteral("Gray Edge"),
                                QStringLiteral("Finlayson and Schaefer"), QStringLiteral("ORBEK")});
  add_row(illuminant_form, QStringLiteral("Illumination Recovery Method:"), illuminant_method_);
  faster_illumination_ = new QCheckBox(QStringLiteral("Faster illumination estimation"));
  illuminant_form->addRow(faster_illumination_);
  spatial_smoothness_ = integer_field(1, 200, QStringLiteral("Smoothness level"));
  add_row(illuminant_form, QStringLiteral("Spatial smoothness:"), spatial_smoothness_);
  illuminant_patch_size_ = integer_field(2, 200, QStringLiteral("Illuminant patch size"));
  add_row(illuminant_form, QStringLiteral("Sample patch size:"), illuminant_patch_size_);
  stages->addTab(illuminant, QStringLiteral("Illuminant Rec"));

  // Reflectance recovery
  auto* reflectance = new QWidget;
  auto* reflectance_form = new QFormLayout(reflectance);
  neighbourhood_size_ = integer_field(0, 50, QStringLiteral("Neighbourhood size"));
  add_row(reflectance_form, QStringLiteral("Neighbourhood size:"), neighbourhood_size_);
  gray_threshold_ =
      integer_field(1, 1000, QStringLiteral("Deviation tolerance (degrees) from uniform spectrum"));
  add_row(reflectance_form, QStringLiteral("Gray threshold (degrees):"), gray_threshold_);
  stages->addTab(reflectance, QStringLiteral("Reflectance Rec"));

  // Material discovery
  auto* discovery = new QWidget;
  auto* discovery_form = new QFormLayout(discovery);
  faster_materials_ = new QCheckBox(QStringLiteral("Faster material recovery"));
  faster_materials_->setToolTip(QStringLiteral("Faster material segmentation"));
  discovery_form->addRow(faster_materials_);
  max_clusters_ = integer_field(0, 99, QStringLiteral("Max clusters"));
  add_row(discovery_form, QStringLiteral("Max num of clusters:"), max_clusters_);
  max_temperature_ =
      decimal_field(smallest_max_temperature, 1.0, 4, 0.001, QStringLiteral("Max temperature"));
  add_row(discovery_form, QStringLiteral("Max temperature:"), max_temperature_);
  min_temperature_ = decimal_field(smallest_min_temperature, fraction_maximum, 5, 0.00001,
                                   QStringLiteral("Min temperature"));
  add_row(discovery_form, QStringLiteral("Min temperature:"), min_temperature_);
  cooling_rate_ = decimal_field(0.0, fraction_maximum, 3, 0.1, QStringLiteral("Cooling rate"));
  add_row(discovery_form, QStringLiteral("Cooling rate:"), cooling_rate_);
  split_threshold_ =
      decimal_field(0.0, fraction_maximum, 6, 0.01, QStringLiteral("Split threshold"));
  add_row(discovery_form, QStringLiteral("Split threshold:"), split_threshold_);
  materials_per_pixel_ = integer_field(1, 99);
  add_row(discovery_form, QStringLiteral("Materials per pixel:"), materials_per_pixel_);
  stages->addTab(discovery, QStringLiteral("Discovery"));

  // Analysis
  auto* pca_group = new QGroupBox(QStringLiteral("Principal Components Analysis"));
  auto* pca_form = new QFormLayout(pca_group);
  principal_components_ = integer_field(1, 999);
  add_row(pca_form, QStringLiteral("Number of principle components:"), principal_components_);
  pca_irradiance_ = new QRadioButton(QStringLiteral("Irradiance"));
  pca_reflectance_ = new QRadioButton(QStringLiteral("Reflectance"));
  auto* sources = new QHBoxLayout;
  sources->addWidget(pca_irradiance_);
  sources->addWidget(pca_reflectance_);
  pca_form->addRow(QStringLiteral("Apply to:"), sources);
  auto* analysis = new QWidget;
  auto* analysis_layout = new QVBoxLayout(analysis);
  analysis_layout->addWidget(pca_group);
  analysis_layout->addStretch();
  stages->addTab(analysis, QStringLiteral("Analysis"));

  return stages;
}

QWidget* settings_dialog::build_workspace_tab() {
  auto* page = new QWidget;
  auto* layout = new QVBoxLayout(page);
  portable_workspace_ = new QCheckBox(QStringLiteral("Make the workspace portable"));
  layout->addWidget(portable_workspace_);
  layout->addStretch();
  return page;
}

QWidget* settings_dialog::build_output_tab() {
  auto* envi_group = new QGroupBox(QStringLiteral("HDR/ENVI Image Format"));
  auto* envi_layout = new QVBoxLayout(envi_group);
  envi_8bit_ = new QRadioButton(QStringLiteral("8 Bit Unsigned"));
  envi_16bit_ = new QRadioButton(QStringLiteral("16 Bit Unsigned"));
  envi_float_ = new QRadioButton(QStringLiteral("32 Bit Float"));
  envi_layout->addWidget(envi_8bit_);
  envi_layout->addWidget(envi_16bit_);
  envi_layout->addWidget(envi_float_);

  auto* hsz_group = new QGroupBox(QStringLiteral("HSZ Image"));
  auto* hsz_form = new QFormLayout(hsz_group);
  hsz_raw_ = new QRadioButton(QStringLiteral("Save as Raw"));
  hsz_nurbs_ = new QRadioButton(QStringLiteral("Save as NURBS"));
  hsz_form->addRow(hsz_raw_);
  hsz_form->addRow(hsz_nurbs_);
  nurbs_iterations_ = integer_field(1, 1000);
  add_row(hsz_form, QStringLiteral("Max number of iterations:"), nurbs_iterations_);
  nurbs_alpha_ = decimal_field(0.0, 100.0, 2, 0.1);
  add_row(hsz_form, QStringLiteral("Alpha:"), nurbs_alpha_);
  nurbs_degree_ = integer_field(2, 10);
  add_row(hsz_form, QStringLiteral("Polynomial degree:"), nurbs_degree_);
  nurbs_knot_threshold_ = integer_field(-1, 250);
  add_row(hsz_form, QStringLiteral("Knots threshold:"), nurbs_knot_threshold_);

  auto* library_group = new QGroupBox(QStringLiteral("Spectral Library"));
  auto* library_layout = new QVBoxLayout(library_group);
  compressed_library_export_ =
      new QCheckBox(QStringLiteral("Save polygon data to Spectral Libraries compressed (mean)"));
  library_layout->addWidget(compressed_library_export_);

  auto* page = new QWidget;
  auto* layout = new QVBoxLayout(page);
  layout->addWidget(envi_group);
  layout->addWidget(hsz_group);
  layout->addWidget(library_group);
  layout->addStretch();
  return page;
}

QWidget* settings_dialog::build_logger_tab() {
  auto* page = new QWidget;
  auto* form = new QFormLayout(page);
  verbosity_ = new QSlider(Qt::Horizontal);
  verbosity_->setRange(0, 5);
  verbosity_->setTickPosition(QSlider::TicksBelow);
  verbosity_->setTickInterval(1);
  verbosity_->setPageStep(1);
  auto* ends = new QHBoxLayout;
  ends->addWidget(new QLabel(QStringLiteral("0: No log information")));
  ends->addStretch();
  ends->addWidget(new QLabel(QStringLiteral("5: Maximum log information")));
  add_row(form, QStringLiteral("Logger level:"), verbosity_);
  form->addRow(QString(), ends);
  return page;
}

void settings_dialog::connect_dirty_slots() {
  connect(illuminant_method_, qOverload<int>(&QComboBox::currentIndexChanged), this,
          &settings_dialog::illuminant_rec_dirty_);
  connect(faster_illumination_, &QCheckBox::stateChanged, this,
          &settings_dialog::illuminant_rec_dirty_);
  for (QSpinBox* field : {spatial_smoothness_, illuminant_patch_size_}) {
    connect(field, qOverload<int>(&QSpinBox::valueChanged), this,
            &settings_dialog::illuminant_rec_dirty_);
  }
  for (QSpinBox* field : {neighbourhood_size_, gray_threshold_}) {
    connect(field, qOverload<int>(&QSpinBox::valueChanged), this,
            &settings_dialog::component_rec_dirty_);
  }
  connect(faster_materials_, &QCheckBox::stateChanged, this,
          &settings_dialog::material_disc_dirty_);
  for (QSpinBox* field : {max_clusters_, materials_per_pixel_}) {
    connect(field, qOverload<int>(&QSpinBox::valueChanged), this,
            &settings_dialog::material_disc_dirty_);
  }
  for (QDoubleSpinBox* field :
       {max_temperature_, min_temperature_, cooling_rate_, split_threshold_}) {
    connect(field, qOverload<double>(&QDoubleSpinBox::valueChanged), this,
            &settings_dialog::material_disc_dirty_);
  }
  for (QRadioButton* storage : {hsz_raw_, hsz_nurbs_}) {
    connect(storage, &QRadioButton::toggled, this, [this, storage] { save_hsz_clicked_(storage); });
  }
}

void settings_dialog::set_values(const processing_settings& values) {
  show_values(values);
  clear_dirty();
}

void settings_dialog::show_values(const processing_settings& values) {
  const int filter = filter_method_->findData(values.filter_method);
  filter_method_->setCurrentIndex(filter < 0 ? 0 : filter);
  filter_size_->setValue(values.filter_size);
  for (const method_name& method : illuminant_methods) {
    if (method.code == values.illuminant_method) {
      illuminant_method_->setCurrentText(QString::fromLatin1(method.text));
    }
  }
  faster_illumination_->setChecked(values.faster_illumination);
  spatial_smoothness_->setValue(values.spatial_smoothness);
  illuminant_patch_size_->setValue(values.illuminant_patch_size);
  neighbourhood_size_->setValue(values.neighbourhood_size);
  gray_threshold_->setValue(values.gray_threshold);
  faster_materials_->setChecked(values.faster_materials);
  max_clusters_->setValue(values.max_clusters);
  max_temperature_->setValue(values.max_temperature);
  min_temperature_->setValue(values.min_temperature);
  cooling_rate_->setValue(values.cooling_rate);
  split_threshold_->setValue(values.split_threshold);
  materials_per_pixel_->setValue(values.materials_per_pixel);
  principal_components_->setValue(values.principal_components);
  pca_reflectance_->setChecked(values.pca_on_reflectance);
  pca_irradiance_->setChecked(!values.pca_on_reflectance);
  portable_workspace_->setChecked(values.portable_workspace);
  envi_8bit_->setChecked(values.envi_data_type == envi_uint8);
  envi_16bit_->setChecked(values.envi_data_type == envi_uint16);
  envi_float_->setChecked(values.envi_data_type != envi_uint8 &&
                          values.envi_data_type != envi_uint16);
  hsz_nurbs_->setChecked(values.nurbs_save);
  hsz_raw_->setChecked(!values.nurbs_save);
  nurbs_iterations_->setValue(values.nurbs_iterations);
  nurbs_alpha_->setValue(values.nurbs_alpha);
  nurbs_degree_->setValue(values.nurbs_degree);
  nurbs_knot_threshold_->setValue(values.nurbs_knot_threshold);
  compressed_library_export_->setChecked(values.compressed_library_export);
  verbosity_->setValue(values.verbosity);
  save_hsz_clicked_(values.nurbs_save ? hsz_nurbs_ : hsz_raw_);
}

processing_settings settings_dialog::values() const {
  processing_settings values;
  values.filter_method = filter_method_->currentData().toInt();
  values.filter_size = filter_size_->value();
  values.illuminant_method = illuminant_method();
  values.faster_illumination = faster_illumination_->isChecked();
  values.spatial_smoothness = spatial_smoothness_->value();
  values.illuminant_patch_size = illuminant_patch_size_->value();
  values.neighbourhood_size = neighbourhood_size_->value();
  values.gray_threshold = gray_threshold_->value();
  values.faster_materials = faster_materials_->isChecked();
  values.max_clusters = max_clusters_->value();
  values.max_temperature = max_temperature_->value();
  values.min_temperature = min_temperature_->value();
  values.cooling_rate = cooling_rate_->value();
  values.split_threshold = split_threshold_->value();
  values.materials_per_pixel = materials_per_pixel_->value();
  values.principal_components = principal_components_->value();
  values.pca_on_reflectance = pca_reflectance_->isChecked();
  values.portable_workspace = portable_workspace_->isChecked();
  values.envi_data_type = envi_8bit_->isChecked()    ? envi_uint8
                          : envi_16bit_->isChecked() ? envi_uint16
                                                     : envi_float32;
  values.nurbs_save = hsz_nurbs_->isChecked();
  values.nurbs_iterations = nurbs_iterations_->value();
  values.nurbs_alpha = nurbs_alpha_->value();
  values.nurbs_degree = nurbs_degree_->value();
  values.nurbs_knot_threshold = nurbs_knot_threshold_->value();
  values.compressed_library_export = compressed_library_export_->isChecked();
  values.verbosity = verbosity_->value();
  return values;
}

int settings_dialog::illuminant_method() const {
  const QString text = illuminant_method_->currentText();
  for (const method_name& method : illuminant_methods) {
    if (text == QLatin1String(method.text)) {
      return method.code;
    }
  }
  corv::logger::instance() << "illuminant_method: Un-matching method"
                           << "EOL";
  return -1;
}

void settings_dialog::clear_dirty() {
  illuminant_dirty_ = false;
  component_dirty_ = false;
  material_dirty_ = false;
}

void settings_dialog::restore_defaults_() {
  show_values(processing_settings());
}

void settings_dialog::illuminant_rec_dirty_() {
  illuminant_dirty_ = true;
}

void settings_dialog::component_rec_dirty_() {
  component_dirty_ = true;
}

void settings_dialog::material_disc_dirty_() {
  material_dirty_ = true;
}

void settings_dialog::save_hsz_clicked_(QWidget* toggled) {
  // Both buttons of the pair report a toggle; the one now checked decides.
  const bool nurbs = toggled == hsz_nurbs_ ? hsz_nurbs_->isChecked() : !hsz_raw_->isChecked();
  for (QWidget* field : std::initializer_list<QWidget*>{nurbs_iterations_, nurbs_alpha_,
                                                        nurbs_degree_, nurbs_knot_threshold_}) {
    field->setEnabled(nurbs);
  }
}

}  // namespace tavr
