#ifndef TAVR_LABELS_LABELS_DOCK_H
#define TAVR_LABELS_LABELS_DOCK_H

#include <QWidget>

class QListView;
class QPushButton;

namespace tavr {

class label_model;

// The content of the "Polygon Labels" dock: the current image's labels (check
// box, colour, text; double-click or F2 edits the text) and the buttons that act
// on the checked ones.
class labels_dock : public QWidget {
  Q_OBJECT

 public:
  explicit labels_dock(QWidget* parent = nullptr);

  // Shows an image's labels (null: none).
  void set_labels(label_model* labels);
  QListView& list() { return *list_; }
  QPushButton& deselect_all() { return *deselect_all_; }
  QPushButton& select_all() { return *select_all_; }
  QPushButton& copy_to_library() { return *copy_to_library_; }
  QPushButton& export_slz() { return *export_slz_; }

 private:
  QListView* list_;
  QPushButton* deselect_all_;
  QPushButton* select_all_;
  QPushButton* copy_to_library_;
  QPushButton* export_slz_;
};

}  // namespace tavr

#endif
