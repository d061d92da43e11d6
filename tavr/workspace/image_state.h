#ifndef TAVR_WORKSPACE_IMAGE_STATE_H
#define TAVR_WORKSPACE_IMAGE_STATE_H

#include <QString>
#include <QStringList>

namespace tavr {

class hs_image;

// An image's view state, rendering choices and open mode as "name=value"
// strings (lists comma-separated, texts percent-encoded), as kept in workspaces.
// `extra` strings (such as "components=<member>") are appended as they are.
QStringList image_state_strings(const hs_image& image, const QStringList& extra = {});
// Restores what the strings hold; unknown names and unreadable values are skipped.
void restore_image_state(hs_image& image, const QStringList& strings);
// The value of a "name=value" string of the list (empty when absent).
QString state_value(const QStringList& strings, const QString& name);

}  // namespace tavr

#endif
