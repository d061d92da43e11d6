#ifndef TAVR_DIALOGS_SETTINGS_DIALOG_H
#define TAVR_DIALOGS_SETTINGS_DIALOG_H

#include <QDialog>

#include "tavr/processing/processing_settings.h"

class QAbstractButton;
class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QRadioButton;
class QSlider;
class QSpinBox;

namespace tavr {

// The "Settings..." dialog: processing parameters, workspace, output and log
// options. It records which recovery stages saw a parameter change while it
// was open, so that the viewer can discard their results once it is accepted.
class settings_dialog : public QDialog {
  Q_OBJECT

 public:
  explicit settings_dialog(QWidget* parent = nullptr);

  // Shows the values in the fields and clears the change flags.
  void set_values(const processing_settings& values);
  // The values of the fields.
  processing_settings values() const;

  // The method code of the selected entry: "ORBEK" 0, "Finlayson and Schaefer"
  // 1, "Gray Edge" 2, "Gray World" 3, "Shade of Gray" 4, "White Patch" 5; any
  // other text logs "illuminant_method: Un-matching method" and gives -1.
  int illuminant_method() const;

  // Whether the parameters of a stage changed since set_values or clear_dirty.
  bool illuminant_dirty() const { return illuminant_dirty_; }
  bool component_dirty() const { return component_dirty_; }
  bool material_dirty() const { return material_dirty_; }
  void clear_dirty();

 public Q_SLOTS:
  // Puts every field back to its default.
  void restore_defaults_();
  void illuminant_rec_dirty_();
  void component_rec_dirty_();
  void material_disc_dirty_();
  // Enables the NURBS fields when "Save as NURBS" is the chosen storage.
  void save_hsz_clicked_(QWidget* toggled);

 private:
  QWidget* build_corvantis_tab();
  QWidget* build_workspace_tab();
  QWidget* build_output_tab();
  QWidget* build_logger_tab();
  void connect_dirty_slots();
  // Puts the values in the fields (change flags follow the changes).
  void show_values(const processing_settings& values);

  QComboBox* filter_method_ = nullptr;
  QSpinBox* filter_size_ = nullptr;
  QComboBox* illuminant_method_ = nullptr;
  QCheckBox* faster_illumination_ = nullptr;
  QSpinBox* spatial_smoothness_ = nullptr;
  QSpinBox* illuminant_patch_size_ = nullptr;
  QSpinBox* neighbourhood_size_ = nullptr;
  QSpinBox* gray_threshold_ = nullptr;
  QCheckBox* faster_materials_ = nullptr;
  QSpinBox* max_clusters_ = nullptr;
  QDoubleSpinBox* max_temperature_ = nullptr;
  QDoubleSpinBox* min_temperature_ = nullptr;
  QDoubleSpinBox* cooling_rate_ = nullptr;
  QDoubleSpinBox* split_threshold_ = nullptr;
  QSpinBox* materials_per_pixel_ = nullptr;
  QSpinBox* principal_components_ = nullptr;
  QRadioButton* pca_irradiance_ = nullptr;
  QRadioButton* pca_reflectance_ = nullptr;
  QCheckBox* portable_workspace_ = nullptr;
  QRadioButton* envi_8bit_ = nullptr;
  QRadioButton* envi_16bit_ = nullptr;
  QRadioButton* envi_float_ = nullptr;
  QRadioButton* hsz_raw_ = nullptr;
  QRadioButton* hsz_nurbs_ = nullptr;
  QSpinBox* nurbs_iterations_ = nullptr;
  QDoubleSpinBox* nurbs_alpha_ = nullptr;
  QSpinBox* nurbs_degree_ = nullptr;
  QSpinBox* nurbs_knot_threshold_ = nullptr;
  QCheckBox* compressed_library_export_ = nullptr;
  QSlider* verbosity_ = nullptr;

  bool illuminant_dirty_ = false;
  bool component_dirty_ = false;
  bool material_dirty_ = false;
};

}  // namespace tavr

#endif
