#ifndef TAVR_APP_BAND_CHOOSER_H
#define TAVR_APP_BAND_CHOOSER_H

#include <QWidget>

#include "corv/io/types.h"

class QComboBox;
class QSlider;

namespace tavr {

// "Wavelengths (nm):" and the band that the Irradiance and Reflectance views
// show: a list of the image's bands by wavelength, headed by "Color" (band -1:
// the cube rendered in colour), and a slider over the bands beside it.
class band_chooser : public QWidget {
  Q_OBJECT

 public:
  explicit band_chooser(QWidget* parent = nullptr);

  // The bands of the current image (none: disabled); `band` is selected, -1
  // for colour.
  void set_wavelengths(const corv::vector& wavelengths, int band);
  int band() const;

 Q_SIGNALS:
  void band_changed(int band);

 private:
  QComboBox* bands_ = nullptr;
  QSlider* slider_ = nullptr;
};

}  // namespace tavr

#endif
