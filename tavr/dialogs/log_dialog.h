#ifndef TAVR_DIALOGS_LOG_DIALOG_H
#define TAVR_DIALOGS_LOG_DIALOG_H

#include <QDialog>
#include <QTimer>

class QPlainTextEdit;

namespace tavr {

// "Log Outputs": the library's log as it grows. A timer moves the logger's new
// lines into the text while the viewer runs, whether or not the dialog is
// shown, so that the dialog holds the log since start (its oldest lines are
// dropped beyond max_lines).
class log_dialog : public QDialog {
  Q_OBJECT

 public:
  static constexpr int poll_interval_ms = 500;
  static constexpr int max_lines = 100000;

  explicit log_dialog(QWidget* parent = nullptr);

  QString text() const;
  const QTimer& timer() const { return timer_; }
  // Writes the text to a file, all or nothing; false when it cannot.
  bool save_to(const QString& file_name) const;

 public Q_SLOTS:
  // Moves the logger's new lines into the text, each as "<time stamp> <line>".
  void process_logs_();
  void clear_button_();
  // Asks for a file ("TAVREL - Save Log Data") and saves the text there.
  void save_button_();

 private:
  QPlainTextEdit* text_ = nullptr;
  QTimer timer_;
};

}  // namespace tavr

#endif
