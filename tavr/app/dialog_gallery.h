#ifndef TAVR_APP_DIALOG_GALLERY_H
#define TAVR_APP_DIALOG_GALLERY_H

#include <QImage>
#include <QStringList>

class QDialog;

namespace tavr {

class main_window;

// The dialogs that `tavrel --screenshot FILE --dialog NAME` can show, by name.
QStringList gallery_dialog_names();

// Opens the named dialog over the window, filled from the window's current
// image (where it needs one), and returns it (owned by the window); null for a
// name not in gallery_dialog_names().
QDialog* open_gallery_dialog(main_window& window, const QString& name);

// The window's picture with the dialog's drawn over its centre (or its right),
// as the user sees it.
QImage window_with_dialog(main_window& window, QDialog& dialog,
                          Qt::Alignment where = Qt::AlignCenter);

}  // namespace tavr

#endif
