#include "tavr/app/dialog_gallery.h"

#include <QCheckBox>
#include <QDir>
#include <QFileInfo>
#include <QPainter>
#include <QPushButton>
#include <QSpinBox>

#include "corv/io/logger.h"
#include "corv/io/open_input.h"
#include "tavr/app/main_window.h"
#include "tavr/camera/camera_preferences_dialog.h"
#include "tavr/dialogs/band_maths.h"
#include "tavr/dialogs/help_dialog.h"
#include "tavr/dialogs/image_info_dialog.h"
#include "tavr/dialogs/load_image_dialog.h"
#include "tavr/dialogs/log_dialog.h"
#include "tavr/dialogs/rendering_dialog.h"
#include "tavr/dialogs/resize_image_dialog.h"
#include "tavr/dialogs/settings_dialog.h"
#include "tavr/dialogs/stats_dialog.h"
#include "tavr/dialogs/tutorial_dialog.h"
#include "tavr/image/component_probe.h"
#include "tavr/image/image_information.h"
#include "tavr/labels/polygon_labels_dialog.h"
#include "tavr/library/spectral_manager_dialog.h"

namespace tavr {

QStringList gallery_dialog_names() {
  return {"band-maths",    "information",     "statistics", "resize",   "large-image",
          "log",           "settings",        "rendering",  "tutorial", "help",
          "polygon-label", "library-manager", "preferences"};
}

QDialog* open_gallery_dialog(main_window& window, const QString& name) {
  const auto image = window.current_image();
  QDialog* dialog = nullptr;
  if (name == "band-maths") {
    // The window's own dialog, with an example formula run over the first image.
    window.show_band_maths_();
    const unsigned bands = image != nullptr ? image->pipeline().bands() : 3;
    window.band_maths_dialog().set_formula(
        QString("(I1[%1] - I1[%2]) / (I1[%1] + I1[%2])").arg(2 * bands / 3).arg(bands / 3));
    window.band_maths_dialog().colour_box()->setChecked(true);
    if (image != nullptr) {
      window.band_maths_dialog().run_button()->click();
    }
    return &window.band_maths_dialog();
  } else if (name == "log") {
    window.show_logs_();
    return &window.logs();
  } else if (name == "library-manager") {
    window.library_manager().show();
    return &window.library_manager();
  } else if (name == "information") {
    auto* info = new image_info_dialog(&window);
    if (image != nullptr) {
      info->set_information(information_of(*image));
    }
    dialog = info;
  } else if (name == "statistics") {
    auto* stats = new stats_dialog(&window);
    stats->set_folder(QDir::homePath());
    dialog = stats;
  } else if (name == "resize") {
    auto* resize = new resize_image_dialog(&window);
    if (image != nullptr) {
      resize->set_image_size(static_cast<int>(image->pipeline().width()),
                             static_cast<int>(image->pipeline().height()));
      resize->percent_box()->setValue(50);
    }
    dialog = resize;
  } else if (name == "large-image") {
    auto* load = new load_image_dialog(&window);
    if (image != nullptr) {
      corv::pipeline& p = image->pipeline();
      load->set_image(p.height(), p.width(), p.wavelengths());
    }
    dialog = load;
  } else if (name == "settings") {
    auto* settings = new settings_dialog(&window);
    settings->set_values(window.processing_values());
    dialog = settings;
  } else if (name == "rendering") {
    auto* rendering = new rendering_dialog(&window);
    if (image != nullptr) {
      const corv::vector* wavelengths =
          component_or_null(image->pipeline(), &corv::pipeline::wavelengths);
      rendering->set_options(image->rendering(), wavelengths ? *wavelengths : corv::vector());
    }
    dialog = rendering;
  } else if (name == "polygon-label") {
    auto* label = new polygon_labels_dialog(&window);
    label->set_previous_labels({"grass", "road", "roof", "water"});
    label->set_label("roof");
    dialog = label;
  } else if (name == "preferences") {
    auto* preferences = new camera_preferences_dialog(&window);
    preferences->set_interactive(false);
    preferences->set_values(camera_preferences::defaults());
    dialog = preferences;
  } else if (name == "tutorial") {
    dialog = new tutorial_dialog(&window);
  } else if (name == "help") {
    dialog = new help_dialog(&window);
  }
  if (dialog != nullptr) {
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->show();
  }
  return dialog;
}

QImage window_with_dialog(main_window& window, QDialog& dialog, Qt::Alignment where) {
  QImage picture = window.grab().toImage();
  const QImage over = dialog.grab().toImage();
  // A title bar, a frame and a soft shadow, as a window manager would draw them.
  const int title_height = 26;
  const int left = where & Qt::AlignRight ? picture.width() - over.width() - 24
                                          : (picture.width() - over.width()) / 2;
  const QRect frame(left, (picture.height() - over.height() - title_height) / 2, over.width(),
                    over.height() + title_height);
  QPainter painter(&picture);
  painter.fillRect(frame.translated(6, 6), QColor(0, 0, 0, 70));
  painter.fillRect(QRect(frame.topLeft(), QSize(frame.width(), title_height)), QColor(52, 66, 84));
  painter.setPen(Qt::white);
  painter.drawText(QRect(frame.left() + 10, frame.top(), frame.width() - 20, title_height),
                   Qt::AlignVCenter | Qt::AlignLeft, dialog.windowTitle());
  painter.drawImage(frame.topLeft() + QPoint(0, title_height), over);
  painter.setPen(QColor(52, 66, 84));
  painter.drawRect(frame.adjusted(0, 0, -1, -1));
  return picture;
}

}  // namespace tavr
