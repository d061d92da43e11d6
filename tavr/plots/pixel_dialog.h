#ifndef TAVR_PLOTS_PIXEL_DIALOG_H
#define TAVR_PLOTS_PIXEL_DIALOG_H

#include <QDialog>
#include <QString>

#include "tavr/plots/pixel_values.h"

class QTreeWidget;
class QTreeWidgetItem;

namespace tavr {

// The pixel inspector: one entry per inspected pixel, holding every component
// value at that location grouped as "Image Components", "Material Discovery",
// "Classification" and "Analysis".
class pixel_dialog : public QDialog {
  Q_OBJECT

 public:
  explicit pixel_dialog(QWidget* parent = nullptr);

  void add_pixel(const pixel_values& values);
  int pixel_count() const;
  QTreeWidget& tree() { return *tree_; }

  // The text "Copy Row" puts on the clipboard for an item: "name<TAB>value" for a
  // field, the group's fields one per line for a group, and every field of the
  // pixel one per line for a pixel.
  static QString row_text(const QTreeWidgetItem& item);

 public Q_SLOTS:
  // "Close".
  void ok_button_();
  // "Clear": forgets every pixel.
  void clear_button_();
  // "Copy Row": copies the selected row to the clipboard.
  void save_button_();

 private:
  QTreeWidget* tree_;
};

}  // namespace tavr

#endif
