#include "tavr/app/recent_files.h"

#include <QDir>

namespace tavr {

QStringList with_recent_file(QStringList list, const QString& path, int limit) {
  const QString clean = QDir::cleanPath(path);
  list.removeAll(clean);
  list.prepend(clean);
  while (list.size() > limit) {
    list.removeLast();
  }
  return list;
}

}  // namespace tavr
