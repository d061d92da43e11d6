#include "tavr/dialogs/resize_image_dialog.h"

#include <QDialogButtonBox>
#include <QGridLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

namespace tavr {

namespace {

int scaled(int length, double factor) {
  return std::max(1, static_cast<int>(std::lround(length * factor)));
}

// Half a pixel above the wanted length, so that truncating length x percent /
// 100 gives exactly the wanted length whatever the rounding of the division.
double percent_for(int wanted, int length) {
  return 100.0 * (wanted + 0.5) / length;
}

}  // namespace

resize_image_dialog::resize_image_dialog(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("Resize_Image_Dialog"));
  setWindowTitle(QStringLiteral("Resize Image"));

  percent_ = new QSpinBox;
  percent_->setRange(1, 100);
  percent_->setSuffix(QStringLiteral(" %"));
  width_ = new QSpinBox;
  height_ = new QSpinBox;
  for (QSpinBox* box : {width_, height_}) {
    box->setSuffix(QStringLiteral(" px"));
    box->setMinimumWidth(100);
  }
  link_ = new QToolButton;
  link_->setCheckable(true);
  link_->setIconSize(QSize(24, 24));
  link_->setAutoRaise(true);

  auto* grid = new QGridLayout;
  grid->addWidget(new QLabel(QStringLiteral("Resize")), 0, 0);
  grid->addWidget(percent_, 0, 1);
  grid->addWidget(new QLabel(QStringLiteral("Width:")), 1, 0);
  grid->addWidget(width_, 1, 1);
  grid->addWidget(link_, 1, 2, 2, 1, Qt::AlignVCenter);
  grid->addWidget(new QLabel(QStringLiteral("Height:")), 2, 0);
  grid->addWidget(height_, 2, 1);
  grid->setColumnStretch(3, 1);

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  auto* layout = new QVBoxLayout(this);
  layout->addLayout(grid);
  layout->addWidget(buttons);

  connect(percent_, QOverload<int>::of(&QSpinBox::valueChanged), this,
          &resize_image_dialog::resize_percent_);
  connect(width_, QOverload<int>::of(&QSpinBox::valueChanged), this,
          &resize_image_dialog::width_changed_);
  connect(height_, QOverload<int>::of(&QSpinBox::valueChanged), this,
          &resize_image_dialog::height_changed_);
  connect(link_, &QToolButton::toggled, this, &resize_image_dialog::link_toggled_);
  link_->setChecked(true);
  set_image_size(1, 1);
}

void resize_image_dialog::set_image_size(int width, int height) {
  image_width_ = std::max(1, width);
  image_height_ = std::max(1, height);
  const QSignalBlocker block_width(width_);
  const QSignalBlocker block_height(height_);
  const QSignalBlocker block_percent(percent_);
  width_->setRange(1, image_width_);
  height_->setRange(1, image_height_);
  width_->setValue(image_width_);
  height_->setValue(image_height_);
  percent_->setValue(100);
}

int resize_image_dialog::new_width() const {
  return width_->value();
}
int resize_image_dialog::new_height() const {
  return height_->value();
}
bool resize_image_dialog::linked() const {
  return link_->isChecked();
}

double resize_image_dialog::width_percent() const {
  return percent_for(new_width(), image_width_);
}
double resize_image_dialog::height_percent() const {
  return percent_for(new_height(), image_height_);
}

void resize_image_dialog::resize_percent_(int percent) {
  const QSignalBlocker block_width(width_);
  const QSignalBlocker block_height(height_);
  width_->setValue(scaled(image_width_, percent / 100.0));
  height_->setValue(scaled(image_height_, percent / 100.0));
}

void resize_image_dialog::link_toggled_(bool linked) {
  link_->setIcon(QIcon(linked ? QStringLiteral(":/tavrel/icons/link.png")
                              : QStringLiteral(":/tavrel/icons/link_break.png")));
  link_->setToolTip(linked ? QStringLiteral("Width and height are linked: click to unlink")
                           : QStringLiteral("Width and height are unlinked: click to link"));
  if (linked) {
    width_changed_(width_->value());
  }
}

void resize_image_dialog::width_changed_(int width) {
  if (linked()) {
    follow(height_, image_height_, static_cast<double>(width) / image_width_);
  }
}

void resize_image_dialog::height_changed_(int height) {
  if (linked()) {
    follow(width_, image_width_, static_cast<double>(height) / image_height_);
  }
}

void resize_image_dialog::follow(QSpinBox* other, int length, double factor) {
  const QSignalBlocker block_other(other);
  const QSignalBlocker block_percent(percent_);
  other->setValue(scaled(length, factor));
  percent_->setValue(static_cast<int>(std::lround(100.0 * factor)));
}

}  // namespace tavr
