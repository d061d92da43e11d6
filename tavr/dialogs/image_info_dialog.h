#ifndef TAVR_DIALOGS_IMAGE_INFO_DIALOG_H
#define TAVR_DIALOGS_IMAGE_INFO_DIALOG_H

#include <QDialog>

#include "tavr/image/image_information.h"

class QLabel;
class QPlainTextEdit;

namespace tavr {

// "Image Information": the size of the current image, the exposure times its
// file records and the processing choices of its pipeline.
class image_info_dialog : public QDialog {
  Q_OBJECT

 public:
  explicit image_info_dialog(QWidget* parent = nullptr);

  void set_information(const image_information& info);

 private:
  QLabel* file_ = nullptr;
  QLabel* height_ = nullptr;
  QLabel* width_ = nullptr;
  QLabel* slices_ = nullptr;
  QLabel* exposure_ = nullptr;
  QPlainTextEdit* settings_ = nullptr;
};

}  // namespace tavr

#endif
