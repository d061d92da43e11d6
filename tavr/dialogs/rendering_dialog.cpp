#include "tavr/dialogs/rendering_dialog.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QDoubleValidator>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QVBoxLayout>
#include <algorithm>
#include <array>
#include <cmath>

namespace tavr {

namespace {

QDoubleSpinBox* cutoff_field() {
  auto* field = new QDoubleSpinBox;
  field->setDecimals(3);
  field->setRange(0.0, 1.0);
  field->setSingleStep(0.01);
  return field;
}

}  // namespace

rendering_dialog::rendering_dialog(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("Image_Rendering_Dialog"));
  setWindowTitle(QStringLiteral("Image Rendering"));

  auto* ignore_group = new QGroupBox(QStringLiteral("Data Ignore Value"));
  auto* ignore_form = new QFormLayout(ignore_group);
  data_ignore_ = new QLineEdit(QStringLiteral("-9999.0"));
  data_ignore_->setValidator(new QDoubleValidator(data_ignore_));
  ignore_form->addRow(QStringLiteral("Data Ignore Value:"), data_ignore_);

  auto* rgb_group = new QGroupBox(QStringLiteral("RGB Rendering"));
  auto* rgb_form = new QFormLayout(rgb_group);
  automatic_ = new QRadioButton(QStringLiteral("Automatic"));
  manual_ = new QRadioButton(QStringLiteral("Manual"));
  automatic_->setChecked(true);
  auto* modes = new QHBoxLayout;
  modes->addWidget(automatic_);
  modes->addWidget(manual_);
  rgb_form->addRow(modes);
  red_ = new QComboBox;
  green_ = new QComboBox;
  blue_ = new QComboBox;
  rgb_form->addRow(QStringLiteral("Red:"), red_);
  rgb_form->addRow(QStringLiteral("Green:"), green_);
  rgb_form->addRow(QStringLiteral("Blue:"), blue_);
  connect(manual_, &QRadioButton::toggled, this, &rendering_dialog::rgb_mode_changed_);

  contrast_ = new QGroupBox(QStringLiteral("Contrast Enhacement"));
  contrast_->setCheckable(true);
  contrast_->setChecked(false);
  // One row of the cumulative distribution's two cut-offs.
  auto* contrast_form = new QFormLayout(contrast_);
  min_cutoff_ = cutoff_field();
  max_cutoff_ = cutoff_field();
  auto* cutoffs = new QHBoxLayout;
  cutoffs->addWidget(new QLabel(QStringLiteral("Min Cutoff:")));
  cutoffs->addWidget(min_cutoff_);
  cutoffs->addSpacing(12);
  cutoffs->addWidget(new QLabel(QStringLiteral("Max Cutoff:")));
  cutoffs->addWidget(max_cutoff_);
  contrast_form->addRow(QStringLiteral("CDF Min/Max Cutoff:"), cutoffs);

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(ignore_group);
  layout->addWidget(rgb_group);
  layout->addWidget(contrast_);
  layout->addWidget(buttons);

  set_options(rendering_options(), corv::vector());
}

void rendering_dialog::set_options(const rendering_options& options,
                                   const corv::vector& wavelengths) {
  last_data_ignore_ = options.data_ignore_val;
  const double ignored = options.data_ignore_val;
  data_ignore_->setText(std::floor(ignored) == ignored ? QString::number(ignored, 'f', 1)
                                                       : QString::number(ignored, 'g', 10));
  // Bands are numbered from 0, as in band maths and the band lists elsewhere.
  // Three manual bands never chosen (all the first) start at the bands nearest
  // red, green and blue, so that switching to Manual shows a colour picture.
  std::array<int, 3> bands = options.rgb_bands;
  if (bands == std::array<int, 3>{0, 0, 0} && wavelengths.n_elem > 2) {
    const std::array<float, 3> targets{640.0f, 550.0f, 460.0f};
    for (std::size_t c = 0; c < bands.size(); ++c) {
      bands[c] = static_cast<int>(arma::index_min(arma::abs(wavelengths - targets[c])));
    }
  }
  const std::array<QComboBox*, 3> lists{red_, green_, blue_};
  for (std::size_t c = 0; c < lists.size(); ++c) {
    QComboBox* list = lists[c];
    list->clear();
    for (arma::uword b = 0; b < wavelengths.n_elem; ++b) {
      list->addItem(
          QStringLiteral("%1 nm (band %2)").arg(static_cast<double>(wavelengths(b))).arg(b));
    }
    list->setCurrentIndex(std::min(bands[c], list->count() - 1));
  }
  automatic_->setChecked(options.auto_rgb);
  manual_->setChecked(!options.auto_rgb);
  contrast_->setChecked(options.contrast_enhancement);
  min_cutoff_->setValue(options.min_cum_val);
  max_cutoff_->setValue(options.max_cum_val);
  rgb_mode_changed_();
}

rendering_options rendering_dialog::options() const {
  rendering_options options;
  bool number = false;
  const double ignored = data_ignore_->text().toDouble(&number);
  options.data_ignore_val = number ? ignored : last_data_ignore_;
  options.auto_rgb = automatic_->isChecked();
  options.rgb_bands = {std::max(red_->currentIndex(), 0), std::max(green_->currentIndex(), 0),
                       std::max(blue_->currentIndex(), 0)};
  options.contrast_enhancement = contrast_->isChecked();
  options.min_cum_val = min_cutoff_->value();
  options.max_cum_val = max_cutoff_->value();
  return options;
}

void rendering_dialog::rgb_mode_changed_() {
  const bool manual = manual_->isChecked();
  for (QComboBox* list : {red_, green_, blue_}) {
    list->setEnabled(manual);
  }
}

}  // namespace tavr
