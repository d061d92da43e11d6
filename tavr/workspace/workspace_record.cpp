#include "tavr/workspace/workspace_record.h"

#include <QByteArray>
#include <QColor>
#include <QDataStream>
#include <QPolygonF>
#include <QVariantMap>
#include <array>
#include <cmath>
#include <functional>
#include <stdexcept>

namespace tavr {

const char* const damaged_record = "workspace: The workspace record is damaged.";

namespace {

const char* const damaged = damaged_record;
// How deep values may nest: a label's map holds plain values.
constexpr int value_depth = 4;

template <typename T>
void write_list(QDataStream& out, const QList<T>& items,
                const std::function<void(const T&)>& write_one) {
  out << static_cast<qint32>(items.size());
  for (const T& item : items) {
    write_one(item);
  }
}

// A count, refused when negative or beyond what the rest of the record could hold.
qint32 read_count(QDataStream& in) {
  qint32 count = 0;
  in >> count;
  if (in.status() != QDataStream::Ok || count < 0 || count > in.device()->bytesAvailable() + 1) {
    throw std::runtime_error(damaged);
  }
  return count;
}

template <typename T>
QList<T> read_list(QDataStream& in, const std::function<T()>& read_one) {
  const qint32 count = read_count(in);
  QList<T> items;
  for (qint32 i = 0; i < count; ++i) {
    items.append(read_one());
    if (in.status() != QDataStream::Ok) {
      throw std::runtime_error(damaged);
    }
  }
  return items;
}

QStringList read_strings(QDataStream& in) {
  return read_list<QString>(in, [&in] {
    QString text;
    in >> text;
    return text;
  });
}

// A colour as QDataStream writes one (its kind, then alpha, red, green, blue and
// a pad), refused when the kind is none Qt knows: Qt would keep any number there.
QVariant read_colour(QDataStream& in) {
  qint8 spec = 0;
  std::array<quint16, 5> values{};
  in >> spec;
  for (quint16& value : values) {
    in >> value;
  }
  if (in.status() != QDataStream::Ok || spec < QColor::Invalid || spec > QColor::ExtendedRgb) {
    throw std::runtime_error(damaged);
  }
  QByteArray bytes;
  QDataStream out(&bytes, QIODevice::WriteOnly);
  out.setVersion(in.version());
  out << spec;
  for (const quint16 value : values) {
    out << value;
  }
  QDataStream checked(bytes);
  checked.setVersion(in.version());
  QColor colour;
  checked >> colour;
  return colour;
}

// Reads a value the way QDataStream writes a QVariant, but only of the plain
// kinds a record holds, nested at most `depth` deep: a hostile record could
// otherwise make Qt decode a picture of any size, allocate for any count it
// names or recurse until the stack is gone.
QVariant read_value(QDataStream& in, int depth) {
  quint32 type = 0;
  qint8 null = 0;
  in >> type >> null;
  if (in.status() != QDataStream::Ok || depth < 0) {
    throw std::runtime_error(damaged);
  }
  switch (type) {
    case QMetaType::UnknownType:
      return QVariant();
    case QMetaType::QVariantMap: {
      QVariantMap map;
      const qint32 count = read_count(in);
      for (qint32 i = 0; i < count; ++i) {
        QString key;
        in >> key;
        map.insert(key, read_value(in, depth - 1));
      }
      return map;
    }
    case QMetaType::QVariantList:
      return read_list<QVariant>(in, [&in, depth] { return read_value(in, depth - 1); });
    case QMetaType::QStringList:
      return read_strings(in);
    case QMetaType::QPolygonF: {
      QPolygonF polygon;
      const qint32 count = read_count(in);
      if (count > in.device()->bytesAvailable() / 16) {
        throw std::runtime_error(damaged);
      }
      polygon.reserve(count);
      for (qint32 i = 0; i < count; ++i) {
        double x = 0;
        double y = 0;
        in >> x >> y;
        polygon.append(QPointF(x, y));
      }
      return polygon;
    }
    case QMetaType::QColor:
      return read_colour(in);
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::QString:
    case QMetaType::QPointF:
    case QMetaType::QRectF: {
      // Fixed sizes, or a text that Qt reads a piece at a time.
      QVariant value(static_cast<int>(type), nullptr);
      if (!QMetaType::load(in, static_cast<int>(type), value.data())) {
        throw std::runtime_error(damaged);
      }
      return value;
    }
    default:
      throw std::runtime_error(damaged);
  }
}

// Numbers of a preparation step that the image could not take: not finite,
// beyond what a picture coordinate can be, or a resize that would enlarge.
bool impossible_step(const operation_record& step) {
  const QRectF& r = step.rectangle;
  for (const double value : {r.x(), r.y(), r.width(), r.height()}) {
    if (!std::isfinite(value) || std::fabs(value) > 1e9) {
      return true;
    }
  }
  for (const double percent : {step.width_percent, step.height_percent}) {
    if (!(percent > 0.0 && percent <= 100.0)) {
      return true;
    }
  }
  return false;
}

void write_strings(QDataStream& out, const QStringList& texts) {
  write_list<QString>(out, texts, [&out](const QString& text) { out << text; });
}

}  // namespace

QVariant label_entry(const polygon_label& label) {
  QVariantMap value;
  value["colour"] = label.colour;
  value["checked"] = label.checked;
  value["selected"] = label.selected;
  value["polygon"] = label.polygon;
  return value;
}

bool label_from_entry(const QVariant& value, const QString& text, polygon_label& label) {
  const QVariantMap map = value.toMap();
  if (!map.contains("polygon") || !map.contains("colour")) {
    return false;
  }
  const QPolygonF polygon = map.value("polygon").value<QPolygonF>();
  for (const QPointF& point : polygon) {
    if (!std::isfinite(point.x()) || !std::isfinite(point.y()) || std::fabs(point.x()) > 1e9 ||
        std::fabs(point.y()) > 1e9) {
      return false;
    }
  }
  label.label = text;
  label.colour = map.value("colour").value<QColor>();
  label.polygon = polygon;
  label.checked = map.value("checked", true).toBool();
  label.selected = map.value("selected", false).toBool();
  return true;
}

void write_record(QIODevice& device, const workspace_record& record) {
  QDataStream out(&device);
  out << workspace_record::magic << workspace_record::version;
  write_strings(out, record.images);
  for (const auto& labels : record.labels) {
    write_list<QPair<QVariant, QString>>(
        out, labels,
        [&out](const QPair<QVariant, QString>& entry) { out << entry.first << entry.second; });
  }
  for (const QString& text : record.settings) {
    out << text;
  }
  write_strings(out, record.label_list);
  for (const auto& history : record.histories) {
    write_list<operation_record>(out, history, [&out](const operation_record& step) {
      const QRectF& r = step.rectangle;
      out << step.name << r.x() << r.y() << r.width() << r.height() << step.width_percent
          << step.height_percent;
      write_list<qint32>(out, QList<qint32>(step.bands.begin(), step.bands.end()),
                         [&out](const qint32& band) { out << band; });
    });
  }
  write_strings(out, record.libraries);
  for (const QStringList& state : record.states) {
    write_strings(out, state);
  }
  out << record.workspace;
}

workspace_record read_record(QIODevice& device) {
  QDataStream in(&device);
  quint32 magic = 0;
  qint32 version = 0;
  in >> magic;
  if (in.status() != QDataStream::Ok || magic != workspace_record::magic) {
    throw std::runtime_error("Mismatch magic numbers. Cannot open workspace.");
  }
  in >> version;
  workspace_record record;
  record.images = read_strings(in);
  const int images = record.images.size();
  for (int i = 0; i < images; ++i) {
    record.labels.append(read_list<QPair<QVariant, QString>>(in, [&in] {
      QPair<QVariant, QString> entry;
      entry.first = read_value(in, value_depth);
      in >> entry.second;
      return entry;
    }));
  }
  for (int i = 0; i < images; ++i) {
    QString text;
    in >> text;
    record.settings.append(text);
  }
  record.label_list = read_strings(in);
  for (int i = 0; i < images; ++i) {
    record.histories.append(read_list<operation_record>(in, [&in] {
      operation_record step;
      double x = 0;
      double y = 0;
      double width = 0;
      double height = 0;
      in >> step.name >> x >> y >> width >> height >> step.width_percent >> step.height_percent;
      step.rectangle = QRectF(x, y, width, height);
      const QList<qint32> bands = read_list<qint32>(in, [&in] {
        qint32 band = 0;
        in >> band;
        return band;
      });
      step.bands = QVector<qint32>(bands.begin(), bands.end());
      if (impossible_step(step)) {
        throw std::runtime_error(damaged);
      }
      return step;
    }));
  }
  record.libraries = read_strings(in);
  for (int i = 0; i < images; ++i) {
    record.states.append(read_strings(in));
  }
  record.workspace = read_value(in, value_depth);
  if (in.status() != QDataStream::Ok) {
    throw std::runtime_error(damaged);
  }
  return record;
}

}  // namespace tavr
