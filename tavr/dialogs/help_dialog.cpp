#include "tavr/dialogs/help_dialog.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <QTextBrowser>
#include <QVBoxLayout>

namespace tavr {

help_dialog::help_dialog(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("help_dialog"));
  setWindowTitle(QStringLiteral("Tavrel Help"));
  setSizeGripEnabled(true);
  text_ = new QTextBrowser;
  text_->setOpenExternalLinks(true);
  text_->setSource(QUrl(QStringLiteral("qrc:/tavrel/help/guide.html")));
  auto* contents = new QPushButton(QStringLiteral("Contents"));
  auto* back = new QPushButton(QStringLiteral("Back"));
  auto* close = new QPushButton(QStringLiteral("Close"));
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(contents);
  buttons->addWidget(back);
  buttons->addStretch(1);
  buttons->addWidget(close);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(text_, 1);
  layout->addLayout(buttons);
  resize(720, 620);
  connect(contents, &QPushButton::clicked, text_, &QTextBrowser::home);
  connect(back, &QPushButton::clicked, text_, &QTextBrowser::backward);
  connect(text_, &QTextBrowser::backwardAvailable, back, &QPushButton::setEnabled);
  connect(close, &QPushButton::clicked, this, &QDialog::accept);
  back->setEnabled(false);
}

}  // namespace tavr
