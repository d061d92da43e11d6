#ifndef TAVR_DIALOGS_STATS_DIALOG_H
#define TAVR_DIALOGS_STATS_DIALOG_H

#include <QDialog>

#include "corv/analysis/spatial_statistics.h"

class QCheckBox;
class QLineEdit;
class QRadioButton;
class QSpinBox;

namespace tavr {

// "Spatial Statistic Settings": which statistics of a vector file's points and
// polygons to export, from which data, and where.
class stats_dialog : public QDialog {
  Q_OBJECT

 public:
  static constexpr const char* missing_folder_message =
      "The chosen folder does not exist. Please choose another folder.";

  explicit stats_dialog(QWidget* parent = nullptr);

  // Offers the points and polygons options only when the vector file has such.
  void set_features(std::size_t points, std::size_t polygons);
  void set_folder(const QString& folder);

  // The export as chosen (folder, name, options and statistics).
  corv::spatial_statistics_request request() const;
  // Whether the statistics are taken from the reflectance ("Reflectance")
  // rather than the irradiance ("Irradiance", the initial choice).
  bool reflectance() const;
  // What keeps the export from starting (empty when nothing does).
  QString problem() const;

  // Without interaction, problems are not shown in message boxes (tests).
  void set_interactive(bool interactive) { interactive_ = interactive; }

 public Q_SLOTS:
  // "Export": accepts when there is no problem, else shows it and stays open.
  void accept() override;

 private Q_SLOTS:
  void browse_();

 private:
  QRadioButton* irradiance_ = nullptr;
  QRadioButton* reflectance_ = nullptr;
  QCheckBox* points_ = nullptr;
  QSpinBox* window_ = nullptr;
  QCheckBox* polygons_ = nullptr;
  QRadioButton* rules_[3] = {};
  QCheckBox* statistics_[corv::statistic_count] = {};
  QLineEdit* name_ = nullptr;
  QLineEdit* folder_ = nullptr;
  bool interactive_ = true;
};

}  // namespace tavr

#endif
