#ifndef TAVR_IMAGE_IMAGE_SUBSET_H
#define TAVR_IMAGE_IMAGE_SUBSET_H

#include <QString>
#include <memory>
#include <vector>

#include "corv/io/types.h"

namespace tavr {

class hs_image;

// Images with more elements than this are offered the large-image dialog.
constexpr double large_image_elements = 1e8;

// Whether height x width x bands is more than large_image_elements.
bool is_large_image(double height, double width, double bands);

// The part of a large image to load: bands (0-based) and two ranges as entered.
// Each range may be entered in either order; the smaller end is its start and
// it counts end - start rows (or columns): the end is not included.
struct image_subset {
  corv::band_list bands;
  int vertical_from = 0;
  int vertical_to = 0;
  int horizontal_from = 0;
  int horizontal_to = 0;

  int first_row() const;
  int row_count() const;
  int first_column() const;
  int column_count() const;
  // row_count x column_count x number of bands.
  double elements() const;
};

// The whole image as a subset.
image_subset whole_image(unsigned height, unsigned width, unsigned bands);

// "Loaded image will have <E> million elements (approx <M> MB RAM, more required
// for processing)", E the subset's elements in millions and M = E x 4, each
// rounded to a whole number.
QString load_estimate(const image_subset& subset);

// Reads the subset of an image file into memory as a new image object (reload
// returns to the subset). Throws std::runtime_error for an empty subset
// ("open_subset: Nothing to load: choose at least one band, one row and one
// column.") or with the reader's text.
std::shared_ptr<hs_image> open_subset(const QString& file_name, const image_subset& subset);

}  // namespace tavr

#endif
