#ifndef TAVR_APP_MAIN_WINDOW_ACTIONS_H
#define TAVR_APP_MAIN_WINDOW_ACTIONS_H

#include <QAction>

#include "tavr/app/main_window.h"

namespace tavr {

// An action of the window with its shortcut (none when empty), triggering a slot.
template <typename Slot>
QAction* make_action(main_window* window, const QString& text, const QString& shortcut, Slot slot) {
  auto* action = new QAction(text, window);
  if (!shortcut.isEmpty()) {
    action->setShortcut(QKeySequence(shortcut));
  }
  QObject::connect(action, &QAction::triggered, window, slot);
  return action;
}

// The main window's actions that its slots read back (check states, the
// normalisation choice).
struct main_window::actions {
  QAction* open_image = nullptr;
  QAction* open_reflectance = nullptr;
  QAction* close_image = nullptr;
  QAction* close_all = nullptr;
  QAction* save_view = nullptr;
  QAction* save_hsz = nullptr;
  QAction* export_irradiance = nullptr;
  QAction* export_reflectance = nullptr;
  QAction* export_materials = nullptr;
  QAction* export_illumination = nullptr;
  QAction* import_illumination = nullptr;
  QAction* quit = nullptr;
  QAction* undo = nullptr;
  QAction* redo = nullptr;
  QAction* reload = nullptr;
  QAction* remove_bands = nullptr;
  QAction* crop = nullptr;
  QAction* by_cube = nullptr;
  QAction* by_band = nullptr;
  QAction* rendering = nullptr;
  QAction* color = nullptr;
  QAction* irradiance = nullptr;
  QAction* reflectance = nullptr;
  QAction* specularity = nullptr;
  QAction* shading = nullptr;
  QAction* abundance_layer = nullptr;
  QAction* fit = nullptr;
  QAction* actual = nullptr;
  QAction* zoom_in = nullptr;
  QAction* zoom_out = nullptr;
  QAction* recover_illuminant = nullptr;
  QAction* recover_reflectance = nullptr;
  QAction* discover_materials = nullptr;
  QAction* analysis = nullptr;
  QAction* settings = nullptr;
  QAction* pixel_inspector = nullptr;
  QAction* polygon_tool = nullptr;
  QAction* about = nullptr;
  // Workspaces, library manager and polygon labels.
  QAction* new_workspace = nullptr;
  QAction* open_workspace = nullptr;
  QAction* close_workspace = nullptr;
  QAction* save_workspace = nullptr;
  QAction* save_workspace_as = nullptr;
  QAction* library_manager = nullptr;
  QAction* clear_polygon = nullptr;
  QAction* edit_polygon = nullptr;
  QAction* show_all_labels = nullptr;
  QAction* show_polygon_labels = nullptr;
  QAction* show_material_clusters = nullptr;
  QAction* plot_polygons = nullptr;
  QAction* polygons_to_library = nullptr;
  QAction* export_polygon_source = nullptr;
  QAction* export_polygon_reflectance = nullptr;
  QAction* export_polygon_endmembers = nullptr;
};

}  // namespace tavr

#endif
