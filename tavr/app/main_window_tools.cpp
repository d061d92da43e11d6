// The main window's part of band maths, classification, the small dialogs,
// vector files, help and the loading of large images: actions, menu entries,
// the classes dock and the band chooser, and slots that hand over to the
// dialogs and controllers.
#include "tavr/app/main_window_tools.h"

#include <QApplication>
#include <QCheckBox>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QProcess>
#include <QProgressDialog>
#include <QPushButton>
#include <QSettings>
#include <QStatusBar>
#include <QToolBar>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>
#include <exception>

#include "corv/io/open_input.h"
#include "corv/io/quiet_log.h"
#include "corv/io/spectral_library.h"
#include "corv/io/vector_file.h"
#include "tavr/app/band_chooser.h"
#include "tavr/app/classes_dock.h"
#include "tavr/app/main_window_actions.h"
#include "tavr/dialogs/band_maths.h"
#include "tavr/dialogs/help_dialog.h"
#include "tavr/dialogs/image_info_dialog.h"
#include "tavr/dialogs/load_image_dialog.h"
#include "tavr/dialogs/log_dialog.h"
#include "tavr/dialogs/resize_image_dialog.h"
#include "tavr/dialogs/stats_dialog.h"
#include "tavr/dialogs/tutorial_dialog.h"
#include "tavr/image/class_views.h"
#include "tavr/image/component_probe.h"
#include "tavr/image/image_information.h"
#include "tavr/image/image_subset.h"
#include "tavr/image/value_picture.h"
#include "tavr/processing/statistics_export.h"
#include "tavr/view/image_view.h"

namespace tavr {

namespace {

QAction* with_icon(QAction* action, const char* name) {
  action->setIcon(QIcon(QStringLiteral(":/tavrel/icons/%1.png").arg(QLatin1String(name))));
  return action;
}

// The points and polygons of all of an image's vector files together.
corv::vector_features all_features(hs_image& image) {
  corv::vector_features all;
  for (const corv::vector_features& file : image.vector_files()) {
    all.points.insert(all.points.end(), file.points.begin(), file.points.end());
    all.polygons.insert(all.polygons.end(), file.polygons.begin(), file.polygons.end());
  }
  return all;
}

// A legend's colours as rows of red, green and blue, for the abundance overlay.
corv::matrix colours_of(const QVector<legend_entry>& legend) {
  corv::matrix colours(static_cast<arma::uword>(legend.size()), 3);
  for (int i = 0; i < legend.size(); ++i) {
    const auto row = static_cast<arma::uword>(i);
    colours(row, 0) = static_cast<float>(legend[i].colour.red());
    colours(row, 1) = static_cast<float>(legend[i].colour.green());
    colours(row, 2) = static_cast<float>(legend[i].colour.blue());
  }
  return colours;
}

}  // namespace

band_maths& main_window::band_maths_dialog() {
  return *tools_->band_maths_dialog;
}
band_maths_controller& main_window::band_maths_runner() {
  return tools_->band_maths_runner;
}
log_dialog& main_window::logs() {
  return *tools_->logs;
}

void main_window::build_tool_actions() {
  tools_ = std::make_unique<tools>();
  tools& t = *tools_;
  t.resize =
      with_icon(make_action(this, "Resize...", "Alt+R", &main_window::resize_image_), "resize");
  t.align =
      with_icon(make_action(this, "Align Bands", "Alt+A", &main_window::align_bands_), "align");
  t.align->setToolTip("Align the bands in the source image");
  t.information = with_icon(
      make_action(this, "Image Information...", "", &main_window::show_image_information_),
      "information");
  t.band_maths_action = with_icon(
      make_action(this, "Band Maths...", "", &main_window::show_band_maths_), "band_maths");
  t.logs_action = with_icon(make_action(this, "Logs...", "", &main_window::show_logs_), "logs");
  t.logs_action->setToolTip("Show logs");
  t.classification =
      with_icon(make_action(this, "Run Classification", "", &main_window::process_classification_),
                "classification");
  t.endmembers = with_icon(
      make_action(this, "Recover Endmembers", "", &main_window::process_endmembers_), "library");
  t.class_layer = with_icon(make_action(this, "Show Class Transparency Layer", "",
                                        &main_window::show_class_transparency_),
                            "class_layer");
  t.class_layer->setCheckable(true);
  t.open_vector = make_action(this, "Open Vector File", "", &main_window::open_vector_file_);
  t.export_statistics = with_icon(
      make_action(this, "Export Vector Statistics...", "", &main_window::export_vector_statistics_),
      "statistics");
  t.delete_vector = make_action(this, "Delete Vector File", "", &main_window::delete_vector_file_);
  t.tutorial_action = make_action(this, "Tutorial", "", &main_window::show_tutorial_);
  t.help_offline = with_icon(
      make_action(this, "Tavrel Help (Offline)", "F1", &main_window::show_offline_help_), "help");
  t.help_online =
      make_action(this, "Tavrel Help (Online)", "Alt+F1", &main_window::show_online_help_);
  t.feedback = make_action(this, "Provide Feedback (Online)", "", &main_window::provide_feedback_);
  t.updates = make_action(this, "Check For Updates", "", &main_window::check_for_updates_);

  // The pictures of the actions built before.
  actions& a = *actions_;
  const std::pair<QAction*, const char*> pictures[] = {
      {a.open_image, "open"},
      {a.save_hsz, "save"},
      {a.undo, "undo"},
      {a.redo, "redo"},
      {a.crop, "crop"},
      {a.color, "color"},
      {a.irradiance, "irradiance"},
      {a.reflectance, "reflectance"},
      {a.specularity, "highlights"},
      {a.shading, "shading"},
      {a.fit, "fit"},
      {a.actual, "actual_size"},
      {a.zoom_in, "zoom_in"},
      {a.zoom_out, "zoom_out"},
      {a.recover_illuminant, "illuminant"},
      {a.recover_reflectance, "reflectance"},
      {a.discover_materials, "materials"},
      {a.analysis, "analysis"},
      {a.settings, "settings"},
      {a.pixel_inspector, "pixel_values"},
      {a.polygon_tool, "polygon"},
      {a.library_manager, "library"},
      {a.about, "tavrel"},
  };
  for (const auto& [action, name] : pictures) {
    if (action != nullptr) {
      with_icon(action, name);
    }
  }
}

void main_window::build_tool_menus(QMenu* image, QMenu* view, QMenu* process, QMenu* tools_menu,
                                   QMenu* help, QMenu* docks) {
  tools& t = *tools_;
  actions& a = *actions_;
  image->insertActions(a.crop, {t.resize, t.align});
  image->addSeparator();
  image->addAction(t.information);
  view->insertAction(a.fit, t.class_layer);
  view->insertSeparator(a.fit);
  process->insertActions(a.analysis, {t.classification, t.endmembers});
  tools_menu->addSeparator();
  tools_menu->addActions({t.band_maths_action, t.logs_action});

  auto* spatial = new QMenu("Spatial", this);
  QMenu* vectors = spatial->addMenu("Vector Files");
  vectors->addActions({t.open_vector, t.export_statistics, t.delete_vector});
  menuBar()->insertMenu(help->menuAction(), spatial);

  help->insertActions(a.about,
                      {t.tutorial_action, t.help_offline, t.help_online, t.feedback, t.updates});
  help->insertSeparator(a.about);
  docks->addAction("Classes", this, &main_window::show_class_dock_);

  auto* bar = findChild<QToolBar*>("toolBar");
  bar->setToolButtonStyle(Qt::ToolButtonIconOnly);
  bar->setIconSize(QSize(24, 24));
  bar->insertActions(a.fit, {a.save_hsz, a.undo, a.redo, a.crop});
  bar->insertSeparator(a.fit);
  bar->insertAction(a.reflectance, a.irradiance);
  bar->addSeparator();
  bar->addActions({a.recover_illuminant, a.recover_reflectance, a.discover_materials,
                   t.classification, t.band_maths_action});
}

void main_window::build_tool_docks() {
  tools& t = *tools_;
  t.logs = new log_dialog(this);
  t.band_maths_dialog = new band_maths(this);
  connect(t.band_maths_dialog->run_button(), &QPushButton::clicked, this,
          &main_window::run_band_maths_);
  connect(t.band_maths_dialog->export_button(), &QPushButton::clicked, this,
          &main_window::add_band_maths_layer_);
  connect(t.band_maths_dialog->save_button(), &QPushButton::clicked, this,
          &main_window::save_band_maths_result_);
  connect(t.band_maths_dialog->colour_box(), &QCheckBox::toggled, this, [this] {
    if (tools_->band_maths_runner.has_result()) {
      view_->show_picture(tools_->band_maths_runner.picture(
                              tools_->band_maths_dialog->colour_result() ? value_colours::colour_map
                                                                         : value_colours::grey),
                          no_fit);
    }
  });

  t.classes = new classes_dock(this);
  t.classes_frame = new QDockWidget("Classes", this);
  t.classes_frame->setObjectName("Class_Dock");
  t.classes_frame->setWidget(t.classes);
  addDockWidget(Qt::LeftDockWidgetArea, t.classes_frame);
  tabifyDockWidget(pca_dock_, t.classes_frame);
  materials_dock_->raise();
  t.classes->set_method(processing_.classification_method());
  connect(t.classes, &classes_dock::method_changed, &processing_,
          &processing_controller::set_classification_method);
  connect(t.classes, &classes_dock::legend_changed, this, [this] {
    const auto image = current_image();
    if (image == nullptr) {
      return;
    }
    image_view_state& state = image->view_state();
    state.class_states.clear();
    state.class_labels.clear();
    for (const legend_entry& entry : tools_->classes->legend()) {
      state.class_states.append(entry.checked);
      state.class_labels.append(entry.label);
    }
    render_current(no_fit);
  });
  connect(t.classes, &classes_dock::class_activated, this, [this](int class_number) {
    const auto image = current_image();
    if (image != nullptr && !image->classification().values.empty()) {
      image->view_state().class_scores = class_number;
      render_current(no_fit);
    }
  });

  // The components dock: the list and, under it, the band of the single-band views.
  auto* components = new QWidget(this);
  auto* components_layout = new QVBoxLayout(components);
  components_layout->setContentsMargins(0, 0, 0, 0);
  components_layout->addWidget(components_list_, 1);
  t.bands = new band_chooser(components);
  components_layout->addWidget(t.bands);
  components_dock_->setWidget(components);
  connect(t.bands, &band_chooser::band_changed, this, [this](int band) {
    const auto image = current_image();
    if (image == nullptr) {
      return;
    }
    image_view_state& state = image->view_state();
    state.band = band;
    if (state.component == component_view::irradiance ||
        state.component == component_view::reflectance) {
      render_current(no_fit);
    }
  });

  connect(&processing_, &processing_controller::started, this, &main_window::update_actions_);
  connect(&processing_, &processing_controller::finished, this, &main_window::update_actions_,
          Qt::QueuedConnection);
  connect(view_, &image_view::main_open_images, this, &main_window::open_images);
}

// Band maths

void main_window::show_band_maths_() {
  QStringList names;
  for (const auto& image : images()) {
    names << QFileInfo(image->file_name()).fileName();
  }
  tools_->band_maths_dialog->set_images(names);
  tools_->band_maths_dialog->show();
  tools_->band_maths_dialog->raise();
}

void main_window::run_band_maths_() {
  if (processing_.running()) {
    report("Band Maths", "An image is being processed; run the formula when it is done.");
    return;
  }
  band_maths& dialog = *tools_->band_maths_dialog;
  const QString message =
      tools_->band_maths_runner.run(images(), dialog.formula(), dialog.reflectance());
  if (!message.isEmpty()) {
    report("Band Maths", message);
    return;
  }
  view_->show_picture(tools_->band_maths_runner.picture(
                          dialog.colour_result() ? value_colours::colour_map : value_colours::grey),
                      fit_image_to_window);
  statusBar()->showMessage("Band maths result: " + dialog.formula());
  update_actions_();
}

void main_window::add_band_maths_layer_() {
  const std::shared_ptr<hs_image> layer = tools_->band_maths_runner.make_layer();
  if (layer == nullptr) {
    report("Band Maths", "There is no result to export: run a formula first.");
    return;
  }
  add_image(layer);
  show_band_maths_();
}

void main_window::save_band_maths_result_() {
  if (!tools_->band_maths_runner.has_result()) {
    report("Band Maths", "There is no result to save: run a formula first.");
    return;
  }
  const QString name =
      ask_save_name("Tavrel - Save Band Maths Result", "FLA - Raw Image Cube (*.fla)",
                    app_settings_.export_image_filename);
  if (name.isEmpty()) {
    return;
  }
  try {
    tools_->band_maths_runner.save(name);
  } catch (const std::exception& error) {
    report("Band Maths",
           "Could not save the result.<br/><br/>Reason: " + QString::fromStdString(error.what()));
  }
}

// The small dialogs

void main_window::show_image_information_() {
  const auto image = current_image();
  if (image == nullptr) {
    return;
  }
  image_info_dialog dialog(this);
  dialog.set_information(information_of(*image));
  dialog.exec();
}

void main_window::resize_image_() {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return;
  }
  resize_image_dialog dialog(this);
  dialog.set_image_size(static_cast<int>(image->pipeline().width()),
                        static_cast<int>(image->pipeline().height()));
  if (dialog.exec() != QDialog::Accepted) {
    return;
  }
  const double width = dialog.width_percent();
  const double height = dialog.height_percent();
  change_image_history(
      "Resize Image", [](const hs_image&) { return true; },
      [width, height](hs_image& target) { target.resize(width, height); });
}

void main_window::align_bands_() {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return;
  }
  QApplication::setOverrideCursor(Qt::WaitCursor);
  const int reference = static_cast<int>(image->pipeline().bands() / 2);
  change_image_history(
      "Align Bands", [](const hs_image&) { return true; },
      [reference](hs_image& target) { target.align_bands(reference); });
  QApplication::restoreOverrideCursor();
}

void main_window::show_logs_() {
  tools_->logs->show();
  tools_->logs->raise();
}

// Classification

bool main_window::use_library_for(hs_image& image, const QString& title) {
  corv::spectral_library chosen;
  try {
    chosen = library_.library_on(image.pipeline().wavelengths());
  } catch (const std::exception& error) {
    report(title, QString::fromStdString(error.what()));
    return false;
  }
  const QString problem = processing_controller::library_problem(&chosen);
  if (!problem.isEmpty()) {
    report(title, problem);
    return false;
  }
  image.pipeline().set_library(std::make_shared<corv::spectral_library>(std::move(chosen)));
  return true;
}

void main_window::process_classification_() {
  const auto image = current_image();
  if (image == nullptr || processing_.running() ||
      !use_library_for(*image, "Tavrel Classification")) {
    return;
  }
  image->view_state().class_states.clear();
  image->view_state().class_labels.clear();
  processing_.set_classification_method(tools_->classes->method());
  process(processing_command::classification);
}

void main_window::process_endmembers_() {
  const auto image = current_image();
  if (image == nullptr || processing_.running() || !use_library_for(*image, "Recover Endmembers")) {
    return;
  }
  process(processing_command::endmembers);
}

QVector<legend_entry> main_window::legend_of(hs_image& image) {
  const std::shared_ptr<corv::spectral_library> library = image.pipeline().library();
  QVector<legend_entry> legend;
  if (!image.classification().class_labels.isEmpty()) {
    legend = class_legend(image.classification(), library.get());
  } else if (library != nullptr &&
             component_or_null(image.pipeline(), &corv::pipeline::endmember_abundances)) {
    legend = endmember_legend(*library);
  }
  // The check states the user left, while the legend is the same.
  const image_view_state& state = image.view_state();
  bool same = state.class_labels.size() == legend.size();
  for (int i = 0; same && i < legend.size(); ++i) {
    same = state.class_labels[i] == legend[i].label;
  }
  for (int i = 0; same && i < legend.size(); ++i) {
    legend[i].checked = state.class_states.value(i, true);
  }
  return legend;
}

QImage main_window::class_picture(hs_image& image) {
  const image_view_state& state = image.view_state();
  const QVector<legend_entry> legend = legend_of(image);
  if (state.class_scores > 0) {
    const corv::matrix scores = class_scores(image.classification(), state.class_scores);
    if (scores.empty()) {
      throw std::runtime_error("This classification has no class scores.");
    }
    statusBar()->showMessage(
        QString("%1 of class %2 (%3): dark blue low, yellow high")
            .arg(image.classification().method == classify_sam ? "Angle" : "Fraction")
            .arg(state.class_scores)
            .arg(legend.value(state.class_scores - 1).label));
    return value_picture(scores, value_colours::colour_map);
  }
  if (state.component == component_view::class_map) {
    if (image.classification().class_map.empty()) {
      throw std::runtime_error(
          "The image has no classification: run Process > Run Classification.");
    }
    return class_map_picture(image.classification().class_map, legend);
  }
  corv::pipeline& p = image.pipeline();
  colour_renderer colour(image.rendering());
  return colour_renderer::overlay_abundances(colour.render_colour(p), p.endmember_abundances(),
                                             p.endmember_abundance_indexes(),
                                             checked_entries(legend), colours_of(legend));
}

void main_window::refresh_tool_docks() {
  const auto image = current_image();
  if (image == nullptr) {
    tools_->bands->set_wavelengths(corv::vector(), -1);
    tools_->classes->set_legend({});
    return;
  }
  const corv::vector* wavelengths =
      component_or_null(image->pipeline(), &corv::pipeline::wavelengths);
  tools_->bands->set_wavelengths(wavelengths ? *wavelengths : corv::vector(),
                                 image->view_state().band);
  tools_->classes->set_legend(legend_of(*image));
}

QImage main_window::with_class_layer(hs_image& image, const QImage& picture) {
  if (!image.view_state().class_layer || image.classification().class_map.empty()) {
    return picture;
  }
  return class_overlay(picture, image.classification().class_map, legend_of(image));
}

void main_window::show_class_transparency_() {
  const auto image = current_image();
  if (image == nullptr) {
    tools_->class_layer->setChecked(false);
    return;
  }
  image->view_state().class_layer = tools_->class_layer->isChecked();
  render_current(no_fit);
}

void main_window::show_class_dock_() {
  tools_->classes_frame->show();
  tools_->classes_frame->raise();
}

// Vector files

void main_window::open_vector_file_() {
  const auto image = current_image();
  if (image == nullptr || (processing_.running() && processing_.image() == image)) {
    return;
  }
  const QString name = QFileDialog::getOpenFileName(
      this, "Import Vector File", app_settings_.vector_file_filename,
      "Vector Files (*.shp);;All vector files (*.shp *.geojson *.json *.gpkg *.kml *.gml)");
  if (name.isEmpty()) {
    return;
  }
  app_settings_.vector_file_filename = name;
  try {
    corv::pipeline& p = image->pipeline();
    const auto transform =
        p.source() != nullptr ? corv::geotransform_of(*p.source()) : std::nullopt;
    image->vector_files().push_back(corv::read_vector_file(name.toStdString(), transform));
  } catch (const std::exception& error) {
    report("Import Vector File", "Could not open vector file " + name +
                                     ".<br/><br/>Reason: " + QString::fromStdString(error.what()));
    return;
  }
  view_->show_vector_files(image->vector_files());
  update_actions_();
}

void main_window::delete_vector_file_() {
  const auto image = current_image();
  if (image == nullptr || image->vector_files().empty()) {
    return;
  }
  std::vector<corv::vector_features>& files = image->vector_files();
  int chosen = 0;
  if (files.size() > 1) {
    QStringList names;
    for (const corv::vector_features& file : files) {
      names << QString::fromStdString(file.file_name);
    }
    bool ok = false;
    const QString name = QInputDialog::getItem(this, "Delete Vector File", "Vector file:", names,
                                               names.size() - 1, false, &ok);
    if (!ok) {
      return;
    }
    chosen = static_cast<int>(names.indexOf(name));
  }
  files.erase(files.begin() + chosen);
  view_->show_vector_files(files);
  update_actions_();
}

void main_window::export_vector_statistics_() {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return;
  }
  if (image->vector_files().empty()) {
    report("Export Spatial Statistics",
           "Open a vector file first (Spatial > Vector Files > Open Vector File).");
    return;
  }
  const corv::vector_features features = all_features(*image);
  stats_dialog dialog(this);
  dialog.set_features(features.points.size(), features.polygons.size());
  dialog.set_folder(app_settings_.spatial_stats_dir.isEmpty() ? QDir::homePath()
                                                              : app_settings_.spatial_stats_dir);
  if (dialog.exec() != QDialog::Accepted) {
    return;
  }
  const corv::spatial_statistics_request request = dialog.request();
  app_settings_.spatial_stats_dir = QString::fromStdString(request.folder);
  QProgressDialog progress("Exporting Vector Points Data", "Cancel Export", 0, 100, this);
  progress.setWindowTitle("Tavrel");
  progress.setWindowModality(Qt::WindowModal);
  progress.setMinimumDuration(interactive_ ? 500 : 1000000);
  const statistics_export_result written =
      export_statistics(*image, features, request, dialog.reflectance(),
                        [&progress](std::size_t done, std::size_t total) {
                          progress.setMaximum(static_cast<int>(total));
                          progress.setValue(static_cast<int>(done));
                          return !progress.wasCanceled();
                        });
  progress.setValue(progress.maximum());
  if (!written.message.isEmpty()) {
    report("Export Spatial Statistics", written.message);
  } else if (!written.cancelled) {
    statusBar()->showMessage(QString("%1 statistics files written to %2")
                                 .arg(written.files.size())
                                 .arg(request.folder.c_str()),
                             10000);
  }
}

// Opening large images

bool main_window::choose_large_image_part(const QString& file_name,
                                          std::shared_ptr<hs_image>& opened) {
  if (!interactive_) {
    return false;
  }
  std::shared_ptr<corv::input> header;
  try {
    header = corv::open_input(file_name.toStdString(), false);
  } catch (const std::exception&) {
    return false;  // opening it as usual reports why
  }
  if (!is_large_image(header->height(), header->width(), header->bands())) {
    return false;
  }
  load_image_dialog dialog(this);
  dialog.set_image(header->height(), header->width(), header->wavelengths());
  if (dialog.exec() != QDialog::Accepted) {
    opened = nullptr;
    return true;
  }
  const image_subset chosen = dialog.subset();
  const image_subset whole = whole_image(header->height(), header->width(), header->bands());
  if (chosen.bands == whole.bands && chosen.row_count() == whole.row_count() &&
      chosen.column_count() == whole.column_count()) {
    return false;  // the whole image, shown from its file
  }
  opened = open_subset(file_name, chosen);
  return true;
}

void main_window::start_full_picture(const std::shared_ptr<hs_image>& image) {
  for (const tools::loading& running : tools_->loads) {
    if (running.image.lock() == image) {
      return;  // its picture is on its way
    }
  }
  const QString file_name = image->file_name();
  const rendering_options options = image->rendering();
  auto* watcher = new QFutureWatcher<full_picture_result>(this);
  const auto stop = std::make_shared<std::atomic<bool>>(false);
  tools_->loads.append({image, watcher, stop});
  const std::weak_ptr<hs_image> target = image;
  connect(watcher, &QFutureWatcherBase::finished, this, [this, target, watcher] {
    for (int i = 0; i < tools_->loads.size(); ++i) {
      if (tools_->loads[i].watcher == watcher) {
        tools_->loads.removeAt(i);
        break;
      }
    }
    watcher->deleteLater();
    if (const auto image = target.lock()) {
      full_picture_ready_(image, watcher->result());
    }
  });
  // A reader of its own: the image's input stays with the window's thread.
  watcher->setFuture(QtConcurrent::run([file_name, options, stop] {
    try {
      // The image's own reader has logged the file's opening already.
      const auto source = [&file_name] {
        const corv::quiet_log quiet;
        return corv::open_input(file_name.toStdString(), false);
      }();
      return full_picture(*source, options, false, [stop](unsigned, unsigned) { return !*stop; });
    } catch (const std::exception& error) {
      full_picture_result failed;
      failed.message = QString::fromStdString(error.what());
      return failed;
    }
  }));
}

void main_window::full_picture_ready_(const std::shared_ptr<hs_image>& image,
                                      const full_picture_result& done) {
  if (!done.message.isEmpty()) {
    report("Tavrel", "Could not show the image " + QFileInfo(image->file_name()).fileName() +
                         ".<br/><br/>Reason: " + done.message);
    return;
  }
  if (done.cancelled || done.picture.isNull()) {
    return;
  }
  image->set_streamed({done.picture, done.options, done.maximum});
  const image_view_state& state = image->view_state();
  if (processing_.running() && processing_.image() == image) {
    return;  // its pipeline is the run's until it ends
  }
  if (image == current_image() && image->shown_from_file() && state.pc < 0 &&
      state.class_scores < 0 &&
      (state.component == component_view::colour ||
       state.component == component_view::irradiance)) {
    render_current(no_fit);
  }
}

// Help

void main_window::show_tutorial_() {
  if (tools_->tutorial == nullptr) {
    tools_->tutorial = new tutorial_dialog(this);
    connect(tools_->tutorial, &tutorial_dialog::show_at_startup_changed, this,
            &main_window::show_tutorial_at_startup_);
  }
  tools_->tutorial->set_show_at_startup(app_settings_.show_tutorial_at_startup);
  tools_->tutorial->show_page(0);
  tools_->tutorial->show();
  tools_->tutorial->raise();
}

void main_window::show_tutorial_at_startup_(bool show) {
  app_settings_.show_tutorial_at_startup = show;
}

void main_window::show_offline_help_() {
  if (tools_->help == nullptr) {
    tools_->help = new help_dialog(this);
  }
  tools_->help->show();
  tools_->help->raise();
}

void main_window::show_online_help_() {
  const QString address = settings_->value("help_url").toString();
  if (address.isEmpty() || !QDesktopServices::openUrl(QUrl(address))) {
    report("Tavrel Help (Online)",
           "There is no online help address for this installation (setting help_url). The user "
           "guide is under Help > Tavrel Help (Offline) (F1).");
  }
}

void main_window::provide_feedback_() {
  const QString address = settings_->value("feedback_url").toString();
  if (address.isEmpty() || !QDesktopServices::openUrl(QUrl(address))) {
    report("Provide Feedback (Online)",
           "There is no feedback address for this installation (setting feedback_url).");
  }
}

void main_window::check_for_updates_() {
  const QString updater = QDir(QCoreApplication::applicationDirPath()).filePath("updater.exe");
  if (!QFileInfo(updater).isExecutable() || !QProcess::startDetached(updater, {"/checknow"})) {
    report("Check For Updates",
           "No updater is installed with Tavrel: updates come with the system's packages.");
  }
}

// The enabled state of the actions

void main_window::update_actions_() {
  const auto image = current_image();
  const bool has = image != nullptr;
  const bool running = processing_.running();
  const bool busy = has && running && processing_.image() == image;
  const bool idle = has && !running;
  actions& a = *actions_;
  tools& t = *tools_;
  for (QAction* action :
       {a.close_image, a.close_all, a.save_view, a.by_cube, a.by_band, a.rendering, a.color,
        a.irradiance, a.reflectance, a.specularity, a.shading, a.fit, a.actual, a.zoom_in,
        a.zoom_out, a.pixel_inspector, t.information}) {
    action->setEnabled(has);
  }
  t.open_vector->setEnabled(has && !busy);
  for (QAction* action : {a.save_hsz, a.export_irradiance, a.export_reflectance, a.export_materials,
                          a.export_illumination, a.import_illumination, a.reload, a.remove_bands,
                          a.crop, a.recover_illuminant, a.recover_reflectance, a.discover_materials,
                          a.analysis, t.resize, t.align, t.classification, t.endmembers}) {
    action->setEnabled(idle);
  }
  a.close_image->setEnabled(has && !busy);
  a.undo->setEnabled(idle && image->can_undo());
  a.redo->setEnabled(idle && image->can_redo());
  a.abundance_layer->setEnabled(
      has && component_or_null(image->pipeline(), &corv::pipeline::material_elements) != nullptr);
  t.class_layer->setEnabled(has && !image->classification().class_map.empty());
  t.class_layer->setChecked(has && image->view_state().class_layer);
  t.band_maths_action->setEnabled(!images().isEmpty());
  t.export_statistics->setEnabled(idle && !image->vector_files().empty());
  t.delete_vector->setEnabled(has && !image->vector_files().empty());
}

}  // namespace tavr
