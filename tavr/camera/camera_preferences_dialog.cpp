#include "tavr/camera/camera_preferences_dialog.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

#include "tavr/camera/camera.h"

namespace tavr {

namespace {

QWidget* row_of(QWidget* parent, std::initializer_list<QWidget*> widgets) {
  auto* row = new QWidget(parent);
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(0, 0, 0, 0);
  for (QWidget* widget : widgets) {
    layout->addWidget(widget);
  }
  return row;
}

}  // namespace

camera_preferences_dialog::camera_preferences_dialog(QWidget* parent) : QDialog(parent) {
  setWindowTitle("Camera Preferences...");
  build();
  set_values(camera_preferences::defaults());
  // In auto mode the camera moves exposure and gain itself: follow it.
  refresh_.setInterval(500);
  connect(&refresh_, &QTimer::timeout, this, [this] {
    if (isVisible()) {
      show_exposure();
    }
  });
}

void camera_preferences_dialog::build() {
  auto* layout = new QVBoxLayout(this);

  auto* exposure = new QGroupBox("Exposure", this);
  auto* exposure_form = new QFormLayout(exposure);
  auto_ = new QRadioButton("Auto", exposure);
  manual_ = new QRadioButton("Manual", exposure);
  auto* modes = new QButtonGroup(exposure);
  modes->addButton(auto_);
  modes->addButton(manual_);
  exposure_form->addRow(row_of(exposure, {auto_, manual_}));
  exposure_slider_widget_ = new QSlider(Qt::Horizontal, exposure);
  exposure_slider_widget_->setRange(0, exposure_steps);
  exposure_field_ = new QLineEdit(exposure);
  exposure_field_->setMaximumWidth(90);
  exposure_form->addRow("Exposure:", row_of(exposure, {exposure_slider_widget_, exposure_field_,
                                                       new QLabel("ms", exposure)}));
  gain_slider_widget_ = new QSlider(Qt::Horizontal, exposure);
  gain_slider_widget_->setRange(0, 24);
  gain_field_ = new QLineEdit(exposure);
  gain_field_->setMaximumWidth(90);
  exposure_form->addRow(
      "Gain:", row_of(exposure, {gain_slider_widget_, gain_field_, new QLabel("dB", exposure)}));
  layout->addWidget(exposure);

  auto* depth = new QGroupBox("Bit Depth", this);
  eight_bits_ = new QRadioButton("8 bits", depth);
  ten_bits_ = new QRadioButton("10 bits", depth);
  auto* depth_layout = new QHBoxLayout(depth);
  depth_layout->addWidget(eight_bits_);
  depth_layout->addWidget(ten_bits_);
  layout->addWidget(depth);

  auto* capture = new QGroupBox("Capture", this);
  auto* capture_layout = new QVBoxLayout(capture);
  original_ = new QRadioButton("Original (16 bands, original wavelengths)", capture);
  smoothed_ = new QRadioButton("Spectrally Smoothed:", capture);
  smoothed_bands_ = new QSpinBox(capture);
  smoothed_bands_->setRange(2, 200);
  capture_layout->addWidget(original_);
  capture_layout->addWidget(
      row_of(capture, {smoothed_, new QLabel("Number of bands:", capture), smoothed_bands_}));
  layout->addWidget(capture);

  auto* properties = new QGroupBox("Image Properties", this);
  auto* properties_form = new QFormLayout(properties);
  image_name_ = new QLineEdit(properties);
  properties_form->addRow("Output image name:", image_name_);
  counter_start_ = new QSpinBox(properties);
  counter_start_->setRange(-999999, 99999999);
  increment_ = new QSpinBox(properties);
  increment_->setRange(1, 100000);
  digits_ = new QSpinBox(properties);
  digits_->setRange(1, 9);
  properties_form->addRow("Starting counter:", counter_start_);
  properties_form->addRow("Increment:", increment_);
  properties_form->addRow("Number of digits:", digits_);
  remember_counter_ = new QCheckBox("Remember last counter value (set as start)", properties);
  properties_form->addRow(remember_counter_);
  image_folder_ = new QLineEdit(properties);
  auto* browse = new QPushButton("Browse", properties);
  properties_form->addRow("Save in folder:", row_of(properties, {image_folder_, browse}));
  layout->addWidget(properties);

  auto* video = new QGroupBox("Video", this);
  auto* video_form = new QFormLayout(video);
  sequence_folder_ = new QLineEdit(video);
  auto* video_browse = new QPushButton("Browse", video);
  video_form->addRow("Image sequence folder:", row_of(video, {sequence_folder_, video_browse}));
  // Wide enough for a folder's whole path in the usual places.
  for (QLineEdit* folder : {image_folder_, sequence_folder_}) {
    folder->setMinimumWidth(folder->fontMetrics().horizontalAdvance(QLatin1Char('x')) * 36);
  }
  show_at_start_ = new QCheckBox("Show dialog at every live camera start", video);
  video_form->addRow(show_at_start_);
  layout->addWidget(video);

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok, this);
  layout->addWidget(buttons);

  connect(auto_, &QRadioButton::toggled, this, &camera_preferences_dialog::set_exposure_gain_mode_);
  connect(exposure_slider_widget_, &QSlider::valueChanged, this,
          &camera_preferences_dialog::exposure_slider_);
  connect(exposure_field_, &QLineEdit::returnPressed, this,
          &camera_preferences_dialog::exposure_text_);
  connect(gain_slider_widget_, &QSlider::valueChanged, this,
          &camera_preferences_dialog::gain_slider_);
  connect(gain_field_, &QLineEdit::returnPressed, this, &camera_preferences_dialog::gain_text_);
  connect(eight_bits_, &QRadioButton::toggled, this, &camera_preferences_dialog::bit_depth_);
  connect(browse, &QPushButton::clicked, this, &camera_preferences_dialog::image_dir_);
  connect(video_browse, &QPushButton::clicked, this, &camera_preferences_dialog::video_image_dir_);
  connect(buttons, &QDialogButtonBox::accepted, this, &camera_preferences_dialog::accept);
}

void camera_preferences_dialog::set_values(const camera_preferences& values) {
  values_ = values;
  const QSignalBlocker block_auto(auto_);
  const QSignalBlocker block_bits(eight_bits_);
  (values.exposure_mode == "manual" ? manual_ : auto_)->setChecked(true);
  (values.bit_depth == 8 ? eight_bits_ : ten_bits_)->setChecked(true);
  (values.smoothed ? smoothed_ : original_)->setChecked(true);
  smoothed_bands_->setValue(values.smoothed_bands);
  image_name_->setText(values.image_name);
  counter_start_->setValue(values.counter_start);
  increment_->setValue(values.increment);
  digits_->setValue(values.digits);
  remember_counter_->setChecked(values.remember_counter);
  image_folder_->setText(values.image_folder);
  sequence_folder_->setText(values.sequence_folder);
  show_at_start_->setChecked(values.show_at_live_start);
  set_exposure_gain_mode_();
  show_exposure();
}

camera_preferences camera_preferences_dialog::values() const {
  camera_preferences v = values_;
  v.exposure_mode = manual_->isChecked() ? "manual" : "auto";
  v.bit_depth = eight_bits_->isChecked() ? 8 : 10;
  v.smoothed = smoothed_->isChecked();
  v.smoothed_bands = smoothed_bands_->value();
  v.image_name = image_name_->text().trimmed().isEmpty() ? QStringLiteral("image")
                                                         : image_name_->text().trimmed();
  v.counter_start = counter_start_->value();
  v.increment = increment_->value();
  v.digits = digits_->value();
  v.remember_counter = remember_counter_->isChecked();
  v.image_folder = image_folder_->text().trimmed();
  v.sequence_folder = sequence_folder_->text().trimmed();
  v.show_at_live_start = show_at_start_->isChecked();
  return v;
}

void camera_preferences_dialog::set_camera(camera* device) {
  camera_ = device;
  if (camera_ != nullptr) {
    exposure_min_us_ = std::max(1.0, camera_->get_exposure_min());
    exposure_max_us_ = std::max(exposure_min_us_ * 1.001, camera_->get_exposure_max());
    const QSignalBlocker block(gain_slider_widget_);
    gain_slider_widget_->setRange(static_cast<int>(std::ceil(camera_->get_gain_min())),
                                  static_cast<int>(std::floor(camera_->get_gain_max())));
  } else {
    const QSignalBlocker block(gain_slider_widget_);
    gain_slider_widget_->setRange(0, 24);
  }
  show_exposure();
}

double camera_preferences_dialog::exposure_at(int position) const {
  const double t = static_cast<double>(position) / exposure_steps;
  return exposure_min_us_ * std::pow(exposure_max_us_ / exposure_min_us_, t);
}

int camera_preferences_dialog::position_of(double exposure_us) const {
  const double clamped = std::clamp(exposure_us, exposure_min_us_, exposure_max_us_);
  return static_cast<int>(std::lround(std::log(clamped / exposure_min_us_) /
                                      std::log(exposure_max_us_ / exposure_min_us_) *
                                      exposure_steps));
}

void camera_preferences_dialog::show_exposure() {
  if (camera_ != nullptr) {
    values_.exposure_ms = camera_->get_exposure() / 1000.0;
    values_.gain_db = camera_->get_gain();
  }
  const QSignalBlocker block_exposure(exposure_slider_widget_);
  const QSignalBlocker block_gain(gain_slider_widget_);
  exposure_slider_widget_->setValue(position_of(values_.exposure_ms * 1000.0));
  exposure_field_->setText(QString::number(values_.exposure_ms, 'g', 4));
  gain_slider_widget_->setValue(static_cast<int>(values_.gain_db));
  gain_field_->setText(QString::number(values_.gain_db, 'g', 3));
}

void camera_preferences_dialog::set_exposure_gain_mode_() {
  const bool manual = manual_->isChecked();
  values_.exposure_mode = manual ? "manual" : "auto";
  if (camera_ != nullptr) {
    camera_->set_exposure_gain_mode(values_.exposure_mode);
  }
  for (QWidget* widget :
       {static_cast<QWidget*>(exposure_slider_widget_), static_cast<QWidget*>(exposure_field_),
        static_cast<QWidget*>(gain_slider_widget_), static_cast<QWidget*>(gain_field_)}) {
    widget->setEnabled(manual);
  }
  if (manual) {
    refresh_.stop();
  } else {
    refresh_.start();
  }
}

void camera_preferences_dialog::exposure_slider_(int position) {
  const double exposure_us = exposure_at(position);
  if (camera_ != nullptr) {
    camera_->set_exposure(exposure_us);
  }
  values_.exposure_ms = exposure_us / 1000.0;
  show_exposure();
}

void camera_preferences_dialog::exposure_text_() {
  bool ok = false;
  const double ms = exposure_field_->text().trimmed().toDouble(&ok);
  if (ok) {
    const double exposure_us = std::clamp(ms * 1000.0, exposure_min_us_, exposure_max_us_);
    if (camera_ != nullptr) {
      camera_->set_exposure(exposure_us);
    }
    values_.exposure_ms = exposure_us / 1000.0;
  }
  show_exposure();
}

void camera_preferences_dialog::gain_slider_(int position) {
  if (camera_ != nullptr) {
    camera_->set_gain(position);
  }
  values_.gain_db = position;
  show_exposure();
}

void camera_preferences_dialog::gain_text_() {
  bool ok = false;
  const double db = gain_field_->text().trimmed().toDouble(&ok);
  if (ok) {
    const double clamped = std::clamp(db, double(gain_slider_widget_->minimum()),
                                      double(gain_slider_widget_->maximum()));
    if (camera_ != nullptr) {
      camera_->set_gain(clamped);
    }
    values_.gain_db = std::trunc(clamped);
  }
  show_exposure();
}

void camera_preferences_dialog::bit_depth_() {
  values_.bit_depth = eight_bits_->isChecked() ? 8 : 10;
  if (camera_ != nullptr) {
    camera_->set_bit_depth(values_.bit_depth);
  }
}

void camera_preferences_dialog::image_dir_() {
  const QString folder =
      QFileDialog::getExistingDirectory(this, "Open Directory", image_folder_->text());
  if (!folder.isEmpty()) {
    image_folder_->setText(folder);
  }
}

void camera_preferences_dialog::video_image_dir_() {
  const QString folder =
      QFileDialog::getExistingDirectory(this, "Open Directory", sequence_folder_->text());
  if (!folder.isEmpty() && sequence_folder_usable(folder)) {
    sequence_folder_->setText(folder);
  }
}

bool camera_preferences_dialog::sequence_folder_usable(const QString& folder) {
  if (!folder.isEmpty() && QDir().mkpath(folder)) {
    return true;
  }
  const QString title = QStringLiteral("Image Sequence Directory");
  const QString text = QStringLiteral("Cannot create directory. Please change directory");
  emit message_reported(title, text);
  if (interactive_) {
    QMessageBox::warning(this, title, text);
  }
  return false;
}

void camera_preferences_dialog::accept() {
  if (!sequence_folder_usable(sequence_folder_->text().trimmed())) {
    return;
  }
  values_ = values();
  QDialog::accept();
}

}  // namespace tavr
