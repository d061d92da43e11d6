#include "tavr/dialogs/log_dialog.h"

#include <QFileDialog>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSaveFile>
#include <QVBoxLayout>

#include "corv/io/logger.h"

namespace tavr {

log_dialog::log_dialog(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("log_dialog"));
  setWindowTitle(QStringLiteral("Log Outputs"));
  setSizeGripEnabled(true);

  text_ = new QPlainTextEdit;
  text_->setReadOnly(true);
  text_->setMaximumBlockCount(max_lines);
  text_->setLineWrapMode(QPlainTextEdit::NoWrap);
  text_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));

  auto* ok = new QPushButton(QStringLiteral("OK"));
  auto* clear = new QPushButton(QStringLiteral("Clear"));
  auto* save = new QPushButton(QStringLiteral("Save"));
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(clear);
  buttons->addWidget(save);
  buttons->addStretch(1);
  buttons->addWidget(ok);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(text_, 1);
  layout->addLayout(buttons);
  resize(720, 460);

  connect(ok, &QPushButton::clicked, this, &QDialog::accept);
  connect(clear, &QPushButton::clicked, this, &log_dialog::clear_button_);
  connect(save, &QPushButton::clicked, this, &log_dialog::save_button_);
  connect(&timer_, &QTimer::timeout, this, &log_dialog::process_logs_);
  timer_.start(poll_interval_ms);
}

QString log_dialog::text() const {
  return text_->toPlainText();
}

void log_dialog::process_logs_() {
  const std::vector<corv::logger::entry> lines = corv::logger::instance().take_entries();
  for (const corv::logger::entry& line : lines) {
    text_->appendPlainText(QString::fromStdString(line.first) + ' ' +
                           QString::fromStdString(line.second));
  }
}

void log_dialog::clear_button_() {
  text_->clear();
}

bool log_dialog::save_to(const QString& file_name) const {
  QSaveFile file(file_name);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
    return false;
  }
  QString content = text();
  if (!content.isEmpty()) {
    content += '\n';
  }
  file.write(content.toUtf8());
  return file.commit();
}

void log_dialog::save_button_() {
  const QString name = QFileDialog::getSaveFileName(this, QStringLiteral("TAVREL - Save Log Data"),
                                                    QString(), QStringLiteral("text (*.txt)"));
  if (!name.isEmpty() && !save_to(name)) {
    QMessageBox::warning(this, QStringLiteral("Error"), QStringLiteral("Could not save file"));
  }
}

}  // namespace tavr
