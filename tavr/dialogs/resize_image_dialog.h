#ifndef TAVR_DIALOGS_RESIZE_IMAGE_DIALOG_H
#define TAVR_DIALOGS_RESIZE_IMAGE_DIALOG_H

#include <QDialog>

class QSpinBox;
class QToolButton;

namespace tavr {

// "Resize Image": a new width and height for the current image, by percentage
// or in pixels. While the link button is "linked" (the initial state), changing
// one side changes the other in proportion. Resizing only shrinks.
class resize_image_dialog : public QDialog {
  Q_OBJECT

 public:
  explicit resize_image_dialog(QWidget* parent = nullptr);

  // The image's present size; the dialog starts at 100 %.
  void set_image_size(int width, int height);
  int new_width() const;
  int new_height() const;
  bool linked() const;
  // The percentages that the image object's resize turns into exactly
  // new_width() and new_height() (it truncates width x percent / 100).
  double width_percent() const;
  double height_percent() const;

  QSpinBox* percent_box() const { return percent_; }
  QSpinBox* width_box() const { return width_; }
  QSpinBox* height_box() const { return height_; }
  QToolButton* link_button() const { return link_; }

 public Q_SLOTS:
  void resize_percent_(int percent);

 private Q_SLOTS:
  void link_toggled_(bool linked);
  void width_changed_(int width);
  void height_changed_(int height);

 private:
  // Sets the other side in proportion, and the percentage to match.
  void follow(QSpinBox* other, int length, double factor);

  QSpinBox* percent_ = nullptr;
  QSpinBox* width_ = nullptr;
  QSpinBox* height_ = nullptr;
  QToolButton* link_ = nullptr;
  int image_width_ = 1;
  int image_height_ = 1;
};

}  // namespace tavr

#endif
