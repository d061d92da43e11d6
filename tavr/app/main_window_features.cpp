// The main window's part of polygon labels, the spectral library manager and
// workspaces: actions, menu entries, the labels dock, and slots that hand over
// to the label, library and workspace controllers.
#include <QAction>
#include <QDockWidget>
#include <QFileDialog>
#include <QListView>
#include <QMenu>
#include <QPushButton>
#include <QStandardItemModel>

#include "tavr/app/main_window.h"
#include "tavr/app/main_window_actions.h"
#include "tavr/labels/label_controller.h"
#include "tavr/labels/labels_dock.h"
#include "tavr/library/spectral_manager_dialog.h"
#include "tavr/plots/plot.h"
#include "tavr/view/image_view.h"
#include "tavr/workspace/workspace_controller.h"

namespace tavr {

void main_window::build_feature_actions() {
  actions& a = *actions_;
  a.new_workspace = make_action(this, "New Workspace", "Ctrl+N", &main_window::new_workspace_);
  a.open_workspace =
      make_action(this, "Open Workspace...", "Ctrl+Shift+O", &main_window::open_workspace_);
  a.close_workspace =
      make_action(this, "Close Workspace", "Ctrl+Shift+C", &main_window::close_workspace_);
  a.save_workspace = make_action(this, "&Save Workspace", "Ctrl+S", &main_window::save_workspace_);
  a.save_workspace_as =
      make_action(this, "Save Workspace As...", "", &main_window::save_workspace_as_);
  a.library_manager = make_action(this, "Spectral Library Manager...", "",
                                  &main_window::show_spectral_library_manager_);
  a.clear_polygon = make_action(this, "Clear Polygon", "", &main_window::delete_polygon_);
  a.clear_polygon->setToolTip("Clear Selected Polygon");
  a.edit_polygon = make_action(this, "Edit Polygon Label", "", &main_window::edit_polygon_label_);
  a.edit_polygon->setToolTip("Edit Selected Polygon Label");
  a.show_all_labels = make_action(this, "Show All Labels", "Alt+L", &main_window::show_all_labels_);
  a.show_polygon_labels = make_action(this, "Show All Polygon Labels", "Shift+L",
                                      &main_window::show_all_polygon_labels_);
  a.show_material_clusters = make_action(this, "Show All Material Clusters", "Shift+M",
                                         &main_window::show_all_material_clusters_);
  a.plot_polygons =
      make_action(this, "Plot Polygon Spectra", "", &main_window::plot_polygon_spectra_);
  a.polygons_to_library = make_action(this, "Add Selected Labels to Spectral Library Manager", "",
                                      &main_window::add_polygons_to_library_);
  a.export_polygon_source =
      make_action(this, "Irradiance (CSV)...", "", &main_window::export_polygon_source_data_);
  a.export_polygon_reflectance =
      make_action(this, "Reflectance (CSV)...", "", &main_window::export_polygon_reflectance_data_);
  a.export_polygon_endmembers =
      make_action(this, "Endmembers (SLZ)...", "", &main_window::export_polygon_data_em_);
}

void main_window::build_feature_menus(QMenu* file, QMenu* tools, QMenu* docks) {
  actions& a = *actions_;
  QAction* before = a.close_image;
  file->insertSeparator(before);
  file->insertActions(before, {a.new_workspace, a.open_workspace});
  recent_workspaces_menu_ = new QMenu("Recent Workspaces", file);
  file->insertMenu(before, recent_workspaces_menu_);
  connect(recent_workspaces_menu_, &QMenu::triggered, this, &main_window::open_recent_workspace_);
  file->insertActions(before, {a.close_workspace, a.save_workspace, a.save_workspace_as});
  file->insertSeparator(before);
  auto* labels = new QMenu("Export Image Labels", file);
  labels->addActions(
      {a.export_polygon_source, a.export_polygon_reflectance, a.export_polygon_endmembers});
  file->insertMenu(a.import_illumination, labels);

  tools->addActions({a.clear_polygon, a.edit_polygon, a.plot_polygons, a.polygons_to_library});
  tools->addSeparator();
  tools->addActions({a.show_all_labels, a.show_polygon_labels, a.show_material_clusters});
  tools->addSeparator();
  tools->addAction(a.library_manager);
  docks->addAction("Polygon Labels", this, &main_window::show_polygon_labels_dock_);
}

void main_window::build_feature_docks() {
  labels_ = std::make_unique<label_controller>(images_, library_, this);
  library_dialog_ = new spectral_manager_dialog(library_, this);
  workspace_window steps{[this](const std::shared_ptr<hs_image>& image) { add_image(image); },
                         [this](int row) { set_current_row(row); },
                         [this] {
                           close_all_images_();
                           return images_.empty();
                         }};
  workspace_ = std::make_unique<workspace_controller>(images_, *labels_, library_, app_settings_,
                                                      steps, this);
  connect(labels_.get(), &label_controller::message, this, &main_window::report);
  connect(library_dialog_, &spectral_manager_dialog::message, this, &main_window::report);
  connect(workspace_.get(), &workspace_controller::message, this, &main_window::report);
  connect(workspace_.get(), &workspace_controller::title_changed, this,
          &main_window::setWindowTitle);
  connect(workspace_.get(), &workspace_controller::recent_changed, this,
          &main_window::refresh_recent_menus);

  labels_dock_content_ = new labels_dock(this);
  labels_dock_ = new QDockWidget("Polygon Labels", this);
  labels_dock_->setObjectName("Polygon_Labels_Dock");
  labels_dock_->setWidget(labels_dock_content_);
  addDockWidget(Qt::RightDockWidgetArea, labels_dock_);
  labels_dock& dock = *labels_dock_content_;
  connect(&dock.list(), &QListView::clicked, this, &main_window::select_polygon_label_);
  connect(&dock.list(), &QListView::doubleClicked, this, &main_window::current_polygon_label_);
  connect(&dock.deselect_all(), &QPushButton::clicked, this, &main_window::deselect_all_polygons_);
  connect(&dock.select_all(), &QPushButton::clicked, this, &main_window::select_all_polygons_);
  connect(&dock.copy_to_library(), &QPushButton::clicked, this,
          &main_window::add_polygons_to_library_);
  connect(&dock.export_slz(), &QPushButton::clicked, this, &main_window::export_polygon_data_em_);
  connect(view_, &image_view::add_polygon, this, &main_window::add_polygon_);
  connect(view_, &image_view::deselect_polygon_label_in_list, this,
          &main_window::deselect_polygon_label_in_list);
}

int main_window::current_row() const {
  return image_list_->currentIndex().row();
}

// Workspaces

bool main_window::open_workspace(const QString& file_name) {
  return workspace_->open(file_name, processing_values_.portable_workspace, current_row());
}

bool main_window::save_workspace(const QString& file_name, bool portable) {
  return workspace_idle() && workspace_->save(file_name, portable, current_row());
}

bool main_window::workspace_idle() {
  if (processing_.running()) {
    report("Save Workspace", "An image is being processed; save the workspace when it is done.");
    return false;
  }
  return true;
}

void main_window::new_workspace_() {
  workspace_->close(processing_values_.portable_workspace, current_row());
}

void main_window::open_workspace_() {
  const QString name = QFileDialog::getOpenFileName(this, "Tavrel - Open Workspace",
                                                    app_settings_.workspace_filename,
                                                    workspace_controller::workspace_filter);
  if (!name.isEmpty()) {
    open_workspace(name);
  }
}

void main_window::open_recent_workspace_(QAction* action) {
  open_workspace(action->data().toString());
}

void main_window::close_workspace_() {
  if (workspace_->close(processing_values_.portable_workspace, current_row())) {
    setWindowTitle("Tavrel");
  }
}

void main_window::save_workspace_() {
  if (workspace_idle()) {
    workspace_->save_current(processing_values_.portable_workspace, current_row());
  }
}

void main_window::save_workspace_as_() {
  if (workspace_idle()) {
    workspace_->save_as(processing_values_.portable_workspace, current_row());
  }
}

// The library manager

void main_window::show_spectral_library_manager_() {
  library_dialog_->set_folder(app_settings_.spectral_library_dir);
  library_dialog_->exec();
  app_settings_.spectral_library_dir = library_dialog_->folder();
}

// Polygon labels

void main_window::show_polygon_labels_dock_() {
  labels_dock_->show();
}

void main_window::add_polygon_() {
  labels_->ask_label(view_->take_new_polygon());
}

void main_window::delete_polygon_() {
  if (const auto image = current_image()) {
    image->labels().remove(image->labels().selected_row());
  }
}

void main_window::delete_label_() {
  delete_polygon_();
}

void main_window::edit_polygon_label_() {
  if (const auto image = current_image()) {
    labels_->ask_rename(image->labels().selected_row());
  }
}

void main_window::edit_polygon_list_label_() {
  labels_dock_content_->list().edit(labels_dock_content_->list().currentIndex());
}

void main_window::edit_label_(const QModelIndex& index) {
  labels_->add_to_label_list(index.data().toString());
}

void main_window::select_polygon_label_(const QModelIndex& index) {
  if (const auto image = current_image()) {
    image->labels().select(index.row());
  }
}

void main_window::current_polygon_label_(const QModelIndex& index) {
  const auto image = current_image();
  if (image != nullptr && index.row() >= 0 && index.row() < image->labels().size()) {
    image->labels().select(index.row());
    view_->centerOn(image->labels().at(index.row()).polygon.boundingRect().center());
  }
}

void main_window::select_all_polygons_() {
  if (const auto image = current_image()) {
    image->labels().set_all_checked(true);
  }
}

void main_window::deselect_all_polygons_() {
  if (const auto image = current_image()) {
    image->labels().set_all_checked(false);
  }
}

void main_window::deselect_polygon_label_in_list() {
  if (const auto image = current_image()) {
    image->labels().select(-1);
  }
}

void main_window::plot_polygon_spectra_() {
  plots_->show_labels(labels_->mean_curves(label_controller::cube_kind::source),
                      labels_->mean_curves(label_controller::cube_kind::reflectance));
}

void main_window::add_polygons_to_library_() {
  labels_->copy_to_library();
}

void main_window::export_polygon_source_data_() {
  labels_->ask_export_raw(label_controller::cube_kind::source,
                          app_settings_.export_polygon_data_dir);
}

void main_window::export_polygon_reflectance_data_() {
  labels_->ask_export_raw(label_controller::cube_kind::reflectance,
                          app_settings_.export_polygon_data_dir);
}

void main_window::export_polygon_data_em_() {
  labels_->ask_export_endmembers(app_settings_.export_polygon_data_dir,
                                 processing_values_.compressed_library_export);
}

void main_window::show_all_labels_() {
  show_all_polygon_labels_();
  show_all_material_clusters_();
}

void main_window::show_all_polygon_labels_() {
  select_all_polygons_();
  labels_dock_->show();
}

void main_window::show_all_material_clusters_() {
  if (current_image() != nullptr && materials_->rowCount() > 0) {
    for (int i = 0; i < materials_->rowCount(); ++i) {
      materials_->item(i)->setCheckState(Qt::Checked);
    }
    actions_->abundance_layer->setChecked(true);
    show_material_abundance_layer_();
  }
}

}  // namespace tavr
