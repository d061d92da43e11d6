#ifndef TAVR_APP_RECENT_FILES_H
#define TAVR_APP_RECENT_FILES_H

#include <QStringList>

namespace tavr {

// Entries kept in the "Recent Images" and "Recent Workspaces" menus.
constexpr int max_recent_files = 10;

// The list with the path at its head, an earlier entry of the same path
// removed and the oldest entries dropped beyond the limit.
QStringList with_recent_file(QStringList list, const QString& path, int limit = max_recent_files);

}  // namespace tavr

#endif
