#include "tavr/workspace/workspace_controller.h"

#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QProgressDialog>

#include "tavr/app/image_list_model.h"
#include "tavr/app/recent_files.h"
#include "tavr/app/viewer_settings.h"
#include "tavr/image/open_image_controller.h"
#include "tavr/labels/label_controller.h"
#include "tavr/library/library_model.h"

namespace tavr {

const QString workspace_controller::save_changes_question =
    QStringLiteral("Do you want to save changes you made to the workspace?");
const QString workspace_controller::save_as_new_question =
    QStringLiteral("Do you want to save changes you made as a workspace?");
const QString workspace_controller::workspace_filter =
    QStringLiteral("TVW - Tavrel Workspace (*.tvw)");
const QString workspace_controller::new_workspace_name = QStringLiteral("new workspace.tvw");

namespace {

// A "Tavrel" progress dialog without a cancel button, shown at once when interactive.
class busy_dialog {
 public:
  busy_dialog(const QString& text, QWidget* window, bool interactive)
      : dialog_(text, QString(), 0, 0, window) {
    dialog_.setWindowTitle("Tavrel");
    dialog_.setWindowModality(Qt::WindowModal);
    dialog_.setMinimumDuration(interactive ? 0 : 1000000);
    dialog_.setValue(0);
    QApplication::processEvents();
  }

 private:
  QProgressDialog dialog_;
};

}  // namespace

workspace_controller::workspace_controller(image_list_model& images, label_controller& labels,
                                           library_model& library, viewer_settings& settings,
                                           workspace_window window_steps, QWidget* window)
    : QObject(window),
      images_(images),
      labels_(labels),
      library_(library),
      settings_(settings),
      steps_(std::move(window_steps)),
      window_(window) {
  const auto changed = [this] { modified_ = true; };
  for (QAbstractItemModel* model :
       {static_cast<QAbstractItemModel*>(&images_), static_cast<QAbstractItemModel*>(&library_)}) {
    connect(model, &QAbstractItemModel::rowsInserted, this, changed);
    connect(model, &QAbstractItemModel::rowsRemoved, this, changed);
    connect(model, &QAbstractItemModel::modelReset, this, changed);
  }
  connect(&library_, &QAbstractItemModel::dataChanged, this, changed);
}

workspace_controller::~workspace_controller() = default;

void workspace_controller::watch(hs_image& image) {
  const auto changed = [this] { modified_ = true; };
  label_model* labels = &image.labels();
  connect(labels, &QAbstractItemModel::rowsInserted, this, changed);
  connect(labels, &QAbstractItemModel::rowsRemoved, this, changed);
  connect(labels, &QAbstractItemModel::dataChanged, this, changed);
}

workspace_contents workspace_controller::contents(int current) const {
  workspace_contents held;
  held.images = images_.images();
  held.label_list = labels_.label_list().stringList();
  held.library = library_.entries();
  held.current = current;
  return held;
}

QStringList workspace_controller::temporary_folders() const {
  QStringList paths;
  for (const auto& folder : folders_) {
    paths.append(folder->path());
  }
  return paths;
}

void workspace_controller::remember(const QString& file_name) {
  file_name_ = file_name;
  settings_.workspace_filename = file_name;
  settings_.recent_workspace_filenames =
      with_recent_file(settings_.recent_workspace_filenames, file_name);
  Q_EMIT recent_changed();
  Q_EMIT title_changed(QFileInfo(file_name).fileName() + " - Tavrel");
}

bool workspace_controller::save(const QString& file_name, bool portable, int current) {
  const QString name =
      file_name.endsWith(".tvw", Qt::CaseInsensitive) ? file_name : file_name + ".tvw";
  bool left_out = false;
  try {
    const busy_dialog progress("Saving workspace...", window_, interactive_);
    left_out = save_workspace(name, contents(current), portable, temporary_folders());
  } catch (const workspace_error& error) {
    Q_EMIT message(error.title(), error.text());
    return false;
  }
  if (left_out) {
    Q_EMIT message("Save Workspace", left_out_notice);
  }
  modified_ = false;
  remember(name);
  return true;
}

bool workspace_controller::save_current(bool portable, int current) {
  return file_name_.isEmpty() ? save_as(portable, current) : save(file_name_, portable, current);
}

bool workspace_controller::save_as(bool portable, int current) {
  const QString start =
      file_name_.isEmpty()
          ? QFileInfo(settings_.workspace_filename).absoluteDir().filePath(new_workspace_name)
          : file_name_;
  const QString name = QFileDialog::getSaveFileName(window_, "Save File", start, workspace_filter);
  return !name.isEmpty() && save(name, portable, current);
}

bool workspace_controller::open(const QString& file_name, bool portable, int current) {
  opened_workspace opened;
  try {
    const busy_dialog progress("Opening workspace...", window_, interactive_);
    opened = open_workspace_file(file_name);
  } catch (const workspace_error& error) {
    Q_EMIT message(error.title(), error.text());
    return false;
  }
  if (!close(portable, current)) {
    return false;
  }
  folders_.append(opened.folder);
  for (const auto& image : opened.contents.images) {
    watch(*image);
    steps_.add_image(image);
  }
  labels_.set_label_list(opened.contents.label_list);
  library_.reset(opened.contents.library);
  if (opened.contents.current >= 0) {
    steps_.show_image(opened.contents.current);
  }
  for (const QString& error : opened.errors) {
    Q_EMIT message("Open File", error);
  }
  modified_ = false;
  remember(file_name);
  return true;
}

bool workspace_controller::settle_changes(bool portable, int current) {
  if (!modified_ || !interactive_ || (images_.empty() && library_.empty())) {
    return true;
  }
  const QMessageBox::StandardButton answer = QMessageBox::question(
      window_, "Close Workspace",
      file_name_.isEmpty() ? save_as_new_question : save_changes_question,
      QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel, QMessageBox::Yes);
  if (answer == QMessageBox::Cancel) {
    return false;
  }
  return answer == QMessageBox::No || save_current(portable, current);
}

bool workspace_controller::close(bool portable, int current) {
  if (!settle_changes(portable, current) || !steps_.clear()) {
    return false;
  }
  library_.clear();
  labels_.set_label_list({});
  file_name_.clear();
  modified_ = false;
  return true;
}

}  // namespace tavr
