#ifndef TAVR_LABELS_LABEL_MODEL_H
#define TAVR_LABELS_LABEL_MODEL_H

#include <QAbstractListModel>
#include <QColor>
#include <QList>
#include <QPolygonF>
#include <QString>
#include <QStringList>
#include <QTransform>

namespace tavr {

// A labelled region of one image: its label text (unique within the image), its
// colour, its vertices in picture coordinates (the first repeated at the end),
// whether it is checked (taken by plotting, copying and exporting) and whether
// it is the selected one (highlighted in the view).
struct polygon_label {
  QString label;
  QColor colour;
  QPolygonF polygon;
  bool checked = true;
  bool selected = false;

  bool operator==(const polygon_label& other) const;
};

// The polygon labels of one image, in the order they were drawn: the model of
// the "Polygon Labels" dock. Text edits that would repeat another label are
// refused (the model is left as it was and `refused` carries the message).
class label_model : public QAbstractListModel {
  Q_OBJECT

 public:
  static const QString duplicate_message;  // "New label matches an existing label. ..."
  static const QString unchecked_message;  // "Please note that chosen label is unchecked."
  // Role of the "selected" / "non_selected" state text.
  static constexpr int selection_role = Qt::UserRole + 1;

  explicit label_model(QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = QModelIndex()) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;

  const QList<polygon_label>& labels() const { return labels_; }
  const polygon_label& at(int row) const { return labels_.at(row); }
  int size() const { return labels_.size(); }
  // Row of a label text, -1 when absent.
  int row_of(const QString& text) const;
  QStringList texts() const;

  // Appends a label; false (nothing added) when its text is taken or empty.
  bool add(const polygon_label& label);
  void remove(int row);
  // Renames a label; false (and `refused`) when the text is another label's.
  bool rename(int row, const QString& text);
  void set_checked(int row, bool checked);
  void set_all_checked(bool checked);
  // Makes one row the selected label (-1: none).
  void select(int row);
  int selected_row() const;
  // The checked labels, in model order.
  QList<polygon_label> checked_labels() const;
  // Moves every polygon by a transform of picture coordinates (the picture was
  // cropped or resized).
  void transform(const QTransform& transform);
  // Replaces every label (a workspace being opened).
  void reset(const QList<polygon_label>& labels);

  // The colour of the n-th label of an image when no earlier label gave it one.
  static QColor colour_for(int n);

 Q_SIGNALS:
  void refused(const QString& message);

 private:
  QList<polygon_label> labels_;
};

}  // namespace tavr

#endif
