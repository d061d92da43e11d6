#ifndef TAVR_LIBRARY_LIBRARY_MODEL_H
#define TAVR_LIBRARY_LIBRARY_MODEL_H

#include <QAbstractListModel>
#include <QColor>
#include <QList>
#include <QString>

#include "corv/io/spectral_library.h"
#include "corv/io/types.h"

namespace tavr {

// One labelled spectrum of the viewer's library, on its own wavelengths.
struct library_entry {
  QString label;
  corv::vector spectrum;
  corv::vector wavelengths;
  QColor colour;   // invalid when the spectrum came without one
  QString source;  // the file or image it came from

  bool operator==(const library_entry& other) const;
};

// Every spectrum of a library as entries, in library order, each with only its
// measured (finite) points and their wavelengths.
QList<library_entry> entries_of(const corv::spectral_library& library);

// The viewer's spectral library: the "Selected Labels" of the library manager,
// the target of copied polygons, the endmembers of classification and the
// library saved in workspaces. Entries keep their own wavelengths; they are put
// on one wavelength grid only when a library is made of them.
class library_model : public QAbstractListModel {
  Q_OBJECT

 public:
  explicit library_model(QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = QModelIndex()) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

  const QList<library_entry>& entries() const { return entries_; }
  int size() const { return entries_.size(); }
  bool empty() const { return entries_.isEmpty(); }

  // Appends an entry; one with the label and source of an existing entry
  // replaces it instead (copying a polygon again updates its spectrum).
  void add(const library_entry& entry);
  void add(const QList<library_entry>& entries);
  void remove(int row);
  void clear();
  void reset(const QList<library_entry>& entries);

  // The entries as one library on the first entry's wavelengths, the others
  // resampled linearly (never extrapolated: a spectrum that does not cover the
  // grid is refused with the library's message). Empty when there are none.
  corv::spectral_library to_library() const;
  // The entries resampled onto the given wavelengths (an image's bands).
  corv::spectral_library library_on(const corv::vector& wavelengths) const;

 private:
  QList<library_entry> entries_;
};

}  // namespace tavr

#endif
