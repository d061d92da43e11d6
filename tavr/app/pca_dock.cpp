#include "tavr/app/pca_dock.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QListWidget>
#include <QVBoxLayout>

namespace tavr {

pca_dock::pca_dock(QWidget* parent) : QWidget(parent) {
  auto* analysis = new QComboBox;
  analysis->addItem(QStringLiteral("Principal Component Analysis"));
  analysis->setToolTip(QStringLiteral("The analysis that Process > Run Analysis runs"));
  components_ = new QListWidget;
  components_->setToolTip(QStringLiteral("Double-click a component to show it"));
  colour_ = new QCheckBox(QStringLiteral("Color/Grayscale"));
  colour_->setToolTip(
      QStringLiteral("Checked: the component and the next two as red, green and blue; "
                     "unchecked: the component in grey"));
  clip_ = new QDoubleSpinBox;
  clip_->setRange(0.0, 10.0);
  clip_->setSingleStep(0.5);
  clip_->setDecimals(1);
  clip_->setValue(3.0);
  clip_->setSuffix(QStringLiteral(" sd"));
  clip_->setSpecialValueText(QStringLiteral("none"));
  clip_->setToolTip(
      QStringLiteral("Each component is stretched over its mean plus and minus this many "
                     "standard deviations (none: over its whole range)"));
  auto* form = new QFormLayout;
  form->addRow(QStringLiteral("Analysis:"), analysis);
  auto* layout = new QVBoxLayout(this);
  layout->addLayout(form);
  layout->addWidget(components_, 1);
  auto* display = new QFormLayout;
  display->addRow(colour_);
  display->addRow(QStringLiteral("Clip value for PCA"), clip_);
  layout->addLayout(display);

  connect(components_, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
    Q_EMIT component_activated(item->data(Qt::UserRole).toInt());
  });
  connect(colour_, &QCheckBox::toggled, this, &pca_dock::display_changed);
  connect(clip_, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this,
          &pca_dock::display_changed);
}

void pca_dock::set_strengths(const corv::vector& strengths) {
  components_->clear();
  for (arma::uword i = 0; i < strengths.n_elem; ++i) {
    auto* item = new QListWidgetItem(
        QString("PC %1 (%2)").arg(i + 1).arg(static_cast<double>(strengths(i)), 0, 'g', 4),
        components_);
    item->setData(Qt::UserRole, static_cast<int>(i));
  }
}

bool pca_dock::colour() const {
  return colour_->isChecked();
}

double pca_dock::clip() const {
  return clip_->value();
}

}  // namespace tavr
