#ifndef TAVR_LABELS_LABEL_EXPORT_H
#define TAVR_LABELS_LABEL_EXPORT_H

#include <QList>
#include <QPoint>
#include <QPolygonF>
#include <QString>
#include <QVector>
#include <functional>

#include "corv/io/spectral_library.h"
#include "corv/io/types.h"
#include "tavr/labels/label_model.h"

namespace tavr {

// The pixels of a picture of width x height whose centres lie inside the
// polygon, row by row.
QVector<QPoint> pixels_inside(const QPolygonF& polygon, int width, int height);

// The mean spectrum of a cube over pixels (x, y); empty when there are none.
corv::vector mean_spectrum(const corv::cube& data, const QVector<QPoint>& pixels);

// One endmember per label: the mean spectrum of the pixels inside its polygon,
// under the label's text and in its colour. A label that covers no pixel is
// refused: "polygon_endmembers: Label <label> covers no pixel."
corv::spectral_library polygon_endmembers(const corv::cube& data, const corv::vector& wavelengths,
                                          const QList<polygon_label>& labels);

// Called with the number of labels done and their total; false cancels.
using export_progress = std::function<bool(int done, int total)>;

// Writes every pixel of the labels' polygons as a CSV line: the header
// "image,x,y,label," followed by every wavelength and a comma, then per pixel
// the image name, x, y, label and the value in every band, each followed by a
// comma (texts holding commas or quotes are quoted). The file appears whole or
// not at all: false when cancelled, "export_polygon_data: Cannot write <file>."
// when writing fails.
bool write_polygon_csv(const QString& image_name, const corv::cube& data,
                       const corv::vector& wavelengths, const QList<polygon_label>& labels,
                       const QString& file_name, const export_progress& progress = {});

}  // namespace tavr

#endif
