#include "tavr/dialogs/image_info_dialog.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QFontDatabase>
#include <QFormLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tavr {

image_info_dialog::image_info_dialog(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("image_info_dialog"));
  setWindowTitle(QStringLiteral("Image Information"));

  file_ = new QLabel;
  file_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  height_ = new QLabel;
  width_ = new QLabel;
  slices_ = new QLabel;
  exposure_ = new QLabel;
  exposure_->setWordWrap(true);
  auto* form = new QFormLayout;
  form->addRow(QStringLiteral("File:"), file_);
  form->addRow(QStringLiteral("Height:"), height_);
  form->addRow(QStringLiteral("Width:"), width_);
  form->addRow(QStringLiteral("Slices:"), slices_);
  form->addRow(QStringLiteral("Exposure times:"), exposure_);

  settings_ = new QPlainTextEdit;
  settings_->setReadOnly(true);
  settings_->setMinimumHeight(300);

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok);
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

  auto* layout = new QVBoxLayout(this);
  layout->addLayout(form);
  layout->addWidget(settings_, 1);
  layout->addWidget(buttons);
  resize(420, 520);
}

void image_info_dialog::set_information(const image_information& info) {
  file_->setText(QFileInfo(info.file_name).fileName());
  file_->setToolTip(info.file_name);
  height_->setText(QString::number(info.height));
  width_->setText(QString::number(info.width));
  slices_->setText(QString::number(info.slices));
  exposure_->setText(info.exposure_times);
  settings_->setPlainText(info.pipeline_settings);
}

}  // namespace tavr
