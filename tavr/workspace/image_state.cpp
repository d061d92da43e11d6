#include "tavr/workspace/image_state.h"

#include <QUrl>
#include <array>
#include <cmath>

#include "tavr/image/hs_image.h"

namespace tavr {

namespace {

QString flag(bool value) {
  return value ? QStringLiteral("1") : QStringLiteral("0");
}

QString number(double value) {
  return QString::number(value, 'g', 17);
}

QString flags(const QVector<bool>& values) {
  QStringList texts;
  for (const bool value : values) {
    texts.append(flag(value));
  }
  return texts.join(',');
}

QString texts(const QStringList& values) {
  QStringList encoded;
  for (const QString& value : values) {
    encoded.append(QString::fromLatin1(QUrl::toPercentEncoding(value)));
  }
  return encoded.join(',');
}

QVector<bool> flags_of(const QString& value) {
  QVector<bool> values;
  for (const QString& text : value.split(',', Qt::SkipEmptyParts)) {
    values.append(text == "1");
  }
  return values;
}

QStringList texts_of(const QString& value) {
  QStringList values;
  for (const QString& text : value.split(',', Qt::SkipEmptyParts)) {
    values.append(QUrl::fromPercentEncoding(text.toLatin1()));
  }
  return values;
}

}  // namespace

QStringList image_state_strings(const hs_image& image, const QStringList& extra) {
  const image_view_state& view = image.view_state();
  const rendering_options& r = image.rendering();
  QStringList strings{
      "mode=" +
          QString(image.mode() == hs_image::open_mode::reflectance ? "reflectance" : "irradiance"),
      "component=" + QString::number(static_cast<int>(view.component)),
      "band=" + QString::number(view.band),
      "pc=" + QString::number(view.pc),
      "normalisation=" +
          QString(view.normalisation == band_normalisation::by_band ? "band" : "cube"),
      "abundance_layer=" + flag(view.abundance_layer),
      "position=" + number(view.position.x()) + "," + number(view.position.y()),
      "scale=" + number(view.scale),
      "material_states=" + flags(view.material_states),
      "material_labels=" + texts(view.material_labels),
      "class_states=" + flags(view.class_states),
      "class_labels=" + texts(view.class_labels),
      "data_ignore_val=" + number(r.data_ignore_val),
      "auto_rgb=" + flag(r.auto_rgb),
      "rgb_bands=" +
          QString("%1,%2,%3").arg(r.rgb_bands[0]).arg(r.rgb_bands[1]).arg(r.rgb_bands[2]),
      "contrast_enhancement=" + flag(r.contrast_enhancement),
      "min_cum_val=" + number(r.min_cum_val),
      "max_cum_val=" + number(r.max_cum_val),
      "prepare_reflectance=" + flag(image.prepare_reflectance()),
  };
  return strings + extra;
}

QString state_value(const QStringList& strings, const QString& name) {
  const QString prefix = name + "=";
  for (const QString& text : strings) {
    if (text.startsWith(prefix)) {
      return text.mid(prefix.size());
    }
  }
  return QString();
}

void restore_image_state(hs_image& image, const QStringList& strings) {
  image_view_state& view = image.view_state();
  rendering_options r = image.rendering();
  for (const QString& text : strings) {
    const int split = text.indexOf('=');
    const QString name = text.left(split);
    const QString value = text.mid(split + 1);
    const QStringList parts = value.split(',');
    // Numbers as written; a value that is not one, or out of range, is skipped.
    bool ok = true;
    const auto whole = [&ok](const QString& number, int least) {
      bool read = false;
      const int n = number.toInt(&read);
      ok = ok && read && n >= least;
      return n;
    };
    const auto real = [&ok](const QString& number, double least, double most) {
      bool read = false;
      const double x = number.toDouble(&read);
      ok = ok && read && x >= least && x <= most;  // false for NaN too
      return x;
    };
    constexpr double far = 1e9;
    if (name == "component") {
      const int kind = whole(value, 0);
      if (ok && kind <= static_cast<int>(component_view::material_map)) {
        view.component = static_cast<component_view>(kind);
      }
    } else if (name == "band") {
      const int band = whole(value, -1);
      view.band = ok ? band : view.band;
    } else if (name == "pc") {
      const int pc = whole(value, -1);
      view.pc = ok ? pc : view.pc;
    } else if (name == "normalisation") {
      view.normalisation =
          value == "band" ? band_normalisation::by_band : band_normalisation::by_cube;
    } else if (name == "abundance_layer") {
      view.abundance_layer = value == "1";
    } else if (name == "position" && parts.size() == 2) {
      const QPointF position(real(parts[0], -far, far), real(parts[1], -far, far));
      view.position = ok ? position : view.position;
    } else if (name == "scale") {
      const double scale = real(value, 0.0, 1e4);
      view.scale = ok ? scale : view.scale;
    } else if (name == "material_states") {
      view.material_states = flags_of(value);
    } else if (name == "material_labels") {
      view.material_labels = texts_of(value);
    } else if (name == "class_states") {
      view.class_states = flags_of(value);
    } else if (name == "class_labels") {
      view.class_labels = texts_of(value);
    } else if (name == "data_ignore_val") {
      const double ignored = real(value, -HUGE_VAL, HUGE_VAL);
      r.data_ignore_val = ok ? ignored : r.data_ignore_val;
    } else if (name == "auto_rgb") {
      r.auto_rgb = value == "1";
    } else if (name == "rgb_bands" && parts.size() == 3) {
      const std::array<int, 3> bands{whole(parts[0], 0), whole(parts[1], 0), whole(parts[2], 0)};
      r.rgb_bands = ok ? bands : r.rgb_bands;
    } else if (name == "contrast_enhancement") {
      r.contrast_enhancement = value == "1";
    } else if (name == "min_cum_val") {
      const double cut = real(value, 0.0, 1.0);
      r.min_cum_val = ok ? cut : r.min_cum_val;
    } else if (name == "max_cum_val") {
      const double cut = real(value, 0.0, 1.0);
      r.max_cum_val = ok ? cut : r.max_cum_val;
    } else if (name == "prepare_reflectance") {
      image.set_prepare_reflectance(value == "1");
    }
  }
  image.set_rendering(r);
}

}  // namespace tavr
