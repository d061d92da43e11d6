#ifndef TAVR_CAMERA_CAMERA_PANEL_H
#define TAVR_CAMERA_CAMERA_PANEL_H

#include <QWidget>

class QAction;
class QCheckBox;
class QComboBox;
class QLabel;
class QListWidget;
class QSpinBox;

namespace tavr {

// The contents of the camera dock: the camera, what the live view shows, the
// camera's wavelengths, the capture buttons and the reflectance references.
class camera_panel : public QWidget {
  Q_OBJECT

 public:
  explicit camera_panel(QWidget* parent = nullptr);

  // Puts buttons for these actions in the panel: live, stop, snapshot and record
  // in one row, then the reference actions (dark, white, clear).
  void set_capture_actions(const QList<QAction*>& capture, const QList<QAction*>& references);

  QComboBox* cameras = nullptr;      // "Camera:"
  QComboBox* views = nullptr;        // "Image:" Raw, Color, Band
  QListWidget* bands = nullptr;      // "Camera Wavelengths:"
  QSpinBox* smoothing = nullptr;     // frames averaged in the band view
  QLabel* frame_rate = nullptr;      // "<n> fps"
  QCheckBox* reflectance = nullptr;  // captures as reflectance
  QLabel* references = nullptr;      // what the references are
  QLabel* status = nullptr;          // the last capture or recording

 private:
  QWidget* capture_row_ = nullptr;
  QWidget* reference_row_ = nullptr;
};

}  // namespace tavr

#endif
