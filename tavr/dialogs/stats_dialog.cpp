#include "tavr/dialogs/stats_dialog.h"

#include <QCheckBox>
#include <QDir>
#include <QFileDialog>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace tavr {

namespace {

const char* const statistic_labels[] = {"Centre Pixel Value",
                                        "Mean Pixel Value (per band)",
                                        "Standard Deviation (per band)",
                                        "Minimum Pixel Value (per Band)",
                                        "Maximum Pixel Value (per Band)",
                                        "Mean Pixel Value (excluding centre)",
                                        "Median (per band)",
                                        "Range (per band)"};

const char* const rule_labels[] = {"All pixels touching", "All pixels wholly contained",
                                   "All pixels centroid contained"};

}  // namespace

stats_dialog::stats_dialog(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("stats_dialog"));
  setWindowTitle(QStringLiteral("Spatial Statistic Settings"));

  irradiance_ = new QRadioButton(QStringLiteral("Irradiance"));
  reflectance_ = new QRadioButton(QStringLiteral("Reflectance"));
  irradiance_->setChecked(true);
  auto* source = new QHBoxLayout;
  source->addWidget(new QLabel(QStringLiteral("Export Statistics From:")));
  source->addWidget(irradiance_);
  source->addWidget(reflectance_);
  source->addStretch(1);

  auto* options = new QGroupBox(QStringLiteral("Export Options"));
  auto* options_layout = new QGridLayout(options);
  points_ = new QCheckBox(QStringLiteral("Points"));
  points_->setChecked(true);
  window_ = new QSpinBox;
  window_->setRange(1, 99);
  window_->setSingleStep(2);
  window_->setValue(3);
  polygons_ = new QCheckBox(QStringLiteral("Polygons"));
  polygons_->setChecked(true);
  options_layout->addWidget(points_, 0, 0);
  options_layout->addWidget(new QLabel(QStringLiteral("Window size (square, odd) :")), 0, 1);
  options_layout->addWidget(window_, 0, 2);
  options_layout->addWidget(polygons_, 1, 0);
  for (int i = 0; i < 3; ++i) {
    rules_[i] = new QRadioButton(QString::fromLatin1(rule_labels[i]));
    options_layout->addWidget(rules_[i], 1 + i, 1, 1, 2);
    connect(polygons_, &QCheckBox::toggled, rules_[i], &QWidget::setEnabled);
  }
  rules_[2]->setChecked(true);
  options_layout->setColumnStretch(3, 1);
  connect(points_, &QCheckBox::toggled, window_, &QWidget::setEnabled);
  // Only odd sizes: a window has a centre pixel.
  connect(window_, QOverload<int>::of(&QSpinBox::valueChanged), this, [this](int size) {
    if (size % 2 == 0) {
      window_->setValue(size + 1);
    }
  });

  auto* exportable = new QGroupBox(QStringLiteral("Exportable Statistics"));
  auto* exportable_layout = new QGridLayout(exportable);
  for (unsigned s = 0; s < corv::statistic_count; ++s) {
    statistics_[s] = new QCheckBox(QString::fromLatin1(statistic_labels[s]));
    exportable_layout->addWidget(statistics_[s], static_cast<int>(s / 2), static_cast<int>(s % 2));
  }
  statistics_[corv::statistic_mean]->setChecked(true);
  statistics_[corv::statistic_stddev]->setChecked(true);

  name_ = new QLineEdit(QStringLiteral("untitled"));
  folder_ = new QLineEdit(QDir::homePath());
  auto* browse = new QPushButton(QStringLiteral("Browse"));
  auto* where = new QGridLayout;
  where->addWidget(new QLabel(QStringLiteral("Name")), 0, 0);
  where->addWidget(name_, 0, 1, 1, 2);
  where->addWidget(new QLabel(QStringLiteral("Save in Folder")), 1, 0);
  where->addWidget(folder_, 1, 1);
  where->addWidget(browse, 1, 2);
  connect(browse, &QPushButton::clicked, this, &stats_dialog::browse_);

  auto* cancel = new QPushButton(QStringLiteral("Cancel"));
  auto* run = new QPushButton(QStringLiteral("Export"));
  run->setDefault(true);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  buttons->addWidget(cancel);
  buttons->addWidget(run);
  connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
  connect(run, &QPushButton::clicked, this, &stats_dialog::accept);

  auto* layout = new QVBoxLayout(this);
  layout->addLayout(source);
  layout->addWidget(options);
  layout->addWidget(exportable);
  layout->addLayout(where);
  layout->addLayout(buttons);
}

void stats_dialog::set_features(std::size_t points, std::size_t polygons) {
  points_->setEnabled(points > 0);
  points_->setChecked(points > 0);
  polygons_->setEnabled(polygons > 0);
  polygons_->setChecked(polygons > 0);
}

void stats_dialog::set_folder(const QString& folder) {
  folder_->setText(folder);
}

corv::spatial_statistics_request stats_dialog::request() const {
  corv::spatial_statistics_request chosen;
  chosen.folder = folder_->text().toStdString();
  chosen.name = name_->text().toStdString();
  chosen.points = points_->isEnabled() && points_->isChecked();
  chosen.window_size = window_->value();
  chosen.polygons = polygons_->isEnabled() && polygons_->isChecked();
  chosen.rule = rules_[0]->isChecked()   ? corv::polygon_pixel_rule::touching
                : rules_[1]->isChecked() ? corv::polygon_pixel_rule::wholly_contained
                                         : corv::polygon_pixel_rule::centroid_contained;
  for (unsigned s = 0; s < corv::statistic_count; ++s) {
    chosen.chosen[s] = statistics_[s]->isChecked();
  }
  return chosen;
}

bool stats_dialog::reflectance() const {
  return reflectance_->isChecked();
}

QString stats_dialog::problem() const {
  if (folder_->text().isEmpty() || !QDir(folder_->text()).exists()) {
    return QString::fromLatin1(missing_folder_message);
  }
  return QString();
}

void stats_dialog::accept() {
  const QString text = problem();
  if (text.isEmpty()) {
    QDialog::accept();
    return;
  }
  if (interactive_) {
    QMessageBox::warning(this, QStringLiteral("Export Spatial Statistics"), text);
  }
}

void stats_dialog::browse_() {
  const QString folder =
      QFileDialog::getExistingDirectory(this, QStringLiteral("Choose Directory"), folder_->text());
  if (!folder.isEmpty()) {
    folder_->setText(folder);
  }
}

}  // namespace tavr
