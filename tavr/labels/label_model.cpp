#include "tavr/labels/label_model.h"

#include <QPixmap>

#include "corv/io/spectral_library.h"

namespace tavr {

const QString label_model::duplicate_message =
    QStringLiteral("New label matches an existing label. Please choose a different label.");
const QString label_model::unchecked_message =
    QStringLiteral("Please note that chosen label is unchecked.");

bool polygon_label::operator==(const polygon_label& other) const {
  return label == other.label && colour == other.colour && polygon == other.polygon &&
         checked == other.checked && selected == other.selected;
}

label_model::label_model(QObject* parent) : QAbstractListModel(parent) {}

int label_model::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : labels_.size();
}

QVariant label_model::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= labels_.size()) {
    return {};
  }
  const polygon_label& label = labels_[index.row()];
  switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
      return label.label;
    case Qt::DecorationRole: {
      QPixmap swatch(12, 12);
      swatch.fill(label.colour);
      return swatch;
    }
    case Qt::CheckStateRole:
      return label.checked ? Qt::Checked : Qt::Unchecked;
    case selection_role:
      return label.selected ? QStringLiteral("selected") : QStringLiteral("non_selected");
    default:
      return {};
  }
}

bool label_model::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (!index.isValid() || index.row() >= labels_.size()) {
    return false;
  }
  if (role == Qt::CheckStateRole) {
    set_checked(index.row(), value.toInt() == Qt::Checked);
    return true;
  }
  if (role == Qt::EditRole) {
    return rename(index.row(), value.toString());
  }
  return false;
}

Qt::ItemFlags label_model::flags(const QModelIndex& index) const {
  if (!index.isValid()) {
    return Qt::NoItemFlags;
  }
  return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable | Qt::ItemIsUserCheckable;
}

int label_model::row_of(const QString& text) const {
  for (int row = 0; row < labels_.size(); ++row) {
    if (labels_[row].label == text) {
      return row;
    }
  }
  return -1;
}

QStringList label_model::texts() const {
  QStringList texts;
  for (const polygon_label& label : labels_) {
    texts.append(label.label);
  }
  return texts;
}

bool label_model::add(const polygon_label& label) {
  if (label.label.trimmed().isEmpty() || row_of(label.label) >= 0) {
    return false;
  }
  const int row = labels_.size();
  beginInsertRows(QModelIndex(), row, row);
  labels_.append(label);
  endInsertRows();
  if (label.selected) {
    select(row);
  }
  return true;
}

void label_model::remove(int row) {
  if (row < 0 || row >= labels_.size()) {
    return;
  }
  beginRemoveRows(QModelIndex(), row, row);
  labels_.removeAt(row);
  endRemoveRows();
}

bool label_model::rename(int row, const QString& text) {
  if (row < 0 || row >= labels_.size() || text == labels_[row].label) {
    return row >= 0 && row < labels_.size();
  }
  const int other = row_of(text);
  if (text.trimmed().isEmpty() || other >= 0) {
    Q_EMIT refused(duplicate_message);
    return false;
  }
  labels_[row].label = text;
  Q_EMIT dataChanged(index(row), index(row), {Qt::DisplayRole, Qt::EditRole});
  return true;
}

void label_model::set_checked(int row, bool checked) {
  if (row < 0 || row >= labels_.size() || labels_[row].checked == checked) {
    return;
  }
  labels_[row].checked = checked;
  Q_EMIT dataChanged(index(row), index(row), {Qt::CheckStateRole});
}

void label_model::set_all_checked(bool checked) {
  for (int row = 0; row < labels_.size(); ++row) {
    set_checked(row, checked);
  }
}

void label_model::select(int row) {
  for (int i = 0; i < labels_.size(); ++i) {
    const bool selected = i == row;
    if (labels_[i].selected != selected) {
      labels_[i].selected = selected;
      Q_EMIT dataChanged(index(i), index(i), {selection_role});
    }
  }
}

int label_model::selected_row() const {
  for (int row = 0; row < labels_.size(); ++row) {
    if (labels_[row].selected) {
      return row;
    }
  }
  return -1;
}

QList<polygon_label> label_model::checked_labels() const {
  QList<polygon_label> checked;
  for (const polygon_label& label : labels_) {
    if (label.checked) {
      checked.append(label);
    }
  }
  return checked;
}

void label_model::transform(const QTransform& transform) {
  if (labels_.isEmpty() || transform.isIdentity()) {
    return;
  }
  for (polygon_label& label : labels_) {
    label.polygon = transform.map(label.polygon);
  }
  Q_EMIT dataChanged(index(0), index(labels_.size() - 1));
}

void label_model::reset(const QList<polygon_label>& labels) {
  beginResetModel();
  labels_ = labels;
  endResetModel();
}

QColor label_model::colour_for(int n) {
  const corv::matrix colours =
      corv::spectral_library::palette_colours(static_cast<arma::uword>(n), 1);
  return QColor(static_cast<int>(colours(0, 0)), static_cast<int>(colours(0, 1)),
                static_cast<int>(colours(0, 2)));
}

}  // namespace tavr
