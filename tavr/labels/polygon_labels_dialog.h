#ifndef TAVR_LABELS_POLYGON_LABELS_DIALOG_H
#define TAVR_LABELS_POLYGON_LABELS_DIALOG_H

#include <QDialog>
#include <QString>
#include <QStringList>
#include <QStringListModel>
#include <functional>

class QLabel;
class QLineEdit;
class QListView;
class QModelIndex;

namespace tavr {

// "Polygon Label": asks for the label of a polygon. "Previous Labels:" offers
// the labels already used; choosing one copies it into "Label:". Accepting is
// refused while the check says what is wrong with the text.
class polygon_labels_dialog : public QDialog {
  Q_OBJECT

 public:
  // What is wrong with a label text (empty when it is acceptable).
  using check = std::function<QString(const QString&)>;
  // Whether a label text is one whose entry is unchecked.
  using unchecked = std::function<bool(const QString&)>;

  explicit polygon_labels_dialog(QWidget* parent = nullptr);

  void set_previous_labels(const QStringList& labels);
  void set_check(check value) { check_ = std::move(value); }
  void set_unchecked(unchecked value) { unchecked_ = std::move(value); }
  void set_label(const QString& text);
  QString label() const;
  // The note under the fields ("Please note that chosen label is unchecked.").
  QString note() const;
  QListView& previous_list() { return *previous_; }

  void accept() override;

 public Q_SLOTS:
  void set_label_(const QModelIndex& index);

 Q_SIGNALS:
  void label_changed(const QString& text);
  // A refusal of the text, shown in a "Tavrel" box unless someone listens.
  void refused(const QString& message);

 private:
  QLineEdit* label_ = nullptr;
  QListView* previous_ = nullptr;
  QLabel* note_ = nullptr;
  QStringListModel previous_labels_;
  check check_;
  unchecked unchecked_;
};

}  // namespace tavr

#endif
