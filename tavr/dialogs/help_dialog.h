#ifndef TAVR_DIALOGS_HELP_DIALOG_H
#define TAVR_DIALOGS_HELP_DIALOG_H

#include <QDialog>

class QTextBrowser;

namespace tavr {

// "Tavrel Help": the user guide, which comes with the program and needs no
// network (Help > Tavrel Help (Offline)).
class help_dialog : public QDialog {
  Q_OBJECT

 public:
  explicit help_dialog(QWidget* parent = nullptr);

  QTextBrowser* browser() const { return text_; }

 private:
  QTextBrowser* text_ = nullptr;
};

}  // namespace tavr

#endif
