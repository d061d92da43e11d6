#ifndef TAVR_WORKSPACE_WORKSPACE_CONTROLLER_H
#define TAVR_WORKSPACE_WORKSPACE_CONTROLLER_H

#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

#include "tavr/workspace/workspace_file.h"

class QWidget;

namespace tavr {

class image_list_model;
class label_controller;
struct viewer_settings;

// What the workspace commands do to the window: append an opened image, make
// a row current, and close every image (false when one could not be closed).
struct workspace_window {
  std::function<void(const std::shared_ptr<hs_image>&)> add_image;
  std::function<void(int)> show_image;
  std::function<bool()> clear;
};

// The workspace of the window: its file name, whether it has changed since it
// was opened or saved, and the commands that save, open and close it. Opening
// first reads the whole file; the window's contents are replaced only when that
// worked and the user has settled the changes of the current workspace.
class workspace_controller : public QObject {
  Q_OBJECT

 public:
  static const QString save_changes_question;  // a workspace file exists
  static const QString save_as_new_question;   // none yet
  static const QString workspace_filter;       // "TVW - Tavrel Workspace (*.tvw)"
  static const QString new_workspace_name;     // "new workspace.tvw"

  workspace_controller(image_list_model& images, label_controller& labels, library_model& library,
                       viewer_settings& settings, workspace_window window_steps,
                       QWidget* window = nullptr);
  ~workspace_controller() override;

  void set_interactive(bool interactive) { interactive_ = interactive; }
  const QString& file_name() const { return file_name_; }
  bool modified() const { return modified_; }
  void set_modified(bool modified) { modified_ = modified; }
  // Marks the workspace changed whenever the image's labels change.
  void watch(hs_image& image);

  // What the window holds now, as workspace contents (`current`: the current row).
  workspace_contents contents(int current) const;

  // Saves the window's contents under a name (".tvw" added when missing);
  // false, reported, when it failed.
  bool save(const QString& file_name, bool portable, int current);
  // Saves under the workspace's name, or asks for one ("Save File") first.
  bool save_current(bool portable, int current);
  bool save_as(bool portable, int current);

  // Opens a workspace file into the window; false, reported, when it could not
  // be opened or the user kept the current workspace.
  bool open(const QString& file_name, bool portable, int current);
  // Asks "Close Workspace" whether to save the changes (when there are any and
  // the window is interactive); false when the user cancels or saving failed.
  bool settle_changes(bool portable, int current);
  // Settles the changes, then empties the window and forgets the file name.
  bool close(bool portable, int current);

  // Folders that images of opened portable workspaces are read from.
  QStringList temporary_folders() const;

 Q_SIGNALS:
  void message(const QString& title, const QString& text);
  // The window title after a workspace was opened or saved.
  void title_changed(const QString& title);
  // The recent-workspace list changed.
  void recent_changed();

 private:
  void remember(const QString& file_name);

  image_list_model& images_;
  label_controller& labels_;
  library_model& library_;
  viewer_settings& settings_;
  workspace_window steps_;
  QWidget* window_;
  QString file_name_;
  QList<std::shared_ptr<QTemporaryDir>> folders_;
  bool modified_ = false;
  bool interactive_ = true;
};

}  // namespace tavr

#endif
