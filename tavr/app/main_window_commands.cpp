// The main window's command slots: each gathers what the user chose and hands
// the work to a controller, the renderer or an export routine.
#include <QAction>
#include <QApplication>
#include <QDockWidget>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QListView>
#include <QListWidget>
#include <QMessageBox>
#include <QProgressDialog>
#include <QRegularExpression>
#include <QStandardItemModel>
#include <QThreadPool>
#include <cmath>
#include <exception>
#include <optional>

#include "corv/io/logger.h"
#include "corv/io/quiet_log.h"
#include "corv/io/spectral_library.h"
#include "tavr/app/main_window.h"
#include "tavr/app/main_window_actions.h"
#include "tavr/app/pca_dock.h"
#include "tavr/app/recent_files.h"
#include "tavr/dialogs/rendering_dialog.h"
#include "tavr/dialogs/settings_dialog.h"
#include "tavr/image/component_probe.h"
#include "tavr/image/image_exporter.h"
#include "tavr/image/open_image_controller.h"
#include "tavr/image/value_picture.h"
#include "tavr/labels/label_controller.h"
#include "tavr/labels/labels_dock.h"
#include "tavr/plots/pixel_dialog.h"
#include "tavr/plots/pixel_values.h"
#include "tavr/plots/plot.h"
#include "tavr/view/image_view.h"
#include "tavr/workspace/workspace_controller.h"

namespace tavr {

namespace {

// Spectra plotted for a selection rectangle at most.
constexpr int max_rectangle_spectra = 64;

QString text_of(const std::exception& error) {
  return QString::fromStdString(error.what());
}

// Band numbers typed as "3, 5-7": 0-based indexes; false when the text is not such a list.
bool parse_bands(const QString& text, corv::band_list& bands) {
  for (const QString& part : text.split(',', Qt::SkipEmptyParts)) {
    const QStringList range = part.trimmed().split('-');
    bool ok_first = false;
    bool ok_last = true;
    const int first = range.value(0).trimmed().toInt(&ok_first);
    const int last = range.size() == 2 ? range[1].trimmed().toInt(&ok_last) : first;
    if (!ok_first || !ok_last || range.size() > 2 || first < 0 || last < first) {
      return false;
    }
    for (int b = first; b <= last; ++b) {
      bands.push_back(static_cast<corv::band_list::value_type>(b));
    }
  }
  return !bands.empty();
}

// A pixel's irradiance spectrum: from the cube in memory, or read from the file
// alone for an image shown from its file (empty when there is none).
QVector<double> irradiance_at(hs_image& image, const QPoint& pixel) {
  if (image.shown_from_file()) {
    try {
      return to_qvector(image.irradiance_spectrum(pixel.x(), pixel.y()));
    } catch (const std::exception&) {
      return QVector<double>();
    }
  }
  const corv::cube* irradiance = component_or_null(image.pipeline(), &corv::pipeline::I);
  return irradiance ? spectrum_at(*irradiance, pixel) : QVector<double>();
}

}  // namespace

std::shared_ptr<hs_image> main_window::current_image() const {
  return images_.at(image_list_->currentIndex().row());
}

component_view main_window::current_view() const {
  const auto image = current_image();
  return image == nullptr ? component_view::colour : image->view_state().component;
}

void main_window::report(const QString& title, const QString& text) {
  Q_EMIT message_reported(title, text);
  if (interactive_) {
    QMessageBox::warning(this, title, text);
  }
}

// Opening

bool main_window::open_images(const QStringList& files) {
  return open_files(files, open_image_command());
}

bool main_window::open_image(const QString& file_name) {
  return open_images({file_name});
}

bool main_window::open_files(const QStringList& files, const open_command& command) {
  if (files.isEmpty()) {
    return false;
  }
  QProgressDialog progress(command.progress_text, "Cancel", 0, files.size(), this);
  progress.setWindowTitle("Tavrel");
  progress.setWindowModality(Qt::WindowModal);
  progress.setMinimumWidth(400);
  progress.setMinimumDuration(interactive_ ? 0 : 1000000);
  // Opening reads the header only: the picture follows when the image is shown,
  // its first version from three bands and the full one in the background.
  open_image_controller opener([this](const QString& path, hs_image::open_mode mode) {
    std::shared_ptr<hs_image> image;
    if (mode == hs_image::open_mode::irradiance && choose_large_image_part(path, image)) {
      return image;  // a subset, or null when the user declined
    }
    return std::make_shared<hs_image>(path, mode);
  });
  const open_image_controller::result opened =
      opener.open(files, command.mode, app_settings_.recent_image_filenames, [&progress](int i) {
        progress.setValue(i);
        return !progress.wasCanceled();
      });
  progress.setValue(files.size());
  if (!files.isEmpty()) {
    app_settings_.import_image_filename = QFileInfo(files.back()).absolutePath();
  }
  for (const auto& image : opened.images) {
    add_image(image);
  }
  refresh_recent_menus();
  for (const QString& error : opened.errors) {
    report("Open File", error);
  }
  if (opened.cancelled) {
    report("Open File", open_image_controller::cancelled_message);
  }
  return opened.errors.isEmpty() && !opened.cancelled;
}

void main_window::open_image_() {
  const open_command command = open_image_command();
  const QStringList files = QFileDialog::getOpenFileNames(
      this, command.dialog_title, app_settings_.import_image_filename, command.filter);
  open_files(files, command);
}

void main_window::open_reflectance_image_() {
  const open_command command = open_reflectance_command();
  const QStringList files = QFileDialog::getOpenFileNames(
      this, command.dialog_title, app_settings_.import_image_filename, command.filter);
  open_files(files, command);
}

void main_window::open_recent_image_(QAction* action) {
  open_image(action->data().toString());
}

void main_window::add_image(const std::shared_ptr<hs_image>& image) {
  workspace_->watch(*image);
  connect(&image->labels(), &label_model::refused, this,
          [this](const QString& text) { report("Tavrel", text); });
  connect(&image->labels(), &label_model::dataChanged, this,
          [this](const QModelIndex& index) { edit_label_(index); });
  images_.append(image);
  set_current_row(images_.size() - 1);  // renders it through image_changed
}

void main_window::set_current_row(int row) {
  image_list_->setCurrentIndex(images_.index(row));
}

void main_window::hs_image_list_widget_item_changed_(const QModelIndex& current,
                                                     const QModelIndex& previous) {
  Q_UNUSED(previous);
  if (current.isValid() && current.row() < 0) {
    report("Tavrel", "Negative hs_image_list_widget index");
    return;
  }
  image_changed();
}

void main_window::remember_view_state() {
  const auto shown = shown_.lock();
  if (shown == nullptr || !view_->has_picture()) {
    return;
  }
  image_view_state& state = shown->view_state();
  // A fitted image is fitted again when it is shown next.
  state.scale = view_->fitted() ? 0.0 : view_->current_scale();
  state.position = view_->mapToScene(view_->viewport()->rect().center());
}

void main_window::image_changed() {
  remember_view_state();
  const auto image = current_image();
  shown_ = image;
  view_->clear_picture();
  plots_->clear_all();
  view_->set_labels(image == nullptr ? nullptr : &image->labels());
  labels_->set_image(image);
  labels_dock_content_->set_labels(image == nullptr ? nullptr : &image->labels());
  sync_view_actions();
  if (image == nullptr) {
    setWindowTitle("Tavrel");
    rebuild_image_docks();
    update_actions_();
    return;
  }
  setWindowTitle(window_title_for(image->file_name()));
  rebuild_image_docks();
  refresh_result_plots();
  image_view_state& state = image->view_state();
  const double scale = state.scale;
  const QPointF position = state.position;
  if (!render_current(scale > 0 ? no_fit : fit_image_to_window) &&
      (state.component != component_view::colour || state.pc >= 0)) {
    // What was shown is gone (undo, reload): show the colour picture instead.
    state.component = component_view::colour;
    state.pc = -1;
    sync_view_actions();
    render_current(scale > 0 ? no_fit : fit_image_to_window);
  }
  if (scale > 0 && view_->has_picture()) {
    view_->scale_to(scale);
    view_->centerOn(position);
  }
  update_actions_();
}

void main_window::close_image_() {
  const int row = image_list_->currentIndex().row();
  if (row < 0) {
    return;
  }
  if (processing_.running() && processing_.image() == images_.at(row)) {
    report("Close Image", "The image is being processed; cancel the processing first.");
    return;
  }
  images_.remove(row);
  if (images_.empty()) {
    image_changed();
  }
}

void main_window::close_all_images_() {
  while (!images_.empty()) {
    const int before = images_.size();
    set_current_row(images_.size() - 1);
    close_image_();
    if (images_.size() == before) {
      return;
    }
  }
}

void main_window::quit_() {
  close();
}

// Rendering and views

bool main_window::render_current(const QString& fit_mode) {
  const auto image = current_image();
  if (image == nullptr) {
    return false;
  }
  QImage picture;
  double picture_scale = 1.0;
  renderer_.set_options(image->rendering());
  const image_view_state& state = image->view_state();
  try {
    corv::pipeline& p = image->pipeline();
    const bool from_file = image->shown_from_file();
    if (state.pc >= 0) {
      picture = component_picture(p.principal_components(), state.pc, pca_->colour(), pca_->clip());
    } else if (state.class_scores > 0 || state.component == component_view::class_map ||
               state.component == component_view::endmember_abundances) {
      picture = class_picture(*image);
    } else if (from_file && (state.component == component_view::colour ||
                             (state.component == component_view::irradiance && state.band < 0))) {
      // Nothing has loaded the cube: the picture streamed from the file, or its
      // first version from three bands while the full one is made.
      const auto& streamed = image->streamed();
      if (streamed && streamed->options == image->rendering()) {
        picture = streamed->picture;
      } else {
        const unsigned step = first_picture_step(p.height(), p.width());
        picture = first_picture(*p.source(), image->rendering(), step);
        picture_scale = static_cast<double>(p.width()) / picture.width();
        start_full_picture(image);
      }
    } else if (from_file && state.component == component_view::irradiance && state.band >= 0) {
      // One band read alone, scaled by the cube's maximum once the stream has found it.
      const corv::matrix band = p.source()->I({static_cast<unsigned>(state.band)}).slice(0);
      const auto& streamed = image->streamed();
      picture = state.normalisation == band_normalisation::by_cube && streamed
                    ? colour_renderer::grey_image(band, streamed->maximum)
                    : colour_renderer::grey_image(band);
    } else {
      picture = renderer_.render(p, state.component, state.band, state.normalisation);
    }
    if (state.abundance_layer) {
      std::vector<int> chosen;
      for (int i = 0; i < state.material_states.size(); ++i) {
        if (state.material_states[i]) {
          chosen.push_back(i);
        }
      }
      const corv::matrix& elements = p.material_elements();
      picture = colour_renderer::overlay_abundances(
          picture, p.material_element_abundances(), p.material_element_abundance_indexes(), chosen,
          corv::spectral_library::palette_colours(0, elements.n_cols));
    }
    picture = with_class_layer(*image, picture);
  } catch (const std::exception& error) {
    report("Tavrel", "Could not show the image " + QFileInfo(image->file_name()).fileName() +
                         ".<br/><br/>Reason: " + text_of(error));
    return false;
  }
  view_->show_picture(picture, fit_mode, picture_scale);
  view_->show_vector_files(image->vector_files());
  images_.set_icon(images_.row_of(image),
                   QIcon(QPixmap::fromImage(
                       picture.scaled(64, 64, Qt::KeepAspectRatio, Qt::SmoothTransformation))));
  Q_EMIT picture_shown();
  return true;
}

void main_window::set_view(component_view view) {
  const auto image = current_image();
  if (image != nullptr) {
    image_view_state& state = image->view_state();
    const image_view_state previous = state;
    state.component = view;
    state.pc = -1;
    state.class_scores = -1;
    // Irradiance starts at the middle band (in colour it is the Color view);
    // reflectance starts in colour, its materials in their own colours.
    if (view == component_view::irradiance && state.band < 0) {
      state.band = static_cast<int>(image->pipeline().bands() / 2);
    }
    if (!render_current(no_fit)) {
      state = previous;
    }
    refresh_tool_docks();
  }
  sync_view_actions();
}

void main_window::sync_view_actions() {
  const auto image = current_image();
  const image_view_state state = image == nullptr ? image_view_state() : image->view_state();
  actions_->abundance_layer->setChecked(state.abundance_layer);
  (state.normalisation == band_normalisation::by_band ? actions_->by_band : actions_->by_cube)
      ->setChecked(true);
  QAction* checked = nullptr;
  switch (state.component) {
    case component_view::colour:
      checked = actions_->color;
      break;
    case component_view::irradiance:
      checked = actions_->irradiance;
      break;
    case component_view::reflectance:
      checked = actions_->reflectance;
      break;
    case component_view::specularity:
      checked = actions_->specularity;
      break;
    case component_view::shading:
      checked = actions_->shading;
      break;
    case component_view::material_map:
    case component_view::class_map:
    case component_view::endmember_abundances:
      break;
  }
  if (checked != nullptr) {
    checked->setChecked(true);
  }
}

void main_window::view_color_() {
  set_view(component_view::colour);
}
void main_window::view_irradiance_() {
  set_view(component_view::irradiance);
}
void main_window::view_reflectance_() {
  set_view(component_view::reflectance);
}
void main_window::view_high_() {
  set_view(component_view::specularity);
}
void main_window::view_shading_() {
  set_view(component_view::shading);
}

void main_window::show_material_abundance_layer_() {
  const auto image = current_image();
  if (image == nullptr) {
    actions_->abundance_layer->setChecked(false);
    return;
  }
  bool& layer = image->view_state().abundance_layer;
  layer = actions_->abundance_layer->isChecked();
  if (!render_current(no_fit) && layer) {
    layer = false;
    actions_->abundance_layer->setChecked(false);
    render_current(no_fit);
  }
}

void main_window::change_normalize_band_option_(QAction* action) {
  const auto image = current_image();
  if (image == nullptr) {
    return;
  }
  image->view_state().normalisation =
      action == actions_->by_band ? band_normalisation::by_band : band_normalisation::by_cube;
  render_current(no_fit);
}

void main_window::material_check_changed_(int row, bool checked) {
  const auto image = current_image();
  if (image == nullptr || row < 0 || row >= image->view_state().material_states.size()) {
    return;
  }
  image->view_state().material_states[row] = checked;
  if (image->view_state().abundance_layer) {
    render_current(no_fit);
  }
}

void main_window::show_image_rendering_() {
  const auto image = current_image();
  if (image == nullptr) {
    return;
  }
  const corv::vector* wavelengths =
      component_or_null(image->pipeline(), &corv::pipeline::wavelengths);
  rendering_dialog_->set_options(image->rendering(), wavelengths ? *wavelengths : corv::vector());
  if (rendering_dialog_->exec() != QDialog::Accepted) {
    return;
  }
  const rendering_options previous = image->rendering();
  image->set_rendering(rendering_dialog_->options());
  if (!render_current(no_fit)) {
    image->set_rendering(previous);
    render_current(no_fit);
  }
}

void main_window::view_fit_to_window_() {
  view_->fit_to_window();
}
void main_window::view_actual_size_() {
  view_->actual_size();
}
void main_window::view_zoom_in_() {
  view_->zoom_in_();
}
void main_window::view_zoom_out_() {
  view_->zoom_out_();
}

void main_window::is_create_polygon_() {
  view_->set_polygon_mode(actions_->polygon_tool->isChecked());
}

// Docks of the current image

void main_window::rebuild_image_docks() {
  components_list_->clear();
  materials_->clear();
  pca_->set_strengths(corv::vector());
  refresh_tool_docks();
  const auto image = current_image();
  if (image == nullptr) {
    return;
  }
  corv::pipeline& p = image->pipeline();
  auto add_component = [this](const QString& text, component_view view) {
    auto* item = new QListWidgetItem(text, components_list_);
    item->setData(Qt::UserRole, static_cast<int>(view));
  };
  // An image shown from its file has I there: asking the pipeline would read it all.
  if (image->shown_from_file() || component_or_null(p, &corv::pipeline::I) != nullptr) {
    add_component("Color", component_view::colour);
    add_component("Irradiance (I)", component_view::irradiance);
  }
  if (component_or_null(p, &corv::pipeline::s) != nullptr) {
    add_component("Reflectance (s)", component_view::reflectance);
  }
  if (component_or_null(p, &corv::pipeline::k) != nullptr) {
    add_component("Specularity (k)", component_view::specularity);
  }
  if (component_or_null(p, &corv::pipeline::g) != nullptr) {
    add_component("Shading (g)", component_view::shading);
  }
  if (component_or_null(p, &corv::pipeline::material_map) != nullptr) {
    add_component("Material Map", component_view::material_map);
  }
  if (!image->classification().class_map.empty()) {
    add_component("Class Map", component_view::class_map);
  }
  if (p.library() != nullptr &&
      component_or_null(p, &corv::pipeline::endmember_abundances) != nullptr) {
    add_component("Endmember Abundances", component_view::endmember_abundances);
  }
  image_view_state& state = image->view_state();
  if (const corv::matrix* elements = component_or_null(p, &corv::pipeline::material_elements)) {
    const corv::matrix colours = corv::spectral_library::palette_colours(0, elements->n_cols);
    const int count = static_cast<int>(elements->n_cols);
    if (state.material_states.size() != count || state.material_labels.size() != count) {
      // New materials: all of them checked, under their numbers.
      state.material_states = QVector<bool>(count, true);
      state.material_labels.clear();
      for (int i = 0; i < count; ++i) {
        state.material_labels.append(QString("Material %1").arg(i + 1));
      }
    }
    for (int i = 0; i < count; ++i) {
      auto* item = new QStandardItem(state.material_labels[i]);
      QPixmap swatch(12, 12);
      swatch.fill(QColor(static_cast<int>(colours(i, 0)), static_cast<int>(colours(i, 1)),
                         static_cast<int>(colours(i, 2))));
      item->setIcon(QIcon(swatch));
      item->setCheckable(true);
      item->setCheckState(state.material_states[i] ? Qt::Checked : Qt::Unchecked);
      materials_->appendRow(item);
    }
  } else {
    state.material_states.clear();
    state.material_labels.clear();
  }
  pca_->set_strengths(p.principal_strengths());
}

void main_window::show_principal_component_(int index) {
  const auto image = current_image();
  if (image == nullptr) {
    return;
  }
  if (index < 0 || index >= static_cast<int>(image->pipeline().principal_components().n_slices)) {
    return;
  }
  image->view_state().pc = index;
  render_current(no_fit);
}

QString main_window::material_at(const QPoint& pixel) const {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return QString();
  }
  const corv::matrix* map = component_or_null(image->pipeline(), &corv::pipeline::material_map);
  if (map == nullptr || pixel.y() < 0 || pixel.x() < 0 ||
      pixel.y() >= static_cast<int>(map->n_rows) || pixel.x() >= static_cast<int>(map->n_cols)) {
    return QString();
  }
  const float number = (*map)(pixel.y(), pixel.x());
  return std::isfinite(number) ? QString("Material %1").arg(static_cast<int>(number) + 1)
                               : QString();
}

void main_window::refresh_result_plots() {
  const auto image = current_image();
  if (image == nullptr) {
    return;
  }
  corv::pipeline& p = image->pipeline();
  const corv::vector* wavelengths = component_or_null(p, &corv::pipeline::wavelengths);
  if (wavelengths == nullptr) {
    return;
  }
  const QVector<double> wl = to_qvector(*wavelengths);
  const corv::vector* illuminant = component_or_null(p, &corv::pipeline::illuminant);
  plots_->set_illuminant(wl, illuminant == nullptr ? QVector<double>() : to_qvector(*illuminant));
  QList<QVector<double>> spectra;
  QList<QColor> colours;
  if (const corv::matrix* elements = component_or_null(p, &corv::pipeline::material_elements)) {
    const corv::matrix palette = corv::spectral_library::palette_colours(0, elements->n_cols);
    for (arma::uword i = 0; i < elements->n_cols; ++i) {
      spectra.append(to_qvector(corv::vector(elements->col(i))));
      colours.append(QColor(static_cast<int>(palette(i, 0)), static_cast<int>(palette(i, 1)),
                            static_cast<int>(palette(i, 2))));
    }
  }
  plots_->set_materials(wl, spectra, colours);
}

// Plots and the pixel inspector

void main_window::add_plot_curve_(const QPointF& point) {
  const auto image = current_image();
  // A run works on the pipeline alone until it ends.
  if (image == nullptr || (processing_.running() && processing_.image() == image)) {
    return;
  }
  corv::pipeline& p = image->pipeline();
  const QPoint pixel = pixel_at(point, static_cast<int>(p.width()), static_cast<int>(p.height()));
  if (pixel.x() < 0) {
    return;
  }
  const corv::vector* wavelengths = component_or_null(p, &corv::pipeline::wavelengths);
  if (wavelengths == nullptr) {
    return;
  }
  const corv::cube* reflectance = component_or_null(p, &corv::pipeline::s);
  plots_->show_pixel(QString("(%1, %2)").arg(pixel.x()).arg(pixel.y()), to_qvector(*wavelengths),
                     irradiance_at(*image, pixel),
                     reflectance ? spectrum_at(*reflectance, pixel) : QVector<double>());
}

void main_window::add_plot_curves_(const QRectF& rect) {
  const auto image = current_image();
  if (image == nullptr || (processing_.running() && processing_.image() == image)) {
    return;
  }
  corv::pipeline& p = image->pipeline();
  const corv::vector* wavelengths = component_or_null(p, &corv::pipeline::wavelengths);
  if (wavelengths == nullptr) {
    return;
  }
  const QVector<double> wl = to_qvector(*wavelengths);
  const corv::cube* reflectance = component_or_null(p, &corv::pipeline::s);
  for (const QPoint& pixel : pixels_in(rect, static_cast<int>(p.width()),
                                       static_cast<int>(p.height()), max_rectangle_spectra)) {
    plots_->add_pixel(QString("(%1, %2)").arg(pixel.x()).arg(pixel.y()), wl,
                      irradiance_at(*image, pixel),
                      reflectance ? spectrum_at(*reflectance, pixel) : QVector<double>());
  }
}

void main_window::pixel_inspect_(const QPointF& point) {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return;
  }
  corv::pipeline& p = image->pipeline();
  const QPoint pixel = pixel_at(point, static_cast<int>(p.width()), static_cast<int>(p.height()));
  if (pixel.x() < 0) {
    return;
  }
  // The components the image does not hold are dashes here, not errors in the log.
  std::optional<corv::quiet_log> quiet(std::in_place);
  const QVector<double> from_file =
      image->shown_from_file() ? irradiance_at(*image, pixel) : QVector<double>();
  pixel_values values =
      read_pixel_values(p, pixel, image->shown_from_file() ? &from_file : nullptr);
  quiet.reset();
  const classification_result& classes = image->classification();
  if (pixel.y() < static_cast<int>(classes.class_map.n_rows) &&
      pixel.x() < static_cast<int>(classes.class_map.n_cols)) {
    values.class_number = static_cast<int>(classes.class_map(pixel.y(), pixel.x()));
    values.class_label = classes.class_labels.value(values.class_number - 1);
    values.class_values = spectrum_at(classes.values, pixel);
  }
  pixel_dialog_->add_pixel(values);
}

void main_window::show_pixel_inspector_() {
  pixel_dialog_->show();
  pixel_dialog_->raise();
}

// Processing

bool main_window::process(processing_command command) {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return false;
  }
  return processing_.start(image, command, processing_values_);
}

void main_window::process_illuminant_estimation_() {
  process(processing_command::illuminant);
}
void main_window::process_dichromatic_recovery_() {
  process(processing_command::reflectance);
}
void main_window::process_material_clustering_() {
  process(processing_command::materials);
}
void main_window::process_analysis_() {
  process(processing_command::analysis);
}

void main_window::show_processing_progress_(const stage_progress& progress) {
  QProgressDialog* dialog = progress.cancelling ? cancel_dialog_ : process_dialog_;
  if (progress.label_changed) {
    dialog->setLabelText(progress.label);
  }
  dialog->setValue(progress.value);
}

void main_window::show_cancel_dialog_() {
  process_dialog_->hide();
  cancel_dialog_->reset();
  cancel_dialog_->setLabelText("Cancelling Pipeline");
  cancel_dialog_->setValue(0);
  cancel_dialog_->show();
}

void main_window::processing_finished_(std::shared_ptr<hs_image> image, const QString& message) {
  process_dialog_->cancel();
  cancel_dialog_->cancel();
  if (image == current_image()) {
    rebuild_image_docks();
    refresh_result_plots();
    render_current(no_fit);
  }
  if (!message.isEmpty()) {
    report("Process Pipeline", message);
  }
}

void main_window::show_corvantis_settings_() {
  settings_dialog_->set_values(processing_values_);
  if (settings_dialog_->exec() != QDialog::Accepted) {
    return;
  }
  processing_values_ = settings_dialog_->values();
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return;
  }
  corv::pipeline& p = image->pipeline();
  processing_values_.apply_to(*image);
  // A later stage depends on every earlier one. A reflectance the user opened is
  // not a recovery result and stays.
  if (settings_dialog_->illuminant_dirty() || settings_dialog_->component_dirty()) {
    p.reset_components(image->mode() != hs_image::open_mode::reflectance);
  } else if (settings_dialog_->material_dirty()) {
    const corv::vector* illuminant = component_or_null(p, &corv::pipeline::illuminant);
    const corv::matrix* k = component_or_null(p, &corv::pipeline::k);
    const corv::matrix* g = component_or_null(p, &corv::pipeline::g);
    const corv::vector kept_illuminant = illuminant ? *illuminant : corv::vector();
    const corv::matrix kept_k = k ? *k : corv::matrix();
    const corv::matrix kept_g = g ? *g : corv::matrix();
    p.reset_components(false);
    if (!kept_illuminant.empty()) {
      p.set_illuminant(kept_illuminant);
    }
    if (!kept_k.empty() && !kept_g.empty()) {
      p.set_k(kept_k);
      p.set_g(kept_g);
    }
  }
  refresh_result_plots();
  rebuild_image_docks();
}

// Image preparation

void main_window::change_image_history(const QString& title,
                                       const std::function<bool(const hs_image&)>& possible,
                                       const std::function<void(hs_image&)>& step) {
  const auto image = current_image();
  if (image == nullptr || !possible(*image) || processing_.running()) {
    return;
  }
  try {
    step(*image);
  } catch (const std::exception& error) {
    report(title, text_of(error));
  }
  shown_.reset();  // its size changed: fit it again
  image->view_state().scale = 0.0;
  images_.refresh(images_.row_of(image));
  image_changed();
}

void main_window::undo_image_() {
  change_image_history(
      "Undo", [](const hs_image& image) { return image.can_undo(); },
      [](hs_image& image) { image.undo(); });
}

void main_window::redo_image_() {
  change_image_history(
      "Redo", [](const hs_image& image) { return image.can_redo(); },
      [](hs_image& image) { image.redo(); });
}

void main_window::reload_image_() {
  change_image_history(
      "Reload Original Image", [](const hs_image&) { return true; },
      [](hs_image& image) { image.reload(); });
}

void main_window::remove_image_band_() {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return;
  }
  bool ok = false;
  const QString text = QInputDialog::getText(
      this, "Remove Bands",
      QString("Bands to remove (0 to %1, e.g. 0, 3-5):").arg(image->pipeline().bands() - 1),
      QLineEdit::Normal, QString(), &ok);
  if (!ok) {
    return;
  }
  corv::band_list bands;
  if (!parse_bands(text, bands)) {
    report("Remove Bands", "Not a list of bands: " + text);
    return;
  }
  try {
    image->remove_bands(QVector<qint32>(bands.begin(), bands.end()));
  } catch (const std::exception& error) {
    report("Remove Bands", text_of(error));
  }
  images_.refresh(images_.row_of(image));
  image_changed();
}

void main_window::crop_image_() {
  const auto image = current_image();
  const QRectF selection = view_->selection();
  if (image == nullptr || selection.isEmpty() || processing_.running()) {
    return;
  }
  try {
    image->crop(selection);
  } catch (const std::exception& error) {
    report("Crop to Selection", text_of(error));
  }
  shown_.reset();  // its size changed: fit it again
  image->view_state().scale = 0.0;
  images_.refresh(images_.row_of(image));
  image_changed();
}

}  // namespace tavr
