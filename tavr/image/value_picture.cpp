#include "tavr/image/value_picture.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

namespace tavr {

namespace {

// A perceptually ordered map from dark blue through teal and green to yellow,
// readable by people with the common colour vision deficiencies.
const QRgb map_stops[] = {0xff440154, 0xff3b528b, 0xff21918c, 0xff5ec962, 0xfffde725};
constexpr int stop_count = static_cast<int>(std::size(map_stops));

}  // namespace

QColor value_colour(double position) {
  const double t = std::clamp(position, 0.0, 1.0) * (stop_count - 1);
  const int low = std::min(static_cast<int>(t), stop_count - 2);
  const double f = t - low;
  const QColor a(map_stops[low]);
  const QColor b(map_stops[low + 1]);
  auto mix = [f](int x, int y) { return static_cast<int>(std::lround(x + (y - x) * f)); };
  return QColor(mix(a.red(), b.red()), mix(a.green(), b.green()), mix(a.blue(), b.blue()));
}

QVector<QColor> colour_map_stops() {
  QVector<QColor> stops;
  for (const QRgb stop : map_stops) {
    stops.append(QColor(stop));
  }
  return stops;
}

QImage value_picture(const corv::matrix& values, value_colours colours) {
  float lowest = std::numeric_limits<float>::infinity();
  float highest = -std::numeric_limits<float>::infinity();
  for (const float v : values) {
    if (std::isfinite(v)) {
      lowest = std::min(lowest, v);
      highest = std::max(highest, v);
    }
  }
  const double span = static_cast<double>(highest) - static_cast<double>(lowest);
  QImage picture(static_cast<int>(values.n_cols), static_cast<int>(values.n_rows),
                 QImage::Format_RGB32);
  // A 256-entry table: the stretch is the only per-pixel arithmetic.
  QRgb table[256];
  for (int i = 0; i < 256; ++i) {
    table[i] = colours == value_colours::grey ? qRgb(i, i, i) : value_colour(i / 255.0).rgb();
  }
  for (arma::uword row = 0; row < values.n_rows; ++row) {
    auto* line = reinterpret_cast<QRgb*>(picture.scanLine(static_cast<int>(row)));
    for (arma::uword col = 0; col < values.n_cols; ++col) {
      const float v = values(row, col);
      if (!std::isfinite(v)) {
        line[col] = qRgb(0, 0, 0);
        continue;
      }
      const double position = span > 0.0 ? (v - static_cast<double>(lowest)) / span : 0.5;
      line[col] = table[std::clamp(static_cast<int>(std::lround(position * 255.0)), 0, 255)];
    }
  }
  return picture;
}

}  // namespace tavr
