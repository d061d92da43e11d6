#ifndef TAVR_APP_CLASSES_DOCK_H
#define TAVR_APP_CLASSES_DOCK_H

#include <QVector>
#include <QWidget>

#include "tavr/image/class_views.h"

class QComboBox;
class QListWidget;

namespace tavr {

// The content of the "Classes" dock: the classification method that "Run
// Classification" uses, and the legend of the current image's classes with
// their check boxes (unchecked classes are hidden from the class views).
class classes_dock : public QWidget {
  Q_OBJECT

 public:
  explicit classes_dock(QWidget* parent = nullptr);

  // The chosen method as a classification code (4, 5 or 6).
  int method() const;
  void set_method(int code);

  // Shows a legend (an empty one clears the list).
  void set_legend(const QVector<legend_entry>& legend);
  // The legend with the check states as the user left them.
  QVector<legend_entry> legend() const;

 Q_SIGNALS:
  void method_changed(int code);
  // A check box changed, or all of them did.
  void legend_changed();
  // A class was double-clicked: show its scores (1-based class number).
  void class_activated(int class_number);

 private:
  void check_all(bool checked);

  QComboBox* method_ = nullptr;
  QListWidget* classes_ = nullptr;
};

}  // namespace tavr

#endif
