#ifndef TAVR_DIALOGS_RENDERING_DIALOG_H
#define TAVR_DIALOGS_RENDERING_DIALOG_H

#include <QDialog>

#include "corv/io/types.h"
#include "tavr/image/colour_renderer.h"

class QComboBox;
class QDoubleSpinBox;
class QGroupBox;
class QLineEdit;
class QRadioButton;

namespace tavr {

// The "Image Rendering" dialog: the data-ignore value, automatic or manual
// (three chosen bands) colour, and contrast enhancement, for one image.
class rendering_dialog : public QDialog {
  Q_OBJECT

 public:
  explicit rendering_dialog(QWidget* parent = nullptr);

  // Shows an image's choices; the band lists offer its bands by wavelength.
  // Manual bands beyond the last band show as the last band.
  void set_options(const rendering_options& options, const corv::vector& wavelengths);
  // The choices shown. A data-ignore text that is not a number keeps the value
  // last given to set_options.
  rendering_options options() const;

 private Q_SLOTS:
  void rgb_mode_changed_();

 private:
  QLineEdit* data_ignore_ = nullptr;
  QRadioButton* automatic_ = nullptr;
  QRadioButton* manual_ = nullptr;
  QComboBox* red_ = nullptr;
  QComboBox* green_ = nullptr;
  QComboBox* blue_ = nullptr;
  QGroupBox* contrast_ = nullptr;
  QDoubleSpinBox* min_cutoff_ = nullptr;
  QDoubleSpinBox* max_cutoff_ = nullptr;
  double last_data_ignore_ = -9999.0;
};

}  // namespace tavr

#endif
