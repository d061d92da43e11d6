// The main window's camera menu, dock and slots; the camera controller does the work.
#include <QAction>
#include <QComboBox>
#include <QCoreApplication>
#include <QDockWidget>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>

#include "tavr/app/main_window.h"
#include "tavr/camera/camera_controller.h"
#include "tavr/camera/camera_panel.h"
#include "tavr/view/image_view.h"
#include "tavr/view/view_geometry.h"

namespace tavr {

void main_window::build_camera() {
  camera_ =
      std::make_unique<camera_controller>(*settings_, QCoreApplication::applicationDirPath(), this);
  camera_panel& panel = camera_->panel();
  camera_dock_ = new QDockWidget("Camera", this);
  camera_dock_->setObjectName("Camera_Dock");
  camera_dock_->setWidget(&panel);
  addDockWidget(Qt::RightDockWidgetArea, camera_dock_);
  camera_dock_->hide();

  auto add = [this](const QString& text, const QString& shortcut, auto slot) {
    auto* action = new QAction(text, this);
    action->setShortcut(QKeySequence(shortcut));
    connect(action, &QAction::triggered, this, slot);
    return action;
  };
  QAction* live = add("Live Camera", "", &main_window::live_camera_);
  QAction* stop = add("Stop Camera", "Shift+C", &main_window::stop_view_camera_);
  QAction* snapshot = add("Snapshot", "Ctrl+I", &main_window::capture_cam_image_);
  QAction* record = add("Record Video", "", &main_window::capture_cam_video_);
  record->setCheckable(true);
  QAction* dark = add("Dark Reference", "", &main_window::capture_dark_reference_);
  dark->setToolTip("Average frames with the lens capped");
  QAction* white = add("White Reference", "", &main_window::capture_white_reference_);
  white->setToolTip("Average frames of a white reference tile filling the view");
  QAction* clear = add("Clear References", "", &main_window::clear_camera_references_);
  QAction* simulated = add("Simulated camera", "", &main_window::use_simulated_camera_);
  simulated->setCheckable(true);
  QAction* preferences = add("Camera Preferences...", "", &main_window::show_camera_preferences_);
  QAction* dock = add("Camera Dock", "", &main_window::show_camera_dock_);
  panel.set_capture_actions({live, stop, snapshot, record}, {dark, white, clear});

  auto* menu = new QMenu("Camera", this);
  menu->addActions({live, stop, snapshot, record});
  menu->addSeparator();
  menu->addActions({dark, white, clear});
  menu->addSeparator();
  menu->addActions({simulated, preferences, dock});
  // Between Tools and Spatial (or Help).
  QAction* before = nullptr;
  for (QAction* entry : menuBar()->actions()) {
    if (before == nullptr && (entry->text() == "Spatial" || entry->text() == "Help")) {
      before = entry;
    }
  }
  menuBar()->insertMenu(before, menu);

  camera_thread& thread = camera_->thread();
  connect(&thread, &camera_thread::add_cam_to_ui, this, &main_window::add_cam_to_ui_);
  connect(&thread, &camera_thread::remove_cam_from_ui, this, &main_window::remove_cam_from_ui_);
  connect(&thread, &camera_thread::cam_image_captured, this, &main_window::cam_image_captured_);
  connect(panel.views, qOverload<int>(&QComboBox::currentIndexChanged), this,
          &main_window::change_camera_image_);
  connect(panel.bands, &QListWidget::currentRowChanged, this, &main_window::change_camera_band_);
  connect(panel.cameras, qOverload<int>(&QComboBox::currentIndexChanged), this,
          &main_window::change_camera_);
  connect(camera_.get(), &camera_controller::message_reported, this,
          &main_window::message_reported);
  connect(camera_.get(), &camera_controller::image_captured, this, &main_window::add_image);
  connect(camera_.get(), &camera_controller::recording_changed, record, &QAction::setChecked);
  connect(camera_.get(), &camera_controller::cameras_changed, simulated,
          [this, simulated] { simulated->setChecked(camera_->simulated()); });
}

camera_controller& main_window::camera() {
  return *camera_;
}

void main_window::live_camera_() {
  camera_->start_live();
}
void main_window::stop_view_camera_() {
  camera_->stop_live();
  if (current_image() != nullptr) {
    render_current(fit_image_to_window);
  }
}
void main_window::capture_cam_image_() {
  camera_->snapshot();
}
void main_window::capture_cam_video_() {
  camera_->toggle_recording();
}
void main_window::capture_dark_reference_() {
  camera_->capture_dark_reference();
}
void main_window::capture_white_reference_() {
  camera_->capture_white_reference();
}
void main_window::clear_camera_references_() {
  camera_->clear_references();
}
void main_window::use_simulated_camera_(bool simulated) {
  camera_->use_simulator(simulated);
}
void main_window::add_cam_to_ui_() {
  camera_->cameras_added();
}
void main_window::remove_cam_from_ui_() {
  camera_->cameras_removed();
}
void main_window::cam_image_captured_() {
  bool refit = false;
  const QImage picture = camera_->take_picture(refit);
  if (!picture.isNull() && camera_->thread().live()) {
    view_->show_picture(picture, refit ? fit_image_to_window : no_fit);
  }
}
void main_window::change_camera_image_(int index) {
  camera_->set_view_mode(index);
}
void main_window::change_camera_band_(int row) {
  camera_->set_band(row);
}
void main_window::change_camera_(int index) {
  camera_->set_camera(index);
}
void main_window::check_for_cameras_() {
  camera_->thread().check_for_cameras_();
}
void main_window::show_camera_dock_() {
  camera_dock_->show();
  camera_dock_->raise();
}
void main_window::show_camera_preferences_() {
  camera_->show_preferences();
}

}  // namespace tavr
