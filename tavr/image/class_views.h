#ifndef TAVR_IMAGE_CLASS_VIEWS_H
#define TAVR_IMAGE_CLASS_VIEWS_H

#include <QColor>
#include <QImage>
#include <QString>
#include <QVector>

#include "corv/io/types.h"

namespace corv {
class spectral_library;
}

namespace tavr {

struct classification_result;

// One row of a legend: a class (or an endmember), its colour, and whether its
// check box in the dock is checked.
struct legend_entry {
  QString label;
  QColor colour;
  bool checked = true;
};

// The legend of a classification: its classes in class order, each in the
// colour of its first endmember in the library (the library's own colours, or
// the palette when it has none). Every entry starts checked.
QVector<legend_entry> class_legend(const classification_result& result,
                                   const corv::spectral_library* library);

// The legend of the library's endmembers (endmember abundance views).
QVector<legend_entry> endmember_legend(const corv::spectral_library& library);

// The class map: each pixel in its class's colour where that class is checked,
// black elsewhere (and where no class applies).
QImage class_map_picture(const corv::matrix& class_map, const QVector<legend_entry>& legend);

// The picture with the checked classes laid over it: each of their pixels
// blended towards its class colour by `opacity` (0..1).
QImage class_overlay(const QImage& base, const corv::matrix& class_map,
                     const QVector<legend_entry>& legend, double opacity = 0.5);

// How strongly each pixel belongs to a class (1-based): for unmixing, the sum
// of the fractions of the class's endmembers among the pixel's best; for the
// spectral angle mapper, the smallest angle (degrees) of its endmembers among
// them, NaN when none is. Empty for other methods.
corv::matrix class_scores(const classification_result& result, int class_number);

// Checked indexes of a legend (0-based), for the abundance overlay.
std::vector<int> checked_entries(const QVector<legend_entry>& legend);

}  // namespace tavr

#endif
