#ifndef TAVR_APP_MAIN_WINDOW_H
#define TAVR_APP_MAIN_WINDOW_H

#include <QList>
#include <QMainWindow>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QVector>
#include <functional>
#include <memory>

#include "tavr/app/image_list_model.h"
#include "tavr/app/viewer_settings.h"
#include "tavr/image/colour_renderer.h"
#include "tavr/image/hs_image.h"
#include "tavr/image/image_loading.h"
#include "tavr/library/library_model.h"
#include "tavr/processing/processing_controller.h"
#include "tavr/processing/processing_settings.h"

class QAction;
class QActionGroup;
class QDockWidget;
class QLabel;
class QListView;
class QListWidget;
class QListWidgetItem;
class QMenu;
class QModelIndex;
class QStandardItemModel;
class QProgressDialog;
class QSettings;

namespace tavr {

class camera_controller;
class band_maths;
class band_maths_controller;
class pca_dock;
class image_view;
class log_dialog;
class label_controller;
class labels_dock;
class pixel_dialog;
class spectral_manager_dialog;
class workspace_controller;
class rendering_dialog;
class plot;
class settings_dialog;
struct legend_entry;
struct open_command;

// The viewer's one window. It builds the menus, docks and dialogs and connects
// them; opening, processing, rendering and exporting are done by the
// controllers and routines it calls.
class main_window : public QMainWindow {
  Q_OBJECT

 public:
  // Settings are read from (and written to) `settings`, or the user's settings
  // of the product when none is given.
  explicit main_window(QSettings* settings = nullptr, QWidget* parent = nullptr);
  ~main_window() override;

  // Without interaction, failures are not shown in message boxes; they are only
  // reported through `message_reported` (command-line and test runs).
  void set_interactive(bool interactive) { interactive_ = interactive; }

  const QList<std::shared_ptr<hs_image>>& images() const { return images_.images(); }
  image_list_model& image_list() { return images_; }
  std::shared_ptr<hs_image> current_image() const;
  image_view& view() { return *view_; }
  plot& plots() { return *plots_; }
  pixel_dialog& inspector() { return *pixel_dialog_; }
  processing_controller& processing() { return processing_; }
  QProgressDialog& process_dialog() { return *process_dialog_; }
  QProgressDialog& cancel_dialog() { return *cancel_dialog_; }
  const viewer_settings& app_settings() const { return app_settings_; }
  // The polygon labels, the viewer's library and the workspace.
  label_controller& labels() { return *labels_; }
  library_model& library() { return library_; }
  spectral_manager_dialog& library_manager() { return *library_dialog_; }
  workspace_controller& workspace() { return *workspace_; }
  processing_settings& processing_values() { return processing_values_; }
  // The view of the current image (colour when there is none).
  component_view current_view() const;
  // The docks that start hidden and show with the window after the splash.
  QList<QDockWidget*> startup_docks() const;

  // The band maths dialog and its runner, and the log dialog.
  band_maths& band_maths_dialog();
  band_maths_controller& band_maths_runner();
  log_dialog& logs();

  // Starts a processing run on the current image; false when none could start.
  bool process(processing_command command);
  camera_controller& camera();

 public Q_SLOTS:
  // Opens image files under the "Opening Images" progress dialog; true when
  // every file opened.
  bool open_images(const QStringList& files);
  bool open_image(const QString& file_name);
  bool open_workspace(const QString& file_name);
  // Saves the window's contents as a workspace; false (reported) on failure.
  bool save_workspace(const QString& file_name, bool portable);

  void open_image_();
  void open_reflectance_image_();
  void open_recent_image_(QAction* action);
  void close_image_();
  void close_all_images_();
  void save_current_image_();
  void save_as_hyperspectral_zip_();
  void save_image_irradiance_();
  void save_image_reflectance_();
  void export_mat_lib_();
  void export_illumination_();
  void import_illumination_();
  void quit_();

  void undo_image_();
  void redo_image_();
  void reload_image_();
  void remove_image_band_();
  void crop_image_();
  void change_normalize_band_option_(QAction* action);
  void show_image_rendering_();

  void view_color_();
  void view_irradiance_();
  void view_reflectance_();
  void view_high_();
  void view_shading_();
  void show_material_abundance_layer_();
  void view_fit_to_window_();
  void view_actual_size_();
  void view_zoom_in_();
  void view_zoom_out_();

  void process_illuminant_estimation_();
  void process_dichromatic_recovery_();
  void process_material_clustering_();
  void process_analysis_();
  void show_corvantis_settings_();
  void show_pixel_inspector_();
  void is_create_polygon_();

  void show_images_dock_();
  void show_image_components_dock_();
  void show_image_materials_dock_();
  void show_pca_dock_();
  void show_plots_dock_();
  void change_image_list_flow_(Qt::DockWidgetArea area);
  void hs_image_list_widget_item_changed_(const QModelIndex& current, const QModelIndex& previous);

  void live_camera_();
  void stop_view_camera_();
  void capture_cam_image_();
  void capture_cam_video_();
  void capture_dark_reference_();
  void capture_white_reference_();
  void clear_camera_references_();
  void use_simulated_camera_(bool simulated);
  void add_cam_to_ui_();
  void remove_cam_from_ui_();
  void cam_image_captured_();
  void change_camera_image_(int index);
  void change_camera_band_(int row);
  void change_camera_(int index);
  void check_for_cameras_();
  void show_camera_dock_();
  void show_camera_preferences_();

  void add_plot_curve_(const QPointF& point);
  void add_plot_curves_(const QRectF& rect);
  void pixel_inspect_(const QPointF& point);
  void about_();

  // Workspaces, the library manager and polygon labels: each hands over to its controller.
  void new_workspace_();
  void open_workspace_();
  void open_recent_workspace_(QAction* action);
  void close_workspace_();
  void save_workspace_();
  void save_workspace_as_();
  void show_spectral_library_manager_();
  void show_polygon_labels_dock_();
  void add_polygon_();
  void delete_polygon_();
  void delete_label_();
  void edit_polygon_label_();
  void edit_polygon_list_label_();
  void edit_label_(const QModelIndex& index);
  void select_polygon_label_(const QModelIndex& index);
  void current_polygon_label_(const QModelIndex& index);
  void select_all_polygons_();
  void deselect_all_polygons_();
  void deselect_polygon_label_in_list();
  void plot_polygon_spectra_();
  void add_polygons_to_library_();
  void export_polygon_source_data_();
  void export_polygon_reflectance_data_();
  void export_polygon_data_em_();
  void show_all_labels_();
  void show_all_polygon_labels_();
  void show_all_material_clusters_();

  // Band maths, classification, the small dialogs, vector files and help: each
  // hands over to its dialog or controller (main_window_tools.cpp).
  void show_band_maths_();
  void run_band_maths_();
  void add_band_maths_layer_();
  void save_band_maths_result_();
  void show_image_information_();
  void resize_image_();
  void align_bands_();
  void show_logs_();
  void process_classification_();
  void process_endmembers_();
  void show_class_transparency_();
  void show_class_dock_();
  void open_vector_file_();
  void export_vector_statistics_();
  void delete_vector_file_();
  void show_tutorial_();
  void show_tutorial_at_startup_(bool show);
  void show_offline_help_();
  void show_online_help_();
  void provide_feedback_();
  void check_for_updates_();
  // Enables each action when it can do something now (an image, no run going, ...).
  void update_actions_();

 Q_SIGNALS:
  void main_open_image(const QString& file_name);
  void main_open_workspace(const QString& file_name);
  // Every failure or notice the window reports (shown in a box when interactive).
  void message_reported(const QString& title, const QString& text);
  // A re-render of the current image has put a new picture in the view.
  void picture_shown();

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void build_actions();
  void build_menus();
  void build_docks();
  // Actions, menu entries and the dock of polygon labels, library and workspaces.
  void build_feature_actions();
  void build_feature_menus(QMenu* file, QMenu* tools, QMenu* docks);
  void build_feature_docks();
  // Actions, menus and docks of band maths, classification, dialogs and help.
  void build_tool_actions();
  void build_tool_menus(QMenu* image, QMenu* view, QMenu* process, QMenu* tools, QMenu* help,
                        QMenu* docks);
  void build_tool_docks();
  // The picture of a class or endmember view of an image, and the class layer over a picture.
  QImage class_picture(hs_image& image);
  QImage with_class_layer(hs_image& image, const QImage& picture);
  // Puts the viewer's library, on the image's wavelengths, into its pipeline for
  // classification or endmember recovery; false (reported under `title`) when
  // it is empty or cannot be resampled.
  bool use_library_for(hs_image& image, const QString& title);
  // The band chooser and the classes dock for the current image.
  void refresh_tool_docks();
  // The legend of the image's classification or endmembers, with its check states.
  QVector<legend_entry> legend_of(hs_image& image);
  // Opening: the full picture of an image made in the background.
  void start_full_picture(const std::shared_ptr<hs_image>& image);
  void full_picture_ready_(const std::shared_ptr<hs_image>& image, const full_picture_result& done);
  // For an image of more than 100 million elements, asks which part to open:
  // true with the opened part (null when the user declined), false to open the
  // whole image as usual.
  bool choose_large_image_part(const QString& file_name, std::shared_ptr<hs_image>& opened);
  int current_row() const;
  // False, reported, while processing runs (a workspace reads every pipeline).
  bool workspace_idle();
  void build_camera();
  void connect_view();
  void connect_processing();
  void restore_settings();
  void store_settings();

  bool open_files(const QStringList& files, const open_command& command);
  void report(const QString& title, const QString& text);
  void set_view(component_view view);
  // Renders the current image into the view with a fit mode; false on failure.
  bool render_current(const QString& fit_mode);
  void add_image(const std::shared_ptr<hs_image>& image);
  void set_current_row(int row);
  void image_changed();
  // Keeps the zoom and position of the image shown so far in its view state.
  void remember_view_state();
  // Checks the view, layer and normalisation actions of the current image.
  void sync_view_actions();
  // Runs one step of the current image's preparation history (undo, redo,
  // reload) when it is possible and no processing is running.
  void change_image_history(const QString& title,
                            const std::function<bool(const hs_image&)>& possible,
                            const std::function<void(hs_image&)>& step);
  void rebuild_image_docks();
  void refresh_result_plots();
  void refresh_recent_menus();
  void processing_finished_(std::shared_ptr<tavr::hs_image> image, const QString& message);
  void show_processing_progress_(const tavr::stage_progress& progress);
  void show_cancel_dialog_();
  void show_principal_component_(int index);
  void material_check_changed_(int row, bool checked);
  // "Material <n>" for a pixel of the current image's material map (empty when none).
  QString material_at(const QPoint& pixel) const;
  // Asks for a file name to save under, remembering its folder in `remembered`.
  QString ask_save_name(const QString& title, const QString& filter, QString& remembered);

  QSettings* settings_;
  std::unique_ptr<QSettings> own_settings_;
  viewer_settings app_settings_;
  processing_settings processing_values_;
  colour_renderer renderer_;
  processing_controller processing_;
  bool interactive_ = true;

  image_list_model images_;
  std::weak_ptr<hs_image> shown_;  // the image whose picture the view holds

  image_view* view_ = nullptr;
  plot* plots_ = nullptr;
  pixel_dialog* pixel_dialog_ = nullptr;
  settings_dialog* settings_dialog_ = nullptr;
  rendering_dialog* rendering_dialog_ = nullptr;
  QProgressDialog* process_dialog_ = nullptr;
  QProgressDialog* cancel_dialog_ = nullptr;
  QLabel* hover_label_ = nullptr;

  QDockWidget* images_dock_ = nullptr;
  QDockWidget* components_dock_ = nullptr;
  QDockWidget* materials_dock_ = nullptr;
  QDockWidget* pca_dock_ = nullptr;
  QDockWidget* plots_dock_ = nullptr;
  QListView* image_list_ = nullptr;
  QListWidget* components_list_ = nullptr;
  QStandardItemModel* materials_ = nullptr;
  pca_dock* pca_ = nullptr;

  library_model library_;
  std::unique_ptr<label_controller> labels_;
  std::unique_ptr<workspace_controller> workspace_;
  spectral_manager_dialog* library_dialog_ = nullptr;
  labels_dock* labels_dock_content_ = nullptr;
  QDockWidget* labels_dock_ = nullptr;

  QMenu* recent_images_menu_ = nullptr;
  QMenu* recent_workspaces_menu_ = nullptr;
  QActionGroup* normalize_group_ = nullptr;
  struct actions;
  std::unique_ptr<actions> actions_;

  QDockWidget* camera_dock_ = nullptr;
  std::unique_ptr<camera_controller> camera_;
  struct tools;
  std::unique_ptr<tools> tools_;
};

}  // namespace tavr

#endif
