#ifndef TAVR_WORKSPACE_WORKSPACE_FILE_H
#define TAVR_WORKSPACE_WORKSPACE_FILE_H

#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>
#include <stdexcept>

#include "tavr/image/hs_image.h"
#include "tavr/library/library_model.h"

namespace tavr {

// A failure of saving or opening a workspace: the text for the user and the
// title of its box.
class workspace_error : public std::runtime_error {
 public:
  workspace_error(const QString& title, const QString& text)
      : std::runtime_error(text.toStdString()), title_(title), text_(text) {}
  const QString& title() const { return title_; }
  const QString& text() const { return text_; }

 private:
  QString title_;
  QString text_;
};

// What a workspace holds: the images (with their labels, view states and
// histories), the session's label list, the viewer's library and the current row.
struct workspace_contents {
  QList<std::shared_ptr<hs_image>> images;
  QStringList label_list;
  QList<library_entry> library;
  int current = -1;
};

// The notice shown when images that are not on disc were left out of a
// workspace that refers to its images.
extern const QString left_out_notice;

// Saves a workspace file (".tvw", a ZIP archive). Portable: every image travels
// inside the file (HSZ and TIFF files copied, ENVI header and data copied, images
// that exist only in memory written as 32-bit float ENVI). Not portable: images
// are referred to by their full paths and those that are not on disc (or lie in
// one of the `temporary` folders) are left out. In both, an image that holds
// material components and is not itself an HSZ file carries them in an HSZ
// member. Returns whether images were left out. The target is replaced only
// when the whole archive has been written. Throws workspace_error.
bool save_workspace(const QString& file_name, const workspace_contents& contents, bool portable,
                    const QStringList& temporary = {});

// An opened workspace: its contents, the messages of images that could not be
// restored (they are left out), and the folder its members were extracted
// into, which the images read from while they are open.
struct opened_workspace {
  workspace_contents contents;
  QStringList errors;
  std::shared_ptr<QTemporaryDir> folder;
};

// Opens a workspace file. Throws workspace_error when the file is missing, is
// not a readable archive or its record is not a workspace record; nothing is
// opened then.
opened_workspace open_workspace_file(const QString& file_name);

}  // namespace tavr

#endif
