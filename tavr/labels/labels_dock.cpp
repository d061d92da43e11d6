#include "tavr/labels/labels_dock.h"

#include <QGridLayout>
#include <QLabel>
#include <QListView>
#include <QPushButton>
#include <QVBoxLayout>

#include "tavr/labels/label_model.h"

namespace tavr {

labels_dock::labels_dock(QWidget* parent) : QWidget(parent) {
  list_ = new QListView(this);
  list_->setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
  deselect_all_ = new QPushButton("Deselect All Labels", this);
  select_all_ = new QPushButton("Select All Labels", this);
  copy_to_library_ = new QPushButton("Copy Selected Polygons to Library", this);
  export_slz_ = new QPushButton("Export Selected Labels as SLZ", this);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(new QLabel("Image Labels", this));
  layout->addWidget(list_, 1);
  auto* buttons = new QGridLayout;
  buttons->addWidget(deselect_all_, 0, 0);
  buttons->addWidget(select_all_, 0, 1);
  buttons->addWidget(copy_to_library_, 1, 0, 1, 2);
  buttons->addWidget(export_slz_, 2, 0, 1, 2);
  layout->addLayout(buttons);
}

void labels_dock::set_labels(label_model* labels) {
  if (list_->model() != nullptr) {
    disconnect(list_->model(), nullptr, this, nullptr);
  }
  list_->setModel(labels);
  if (labels == nullptr) {
    return;
  }
  // The list follows the selected label (also when it is chosen in the image).
  auto follow = [this, labels] {
    const int row = labels->selected_row();
    if (row < 0) {
      list_->clearSelection();
    } else if (list_->currentIndex().row() != row) {
      list_->setCurrentIndex(labels->index(row));
    }
  };
  connect(labels, &QAbstractItemModel::dataChanged, this, follow);
  follow();
}

}  // namespace tavr
