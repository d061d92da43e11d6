#include "tavr/plots/pixel_dialog.h"

#include <QApplication>
#include <QClipboard>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QPushButton>
#include <QStringList>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <cmath>

namespace tavr {

namespace {

QString number_or_dash(double value) {
  return std::isnan(value) ? QString("-") : QString::number(value, 'g', 6);
}

QString list_or_dash(const QVector<double>& values) {
  return values.isEmpty() ? QString("-") : join_values(values);
}

QTreeWidgetItem* group(QTreeWidgetItem* parent, const QString& heading) {
  auto* item = new QTreeWidgetItem(parent, QStringList{heading});
  item->setFirstColumnSpanned(true);
  return item;
}

void field(QTreeWidgetItem* parent, const QString& name, const QString& value) {
  new QTreeWidgetItem(parent, QStringList{name, value});
}

}  // namespace

pixel_dialog::pixel_dialog(QWidget* parent) : QDialog(parent), tree_(new QTreeWidget(this)) {
  setWindowTitle("Pixel Inspector");
  resize(560, 420);
  tree_->setColumnCount(2);
  tree_->setHeaderLabels({"Component", "Value"});
  tree_->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
  auto* copy = new QPushButton("Copy Row", this);
  auto* clear = new QPushButton("Clear", this);
  auto* close = new QPushButton("Close", this);
  auto* row = new QHBoxLayout;
  row->addWidget(copy);
  row->addWidget(clear);
  row->addStretch();
  row->addWidget(close);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(tree_, 1);
  layout->addLayout(row);
  connect(close, &QPushButton::clicked, this, &pixel_dialog::ok_button_);
  connect(clear, &QPushButton::clicked, this, &pixel_dialog::clear_button_);
  connect(copy, &QPushButton::clicked, this, &pixel_dialog::save_button_);
}

void pixel_dialog::add_pixel(const pixel_values& values) {
  const QString location = QString("(%1, %2)").arg(values.location.x()).arg(values.location.y());
  auto* pixel = new QTreeWidgetItem(tree_, QStringList{"Pixel " + location});

  QTreeWidgetItem* components = group(pixel, "Image Components");
  field(components, "Location (x, y)", location);
  field(components, "Wavelengths", list_or_dash(values.wavelengths));
  field(components, "Irradiance", list_or_dash(values.irradiance));
  field(components, "Reflectance", list_or_dash(values.reflectance));
  field(components, "Specularity", number_or_dash(values.specularity));
  field(components, "Shading", number_or_dash(values.shading));

  QTreeWidgetItem* materials = group(pixel, "Material Discovery");
  field(materials, "Material",
        values.material < 0 ? QString("-") : QString::number(values.material + 1));
  field(materials, "Abundance", list_or_dash(values.material_abundances));

  QTreeWidgetItem* classes = group(pixel, "Classification");
  field(classes, "Class",
        values.class_number <= 0
            ? QString("-")
            : QString("%1 %2").arg(values.class_number).arg(values.class_label).trimmed());
  field(classes, "Abundance/Angle", list_or_dash(values.class_values));

  QTreeWidgetItem* analysis = group(pixel, "Analysis");
  field(analysis, "PCA: Value", list_or_dash(values.principal_components));

  tree_->expandItem(pixel);
  tree_->expandItem(components);
  tree_->setCurrentItem(pixel);
  tree_->scrollToItem(pixel);
}

int pixel_dialog::pixel_count() const {
  return tree_->topLevelItemCount();
}

QString pixel_dialog::row_text(const QTreeWidgetItem& item) {
  if (item.childCount() == 0) {
    return item.text(0) + "\t" + item.text(1);
  }
  QStringList lines;
  for (int i = 0; i < item.childCount(); ++i) {
    lines.append(row_text(*item.child(i)));
  }
  return lines.join("\n");
}

void pixel_dialog::ok_button_() {
  close();
}

void pixel_dialog::clear_button_() {
  tree_->clear();
}

void pixel_dialog::save_button_() {
  const QTreeWidgetItem* item = tree_->currentItem();
  if (item != nullptr) {
    QApplication::clipboard()->setText(row_text(*item));
  }
}

}  // namespace tavr
