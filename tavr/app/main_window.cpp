#include "tavr/app/main_window.h"

#include <QAction>
#include <QActionGroup>
#include <QCloseEvent>
#include <QDockWidget>
#include <QHBoxLayout>
#include <QLabel>
#include <QListView>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QSettings>
#include <QStandardItemModel>
#include <QStatusBar>
#include <QThreadPool>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

#include "tavr/app/main_window_actions.h"
#include "tavr/app/main_window_tools.h"
#include "tavr/app/pca_dock.h"
#include "tavr/camera/camera_controller.h"
#include "tavr/dialogs/rendering_dialog.h"
#include "tavr/dialogs/settings_dialog.h"
#include "tavr/labels/label_controller.h"
#include "tavr/plots/pixel_dialog.h"
#include "tavr/plots/plot.h"
#include "tavr/view/image_view.h"
#include "tavr/workspace/workspace_controller.h"

namespace tavr {

namespace {

QDockWidget* make_dock(main_window* window, const QString& title, const QString& name,
                       QWidget* content) {
  auto* dock = new QDockWidget(title, window);
  dock->setObjectName(name);
  dock->setWidget(content);
  return dock;
}

}  // namespace

main_window::main_window(QSettings* settings, QWidget* parent)
    : QMainWindow(parent), settings_(settings), actions_(std::make_unique<actions>()) {
  if (settings_ == nullptr) {
    own_settings_ = std::make_unique<QSettings>(settings_organisation, settings_application);
    settings_ = own_settings_.get();
  }
  setWindowTitle("Tavrel");
  resize(1280, 800);

  view_ = new image_view(this);
  setCentralWidget(view_);
  plots_ = new plot(this);
  pixel_dialog_ = new pixel_dialog(this);
  settings_dialog_ = new settings_dialog(this);
  rendering_dialog_ = new rendering_dialog(this);

  process_dialog_ =
      new QProgressDialog("Running Corvantis", "Cancel", 0, processing_progress_maximum, this);
  process_dialog_->setWindowTitle("Processing Pipeline");
  process_dialog_->setWindowModality(Qt::WindowModal);
  process_dialog_->setAutoClose(false);
  process_dialog_->setAutoReset(false);
  process_dialog_->setMinimumWidth(400);
  process_dialog_->cancel();
  cancel_dialog_ = new QProgressDialog("Cancelling Pipeline", QString(), 0, 100, this);
  cancel_dialog_->setWindowTitle("Processing Pipeline");
  cancel_dialog_->setWindowModality(Qt::WindowModal);
  cancel_dialog_->setAutoClose(false);
  cancel_dialog_->setAutoReset(false);
  cancel_dialog_->setMinimumWidth(400);
  cancel_dialog_->cancel();

  hover_label_ = new QLabel(this);
  statusBar()->setStyleSheet("QStatusBar::item { border: none; };");
  statusBar()->addPermanentWidget(hover_label_);

  build_actions();
  build_feature_actions();
  build_tool_actions();
  build_menus();
  build_docks();
  build_feature_docks();
  build_camera();
  build_tool_docks();
  connect_view();
  connect_processing();
  restore_settings();
  update_actions_();
}

main_window::~main_window() = default;

void main_window::build_actions() {
  actions& a = *actions_;
  a.open_image = make_action(this, "Open Image...", "Ctrl+O", &main_window::open_image_);
  a.open_image->setToolTip("Open Image");
  a.open_reflectance =
      make_action(this, "Open Reflectance Image...", "", &main_window::open_reflectance_image_);
  a.close_image = make_action(this, "Close Image", "Ctrl+W", &main_window::close_image_);
  a.close_all =
      make_action(this, "Close All Images", "Ctrl+Alt+C", &main_window::close_all_images_);
  a.save_view =
      make_action(this, "Save Current Image View...", "", &main_window::save_current_image_);
  a.save_hsz = make_action(this, "Save as HSZ...", "", &main_window::save_as_hyperspectral_zip_);
  a.export_irradiance =
      make_action(this, "Irradiance...", "", &main_window::save_image_irradiance_);
  a.export_reflectance =
      make_action(this, "Reflectance...", "", &main_window::save_image_reflectance_);
  a.export_materials =
      make_action(this, "Material Reflectances...", "", &main_window::export_mat_lib_);
  a.export_illumination =
      make_action(this, "Illumination Spectrum...", "", &main_window::export_illumination_);
  a.import_illumination =
      make_action(this, "Import Illumination Spectrum...", "", &main_window::import_illumination_);
  a.quit = make_action(this, "&Quit", "Ctrl+Q", &main_window::quit_);

  a.undo = make_action(this, "Undo", "Ctrl+Z", &main_window::undo_image_);
  a.redo = make_action(this, "Redo", "Ctrl+Y", &main_window::redo_image_);
  a.reload = make_action(this, "Reload Original Image", "Ctrl+R", &main_window::reload_image_);
  a.remove_bands = make_action(this, "Remove Bands", "", &main_window::remove_image_band_);
  a.remove_bands->setToolTip("Remove Band");
  a.crop = make_action(this, "Crop to Selection", "Alt+C", &main_window::crop_image_);

  normalize_group_ = new QActionGroup(this);
  normalize_group_->setExclusive(true);
  a.by_cube = normalize_group_->addAction("By Cube");
  a.by_cube->setToolTip("Normalize image bands by dividing by the maximum value of the cube.");
  a.by_band = normalize_group_->addAction("By Band");
  a.by_band->setToolTip("Normalize image bands by dividing by the maximum value of the band.");
  for (QAction* action : {a.by_cube, a.by_band}) {
    action->setCheckable(true);
  }
  a.by_cube->setChecked(true);
  connect(normalize_group_, &QActionGroup::triggered, this,
          &main_window::change_normalize_band_option_);
  a.rendering = make_action(this, "Image Rendering...", "", &main_window::show_image_rendering_);

  auto* views = new QActionGroup(this);
  a.color = make_action(this, "Color", "Alt+1", &main_window::view_color_);
  a.irradiance = make_action(this, "Irradiance", "Alt+2", &main_window::view_irradiance_);
  a.reflectance = make_action(this, "Reflectance", "Alt+3", &main_window::view_reflectance_);
  a.specularity = make_action(this, "Specularity", "Alt+4", &main_window::view_high_);
  a.shading = make_action(this, "Shading", "Alt+5", &main_window::view_shading_);
  for (QAction* action : {a.color, a.irradiance, a.reflectance, a.specularity, a.shading}) {
    action->setCheckable(true);
    views->addAction(action);
  }
  a.color->setChecked(true);
  a.abundance_layer = make_action(this, "Show Material Abundance Layer", "",
                                  &main_window::show_material_abundance_layer_);
  a.abundance_layer->setCheckable(true);
  a.fit = make_action(this, "Fit to Window", "", &main_window::view_fit_to_window_);
  a.actual = make_action(this, "Actual Size", "", &main_window::view_actual_size_);
  a.zoom_in = make_action(this, "Zoom In", "Ctrl+=", &main_window::view_zoom_in_);
  a.zoom_out = make_action(this, "Zoom Out", "Ctrl+-", &main_window::view_zoom_out_);

  a.recover_illuminant =
      make_action(this, "Recover Illuminant", "", &main_window::process_illuminant_estimation_);
  a.recover_reflectance =
      make_action(this, "Recover Reflectance", "", &main_window::process_dichromatic_recovery_);
  a.discover_materials =
      make_action(this, "Run Material Discovery", "", &main_window::process_material_clustering_);
  a.analysis = make_action(this, "Run Analysis", "", &main_window::process_analysis_);
  a.settings = make_action(this, "Settings...", "Shift+P", &main_window::show_corvantis_settings_);
  a.pixel_inspector =
      make_action(this, "Pixel Inspector...", "", &main_window::show_pixel_inspector_);
  a.polygon_tool =
      make_action(this, "Label Image (Polygon Tool)", "Alt+P", &main_window::is_create_polygon_);
  a.polygon_tool->setCheckable(true);
  a.about = make_action(this, "About", "", &main_window::about_);
}

void main_window::build_menus() {
  actions& a = *actions_;
  QMenu* file = menuBar()->addMenu("File");
  file->addAction(a.open_image);
  file->addAction(a.open_reflectance);
  recent_images_menu_ = file->addMenu("Recent Images");
  connect(recent_images_menu_, &QMenu::triggered, this, &main_window::open_recent_image_);
  file->addSeparator();
  file->addAction(a.close_image);
  file->addAction(a.close_all);
  file->addSeparator();
  QMenu* save = file->addMenu("Save Image");
  save->addAction(a.save_view);
  save->addAction(a.save_hsz);
  QMenu* raw = file->addMenu("Export Corvantis Raw Data");
  raw->addAction(a.export_irradiance);
  raw->addAction(a.export_reflectance);
  raw->addAction(a.export_materials);
  raw->addAction(a.export_illumination);
  file->addAction(a.import_illumination);
  file->addSeparator();
  file->addAction(a.quit);

  QMenu* image = menuBar()->addMenu("Image");
  image->addAction(a.undo);
  image->addAction(a.redo);
  image->addAction(a.reload);
  image->addSeparator();
  image->addAction(a.remove_bands);
  image->addAction(a.crop);
  QMenu* normalise = image->addMenu("Normalize Band");
  normalise->addAction(a.by_cube);
  normalise->addAction(a.by_band);
  image->addAction(a.rendering);

  QMenu* view = menuBar()->addMenu("View");
  for (QAction* action : {a.color, a.irradiance, a.reflectance, a.specularity, a.shading}) {
    view->addAction(action);
  }
  view->addSeparator();
  view->addAction(a.abundance_layer);
  view->addSeparator();
  for (QAction* action : {a.fit, a.actual, a.zoom_in, a.zoom_out}) {
    view->addAction(action);
  }
  view->addSeparator();
  QMenu* docks = view->addMenu("Docks");
  docks->addAction("Images", this, &main_window::show_images_dock_);
  docks->addAction("Image Components", this, &main_window::show_image_components_dock_);
  docks->addAction("Materials", this, &main_window::show_image_materials_dock_);
  docks->addAction("PCA", this, &main_window::show_pca_dock_);
  docks->addAction("Plots", this, &main_window::show_plots_dock_);

  QMenu* process = menuBar()->addMenu("Process");
  for (QAction* action :
       {a.recover_illuminant, a.recover_reflectance, a.discover_materials, a.analysis}) {
    process->addAction(action);
  }
  process->addSeparator();
  process->addAction(a.settings);

  QMenu* tools = menuBar()->addMenu("Tools");
  tools->addAction(a.pixel_inspector);
  tools->addAction(a.polygon_tool);
  build_feature_menus(file, tools, docks);

  QMenu* help = menuBar()->addMenu("Help");
  help->addAction(a.about);

  QToolBar* bar = addToolBar("toolBar");
  bar->setObjectName("toolBar");
  bar->setToolButtonStyle(Qt::ToolButtonTextOnly);
  for (QAction* action : {a.open_image, a.fit, a.actual, a.zoom_in, a.zoom_out}) {
    bar->addAction(action);
  }
  bar->addSeparator();
  for (QAction* action : {a.color, a.reflectance, a.specularity, a.shading}) {
    bar->addAction(action);
  }
  bar->addSeparator();
  bar->addAction(a.pixel_inspector);
  bar->addAction(a.polygon_tool);
  build_tool_menus(image, view, process, tools, help, docks);
}

void main_window::build_docks() {
  image_list_ = new QListView(this);
  image_list_->setModel(&images_);
  image_list_->setIconSize(QSize(64, 64));
  image_list_->setFlow(QListView::TopToBottom);
  image_list_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  images_dock_ = make_dock(this, "Current Images", "Images_Dock", image_list_);
  addDockWidget(Qt::LeftDockWidgetArea, images_dock_);
  connect(image_list_->selectionModel(), &QItemSelectionModel::currentChanged, this,
          &main_window::hs_image_list_widget_item_changed_);
  connect(images_dock_, &QDockWidget::dockLocationChanged, this,
          &main_window::change_image_list_flow_);

  components_list_ = new QListWidget(this);
  components_dock_ = make_dock(this, "Image Components", "Image_Components_Dock", components_list_);
  addDockWidget(Qt::LeftDockWidgetArea, components_dock_);
  connect(components_list_, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
    set_view(static_cast<component_view>(item->data(Qt::UserRole).toInt()));
  });

  auto* materials = new QWidget(this);
  materials_ = new QStandardItemModel(this);
  auto* materials_list = new QListView(materials);
  materials_list->setModel(materials_);
  materials_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
  auto* deselect = new QPushButton("Deselect All Materials", materials);
  auto* select = new QPushButton("Select All Materials", materials);
  auto* material_layout = new QVBoxLayout(materials);
  material_layout->addWidget(materials_list, 1);
  auto* material_buttons = new QHBoxLayout;
  material_buttons->addWidget(deselect);
  material_buttons->addWidget(select);
  material_layout->addLayout(material_buttons);
  materials_dock_ = make_dock(this, "Materials", "Materials_Dock", materials);
  addDockWidget(Qt::LeftDockWidgetArea, materials_dock_);
  auto check_all = [this](Qt::CheckState state) {
    for (int i = 0; i < materials_->rowCount(); ++i) {
      materials_->item(i)->setCheckState(state);
    }
  };
  connect(deselect, &QPushButton::clicked, this, [check_all] { check_all(Qt::Unchecked); });
  connect(select, &QPushButton::clicked, this, [check_all] { check_all(Qt::Checked); });
  connect(materials_, &QStandardItemModel::itemChanged, this, [this](QStandardItem* item) {
    material_check_changed_(item->row(), item->checkState() == Qt::Checked);
  });

  pca_ = new pca_dock(this);
  pca_dock_ = make_dock(this, "PCA", "PCA_Dock", pca_);
  addDockWidget(Qt::LeftDockWidgetArea, pca_dock_);
  connect(pca_, &pca_dock::component_activated, this, &main_window::show_principal_component_);
  connect(pca_, &pca_dock::display_changed, this, [this] {
    const auto image = current_image();
    if (image != nullptr && image->view_state().pc >= 0) {
      render_current(no_fit);
    }
  });
  tabifyDockWidget(materials_dock_, pca_dock_);
  materials_dock_->raise();

  plots_dock_ = make_dock(this, "Plots", "Plots_Dock", plots_);
  addDockWidget(Qt::BottomDockWidgetArea, plots_dock_);
  plots_->set_columns(4);
  connect(plots_dock_, &QDockWidget::dockLocationChanged, this, [this](Qt::DockWidgetArea area) {
    const bool wide = area == Qt::TopDockWidgetArea || area == Qt::BottomDockWidgetArea;
    plots_->set_columns(wide ? 4 : 1);
  });
  resizeDocks({images_dock_}, {260}, Qt::Horizontal);
  resizeDocks({plots_dock_}, {300}, Qt::Vertical);
}

void main_window::connect_view() {
  connect(view_, &image_view::image_clicked, this, &main_window::add_plot_curve_);
  connect(view_, &image_view::image_clicked, this, &main_window::pixel_inspect_);
  connect(view_, &image_view::selection_rect_set, this, &main_window::add_plot_curves_);
  connect(view_, &image_view::main_open_image, this, &main_window::main_open_image);
  connect(view_, &image_view::main_open_workspace, this, &main_window::main_open_workspace);
  connect(view_, &image_view::hover_text, hover_label_, &QLabel::setText);
  connect(view_, &image_view::action_polygon_enable, actions_->polygon_tool, &QAction::setChecked);
  view_->set_hover_lookup([this](const QPoint& pixel) { return material_at(pixel); });
  connect(this, &main_window::main_open_image, this, &main_window::open_image);
  connect(this, &main_window::main_open_workspace, this, &main_window::open_workspace);
}

void main_window::connect_processing() {
  connect(process_dialog_, &QProgressDialog::canceled, &processing_,
          &processing_controller::pipeline_process_cancel_);
  connect(&processing_, &processing_controller::started, this, [this](const QString& label) {
    process_dialog_->reset();
    process_dialog_->setLabelText(label);
    process_dialog_->setValue(0);
    process_dialog_->show();
  });
  connect(&processing_, &processing_controller::progress_changed, this,
          &main_window::show_processing_progress_);
  connect(&processing_, &processing_controller::cancel_requested, this,
          &main_window::show_cancel_dialog_);
  connect(&processing_, &processing_controller::finished, this, &main_window::processing_finished_);
}

QList<QDockWidget*> main_window::startup_docks() const {
  QList<QDockWidget*> docks;
  // The camera dock shows when live view starts.
  for (QDockWidget* dock : {images_dock_, components_dock_, materials_dock_, labels_dock_,
                            pca_dock_, tools_->classes_frame, plots_dock_}) {
    docks.append(dock);
  }
  return docks;
}

void main_window::restore_settings() {
  app_settings_.load(*settings_);
  if (!app_settings_.main_window_geometry.isEmpty()) {
    restoreGeometry(app_settings_.main_window_geometry);
  }
  if (!app_settings_.main_window_state.isEmpty()) {
    restoreState(app_settings_.main_window_state);
  }
  refresh_recent_menus();
}

void main_window::store_settings() {
  app_settings_.main_window_geometry = saveGeometry();
  app_settings_.main_window_state = saveState();
  app_settings_.save(*settings_);
  settings_->sync();
}

void main_window::refresh_recent_menus() {
  recent_images_menu_->clear();
  for (const QString& path : app_settings_.recent_image_filenames) {
    recent_images_menu_->addAction(path)->setData(path);
  }
  recent_images_menu_->setEnabled(!app_settings_.recent_image_filenames.isEmpty());
  recent_workspaces_menu_->clear();
  for (const QString& path : app_settings_.recent_workspace_filenames) {
    recent_workspaces_menu_->addAction(path)->setData(path);
  }
  recent_workspaces_menu_->setEnabled(!app_settings_.recent_workspace_filenames.isEmpty());
}

void main_window::closeEvent(QCloseEvent* event) {
  if (processing_.running()) {
    // The run works on an image this window owns: let it stop first.
    processing_.pipeline_process_cancel_();
    QThreadPool::globalInstance()->waitForDone();
  }
  if (!workspace_->settle_changes(processing_values_.portable_workspace, current_row())) {
    event->ignore();
    return;
  }
  camera_->shut_down();
  store_settings();
  event->accept();
}

void main_window::show_images_dock_() {
  images_dock_->show();
}
void main_window::show_image_components_dock_() {
  components_dock_->show();
}
void main_window::show_image_materials_dock_() {
  materials_dock_->show();
  materials_dock_->raise();  // in front of the docks it shares tabs with
}
void main_window::show_pca_dock_() {
  pca_dock_->show();
  pca_dock_->raise();  // in front of the docks it shares tabs with
}
void main_window::show_plots_dock_() {
  plots_dock_->show();
}

void main_window::change_image_list_flow_(Qt::DockWidgetArea area) {
  const bool horizontal = area == Qt::TopDockWidgetArea || area == Qt::BottomDockWidgetArea;
  image_list_->setFlow(horizontal ? QListView::LeftToRight : QListView::TopToBottom);
}

}  // namespace tavr
