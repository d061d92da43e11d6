#ifndef TAVR_DIALOGS_TUTORIAL_DIALOG_H
#define TAVR_DIALOGS_TUTORIAL_DIALOG_H

#include <QDialog>

class QCheckBox;
class QLabel;
class QPushButton;
class QTextBrowser;

namespace tavr {

// "Tavrel - Tutorial": a few pages on the main steps, one at a time, and the
// choice whether the tutorial opens at start.
class tutorial_dialog : public QDialog {
  Q_OBJECT

 public:
  static constexpr int page_count = 5;

  explicit tutorial_dialog(QWidget* parent = nullptr);

  int page() const { return page_; }
  // Shows a page (0-based; clamped to the pages there are).
  void show_page(int page);
  bool show_at_startup() const;
  void set_show_at_startup(bool show);

 Q_SIGNALS:
  void show_at_startup_changed(bool show);

 private:
  QTextBrowser* text_ = nullptr;
  QLabel* counter_ = nullptr;
  QPushButton* back_ = nullptr;
  QPushButton* next_ = nullptr;
  QCheckBox* at_startup_ = nullptr;
  int page_ = 0;
};

}  // namespace tavr

#endif
