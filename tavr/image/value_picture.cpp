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

QImage component_picture(const corv::cube& components, int first, bool colour, double clip) {
  const int rows = static_cast<int>(components.n_rows);
  const int cols = static_cast<int>(components.n_cols);
  QImage picture(cols, rows, QImage::Format_RGB32);
  picture.fill(Qt::black);
  const int channels = colour ? 3 : 1;
  for (int c = 0; c < channels; ++c) {
    const int index = first + c;
    if (index < 0 || index >= static_cast<int>(components.n_slices)) {
      continue;
    }
    const corv::matrix& layer = components.slice(static_cast<arma::uword>(index));
    double low = layer.min();
    double high = layer.max();
    if (clip > 0.0) {
      const arma::vec values = arma::conv_to<arma::vec>::from(arma::vectorise(layer));
      const double mean = arma::mean(values);
      const double deviation = arma::stddev(values, 1);
      low = std::max(low, mean - clip * deviation);
      high = std::min(high, mean + clip * deviation);
    }
    const double span = high - low;
    // Grey sets all three channels; colour puts component c in red, green, blue.
    const int shift = 16 - 8 * c;
    for (int row = 0; row < rows; ++row) {
      auto* line = reinterpret_cast<QRgb*>(picture.scanLine(row));
      for (int col = 0; col < cols; ++col) {
        const double v = layer(static_cast<arma::uword>(row), static_cast<arma::uword>(col));
        const int level =
            span > 0.0 ? std::clamp(static_cast<int>(std::lround((v - low) / span * 255.0)), 0, 255)
                       : 128;
        line[col] =
            colour ? line[col] | (static_cast<QRgb>(level) << shift) : qRgb(level, level, level);
      }
    }
  }
  return picture;
}

}  // namespace tavr
