#include "tavr/labels/polygon_labels_dialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMessageBox>
#include <QVBoxLayout>

#include "tavr/labels/label_model.h"

namespace tavr {

polygon_labels_dialog::polygon_labels_dialog(QWidget* parent) : QDialog(parent) {
  setObjectName("polygon_labels_dialog");
  setWindowTitle("Polygon Label");
  label_ = new QLineEdit(this);
  previous_ = new QListView(this);
  previous_->setModel(&previous_labels_);
  previous_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  note_ = new QLabel(this);
  note_->setStyleSheet("color: #b05000;");
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);

  auto* form = new QFormLayout;
  form->addRow("Label:", label_);
  form->addRow("Previous Labels:", previous_);
  auto* layout = new QVBoxLayout(this);
  layout->addLayout(form);
  layout->addWidget(note_);
  layout->addWidget(buttons);

  connect(buttons, &QDialogButtonBox::accepted, this, &polygon_labels_dialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &polygon_labels_dialog::reject);
  connect(previous_, &QListView::clicked, this, &polygon_labels_dialog::set_label_);
  connect(previous_, &QListView::activated, this, &polygon_labels_dialog::set_label_);
  connect(label_, &QLineEdit::textChanged, this, &polygon_labels_dialog::label_changed);
  connect(label_, &QLineEdit::textChanged, this, [this](const QString& text) {
    note_->setText(unchecked_ && unchecked_(text) ? label_model::unchecked_message : QString());
  });
}

void polygon_labels_dialog::set_previous_labels(const QStringList& labels) {
  previous_labels_.setStringList(labels);
}

void polygon_labels_dialog::set_label(const QString& text) {
  label_->setText(text);
  label_->selectAll();
}

QString polygon_labels_dialog::label() const {
  return label_->text().trimmed();
}

QString polygon_labels_dialog::note() const {
  return note_->text();
}

void polygon_labels_dialog::set_label_(const QModelIndex& index) {
  if (index.isValid()) {
    set_label(index.data().toString());
  }
}

void polygon_labels_dialog::accept() {
  const QString problem = label().isEmpty() ? QStringLiteral("Please enter a label.")
                          : check_          ? check_(label())
                                            : QString();
  if (!problem.isEmpty()) {
    if (isSignalConnected(QMetaMethod::fromSignal(&polygon_labels_dialog::refused))) {
      Q_EMIT refused(problem);
    } else {
      QMessageBox::warning(this, "Tavrel", problem);
    }
    return;
  }
  QDialog::accept();
}

}  // namespace tavr
