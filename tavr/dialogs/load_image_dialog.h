#ifndef TAVR_DIALOGS_LOAD_IMAGE_DIALOG_H
#define TAVR_DIALOGS_LOAD_IMAGE_DIALOG_H

#include <QDialog>

#include "corv/io/types.h"
#include "tavr/image/image_subset.h"

class QLabel;
class QListWidget;
class QPushButton;
class QSpinBox;

namespace tavr {

// "Opening Large Image": offered before an image of more than 100 million
// elements is opened, to load only some bands and a crop of it. Initially
// everything is chosen, so that OK loads the whole image.
class load_image_dialog : public QDialog {
  Q_OBJECT

 public:
  explicit load_image_dialog(QWidget* parent = nullptr);

  // The image's size and band wavelengths; chooses all of it.
  void set_image(unsigned height, unsigned width, const corv::vector& wavelengths);
  image_subset subset() const;
  QString estimate_text() const;

  // The buttons of "Select Bands": check every band, only the highlighted
  // rows, or none.
  QPushButton* all_button() const { return all_; }
  QPushButton* selected_button() const { return selected_; }
  QPushButton* none_button() const { return none_; }
  QListWidget* band_list() const { return bands_; }
  // Vertical from, vertical to, horizontal from, horizontal to.
  QSpinBox* range_box(int index) const { return ranges_[index]; }

 private Q_SLOTS:
  void update_estimate_();

 private:
  void check_bands(bool (*chosen)(bool highlighted));

  QListWidget* bands_ = nullptr;
  QPushButton* all_ = nullptr;
  QPushButton* selected_ = nullptr;
  QPushButton* none_ = nullptr;
  QSpinBox* ranges_[4] = {};
  QLabel* estimate_ = nullptr;
  QPushButton* ok_ = nullptr;
};

}  // namespace tavr

#endif
