#ifndef TAVR_APP_VIEWER_SETTINGS_H
#define TAVR_APP_VIEWER_SETTINGS_H

#include <QByteArray>
#include <QString>
#include <QStringList>

class QSettings;

namespace tavr {

// The organisation and application names under which the settings are kept.
inline const QString settings_organisation = QStringLiteral("Corvantis");
inline const QString settings_application = QStringLiteral("Tavrel");
inline const QString viewer_version = QStringLiteral("1.2.0");

// The viewer's remembered paths, recent lists and window layout.
struct viewer_settings {
  QString workspace_filename;
  QString import_image_filename;
  QString export_image_filename;
  QString export_mat_lib_filename;
  QString export_illumination_filename;
  QString export_polygon_data_dir;
  QStringList recent_image_filenames;
  QStringList recent_workspace_filenames;
  QString spectral_library_dir;
  QString vector_file_filename;
  QString spatial_stats_dir;
  QString import_illumination_filename;
  bool show_tutorial_at_startup = true;
  QString date;
  QByteArray main_window_geometry;
  QByteArray main_window_state;

  // Reads every key; absent keys keep their defaults.
  void load(const QSettings& settings);
  // Writes every key, with "version" and today's "date".
  void save(QSettings& settings);
};

}  // namespace tavr

#endif
