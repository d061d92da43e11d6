#include "tavr/library/library_model.h"

#include <QPixmap>

namespace tavr {

namespace {

corv::spectral_library library_of(const library_entry& entry) {
  corv::spectral_library one(corv::matrix(entry.spectrum), {entry.label.toStdString()},
                             entry.wavelengths);
  one.set_sources({entry.source.isEmpty() ? std::string("nofile") : entry.source.toStdString()});
  if (entry.colour.isValid()) {
    corv::matrix colour(1, 3);
    colour(0, 0) = static_cast<float>(entry.colour.red());
    colour(0, 1) = static_cast<float>(entry.colour.green());
    colour(0, 2) = static_cast<float>(entry.colour.blue());
    one.set_colours(colour);
  }
  return one;
}

corv::spectral_library merged(corv::spectral_library library, const QList<library_entry>& entries) {
  for (const library_entry& entry : entries) {
    library.merge(library_of(entry), true);
  }
  return library;
}

}  // namespace

bool library_entry::operator==(const library_entry& other) const {
  return label == other.label && source == other.source && colour == other.colour &&
         arma::approx_equal(spectrum, other.spectrum, "absdiff", 0.0f) &&
         arma::approx_equal(wavelengths, other.wavelengths, "absdiff", 0.0f);
}

QList<library_entry> entries_of(const corv::spectral_library& library) {
  QList<library_entry> entries;
  if (library.empty()) {
    return entries;
  }
  for (arma::uword i = 0; i < library.size(); ++i) {
    library_entry entry;
    entry.label = QString::fromStdString(library.labels()[i]);
    // Only the measured points: a spectrum with missing ones (such as the water
    // absorption bands of field spectra) still serves wherever it was measured.
    const corv::vector spectrum = library.endmembers().col(i);
    const arma::uvec measured = arma::find_finite(spectrum);
    entry.spectrum = spectrum.elem(measured);
    entry.wavelengths = library.wavelengths().elem(measured);
    if (library.has_colours()) {
      const corv::matrix& c = library.colours();
      entry.colour =
          QColor(static_cast<int>(c(i, 0)), static_cast<int>(c(i, 1)), static_cast<int>(c(i, 2)));
    }
    if (i < library.sources().size()) {
      entry.source = QString::fromStdString(library.sources()[i]);
    }
    entries.append(entry);
  }
  return entries;
}

library_model::library_model(QObject* parent) : QAbstractListModel(parent) {}

int library_model::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : entries_.size();
}

QVariant library_model::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= entries_.size()) {
    return {};
  }
  const library_entry& entry = entries_[index.row()];
  if (role == Qt::DisplayRole) {
    return entry.label;
  }
  if (role == Qt::ToolTipRole) {
    return entry.source;
  }
  if (role == Qt::DecorationRole && entry.colour.isValid()) {
    QPixmap swatch(12, 12);
    swatch.fill(entry.colour);
    return swatch;
  }
  return {};
}

void library_model::add(const library_entry& entry) {
  for (int row = 0; row < entries_.size(); ++row) {
    if (entries_[row].label == entry.label && entries_[row].source == entry.source) {
      entries_[row] = entry;
      Q_EMIT dataChanged(index(row), index(row));
      return;
    }
  }
  const int row = entries_.size();
  beginInsertRows(QModelIndex(), row, row);
  entries_.append(entry);
  endInsertRows();
}

void library_model::add(const QList<library_entry>& entries) {
  for (const library_entry& entry : entries) {
    add(entry);
  }
}

void library_model::remove(int row) {
  if (row < 0 || row >= entries_.size()) {
    return;
  }
  beginRemoveRows(QModelIndex(), row, row);
  entries_.removeAt(row);
  endRemoveRows();
}

void library_model::clear() {
  reset({});
}

void library_model::reset(const QList<library_entry>& entries) {
  beginResetModel();
  entries_ = entries;
  endResetModel();
}

corv::spectral_library library_model::to_library() const {
  return merged(corv::spectral_library(), entries_);
}

corv::spectral_library library_model::library_on(const corv::vector& wavelengths) const {
  corv::spectral_library library;
  library.set_wavelengths(wavelengths);
  return merged(library, entries_);
}

}  // namespace tavr
