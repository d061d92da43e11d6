#ifndef TAVR_WORKSPACE_WORKSPACE_RECORD_H
#define TAVR_WORKSPACE_WORKSPACE_RECORD_H

#include <QIODevice>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QVariant>

#include "tavr/image/hs_image.h"

namespace tavr {

// The record "tavrel.dat" of a workspace file, in stream order. Per-image lists
// are in image-list order.
struct workspace_record {
  static constexpr quint32 magic = 0xA0B0C0D0u;
  static constexpr qint32 version = 1000;

  // Full paths (images that stay on disc) or member names (images inside the file).
  QStringList images;
  // Per image, its polygon labels: a value (see label_entry) and the label text.
  QList<QList<QPair<QVariant, QString>>> labels;
  // Per image, its "Pipeline settings:" summary.
  QStringList settings;
  // Every label text used in the session.
  QStringList label_list;
  // Per image, its preparation history.
  QList<QList<operation_record>> histories;
  // Library members of the file ("library.slz").
  QStringList libraries;
  // Per image, its view state and how it is stored (see image_state_strings).
  QList<QStringList> states;
  // The workspace itself: a map with "current" (the current image's row) and
  // "portable".
  QVariant workspace;
};

// The value stored before a label's text: a map of "colour" (QColor),
// "checked" and "selected" (bool) and "polygon" (QPolygonF).
QVariant label_entry(const polygon_label& label);
// The label back from its value and text; false when the value is not such a map.
bool label_from_entry(const QVariant& value, const QString& text, polygon_label& label);

// "workspace: The workspace record is damaged."
extern const char* const damaged_record;

// Writes the record with QDataStream's default version and byte order; every
// count is a signed 32-bit integer before its elements.
void write_record(QIODevice& device, const workspace_record& record);
// Reads a record. A first integer other than the magic number throws
// "Mismatch magic numbers. Cannot open workspace."; a record that ends early or
// holds impossible counts or values throws damaged_record. Values are read
// only of the plain kinds a record holds (maps, lists, numbers, texts, colours,
// points, rectangles and polygons), nested at most four deep.
workspace_record read_record(QIODevice& device);

}  // namespace tavr

#endif
