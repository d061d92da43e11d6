#include "tavr/app/band_chooser.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QSlider>
#include <QVBoxLayout>
#include <algorithm>

namespace tavr {

band_chooser::band_chooser(QWidget* parent) : QWidget(parent) {
  bands_ = new QComboBox;
  slider_ = new QSlider(Qt::Horizontal);
  auto* row = new QHBoxLayout;
  row->addWidget(new QLabel(QStringLiteral("Wavelengths (nm):")));
  row->addWidget(bands_, 1);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addLayout(row);
  layout->addWidget(slider_);
  connect(bands_, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this](int index) {
    if (index < 0) {
      return;
    }
    const int band = index - 1;
    if (band >= 0) {
      const QSignalBlocker block(slider_);
      slider_->setValue(band);
    }
    Q_EMIT band_changed(band);
  });
  connect(slider_, &QSlider::valueChanged, this,
          [this](int band) { bands_->setCurrentIndex(band + 1); });
  set_wavelengths(corv::vector(), -1);
}

void band_chooser::set_wavelengths(const corv::vector& wavelengths, int band) {
  const QSignalBlocker block_list(bands_);
  const QSignalBlocker block_slider(slider_);
  bands_->clear();
  if (wavelengths.n_elem > 0) {
    bands_->addItem(QStringLiteral("Color"));
  }
  for (arma::uword b = 0; b < wavelengths.n_elem; ++b) {
    bands_->addItem(
        QStringLiteral("%1 (band %2)").arg(static_cast<double>(wavelengths(b)), 0, 'g', 6).arg(b));
  }
  const int count = static_cast<int>(wavelengths.n_elem);
  slider_->setRange(0, std::max(0, count - 1));
  const int shown = count == 0 ? -1 : std::clamp(band, -1, count - 1);
  bands_->setCurrentIndex(count == 0 ? -1 : shown + 1);
  slider_->setValue(std::max(0, shown));
  setEnabled(count > 0);
}

int band_chooser::band() const {
  return std::max(-1, bands_->currentIndex() - 1);
}

}  // namespace tavr
