#ifndef TAVR_APP_MAIN_WINDOW_TOOLS_H
#define TAVR_APP_MAIN_WINDOW_TOOLS_H

#include <QAction>
#include <QDockWidget>
#include <QFutureWatcher>
#include <atomic>
#include <memory>

#include "tavr/app/main_window.h"
#include "tavr/image/image_loading.h"
#include "tavr/processing/band_maths_controller.h"

namespace tavr {

class band_chooser;
class band_maths;
class classes_dock;
class help_dialog;
class log_dialog;
class tutorial_dialog;

// The main window's band maths, classification, small dialogs, vector files,
// help and large-image loading: their dialogs, controllers, docks and actions.
struct main_window::tools {
  band_maths* band_maths_dialog = nullptr;
  band_maths_controller band_maths_runner;
  log_dialog* logs = nullptr;
  help_dialog* help = nullptr;
  tutorial_dialog* tutorial = nullptr;
  classes_dock* classes = nullptr;
  QDockWidget* classes_frame = nullptr;  // the dock holding `classes`
  band_chooser* bands = nullptr;

  // The full pictures being made in the background, one per image, each with
  // the flag that stops it.
  struct loading {
    std::weak_ptr<hs_image> image;
    QFutureWatcher<full_picture_result>* watcher = nullptr;
    std::shared_ptr<std::atomic<bool>> stop;
  };
  QList<loading> loads;

  tools() = default;
  tools(const tools&) = delete;
  tools& operator=(const tools&) = delete;
  // A picture still being read is not wanted any more.
  ~tools() {
    for (const loading& load : loads) {
      *load.stop = true;
    }
  }

  QAction* resize = nullptr;
  QAction* align = nullptr;
  QAction* information = nullptr;
  QAction* band_maths_action = nullptr;
  QAction* logs_action = nullptr;
  QAction* classification = nullptr;
  QAction* endmembers = nullptr;
  QAction* class_layer = nullptr;
  QAction* open_vector = nullptr;
  QAction* export_statistics = nullptr;
  QAction* delete_vector = nullptr;
  QAction* tutorial_action = nullptr;
  QAction* help_offline = nullptr;
  QAction* help_online = nullptr;
  QAction* feedback = nullptr;
  QAction* updates = nullptr;
};

}  // namespace tavr

#endif
