// The main window's commands that save and export the current image.
#include <QFileDialog>
#include <QMessageBox>
#include <exception>

#include "corv/io/spectral_library.h"
#include "tavr/app/main_window.h"
#include "tavr/image/image_exporter.h"
#include "tavr/view/image_view.h"

namespace tavr {

namespace {

const QString picture_filter =
    "PNG - Portable Network Graphics (*.png);;        BMP - Windows Bitmap (*.bmp);;        "
    "JPG - JPG/JPEG Format (*.jpg)";
const QString material_filter = "CSV (*.csv);;        SLZ (*.slz)";

QString text_of(const std::exception& error) {
  return QString::fromStdString(error.what());
}

}  // namespace

// Saving and exporting

QString main_window::ask_save_name(const QString& title, const QString& filter,
                                   QString& remembered) {
  const QString name = QFileDialog::getSaveFileName(this, title, remembered, filter);
  if (!name.isEmpty()) {
    remembered = name;
  }
  return name;
}

void main_window::save_current_image_() {
  if (!view_->has_picture()) {
    return;
  }
  const QString name = ask_save_name("Tavrel - Save Current Image", picture_filter,
                                     app_settings_.export_image_filename);
  if (!name.isEmpty() && !view_->picture().save(name)) {
    report("Save Current Image", "Image could not be saved");
  }
}

void main_window::save_as_hyperspectral_zip_() {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return;
  }
  if (!has_material_components(image->pipeline())) {
    report("Save Image as HSZ",
           "Material components are not available. Please run Material Discovery first.");
    return;
  }
  const QString name =
      ask_save_name("Tavrel - Save As Hyperspectral Zip", "HSZ - Hyperspectral Zip (*.hsz)",
                    app_settings_.export_image_filename);
  if (name.isEmpty()) {
    return;
  }
  try {
    save_hsz(image->pipeline(), name, processing_values_);
  } catch (const std::exception& error) {
    report("Save Image as HSZ", "Could not save image as HSZ. Reason: " + text_of(error));
  }
}

void main_window::save_image_irradiance_() {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return;
  }
  const QString name =
      ask_save_name("Tavrel - Save Irradiance Cube", "FLA - Raw Image Cube (*.fla)",
                    app_settings_.export_image_filename);
  if (name.isEmpty()) {
    return;
  }
  try {
    save_cube(image->pipeline(), name, false, processing_values_.envi_data_type);
  } catch (const std::exception& error) {
    report("Export Image", text_of(error));
  }
}

void main_window::save_image_reflectance_() {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return;
  }
  const QString name =
      ask_save_name("Tavrel - Save Reflectance Cube", "FLA - Raw Image Cube (*.fla)",
                    app_settings_.export_image_filename);
  if (name.isEmpty()) {
    return;
  }
  try {
    save_cube(image->pipeline(), name, true, processing_values_.envi_data_type);
  } catch (const std::exception& error) {
    report("Export Image", text_of(error));
  }
}

void main_window::export_mat_lib_() {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return;
  }
  const QString name = ask_save_name("Material Library File - Export File", material_filter,
                                     app_settings_.export_mat_lib_filename);
  if (name.isEmpty()) {
    return;
  }
  try {
    export_material_library(image->pipeline(), name);
  } catch (const std::exception&) {
    report("Save Spectral Signatures", "Could not save the spectral signatures.");
  }
}

void main_window::export_illumination_() {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return;
  }
  const QString name = ask_save_name("Illumination Spectra File - Export File", "CSV (*.csv)",
                                     app_settings_.export_illumination_filename);
  if (name.isEmpty()) {
    return;
  }
  try {
    export_illumination(image->pipeline(), name);
  } catch (const std::exception&) {
    report("Save Illumination", "Could not save the illumination data.");
  }
}

void main_window::import_illumination_() {
  const auto image = current_image();
  if (image == nullptr || processing_.running()) {
    return;
  }
  const QString name = QFileDialog::getOpenFileName(this, "Import Illuminantion Spectrum",
                                                    app_settings_.import_illumination_filename,
                                                    "Illumination Spectrum Files (*.csv *.mat)");
  if (name.isEmpty()) {
    return;
  }
  app_settings_.import_illumination_filename = name;
  try {
    corv::pipeline& p = image->pipeline();
    p.set_illuminant(read_illumination_csv(name, p.wavelengths()));
  } catch (const std::exception& error) {
    report("Import Illumination Spectrum",
           "Could not open CSV file.<br/><br/>Reason: " + text_of(error));
    return;
  }
  refresh_result_plots();
  render_current(no_fit);
}

void main_window::about_() {
  QMessageBox box(this);
  box.setWindowTitle("About Tavrel");
  QPixmap picture(":/tavrel/icons/Tavrel_resized.png");
  if (!picture.isNull()) {
    box.setIconPixmap(picture);
  }
  box.setText("Tavrel (Corvantis Visualisation Environment)<br/>Version: " + viewer_version +
              "<br/><br/>Tavrel opens hyperspectral images, shows them in colour, plots the "
              "spectra of their pixels and recovers the illuminant, the reflectance and the "
              "materials of a scene.");
  box.exec();
}

}  // namespace tavr
