#include "tavr/dialogs/tutorial_dialog.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QTextBrowser>
#include <QVBoxLayout>
#include <algorithm>

namespace tavr {

tutorial_dialog::tutorial_dialog(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("tutorial_dialog"));
  setWindowTitle(QStringLiteral("Tavrel - Tutorial"));
  text_ = new QTextBrowser;
  text_->setOpenExternalLinks(true);
  counter_ = new QLabel;
  back_ = new QPushButton(QStringLiteral("Back"));
  next_ = new QPushButton(QStringLiteral("Next"));
  auto* close = new QPushButton(QStringLiteral("Close"));
  at_startup_ = new QCheckBox(QStringLiteral("Show this tutorial at startup"));
  at_startup_->setChecked(true);

  auto* buttons = new QHBoxLayout;
  buttons->addWidget(at_startup_);
  buttons->addStretch(1);
  buttons->addWidget(counter_);
  buttons->addWidget(back_);
  buttons->addWidget(next_);
  buttons->addWidget(close);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(text_, 1);
  layout->addLayout(buttons);
  resize(560, 420);

  connect(back_, &QPushButton::clicked, this, [this] { show_page(page_ - 1); });
  connect(next_, &QPushButton::clicked, this, [this] { show_page(page_ + 1); });
  connect(close, &QPushButton::clicked, this, &QDialog::accept);
  connect(at_startup_, &QCheckBox::toggled, this, &tutorial_dialog::show_at_startup_changed);
  show_page(0);
}

void tutorial_dialog::show_page(int page) {
  page_ = std::clamp(page, 0, page_count - 1);
  text_->setSource(QUrl(QStringLiteral("qrc:/tavrel/tutorial/%1.html").arg(page_ + 1)));
  counter_->setText(QStringLiteral("%1 / %2").arg(page_ + 1).arg(page_count));
  back_->setEnabled(page_ > 0);
  next_->setEnabled(page_ < page_count - 1);
}

bool tutorial_dialog::show_at_startup() const {
  return at_startup_->isChecked();
}

void tutorial_dialog::set_show_at_startup(bool show) {
  const QSignalBlocker block(at_startup_);
  at_startup_->setChecked(show);
}

}  // namespace tavr
