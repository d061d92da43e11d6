#include "tavr/app/classes_dock.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPixmap>
#include <QPushButton>
#include <QVBoxLayout>

#include "tavr/image/hs_image.h"

namespace tavr {

classes_dock::classes_dock(QWidget* parent) : QWidget(parent) {
  method_ = new QComboBox;
  method_->addItem(QStringLiteral("Spectral Angle Mapper"), classify_sam);
  method_->addItem(QStringLiteral("Support Vector Machines"), classify_svm);
  method_->addItem(QStringLiteral("Linear Spectral Unmixing"), classify_unmixing);
  classes_ = new QListWidget;
  classes_->setToolTip(
      QStringLiteral("Double-click a class to see how strongly each pixel "
                     "belongs to it"));
  auto* deselect = new QPushButton(QStringLiteral("Deselect All Classes"));
  auto* select = new QPushButton(QStringLiteral("Select All Classes"));
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(deselect);
  buttons->addWidget(select);
  auto* layout = new QVBoxLayout(this);
  auto* method_row = new QHBoxLayout;
  method_row->addWidget(new QLabel(QStringLiteral("Method:")));
  method_row->addWidget(method_, 1);
  layout->addLayout(method_row);
  layout->addWidget(classes_, 1);
  layout->addLayout(buttons);

  connect(method_, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
          [this] { Q_EMIT method_changed(method()); });
  connect(classes_, &QListWidget::itemChanged, this, &classes_dock::legend_changed);
  connect(classes_, &QListWidget::itemDoubleClicked, this,
          [this](QListWidgetItem* item) { Q_EMIT class_activated(classes_->row(item) + 1); });
  connect(deselect, &QPushButton::clicked, this, [this] { check_all(false); });
  connect(select, &QPushButton::clicked, this, [this] { check_all(true); });
}

int classes_dock::method() const {
  return method_->currentData().toInt();
}

void classes_dock::set_method(int code) {
  const int index = method_->findData(code);
  if (index >= 0) {
    method_->setCurrentIndex(index);
  }
}

void classes_dock::set_legend(const QVector<legend_entry>& legend) {
  const QSignalBlocker block(classes_);
  classes_->clear();
  for (const legend_entry& entry : legend) {
    QPixmap swatch(14, 14);
    swatch.fill(entry.colour);
    auto* item = new QListWidgetItem(QIcon(swatch), entry.label, classes_);
    item->setData(Qt::UserRole, entry.colour);
    item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
    item->setCheckState(entry.checked ? Qt::Checked : Qt::Unchecked);
  }
}

QVector<legend_entry> classes_dock::legend() const {
  QVector<legend_entry> legend;
  for (int i = 0; i < classes_->count(); ++i) {
    const QListWidgetItem* item = classes_->item(i);
    legend.append({item->text(), item->data(Qt::UserRole).value<QColor>(),
                   item->checkState() == Qt::Checked});
  }
  return legend;
}

void classes_dock::check_all(bool checked) {
  {
    const QSignalBlocker block(classes_);
    for (int i = 0; i < classes_->count(); ++i) {
      classes_->item(i)->setCheckState(checked ? Qt::Checked : Qt::Unchecked);
    }
  }
  Q_EMIT legend_changed();
}

}  // namespace tavr
