#include "tavr/app/viewer_settings.h"

#include <QDate>
#include <QSettings>

namespace tavr {

namespace {

QString text(const QSettings& settings, const char* key, const QString& fallback) {
  return settings.value(key, fallback).toString();
}

}  // namespace

void viewer_settings::load(const QSettings& settings) {
  workspace_filename = text(settings, "workspace_filename", workspace_filename);
  import_image_filename = text(settings, "import_image_filename", import_image_filename);
  export_image_filename = text(settings, "export_image_filename", export_image_filename);
  export_mat_lib_filename = text(settings, "export_mat_lib_filename", export_mat_lib_filename);
  export_illumination_filename =
      text(settings, "export_illumination_filename", export_illumination_filename);
  export_polygon_data_dir = text(settings, "export_polygon_data_dir", export_polygon_data_dir);
  recent_image_filenames =
      settings.value("recent_image_filenames", recent_image_filenames).toStringList();
  recent_workspace_filenames =
      settings.value("recent_workspace_filenames", recent_workspace_filenames).toStringList();
  spectral_library_dir = text(settings, "spectral_library_dir", spectral_library_dir);
  vector_file_filename = text(settings, "vector_file_filename", vector_file_filename);
  spatial_stats_dir = text(settings, "spatial_stats_dir", spatial_stats_dir);
  import_illumination_filename =
      text(settings, "import_illumination_filename", import_illumination_filename);
  show_tutorial_at_startup =
      settings.value("show_tutorial_at_startup", show_tutorial_at_startup).toBool();
  date = text(settings, "date", date);
  main_window_geometry = settings.value("main_window_geometry", main_window_geometry).toByteArray();
  main_window_state = settings.value("main_window_state", main_window_state).toByteArray();
}

void viewer_settings::save(QSettings& settings) {
  date = QDate::currentDate().toString(Qt::ISODate);
  settings.setValue("workspace_filename", workspace_filename);
  settings.setValue("import_image_filename", import_image_filename);
  settings.setValue("export_image_filename", export_image_filename);
  settings.setValue("export_mat_lib_filename", export_mat_lib_filename);
  settings.setValue("export_illumination_filename", export_illumination_filename);
  settings.setValue("export_polygon_data_dir", export_polygon_data_dir);
  settings.setValue("recent_image_filenames", recent_image_filenames);
  settings.setValue("recent_workspace_filenames", recent_workspace_filenames);
  settings.setValue("spectral_library_dir", spectral_library_dir);
  settings.setValue("vector_file_filename", vector_file_filename);
  settings.setValue("spatial_stats_dir", spatial_stats_dir);
  settings.setValue("import_illumination_filename", import_illumination_filename);
  settings.setValue("show_tutorial_at_startup", show_tutorial_at_startup);
  settings.setValue("date", date);
  settings.setValue("main_window_geometry", main_window_geometry);
  settings.setValue("main_window_state", main_window_state);
  settings.setValue("version", viewer_version);
}

}  // namespace tavr
