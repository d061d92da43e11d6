#include "tavr/labels/label_controller.h"

#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QProgressDialog>
#include <exception>

#include "tavr/app/image_list_model.h"
#include "tavr/image/component_probe.h"
#include "tavr/image/hs_image.h"
#include "tavr/labels/polygon_labels_dialog.h"
#include "tavr/library/library_model.h"
#include "tavr/plots/pixel_values.h"

namespace tavr {

namespace {

QString with_suffix(const QString& name, const QString& suffix) {
  return name.endsWith("." + suffix, Qt::CaseInsensitive) ? name : name + "." + suffix;
}

// Every pixel of the labels under its label's text and colour.
corv::spectral_library pixel_library(const corv::cube& data, const corv::vector& wavelengths,
                                     const QList<polygon_label>& labels) {
  QList<QVector<QPoint>> pixels;
  arma::uword count = 0;
  for (const polygon_label& label : labels) {
    pixels.append(
        pixels_inside(label.polygon, static_cast<int>(data.n_cols), static_cast<int>(data.n_rows)));
    if (pixels.back().isEmpty()) {
      polygon_endmembers(data, wavelengths, {label});  // refused with the label's name
    }
    count += static_cast<arma::uword>(pixels.back().size());
  }
  corv::matrix spectra(data.n_slices, count);
  corv::matrix colours(count, 3);
  std::vector<std::string> names;
  arma::uword column = 0;
  for (int i = 0; i < labels.size(); ++i) {
    for (const QPoint& p : pixels[i]) {
      spectra.col(column) =
          corv::vector(data.tube(static_cast<arma::uword>(p.y()), static_cast<arma::uword>(p.x())));
      colours.row(column) = corv::matrix{{static_cast<float>(labels[i].colour.red()),
                                          static_cast<float>(labels[i].colour.green()),
                                          static_cast<float>(labels[i].colour.blue())}};
      names.push_back(labels[i].label.toStdString());
      ++column;
    }
  }
  corv::spectral_library library(spectra, names, wavelengths);
  library.set_colours(colours);
  return library;
}

// The progress dialog of the label exports.
class export_dialog : public QProgressDialog {
 public:
  explicit export_dialog(QWidget* window)
      : QProgressDialog("Exporting Material Library", "Cancel Export", 0, 1, window) {
    setWindowTitle("Tavrel");
    setWindowModality(Qt::WindowModal);
    setMinimumDuration(0);
  }
};

}  // namespace

label_controller::label_controller(const image_list_model& images, library_model& library,
                                   QWidget* window)
    : QObject(window), images_(images), library_(library), window_(window) {}

void label_controller::set_label_list(const QStringList& texts) {
  label_list_.setStringList(texts);
}

void label_controller::add_to_label_list(const QString& text) {
  if (!label_list_.stringList().contains(text)) {
    const int row = label_list_.rowCount();
    label_list_.insertRows(row, 1);
    label_list_.setData(label_list_.index(row), text);
  }
}

QString label_controller::problem_with(const QString& text, int row) const {
  if (image_ == nullptr) {
    return QString();
  }
  const int other = image_->labels().row_of(text);
  return other >= 0 && other != row ? label_model::duplicate_message : QString();
}

bool label_controller::is_unchecked(const QString& text) const {
  for (const auto& image : images_.images()) {
    const int row = image->labels().row_of(text);
    if (row >= 0 && !image->labels().at(row).checked) {
      return true;
    }
  }
  return false;
}

QColor label_controller::colour_for(const QString& text) const {
  for (const auto& image : images_.images()) {
    const int row = image->labels().row_of(text);
    if (row >= 0 && image != image_) {
      return image->labels().at(row).colour;
    }
  }
  QList<QColor> used;
  if (image_ != nullptr) {
    for (const polygon_label& label : image_->labels().labels()) {
      used.append(label.colour);
    }
  }
  const int count = image_ == nullptr ? 0 : image_->labels().size();
  for (int n = 0; n < count + 1; ++n) {
    if (!used.contains(label_model::colour_for(n))) {
      return label_model::colour_for(n);
    }
  }
  return label_model::colour_for(count);
}

bool label_controller::add_label(const QPolygonF& polygon, const QString& text) {
  if (image_ == nullptr || polygon.isEmpty()) {
    return false;
  }
  const QString problem = problem_with(text);
  if (!problem.isEmpty()) {
    Q_EMIT message("Tavrel", problem);
    return false;
  }
  polygon_label label{text, colour_for(text), polygon, true, false};
  if (!image_->labels().add(label)) {
    return false;
  }
  image_->labels().select(image_->labels().size() - 1);
  add_to_label_list(text);
  return true;
}

bool label_controller::rename(int row, const QString& text) {
  if (image_ == nullptr || row < 0 || row >= image_->labels().size()) {
    return false;
  }
  const QString problem = problem_with(text, row);
  if (!problem.isEmpty()) {
    Q_EMIT message("Tavrel", problem);
    return false;
  }
  if (!image_->labels().rename(row, text)) {
    return false;
  }
  add_to_label_list(text);
  return true;
}

const corv::cube* label_controller::cube_of(cube_kind kind) const {
  if (image_ == nullptr) {
    return nullptr;
  }
  corv::pipeline& p = image_->pipeline();
  const corv::cube* data = kind == cube_kind::reflectance
                               ? component_or_null(p, &corv::pipeline::s)
                               : component_or_null(p, &corv::pipeline::I);
  return data;
}

QList<spectrum_curve> label_controller::mean_curves(cube_kind kind) const {
  QList<spectrum_curve> curves;
  const corv::cube* data = cube_of(kind);
  if (data == nullptr) {
    return curves;
  }
  const QVector<double> wavelengths = to_qvector(image_->pipeline().wavelengths());
  for (const polygon_label& label : image_->labels().checked_labels()) {
    const corv::vector mean =
        mean_spectrum(*data, pixels_inside(label.polygon, static_cast<int>(data->n_cols),
                                           static_cast<int>(data->n_rows)));
    if (!mean.empty()) {
      curves.append({label.label, wavelengths, to_qvector(mean), label.colour});
    }
  }
  return curves;
}

corv::spectral_library label_controller::checked_library(bool mean) const {
  const corv::cube* data = cube_of(cube_kind::reflectance);
  if (data == nullptr) {
    data = cube_of(cube_kind::source);
  }
  if (data == nullptr) {
    return {};
  }
  const QList<polygon_label> labels = image_->labels().checked_labels();
  const corv::vector& wavelengths = image_->pipeline().wavelengths();
  return mean ? polygon_endmembers(*data, wavelengths, labels)
              : pixel_library(*data, wavelengths, labels);
}

int label_controller::copy_to_library() {
  if (image_ == nullptr) {
    return 0;
  }
  QList<library_entry> entries = entries_of(checked_library(true));
  const QString source = QFileInfo(image_->file_name()).fileName();
  for (library_entry& entry : entries) {
    entry.source = source;
  }
  library_.add(entries);
  return entries.size();
}

bool label_controller::export_raw(cube_kind kind, const QString& file_name,
                                  const export_progress& progress) {
  const corv::cube* data = cube_of(kind);
  if (data == nullptr) {
    throw std::runtime_error(kind == cube_kind::reflectance
                                 ? "export_polygon_data: The image has no reflectance."
                                 : "export_polygon_data: The image has no irradiance.");
  }
  return write_polygon_csv(QFileInfo(image_->file_name()).fileName(), *data,
                           image_->pipeline().wavelengths(), image_->labels().checked_labels(),
                           with_suffix(file_name, "csv"), progress);
}

void label_controller::export_endmembers(const QString& file_name, bool mean) {
  const corv::spectral_library library = checked_library(mean);
  if (library.empty()) {
    throw std::runtime_error("export_polygon_data: No checked labels to export.");
  }
  library.save(with_suffix(file_name, "slz").toStdString());
}

// Interactive steps

void label_controller::ask_label(const QPolygonF& polygon) {
  if (image_ == nullptr || polygon.isEmpty()) {
    return;
  }
  polygon_labels_dialog dialog(window_);
  QStringList previous = label_list_.stringList();
  for (const QString& used : image_->labels().texts()) {
    previous.removeAll(used);
  }
  dialog.set_previous_labels(previous);
  dialog.set_check([this](const QString& text) { return problem_with(text); });
  dialog.set_unchecked([this](const QString& text) { return is_unchecked(text); });
  dialog.set_label(QString("Polygon %1").arg(image_->labels().size() + 1));
  if (dialog.exec() == QDialog::Accepted) {
    add_label(polygon, dialog.label());
  }
}

void label_controller::ask_rename(int row) {
  if (image_ == nullptr || row < 0 || row >= image_->labels().size()) {
    return;
  }
  polygon_labels_dialog dialog(window_);
  dialog.set_previous_labels(label_list_.stringList());
  dialog.set_check([this, row](const QString& text) { return problem_with(text, row); });
  dialog.set_unchecked([this](const QString& text) { return is_unchecked(text); });
  dialog.set_label(image_->labels().at(row).label);
  if (dialog.exec() == QDialog::Accepted) {
    rename(row, dialog.label());
  }
}

void label_controller::ask_export_raw(cube_kind kind, QString& folder) {
  if (image_ == nullptr || image_->labels().checked_labels().isEmpty()) {
    return;
  }
  const QString name = QFileDialog::getSaveFileName(window_, "Tavrel - Save Polygon Data as Raw",
                                                    folder, "CSV - Comma Separated Value (*.csv)");
  if (name.isEmpty()) {
    return;
  }
  folder = QFileInfo(name).absolutePath();
  export_dialog progress(window_);
  try {
    export_raw(kind, name, [&progress](int done, int total) {
      progress.setMaximum(total);
      progress.setValue(done);
      QApplication::processEvents();
      return !progress.wasCanceled();
    });
  } catch (const std::exception& error) {
    Q_EMIT message("Tavrel", QString::fromStdString(error.what()));
  }
}

void label_controller::ask_export_endmembers(QString& folder, bool mean) {
  if (image_ == nullptr || image_->labels().checked_labels().isEmpty()) {
    return;
  }
  const QString name =
      QFileDialog::getSaveFileName(window_, "Tavrel - Save Polygon Data as Endmembers", folder,
                                   "SLZ - Corvantis Spectral Library (*.slz)");
  if (name.isEmpty()) {
    return;
  }
  folder = QFileInfo(name).absolutePath();
  export_dialog progress(window_);
  progress.setMaximum(0);
  progress.setValue(0);
  try {
    export_endmembers(name, mean);
  } catch (const std::exception& error) {
    Q_EMIT message("Tavrel", QString::fromStdString(error.what()));
  }
}

}  // namespace tavr
