#include "tavr/image/class_views.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "corv/io/spectral_library.h"
#include "tavr/image/hs_image.h"

namespace tavr {

namespace {

QColor colour_row(const corv::matrix& colours, arma::uword row) {
  return QColor(static_cast<int>(colours(row, 0)), static_cast<int>(colours(row, 1)),
                static_cast<int>(colours(row, 2)));
}

corv::matrix library_colours(const corv::spectral_library& library) {
  return library.has_colours() ? library.colours()
                               : corv::spectral_library::palette_colours(0, library.size());
}

// The legend entry of a class number (1-based), or null when it has none or is unchecked.
const legend_entry* shown_class(const QVector<legend_entry>& legend, float number) {
  if (!(number >= 1.0f) || number > static_cast<float>(legend.size())) {
    return nullptr;
  }
  const legend_entry& entry = legend[static_cast<int>(number) - 1];
  return entry.checked ? &entry : nullptr;
}

}  // namespace

QVector<legend_entry> class_legend(const classification_result& result,
                                   const corv::spectral_library* library) {
  QVector<legend_entry> legend;
  const corv::matrix colours =
      library != nullptr ? library_colours(*library)
                         : corv::spectral_library::palette_colours(0, result.class_labels.size());
  for (int c = 0; c < result.class_labels.size(); ++c) {
    // The class's first endmember gives its colour.
    arma::uword row = static_cast<arma::uword>(c);
    for (arma::uword r = 0; r < result.reference_classes.n_elem; ++r) {
      if (result.reference_classes(r) == static_cast<float>(c + 1)) {
        row = r;
        break;
      }
    }
    legend.append({result.class_labels[c],
                   row < colours.n_rows ? colour_row(colours, row) : QColor(Qt::gray), true});
  }
  return legend;
}

QVector<legend_entry> endmember_legend(const corv::spectral_library& library) {
  QVector<legend_entry> legend;
  const corv::matrix colours = library_colours(library);
  for (arma::uword i = 0; i < library.size(); ++i) {
    legend.append({QString::fromStdString(library.labels()[i]), colour_row(colours, i), true});
  }
  return legend;
}

QImage class_map_picture(const corv::matrix& class_map, const QVector<legend_entry>& legend) {
  QImage picture(static_cast<int>(class_map.n_cols), static_cast<int>(class_map.n_rows),
                 QImage::Format_RGB32);
  picture.fill(Qt::black);
  for (arma::uword row = 0; row < class_map.n_rows; ++row) {
    auto* line = reinterpret_cast<QRgb*>(picture.scanLine(static_cast<int>(row)));
    for (arma::uword col = 0; col < class_map.n_cols; ++col) {
      if (const legend_entry* entry = shown_class(legend, class_map(row, col))) {
        line[col] = entry->colour.rgb();
      }
    }
  }
  return picture;
}

QImage class_overlay(const QImage& base, const corv::matrix& class_map,
                     const QVector<legend_entry>& legend, double opacity) {
  QImage picture = base.convertToFormat(QImage::Format_RGB32);
  const int rows = std::min(picture.height(), static_cast<int>(class_map.n_rows));
  const int cols = std::min(picture.width(), static_cast<int>(class_map.n_cols));
  const double keep = 1.0 - opacity;
  for (int row = 0; row < rows; ++row) {
    auto* line = reinterpret_cast<QRgb*>(picture.scanLine(row));
    for (int col = 0; col < cols; ++col) {
      const legend_entry* entry = shown_class(
          legend, class_map(static_cast<arma::uword>(row), static_cast<arma::uword>(col)));
      if (entry == nullptr) {
        continue;
      }
      const QRgb under = line[col];
      auto blend = [&](int below, int above) {
        return static_cast<int>(std::lround(keep * below + opacity * above));
      };
      line[col] =
          qRgb(blend(qRed(under), entry->colour.red()), blend(qGreen(under), entry->colour.green()),
               blend(qBlue(under), entry->colour.blue()));
    }
  }
  return picture;
}

corv::matrix class_scores(const classification_result& result, int class_number) {
  const bool unmixing = result.method == classify_unmixing;
  if ((!unmixing && result.method != classify_sam) || result.values.empty()) {
    return corv::matrix();
  }
  const float none = unmixing ? 0.0f : std::numeric_limits<float>::quiet_NaN();
  corv::matrix scores(result.values.n_rows, result.values.n_cols);
  scores.fill(none);
  const auto wanted = static_cast<float>(class_number);
  for (arma::uword j = 0; j < result.values.n_slices; ++j) {
    for (arma::uword row = 0; row < result.values.n_rows; ++row) {
      for (arma::uword col = 0; col < result.values.n_cols; ++col) {
        const float reference = result.indexes(row, col, j);
        if (!(reference >= 1.0f) ||
            reference > static_cast<float>(result.reference_classes.n_elem) ||
            result.reference_classes(static_cast<arma::uword>(reference) - 1) != wanted) {
          continue;
        }
        const float value = result.values(row, col, j);
        float& score = scores(row, col);
        if (unmixing) {
          score += value;
        } else if (std::isnan(score) || value < score) {
          score = value;
        }
      }
    }
  }
  return scores;
}

std::vector<int> checked_entries(const QVector<legend_entry>& legend) {
  std::vector<int> chosen;
  for (int i = 0; i < legend.size(); ++i) {
    if (legend[i].checked) {
      chosen.push_back(i);
    }
  }
  return chosen;
}

}  // namespace tavr
