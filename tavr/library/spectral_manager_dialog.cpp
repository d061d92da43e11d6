#include "tavr/library/spectral_manager_dialog.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QListView>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>
#include <exception>

#include "corv/io/envi_library.h"
#include "corv/io/library_csv.h"
#include "tavr/library/library_model.h"
#include "tavr/plots/pixel_values.h"

namespace tavr {

namespace {

QPushButton* add_button(QBoxLayout* layout, const QString& text, QWidget* parent) {
  auto* button = new QPushButton(text, parent);
  layout->addWidget(button);
  return button;
}

// A group box holding a list and a row of buttons under it.
QGroupBox* list_group(const QString& title, QListView* list, QHBoxLayout* buttons,
                      QWidget* parent) {
  auto* group = new QGroupBox(title, parent);
  auto* layout = new QVBoxLayout(group);
  layout->addWidget(list, 1);
  layout->addLayout(buttons);
  list->setEditTriggers(QAbstractItemView::NoEditTriggers);
  return group;
}

}  // namespace

corv::spectral_library read_library_file(const QString& file_name) {
  const QString suffix = QFileInfo(file_name).suffix().toLower();
  const std::string name = file_name.toStdString();
  if (suffix == "slz") {
    corv::spectral_library library;
    library.load(name);
    return library;
  }
  if (suffix == "csv") {
    return corv::read_library_csv(name);
  }
  return corv::read_envi_library(name, corv::missing_points::keep);
}

spectral_manager_dialog::spectral_manager_dialog(library_model& selected, QWidget* parent)
    : QDialog(parent), selected_(selected) {
  setObjectName("Spectral_Manager_Dialog");
  setWindowTitle("Spectral Library Manager");
  resize(1000, 640);

  file_list_ = new QListView(this);
  file_list_->setModel(&file_names_);
  auto* file_buttons = new QHBoxLayout;
  QPushButton* add = add_button(file_buttons, "Add Spectral Library", this);
  QPushButton* remove = add_button(file_buttons, "Remove Spectral Library", this);

  label_list_ = new QListView(this);
  label_list_->setModel(&file_labels_);
  label_list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  auto* label_buttons = new QHBoxLayout;
  QPushButton* copy_one = add_button(label_buttons, "Copy one label", this);
  QPushButton* copy_all = add_button(label_buttons, "Copy all labels", this);

  selected_list_ = new QListView(this);
  selected_list_->setModel(&selected_);
  auto* selected_buttons = new QHBoxLayout;
  QPushButton* delete_one = add_button(selected_buttons, "Delete selected label", this);
  QPushButton* delete_all = add_button(selected_buttons, "Delete all selected labels", this);
  QPushButton* save = add_button(selected_buttons, "Save selected labels", this);

  plot_ = new spectrum_plot("Spectra", this);
  plot_->set_normalised(true);
  auto* spectra = new QGroupBox("Spectra", this);
  auto* spectra_layout = new QVBoxLayout(spectra);
  spectra_layout->addWidget(plot_);

  auto* layout = new QGridLayout(this);
  layout->addWidget(list_group("Library Files", file_list_, file_buttons, this), 0, 0);
  layout->addWidget(list_group("File Labels", label_list_, label_buttons, this), 0, 1);
  layout->addWidget(list_group("Selected Labels", selected_list_, selected_buttons, this), 0, 2);
  layout->addWidget(spectra, 1, 0, 1, 3);
  layout->setRowStretch(0, 3);
  layout->setRowStretch(1, 2);

  connect(add, &QPushButton::clicked, this, &spectral_manager_dialog::add_button_);
  connect(remove, &QPushButton::clicked, this, &spectral_manager_dialog::delete_file_button_);
  connect(copy_one, &QPushButton::clicked, this, &spectral_manager_dialog::copy_one_label_button_);
  connect(copy_all, &QPushButton::clicked, this, &spectral_manager_dialog::copy_all_labels_button_);
  connect(delete_one, &QPushButton::clicked, this,
          &spectral_manager_dialog::delete_one_label_button_);
  connect(delete_all, &QPushButton::clicked, this,
          &spectral_manager_dialog::delete_all_label_button_);
  connect(save, &QPushButton::clicked, this, &spectral_manager_dialog::save_selected_labels_);

  using index_slot = void (spectral_manager_dialog::*)(const QModelIndex&);
  connect(file_list_, &QListView::clicked, this,
          static_cast<index_slot>(&spectral_manager_dialog::filename_clicked_));
  connect(label_list_, &QListView::clicked, this,
          static_cast<index_slot>(&spectral_manager_dialog::label_clicked_));
  connect(selected_list_, &QListView::clicked, this,
          static_cast<index_slot>(&spectral_manager_dialog::selected_label_clicked_));
  const auto rows = [](QListView* list) { return list->selectionModel(); };
  connect(rows(file_list_), &QItemSelectionModel::currentRowChanged, this,
          [this](const QModelIndex& current) { filename_clicked_(current.row()); });
  connect(rows(label_list_), &QItemSelectionModel::currentRowChanged, this,
          [this](const QModelIndex& current) { label_clicked_(current.row()); });
  connect(rows(selected_list_), &QItemSelectionModel::currentRowChanged, this,
          [this](const QModelIndex& current) { selected_label_clicked_(current.row()); });
}

void spectral_manager_dialog::report(const QString& title, const QString& text) {
  Q_EMIT message(title, text);
  if (interactive_) {
    QMessageBox::warning(this, title, text);
  }
}

void spectral_manager_dialog::add_file(const QString& file_name) {
  corv::spectral_library library = read_library_file(file_name);
  if (library.empty()) {
    throw std::runtime_error("spectral_manager: " + file_name.toStdString() + " holds no spectra.");
  }
  libraries_.append(std::move(library));
  paths_.append(file_name);
  const int row = file_names_.rowCount();
  file_names_.insertRows(row, 1);
  file_names_.setData(file_names_.index(row), QFileInfo(file_name).fileName());
  file_names_.setData(file_names_.index(row), file_name, Qt::ToolTipRole);
  file_list_->setCurrentIndex(file_names_.index(row));
  filename_clicked_(row);
}

void spectral_manager_dialog::save_selected(const QString& file_name) const {
  QString name = file_name;
  if (!name.endsWith(".slz", Qt::CaseInsensitive)) {
    name += ".slz";
  }
  const corv::spectral_library library = selected_.to_library();
  if (library.empty()) {
    throw std::runtime_error("spectral_manager: There are no selected labels to save.");
  }
  library.save(name.toStdString());
}

void spectral_manager_dialog::add_button_() {
  const QStringList names = QFileDialog::getOpenFileNames(
      this, "Tavrel - Add Spectral Library", folder_,
      "SLZ - Tavrel Spectral Library (*.slz);;        CSV - Comma Separated Value (*.csv);;        "
      "ENVI - Spectral Library (*.sli *.hdr)");
  for (const QString& name : names) {
    folder_ = QFileInfo(name).absolutePath();
    try {
      add_file(name);
    } catch (const std::exception& error) {
      report("Tavrel", "Could not open spectral library " + QFileInfo(name).fileName() +
                           ".<br/><br/>Reason: " + QString::fromStdString(error.what()));
    }
  }
}

void spectral_manager_dialog::delete_file_button_() {
  const int row = file_list_->currentIndex().row();
  if (row < 0 || row >= libraries_.size()) {
    return;
  }
  libraries_.removeAt(row);
  paths_.removeAt(row);
  file_names_.removeRows(row, 1);
  filename_clicked_(file_list_->currentIndex().row());
}

void spectral_manager_dialog::copy_one_label_button_() {
  const int file = file_list_->currentIndex().row();
  if (file < 0 || file >= libraries_.size()) {
    return;
  }
  const QList<library_entry> entries = entries_of(libraries_[file]);
  QModelIndexList chosen = label_list_->selectionModel()->selectedRows();
  if (chosen.isEmpty() && label_list_->currentIndex().isValid()) {
    chosen.append(label_list_->currentIndex());
  }
  std::sort(chosen.begin(), chosen.end());
  for (const QModelIndex& index : chosen) {
    selected_.add(entries.value(index.row()));
  }
}

void spectral_manager_dialog::copy_all_labels_button_() {
  const int file = file_list_->currentIndex().row();
  if (file >= 0 && file < libraries_.size()) {
    selected_.add(entries_of(libraries_[file]));
  }
}

void spectral_manager_dialog::delete_one_label_button_() {
  selected_.remove(selected_list_->currentIndex().row());
}

void spectral_manager_dialog::delete_all_label_button_() {
  selected_.clear();
  selected_curve_ = spectrum_curve();
  show_curves();
}

void spectral_manager_dialog::save_selected_labels_() {
  if (selected_.empty()) {
    return;
  }
  const QString name =
      QFileDialog::getSaveFileName(this, "Selected Labels - Save File", folder_, "SLZ (*.slz)");
  if (name.isEmpty()) {
    return;
  }
  folder_ = QFileInfo(name).absolutePath();
  try {
    save_selected(name);
  } catch (const std::exception& error) {
    report("Tavrel", "Could not save the selected labels.<br/><br/>Reason: " +
                         QString::fromStdString(error.what()));
  }
}

void spectral_manager_dialog::filename_clicked_(const QModelIndex& index) {
  filename_clicked_(index.row());
}

void spectral_manager_dialog::filename_clicked_(int row) {
  QStringList labels;
  if (row >= 0 && row < libraries_.size()) {
    for (const std::string& label : libraries_[row].labels()) {
      labels.append(QString::fromStdString(label));
    }
  }
  file_labels_.setStringList(labels);
  file_curve_ = spectrum_curve();
  show_curves();
}

void spectral_manager_dialog::label_clicked_(const QModelIndex& index) {
  label_clicked_(index.row());
}

void spectral_manager_dialog::label_clicked_(int row) {
  const int file = file_list_->currentIndex().row();
  if (file < 0 || file >= libraries_.size() || row < 0 ||
      row >= static_cast<int>(libraries_[file].size())) {
    return;
  }
  const library_entry entry = entries_of(libraries_[file]).value(row);
  file_curve_ = {file_labels_.index(row).data().toString(), to_qvector(entry.wavelengths),
                 to_qvector(entry.spectrum), QColor("Blue")};
  show_curves();
}

void spectral_manager_dialog::selected_label_clicked_(const QModelIndex& index) {
  selected_label_clicked_(index.row());
}

void spectral_manager_dialog::selected_label_clicked_(int row) {
  if (row < 0 || row >= selected_.size()) {
    return;
  }
  const library_entry& entry = selected_.entries()[row];
  selected_curve_ = {entry.label, to_qvector(entry.wavelengths), to_qvector(entry.spectrum),
                     QColor("Red")};
  show_curves();
}

void spectral_manager_dialog::show_curves() {
  plot_->clear_curves();
  if (!file_curve_.values.isEmpty()) {
    plot_->set_main_curve(file_curve_);
  }
  if (!selected_curve_.values.isEmpty()) {
    plot_->add_curve(selected_curve_);
  }
}

}  // namespace tavr
