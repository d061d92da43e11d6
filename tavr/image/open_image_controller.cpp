#include "tavr/image/open_image_controller.h"

#include <QFileInfo>
#include <exception>

#include "tavr/app/recent_files.h"

namespace tavr {

const QString open_image_controller::cancelled_message = QStringLiteral("Image open cancelled");

open_command open_image_command() {
  return {"Open Image", "HS Image Files (*.hsz *.hdr *.tif)", "Opening Images",
          hs_image::open_mode::irradiance};
}

open_command open_reflectance_command() {
  return {"Open Reflectance Image", "HS Image Files (*.hdr *.tif)", "Opening Reflectances Images",
          hs_image::open_mode::reflectance};
}

startup_file startup_file_of(const QStringList& arguments) {
  startup_file found;
  if (arguments.size() < 2) {
    return found;
  }
  const QFileInfo info(arguments.back());
  if (!info.exists() || !info.isFile()) {
    return found;
  }
  found.path = arguments.back();
  found.what = info.suffix() == "tvw" ? startup_file::kind::workspace : startup_file::kind::image;
  return found;
}

QString window_title_for(const QString& path) {
  return QFileInfo(path).fileName() + " - Tavrel";
}

QString open_image_controller::missing_file_message(const QString& path) {
  return "Could not open image file " + path + ".<br/>File does not exist";
}

QString open_image_controller::failure_message(const QString& path, const QString& reason) {
  return "Could not open image file " + path + ".<br/><br/>Reason: " + reason;
}

open_image_controller::open_image_controller(factory make) : make_(std::move(make)) {
  if (!make_) {
    make_ = [](const QString& path, hs_image::open_mode mode) {
      return std::make_shared<hs_image>(path, mode);
    };
  }
}

open_image_controller::result open_image_controller::open(const QStringList& files,
                                                          hs_image::open_mode mode,
                                                          QStringList& recent,
                                                          const progress& keep_going) const {
  result opened;
  for (int i = 0; i < files.size(); ++i) {
    if (keep_going && !keep_going(i)) {
      opened.cancelled = true;
      break;
    }
    const QString& path = files[i];
    if (!QFileInfo::exists(path)) {
      opened.errors.append(missing_file_message(path));
      continue;
    }
    try {
      std::shared_ptr<hs_image> image = make_(path, mode);
      if (image == nullptr) {
        continue;  // the user chose not to open it after all
      }
      opened.images.append(image);
      // The recent list keeps whole paths, whatever folder a later session starts in.
      recent = with_recent_file(recent, QFileInfo(path).absoluteFilePath());
    } catch (const std::exception& error) {
      opened.errors.append(failure_message(path, QString::fromStdString(error.what())));
    } catch (...) {
      opened.errors.append(failure_message(path, "Unknown error"));
    }
  }
  return opened;
}

}  // namespace tavr
