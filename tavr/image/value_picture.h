#ifndef TAVR_IMAGE_VALUE_PICTURE_H
#define TAVR_IMAGE_VALUE_PICTURE_H

#include <QColor>
#include <QImage>
#include <QVector>

#include "corv/io/types.h"

namespace tavr {

// How a layer of arbitrary values (a band maths result, a class score) is coloured.
enum class value_colours {
  grey,       // black at the smallest finite value, white at the largest
  colour_map  // the perceptual blue-green-yellow map of value_colour
};

// The colour of a position 0..1 along the colour map (dark blue, teal, green,
// yellow), interpolated linearly between its stops; outside 0..1 it is clamped.
QColor value_colour(double position);

// The values stretched linearly between their smallest and largest finite value
// (a constant layer is mid grey, or the map's middle); NaN and infinities are
// black.
QImage value_picture(const corv::matrix& values, value_colours colours);

// Principal components as a picture: component `first` in grey or, with
// `colour`, it and the next two as red, green and blue (a missing one stays
// black). Each is stretched over its mean plus and minus `clip` standard
// deviations, or over its whole range when `clip` is 0: a few extreme pixels
// would otherwise leave everything else mid grey.
QImage component_picture(const corv::cube& components, int first, bool colour, double clip);

// The stops of the colour map, darkest first, for legends.
QVector<QColor> colour_map_stops();

}  // namespace tavr

#endif
