#ifndef TAVR_APP_MAIN_WINDOW_H
#define TAVR_APP_MAIN_WINDOW_H

#include <QList>
#include <QMainWindow>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <functional>
#include <memory>

#include "tavr/app/viewer_settings.h"
#include "tavr/image/colour_renderer.h"
#include "tavr/image/hs_image.h"
#include "tavr/processing/processing_controller.h"
#include "tavr/processing/processing_settings.h"

class QAction;
class QActionGroup;
class QDockWidget;
class QLabel;
class QListWidget;
class QListWidgetItem;
class QMenu;
class QProgressDialog;
class QSettings;

namespace tavr {

class camera_controller;
class image_view;
class pixel_dialog;
class rendering_dialog;
class plot;
class settings_dialog;
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

  const QList<std::shared_ptr<hs_image>>& images() const { return images_; }
  std::shared_ptr<hs_image> current_image() const;
  image_view& view() { return *view_; }
  plot& plots() { return *plots_; }
  pixel_dialog& inspector() { return *pixel_dialog_; }
  processing_controller& processing() { return processing_; }
  QProgressDialog& process_dialog() { return *process_dialog_; }
  QProgressDialog& cancel_dialog() { return *cancel_dialog_; }
  const viewer_settings& app_settings() const { return app_settings_; }
  processing_settings& processing_values() { return processing_values_; }
  component_view current_view() const { return view_kind_; }
  // The docks that start hidden and show with the window after the splash.
  QList<QDockWidget*> startup_docks() const;

  // Starts a processing run on the current image; false when none could start.
  bool process(processing_command command);
  camera_controller& camera();

 public Q_SLOTS:
  // Opens image files under the "Opening Images" progress dialog; true when
  // every file opened.
  bool open_images(const QStringList& files);
  bool open_image(const QString& file_name);
  void open_workspace(const QString& file_name);

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
  void hs_image_list_widget_item_changed_(QListWidgetItem* current, QListWidgetItem* previous);

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
  void image_changed();
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
  void show_principal_component_(QListWidgetItem* item);
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

  QList<std::shared_ptr<hs_image>> images_;
  component_view view_kind_ = component_view::colour;
  band_normalisation normalisation_ = band_normalisation::by_cube;
  bool abundance_layer_ = false;

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
  QListWidget* image_list_ = nullptr;
  QListWidget* components_list_ = nullptr;
  QListWidget* materials_list_ = nullptr;
  QListWidget* pca_list_ = nullptr;

  QMenu* recent_images_menu_ = nullptr;
  QActionGroup* normalize_group_ = nullptr;
  struct actions;
  std::unique_ptr<actions> actions_;

  QDockWidget* camera_dock_ = nullptr;
  std::unique_ptr<camera_controller> camera_;
};

}  // namespace tavr

#endif
