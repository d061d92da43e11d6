#ifndef TAVR_DIALOGS_BAND_MATHS_H
#define TAVR_DIALOGS_BAND_MATHS_H

#include <QDialog>
#include <QModelIndex>
#include <QStringList>

class QCheckBox;
class QLineEdit;
class QListWidget;
class QPushButton;
class QRadioButton;

namespace tavr {

// The non-modal "Band Maths" dialog: the open images (numbered I1, I2, ... in
// list order), the formula, which data the formula reads, and the history of
// formulas. Running a formula and keeping its result are the main window's
// business: it connects to run_button(), export_button() and save_button().
class band_maths : public QDialog {
  Q_OBJECT

 public:
  explicit band_maths(QWidget* parent = nullptr);

  // Replaces the image list (clearing it first) and selects its first row.
  void set_images(const QStringList& names);
  QStringList images() const;

  QString formula() const;
  void set_formula(const QString& text);
  // Whether the formula reads the reflectance ("Reflectance") rather than the
  // irradiance ("Irradiance", the initial choice).
  bool reflectance() const;
  // "Colour result": show the result through a colour map instead of grey.
  bool colour_result() const;
  QStringList history() const;

  QPushButton* run_button() const { return run_; }
  QPushButton* export_button() const { return export_; }
  QPushButton* save_button() const { return save_; }
  QCheckBox* colour_box() const { return colour_; }

 public Q_SLOTS:
  // The run button: puts the formula at the top of the history (before the run,
  // so that a formula that fails is kept too).
  void execute_();
  // A double-clicked history entry replaces the formula.
  void put_command_(const QModelIndex& index);
  void close_();

 private:
  QListWidget* image_list_ = nullptr;
  QLineEdit* formula_ = nullptr;
  QPushButton* run_ = nullptr;
  QRadioButton* irradiance_ = nullptr;
  QRadioButton* reflectance_ = nullptr;
  QPushButton* export_ = nullptr;
  QPushButton* save_ = nullptr;
  QListWidget* history_ = nullptr;
  QCheckBox* colour_ = nullptr;
};

}  // namespace tavr

#endif
