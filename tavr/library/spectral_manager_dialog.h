#ifndef TAVR_LIBRARY_SPECTRAL_MANAGER_DIALOG_H
#define TAVR_LIBRARY_SPECTRAL_MANAGER_DIALOG_H

#include <QDialog>
#include <QList>
#include <QString>
#include <QStringListModel>

#include "corv/io/spectral_library.h"
#include "tavr/plots/spectrum_plot.h"

class QListView;
class QModelIndex;

namespace tavr {

class library_model;

// Reads a spectral library file by its suffix: ".slz" the library's own file,
// ".csv" a CSV library, anything else an ENVI spectral library (".sli" or its
// header), whose missing points are NaN (entries_of leaves them out). Throws
// the reader's std::runtime_error.
corv::spectral_library read_library_file(const QString& file_name);

// The spectral library manager: library files on the left, the labels of the
// chosen file in the middle, the viewer's library ("Selected Labels") on the
// right, and a plot of the clicked spectra (file labels in blue, selected labels
// in red).
class spectral_manager_dialog : public QDialog {
  Q_OBJECT

 public:
  spectral_manager_dialog(library_model& selected, QWidget* parent = nullptr);

  // Without interaction, failures are not shown in message boxes.
  void set_interactive(bool interactive) { interactive_ = interactive; }
  // The folder the file dialogs start in (the `spectral_library_dir` setting).
  void set_folder(const QString& folder) { folder_ = folder; }
  const QString& folder() const { return folder_; }

  // Adds a library file as a row of "Library Files" and makes it current.
  // Throws the reader's error (nothing is added then).
  void add_file(const QString& file_name);
  // The files added, as loaded.
  const QList<corv::spectral_library>& files() const { return libraries_; }
  // Writes "Selected Labels" as an SLZ library (".slz" added when missing).
  void save_selected(const QString& file_name) const;

  QListView& file_list() { return *file_list_; }
  QListView& label_list() { return *label_list_; }
  QListView& selected_list() { return *selected_list_; }
  spectrum_plot& plot() { return *plot_; }

 public Q_SLOTS:
  void add_button_();
  void delete_file_button_();
  void copy_one_label_button_();
  void copy_all_labels_button_();
  void delete_one_label_button_();
  void delete_all_label_button_();
  void save_selected_labels_();
  void filename_clicked_(const QModelIndex& index);
  void filename_clicked_(int row);
  void label_clicked_(const QModelIndex& index);
  void label_clicked_(int row);
  void selected_label_clicked_(const QModelIndex& index);
  void selected_label_clicked_(int row);

 Q_SIGNALS:
  // Every failure, with the title of its box.
  void message(const QString& title, const QString& text);

 private:
  void report(const QString& title, const QString& text);
  void show_curves();

  library_model& selected_;
  QList<corv::spectral_library> libraries_;
  QStringList paths_;
  QStringListModel file_names_;
  QStringListModel file_labels_;
  QListView* file_list_;
  QListView* label_list_;
  QListView* selected_list_;
  spectrum_plot* plot_;
  spectrum_curve file_curve_;
  spectrum_curve selected_curve_;
  QString folder_;
  bool interactive_ = true;
};

}  // namespace tavr

#endif
