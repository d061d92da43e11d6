#include "tavr/camera/camera_controller.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QSettings>
#include <QSpinBox>
#include <QtConcurrent/QtConcurrentRun>

#include "corv/io/logger.h"
#include "tavr/camera/camera_panel.h"
#include "tavr/camera/camera_preferences_dialog.h"
#include "tavr/camera/ximea_library.h"
#include "tavr/image/hs_image.h"

namespace tavr {

const QString camera_controller::capture_failed_message =
    QStringLiteral("Could not capture image.");

namespace {

void log_line(const QString& text) {
  corv::logger::instance() << text.toStdString() << "EOL";
}

QString milliseconds(double exposure_us) {
  return QString::number(exposure_us / 1000.0, 'g', 4) + " ms";
}

}  // namespace

camera_controller::camera_controller(QSettings& settings, const QString& program_dir,
                                     QWidget* window)
    : settings_(settings),
      program_dir_(program_dir),
      window_(window),
      references_(std::make_shared<reflectance_references>()) {
  // The first look for cameras is the thread's first discovery.
  thread_ = std::make_unique<camera_thread>(open_library(ximea_library::default_file()));
  panel_ = new camera_panel(window);
  dialog_ = new camera_preferences_dialog(window);
  preferences_ = camera_preferences::load(settings_);
  dialog_->set_values(preferences_);
  counter_.reset(preferences_.counter_start);

  read_references();

  connect(thread_.get(), &camera_thread::frame_captured, this, &camera_controller::frame_arrived);
  connect(thread_.get(), &camera_thread::capture_failed, this, &camera_controller::capture_failed);
  connect(&writer_, &QFutureWatcher<QString>::finished, this, &camera_controller::recorded);
  connect(dialog_, &camera_preferences_dialog::accepted, this,
          [this] { set_preferences(dialog_->values()); });
  connect(dialog_, &camera_preferences_dialog::message_reported, this,
          &camera_controller::message_reported);
  connect(panel_->smoothing, qOverload<int>(&QSpinBox::valueChanged), thread_.get(),
          &camera_thread::set_smoothing);
}

camera_controller::~camera_controller() {
  recording_ = false;
  writer_.waitForFinished();
  thread_->blockSignals(true);
  thread_.reset();
  preferences_.save(settings_);
}

void camera_controller::set_interactive(bool interactive) {
  interactive_ = interactive;
  dialog_->set_interactive(interactive);
}

void camera_controller::report(const QString& title, const QString& text) {
  emit message_reported(title, text);
  if (interactive_) {
    QMessageBox::warning(window_, title, text);
  }
}

std::shared_ptr<const ximea_library> camera_controller::open_library(const std::string& file) {
  library_problem_.clear();
  try {
    return std::make_shared<ximea_library>(file);
  } catch (const std::exception& e) {
    library_problem_ = e.what();
    log_line(library_problem_);
  }
  return nullptr;
}

void camera_controller::load_library(const std::string& file) {
  thread_->set_library(open_library(file));
}

bool camera_controller::simulated() const {
  return thread_->library() != nullptr && thread_->library()->simulated();
}

bool camera_controller::use_simulator(bool simulated) {
  const bool loaded = switch_library(simulated);
  emit cameras_changed();
  return loaded;
}

bool camera_controller::switch_library(bool simulated) {
  if (!simulated) {
    load_library(ximea_library::default_file());
    return library_problem_.isEmpty();
  }
  const std::string file = ximea_library::simulator_file(program_dir_.toStdString());
  if (file.empty()) {
    library_problem_ = "The simulated camera (libximea_simulator.so) is not installed beside " +
                       program_dir_ + ".";
    log_line(library_problem_);
    thread_->set_library(nullptr);
    report("Simulated camera", library_problem_);
    return false;
  }
  load_library(file);
  if (!library_problem_.isEmpty()) {
    report("Simulated camera", library_problem_);
  }
  return library_problem_.isEmpty();
}

void camera_controller::read_references() {
  auto loaded = std::make_shared<reflectance_references>();
  try {
    loaded->load(preferences_.image_folder);
  } catch (const std::exception& e) {
    log_line(QString("camera: References not read: ") + e.what());
  }
  references_ = loaded;
  show_references();
}

void camera_controller::set_preferences(const camera_preferences& values) {
  const bool counter_moved = values.counter_start != preferences_.counter_start;
  const bool folder_moved = values.image_folder != preferences_.image_folder;
  preferences_ = values;
  if (counter_moved) {
    counter_.reset(preferences_.counter_start);
  }
  if (folder_moved) {
    read_references();
  }
  preferences_.save(settings_);
}

void camera_controller::apply_preferences(camera& device) const {
  device.set_bit_depth(preferences_.bit_depth);
  device.set_exposure_gain_mode(preferences_.exposure_mode);
  if (preferences_.exposure_mode == "manual") {
    device.set_exposure(preferences_.exposure_ms * 1000.0);
    device.set_gain(preferences_.gain_db);
  }
}

void camera_controller::cameras_added() {
  QStringList names;
  for (int i = 0; i < thread_->camera_count(); ++i) {
    camera& device = *thread_->camera_at(i);
    apply_preferences(device);
    names << device.get_device_name() + " (" + device.get_device_serial() + ")";
  }
  {
    const QSignalBlocker block(panel_->cameras);
    panel_->cameras->clear();
    panel_->cameras->addItems(names);
    panel_->cameras->setCurrentIndex(thread_->current_index());
  }
  for (const QString& name : names) {
    log_line("camera: " + name + " connected");
  }
  dialog_->set_camera(thread_->current_camera());
  show_bands();
  emit cameras_changed();
}

void camera_controller::cameras_removed() {
  if (recording_) {
    toggle_recording();
  }
  if (pending_ != pending::none) {
    capture_failed();
  }
  const QSignalBlocker block(panel_->cameras);
  panel_->cameras->clear();
  panel_->bands->clear();
  panel_->frame_rate->clear();
  dialog_->set_camera(nullptr);
  emit cameras_changed();
}

void camera_controller::show_bands() {
  const QSignalBlocker block(panel_->bands);
  panel_->bands->clear();
  camera* device = thread_->current_camera();
  if (device == nullptr) {
    return;
  }
  // Listed by wavelength; each row keeps its band's place in the mosaic.
  const std::vector<float> wavelengths = device->get_wavelengths();
  for (const int band : wavelength_order(wavelengths)) {
    auto* item =
        new QListWidgetItem(QString("%1 nm (band %2)")
                                .arg(wavelengths[static_cast<std::size_t>(band)], 0, 'f', 1)
                                .arg(band + 1),
                            panel_->bands);
    item->setData(Qt::UserRole, band);
    if (band == thread_->band()) {
      panel_->bands->setCurrentItem(item);
    }
  }
}

void camera_controller::set_camera(int index) {
  const bool was_live = thread_->live();
  thread_->set_current_camera(index);
  dialog_->set_camera(thread_->current_camera());
  show_bands();
  thread_->set_live(was_live);
}

void camera_controller::set_view_mode(int index) {
  thread_->set_view_mode(panel_->views->itemData(index).toString());
}

void camera_controller::set_band(int row) {
  const QListWidgetItem* item = panel_->bands->item(row);
  if (item == nullptr) {
    return;
  }
  const int band = item->data(Qt::UserRole).toInt();
  thread_->set_band(band);
  if (camera* device = thread_->current_camera()) {
    device->set_current_band(band);
  }
  // Picking a wavelength shows it.
  const int band_view = panel_->views->findData("band");
  if (panel_->views->currentIndex() != band_view) {
    panel_->views->setCurrentIndex(band_view);
  }
}

void camera_controller::start_live() {
  if (thread_->camera_count() == 0) {
    report("Live Camera", library_problem_.isEmpty() ? QStringLiteral("No camera is connected.")
                                                     : library_problem_);
    return;
  }
  shown_size_ = QSize();
  rate_shown_.invalidate();
  thread_->set_live(true);
  if (preferences_.show_at_live_start) {
    show_preferences();
  }
}

void camera_controller::stop_live() {
  thread_->set_live(false);
  if (recording_) {
    toggle_recording();
  }
  panel_->frame_rate->clear();
}

void camera_controller::shut_down() {
  stop_live();
  writer_.waitForFinished();
  thread_->stop_discovery();
  thread_->set_library(nullptr);
}

QImage camera_controller::take_picture(bool& refit) {
  const QImage picture = thread_->display_image();
  refit = !picture.isNull() && picture.size() != shown_size_;
  if (!picture.isNull()) {
    shown_size_ = picture.size();
  }
  if (!rate_shown_.isValid() || rate_shown_.elapsed() >= 500) {
    if (camera* device = thread_->current_camera()) {
      panel_->frame_rate->setText(QString::number(device->get_framerate(), 'f', 1) + " fps");
    }
    rate_shown_.start();
  }
  return picture;
}

void camera_controller::show_preferences() {
  dialog_->set_values(preferences_);
  dialog_->set_camera(thread_->current_camera());
  dialog_->show();
  dialog_->raise();
}

capture_options camera_controller::options() const {
  capture_options o;
  o.smoothed = preferences_.smoothed;
  o.smoothed_bands = preferences_.smoothed_bands;
  if (panel_->reflectance->isChecked() && references_->complete()) {
    o.references = references_.get();
  }
  return o;
}

void camera_controller::snapshot(const QString& file) {
  if (thread_->camera_count() == 0 || pending_ != pending::none) {
    if (thread_->camera_count() == 0) {
      report("Tavrel", capture_failed_message);
      emit snapshot_finished(false, capture_failed_message);
    }
    return;
  }
  pending_ = pending::snapshot;
  snapshot_file_ = file;
  thread_->request_frames(1);
}

void camera_controller::start_reference(pending kind) {
  if (thread_->camera_count() == 0) {
    report("Tavrel", capture_failed_message);
    return;
  }
  if (pending_ != pending::none) {
    return;
  }
  pending_ = kind;
  reference_parts_.clear();
  // The first frame may have been exposed before the lens was capped.
  reference_skip_ = 1;
  thread_->library()->point_simulator_at(kind == pending::dark ? 1 : 2);
  panel_->status->setText(kind == pending::dark ? "Taking the dark reference..."
                                                : "Taking the white reference...");
  thread_->request_frames(reference_frames + reference_skip_);
}

void camera_controller::capture_dark_reference() {
  start_reference(pending::dark);
}

void camera_controller::capture_white_reference() {
  start_reference(pending::white);
}

void camera_controller::clear_references() {
  references_ = std::make_shared<reflectance_references>();
  QDir folder(preferences_.image_folder);
  for (const QString& name : {reflectance_references::dark_file, reflectance_references::white_file,
                              reflectance_references::exposure_file}) {
    folder.remove(name);
    if (name.endsWith(".hdr")) {
      folder.remove(name.chopped(4) + ".fla");
    }
  }
  show_references();
}

void camera_controller::show_references() {
  QStringList parts;
  if (references_->dark()) {
    parts << "dark " + milliseconds(references_->dark()->exposure_us);
  }
  if (references_->white()) {
    parts << "white " + milliseconds(references_->white()->exposure_us);
  }
  panel_->references->setText(parts.isEmpty() ? QStringLiteral("No references")
                                              : "References: " + parts.join(", "));
  panel_->reflectance->setEnabled(references_->complete());
  if (!references_->complete()) {
    panel_->reflectance->setChecked(false);
  }
}

void camera_controller::capture_failed() {
  const pending was = pending_;
  pending_ = pending::none;
  if (thread_->library()) {
    thread_->library()->point_simulator_at(0);
  }
  if (was == pending::snapshot) {
    emit snapshot_finished(false, capture_failed_message);
  }
  if (was != pending::none || recording_) {
    if (recording_) {
      toggle_recording();
    }
    panel_->status->setText(capture_failed_message);
    report("Tavrel", capture_failed_message);
  }
}

void camera_controller::frame_arrived(const std::shared_ptr<const camera_frame>& frame) {
  switch (pending_) {
    case pending::snapshot:
      pending_ = pending::none;
      finish_snapshot(*frame);
      break;
    case pending::dark:
    case pending::white:
      finish_reference(frame);
      break;
    case pending::none:
      if (recording_) {
        record(frame);
      }
      break;
  }
  if (recording_ && pending_ == pending::none && !writer_.isRunning()) {
    thread_->request_frames(1);
  }
}

void camera_controller::finish_snapshot(const camera_frame& frame) {
  camera* device = thread_->current_camera();
  if (device == nullptr) {
    capture_failed();
    return;
  }
  capture_result capture;
  try {
    capture = make_capture(frame, camera_description::of(*device), options());
  } catch (const std::exception& e) {
    report("Tavrel", capture_failed_message + "<br/><br/>Reason: " + e.what());
    emit snapshot_finished(false, e.what());
    return;
  }
  QString path = snapshot_file_;
  if (path.isEmpty()) {
    QDir().mkpath(preferences_.image_folder);
    path = counter_.take(preferences_.image_folder, preferences_.image_name, preferences_.increment,
                         preferences_.digits);
    if (preferences_.remember_counter) {
      preferences_.counter_start = counter_.next();
      preferences_.save(settings_);
    }
  }
  bool saved = true;
  QString outcome = path;
  try {
    save_capture(capture, path);
  } catch (const std::exception& e) {
    saved = false;
    outcome = e.what();
    report("Tavrel", "Could not save the captured image " + QFileInfo(path).fileName() +
                         "<br/><br/>Reason: " + e.what());
  }
  // Kept in the image list even when it could not be saved, so that nothing is lost.
  auto image = std::make_shared<hs_image>(capture.data.cube, capture.data.wavelengths, path);
  if (capture.reflectance) {
    image->pipeline().set_s(capture.data.cube, capture.data.wavelengths);
  }
  panel_->status->setText((saved ? "Captured " : "Not saved: ") + QFileInfo(path).fileName() +
                          (capture.reflectance ? " (reflectance)" : ""));
  emit image_captured(image);
  emit snapshot_finished(saved, outcome);
}

void camera_controller::finish_reference(const std::shared_ptr<const camera_frame>& frame) {
  camera* device = thread_->current_camera();
  if (device == nullptr) {
    capture_failed();
    return;
  }
  if (reference_skip_ > 0) {
    --reference_skip_;
    return;
  }
  try {
    reference_parts_.append(raw_capture(*frame, camera_description::of(*device)));
  } catch (const std::exception& e) {
    pending_ = pending::none;
    thread_->library()->point_simulator_at(0);
    report("Tavrel", capture_failed_message + "<br/><br/>Reason: " + e.what());
    return;
  }
  if (reference_parts_.size() == 1) {
    reference_exposure_us_ = frame->exposure_us;
    reference_gain_db_ = frame->gain_db;
  }
  if (reference_parts_.size() < reference_frames) {
    return;
  }
  const bool dark = pending_ == pending::dark;
  pending_ = pending::none;
  thread_->library()->point_simulator_at(0);
  const spectral_cube mean = mean_capture(reference_parts_);
  reference_parts_.clear();
  auto updated = std::make_shared<reflectance_references>(*references_);
  reference_capture reference{mean.cube, mean.wavelengths, reference_exposure_us_,
                              reference_gain_db_};
  if (dark) {
    updated->set_dark(std::move(reference));
  } else {
    updated->set_white(std::move(reference));
  }
  try {
    updated->save(preferences_.image_folder);
  } catch (const std::exception& e) {
    report("Tavrel", QString("Could not save the references.<br/><br/>Reason: ") + e.what());
  }
  references_ = updated;
  if (references_->complete()) {
    panel_->reflectance->setEnabled(true);
    panel_->reflectance->setChecked(true);
  }
  show_references();
  panel_->status->setText(dark ? "Dark reference taken" : "White reference taken");
}

void camera_controller::toggle_recording() {
  if (recording_) {
    recording_ = false;
    emit recording_changed(false);
    panel_->status->setText(QString("Recorded %1 frames in %2")
                                .arg(frames_recorded_)
                                .arg(QDir::toNativeSeparators(preferences_.sequence_folder)));
    return;
  }
  if (thread_->camera_count() == 0) {
    report("Tavrel", capture_failed_message);
    return;
  }
  if (preferences_.sequence_folder.isEmpty() || !QDir().mkpath(preferences_.sequence_folder)) {
    report("Image Sequence Directory", "Cannot create directory. Please change directory");
    return;
  }
  recording_ = true;
  emit recording_changed(true);
  frames_recorded_ = 0;
  sequence_counter_.reset(preferences_.counter_start);
  panel_->status->setText("Recording...");
  if (pending_ == pending::none) {
    thread_->request_frames(1);
  }
}

void camera_controller::record(const std::shared_ptr<const camera_frame>& frame) {
  camera* device = thread_->current_camera();
  if (device == nullptr || writer_.isRunning()) {
    return;
  }
  const QString path = sequence_counter_.take(preferences_.sequence_folder, preferences_.image_name,
                                              preferences_.increment, preferences_.digits);
  const camera_description description = camera_description::of(*device);
  capture_options how = options();
  // The worker keeps the references it started with, whatever happens to them meanwhile.
  const std::shared_ptr<const reflectance_references> references =
      how.references != nullptr ? references_ : nullptr;
  writer_.setFuture(QtConcurrent::run([frame, description, how, references, path]() -> QString {
    try {
      capture_options used = how;
      used.references = references.get();
      save_capture(make_capture(*frame, description, used), path);
      return QString();
    } catch (const std::exception& e) {
      return QString("Could not save the image sequence frame %1<br/><br/>Reason: %2")
          .arg(QFileInfo(path).fileName(), e.what());
    }
  }));
}

void camera_controller::recorded() {
  const QString failure = writer_.result();
  if (!failure.isEmpty()) {
    recording_ = false;
    emit recording_changed(false);
    report("Tavrel", failure);
    return;
  }
  ++frames_recorded_;
  if (recording_) {
    panel_->status->setText(QString("Recording: %1 frames").arg(frames_recorded_));
    if (pending_ == pending::none) {
      thread_->request_frames(1);
    }
  }
}

}  // namespace tavr
