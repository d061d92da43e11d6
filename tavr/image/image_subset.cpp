#include "tavr/image/image_subset.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "corv/io/open_input.h"
#include "tavr/image/hs_image.h"

namespace tavr {

bool is_large_image(double height, double width, double bands) {
  return height * width * bands > large_image_elements;
}

int image_subset::first_row() const {
  return std::min(vertical_from, vertical_to);
}
int image_subset::row_count() const {
  return std::abs(vertical_to - vertical_from);
}
int image_subset::first_column() const {
  return std::min(horizontal_from, horizontal_to);
}
int image_subset::column_count() const {
  return std::abs(horizontal_to - horizontal_from);
}

double image_subset::elements() const {
  return static_cast<double>(row_count()) * static_cast<double>(column_count()) *
         static_cast<double>(bands.size());
}

image_subset whole_image(unsigned height, unsigned width, unsigned bands) {
  image_subset subset;
  for (unsigned b = 0; b < bands; ++b) {
    subset.bands.push_back(b);
  }
  subset.vertical_to = static_cast<int>(height);
  subset.horizontal_to = static_cast<int>(width);
  return subset;
}

QString load_estimate(const image_subset& subset) {
  const double millions = subset.elements() / 1e6;
  return QStringLiteral(
             "Loaded image will have %1 million elements (approx %2 MB RAM, more required for "
             "processing)")
      .arg(std::llround(millions))
      .arg(std::llround(millions * 4.0));
}

std::shared_ptr<hs_image> open_subset(const QString& file_name, const image_subset& subset) {
  if (subset.elements() <= 0.0) {
    throw std::runtime_error(
        "open_subset: Nothing to load: choose at least one band, one row and one column.");
  }
  const auto input = corv::open_input(file_name.toStdString(), false);
  const corv::vector all = input->wavelengths();
  const corv::band_list& bands = subset.bands;
  corv::vector wavelengths(bands.size());
  for (std::size_t i = 0; i < bands.size(); ++i) {
    if (bands[i] >= all.n_elem) {
      throw std::runtime_error("open_subset: Band " + std::to_string(bands[i]) +
                               " does not exist; the image has " + std::to_string(all.n_elem) +
                               " bands.");
    }
    wavelengths(i) = all(bands[i]);
  }
  const corv::cube data = input->I(bands, subset.first_row(), subset.first_column(),
                                   subset.first_row() + subset.row_count() - 1,
                                   subset.first_column() + subset.column_count() - 1);
  return std::make_shared<hs_image>(data, wavelengths, file_name);
}

}  // namespace tavr
