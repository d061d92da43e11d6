#include "tavr/camera/camera_panel.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>

namespace tavr {

namespace {

void fill_row(QWidget* row, const QList<QAction*>& actions) {
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(0, 0, 0, 0);
  for (QAction* action : actions) {
    auto* button = new QToolButton(row);
    button->setDefaultAction(action);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    layout->addWidget(button);
  }
}

}  // namespace

camera_panel::camera_panel(QWidget* parent) : QWidget(parent) {
  auto* layout = new QVBoxLayout(this);
  auto* form = new QFormLayout;
  cameras = new QComboBox(this);
  views = new QComboBox(this);
  views->addItem("Raw", "Raw");
  views->addItem("Color", "Color");
  views->addItem("Band", "band");
  smoothing = new QSpinBox(this);
  smoothing->setRange(1, 16);
  smoothing->setSuffix(" frames");
  smoothing->setSpecialValueText("off");
  smoothing->setToolTip("Frames averaged in the band view");
  frame_rate = new QLabel(this);
  form->addRow("Camera:", cameras);
  form->addRow("Image:", views);
  form->addRow("Band smoothing:", smoothing);
  form->addRow("Frame rate:", frame_rate);
  layout->addLayout(form);

  capture_row_ = new QWidget(this);
  layout->addWidget(capture_row_);
  status = new QLabel(this);
  status->setWordWrap(true);
  layout->addWidget(status);

  layout->addWidget(new QLabel("Camera Wavelengths:", this));
  bands = new QListWidget(this);
  layout->addWidget(bands, 1);

  auto* calibration = new QGroupBox("Reflectance", this);
  auto* calibration_layout = new QVBoxLayout(calibration);
  reference_row_ = new QWidget(calibration);
  calibration_layout->addWidget(reference_row_);
  references = new QLabel("No references", calibration);
  references->setWordWrap(true);
  calibration_layout->addWidget(references);
  reflectance = new QCheckBox("Capture reflectance", calibration);
  reflectance->setEnabled(false);
  calibration_layout->addWidget(reflectance);
  layout->addWidget(calibration);
}

void camera_panel::set_capture_actions(const QList<QAction*>& capture,
                                       const QList<QAction*>& references) {
  fill_row(capture_row_, capture);
  fill_row(reference_row_, references);
}

}  // namespace tavr
