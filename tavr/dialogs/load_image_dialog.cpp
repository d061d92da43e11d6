#include "tavr/dialogs/load_image_dialog.h"

#include <QDialogButtonBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace tavr {

load_image_dialog::load_image_dialog(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("Load_Image_Dialog"));
  setWindowTitle(QStringLiteral("Opening Large Image"));

  auto* notice = new QLabel(QStringLiteral(
      "The image you are loading is very large (more than 100 million elements). You can choose "
      "to load only a subset of the image now (or press OK to load the whole image "
      "immediately)"));
  notice->setWordWrap(true);

  auto* band_group = new QGroupBox(QStringLiteral("Select Bands"));
  bands_ = new QListWidget;
  bands_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  all_ = new QPushButton(QStringLiteral("All"));
  selected_ = new QPushButton(QStringLiteral("Selected"));
  selected_->setToolTip(QStringLiteral("Load only the highlighted bands"));
  none_ = new QPushButton(QStringLiteral("None"));
  auto* band_buttons = new QVBoxLayout;
  band_buttons->addWidget(all_);
  band_buttons->addWidget(selected_);
  band_buttons->addWidget(none_);
  band_buttons->addStretch(1);
  auto* band_layout = new QHBoxLayout(band_group);
  band_layout->addWidget(bands_, 1);
  band_layout->addLayout(band_buttons);

  auto* crop_group = new QGroupBox(QStringLiteral("Crop"));
  auto* crop_layout = new QGridLayout(crop_group);
  const char* names[] = {"Vertical:", "Horizontal:"};
  for (int i = 0; i < 4; ++i) {
    ranges_[i] = new QSpinBox;
    ranges_[i]->setMinimumWidth(90);
    connect(ranges_[i], QOverload<int>::of(&QSpinBox::valueChanged), this,
            &load_image_dialog::update_estimate_);
  }
  for (int row = 0; row < 2; ++row) {
    crop_layout->addWidget(new QLabel(QString::fromLatin1(names[row])), row, 0);
    crop_layout->addWidget(ranges_[2 * row], row, 1);
    crop_layout->addWidget(new QLabel(QStringLiteral("to")), row, 2);
    crop_layout->addWidget(ranges_[2 * row + 1], row, 3);
  }
  crop_layout->setColumnStretch(4, 1);

  estimate_ = new QLabel;
  estimate_->setWordWrap(true);

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
  ok_ = buttons->button(QDialogButtonBox::Ok);
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(notice);
  layout->addWidget(band_group, 1);
  layout->addWidget(crop_group);
  layout->addWidget(estimate_);
  layout->addWidget(buttons);
  resize(520, 560);

  connect(all_, &QPushButton::clicked, this, [this] { check_bands([](bool) { return true; }); });
  connect(selected_, &QPushButton::clicked, this,
          [this] { check_bands([](bool highlighted) { return highlighted; }); });
  connect(none_, &QPushButton::clicked, this, [this] { check_bands([](bool) { return false; }); });
  connect(bands_, &QListWidget::itemChanged, this, &load_image_dialog::update_estimate_);
  update_estimate_();
}

void load_image_dialog::set_image(unsigned height, unsigned width,
                                  const corv::vector& wavelengths) {
  {
    const QSignalBlocker block(bands_);
    bands_->clear();
    for (arma::uword b = 0; b < wavelengths.n_elem; ++b) {
      auto* item = new QListWidgetItem(QStringLiteral("Band %1 (%2 nm)")
                                           .arg(b)
                                           .arg(static_cast<double>(wavelengths(b)), 0, 'g', 6),
                                       bands_);
      item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
      item->setCheckState(Qt::Checked);
    }
  }
  const int limits[] = {static_cast<int>(height), static_cast<int>(width)};
  for (int i = 0; i < 4; ++i) {
    const QSignalBlocker block(ranges_[i]);
    ranges_[i]->setRange(0, limits[i / 2]);
    ranges_[i]->setValue(i % 2 == 0 ? 0 : limits[i / 2]);
  }
  update_estimate_();
}

image_subset load_image_dialog::subset() const {
  image_subset chosen;
  for (int b = 0; b < bands_->count(); ++b) {
    if (bands_->item(b)->checkState() == Qt::Checked) {
      chosen.bands.push_back(static_cast<unsigned>(b));
    }
  }
  chosen.vertical_from = ranges_[0]->value();
  chosen.vertical_to = ranges_[1]->value();
  chosen.horizontal_from = ranges_[2]->value();
  chosen.horizontal_to = ranges_[3]->value();
  return chosen;
}

QString load_image_dialog::estimate_text() const {
  return estimate_->text();
}

void load_image_dialog::check_bands(bool (*chosen)(bool highlighted)) {
  {
    const QSignalBlocker block(bands_);
    for (int b = 0; b < bands_->count(); ++b) {
      QListWidgetItem* item = bands_->item(b);
      item->setCheckState(chosen(item->isSelected()) ? Qt::Checked : Qt::Unchecked);
    }
  }
  update_estimate_();
}

void load_image_dialog::update_estimate_() {
  const image_subset chosen = subset();
  estimate_->setText(load_estimate(chosen));
  ok_->setEnabled(chosen.elements() > 0.0);
}

}  // namespace tavr
