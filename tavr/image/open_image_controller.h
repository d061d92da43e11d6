#ifndef TAVR_IMAGE_OPEN_IMAGE_CONTROLLER_H
#define TAVR_IMAGE_OPEN_IMAGE_CONTROLLER_H

#include <QList>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

#include "tavr/image/hs_image.h"

namespace tavr {

// Texts of the two open commands.
struct open_command {
  QString dialog_title;
  QString filter;
  QString progress_text;
  hs_image::open_mode mode;
};
open_command open_image_command();
open_command open_reflectance_command();

// What a command line asks to open: nothing, an image or a workspace.
struct startup_file {
  enum class kind { none, image, workspace };
  kind what = kind::none;
  QString path;
};
// The last argument beyond the program name, when it names an existing file: a
// workspace when its suffix is exactly "tvw", else an image.
startup_file startup_file_of(const QStringList& arguments);

// "<file name> - Tavrel".
QString window_title_for(const QString& path);

// Opens image files one after the other, collecting the images, the messages
// of the files that failed and the recent-image list.
class open_image_controller {
 public:
  using factory = std::function<std::shared_ptr<hs_image>(const QString&, hs_image::open_mode)>;
  // Called before each file with its index; returning false cancels the rest.
  using progress = std::function<bool(int)>;

  struct result {
    QList<std::shared_ptr<hs_image>> images;
    QStringList errors;  // one message per file that could not be opened
    bool cancelled = false;
  };

  static const QString cancelled_message;  // "Image open cancelled"
  static QString missing_file_message(const QString& path);
  static QString failure_message(const QString& path, const QString& reason);

  // The default factory builds an hs_image over the file. A factory that gives
  // back null skips the file without an error (the user declined it).
  explicit open_image_controller(factory make = {});

  // Opens the files in order; each opened path goes to the head of `recent`.
  result open(const QStringList& files, hs_image::open_mode mode, QStringList& recent,
              const progress& keep_going = {}) const;

 private:
  factory make_;
};

}  // namespace tavr

#endif
