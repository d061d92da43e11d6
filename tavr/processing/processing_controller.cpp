#include "tavr/processing/processing_controller.h"

#include <QThreadPool>

#include "corv/io/logger.h"
#include "corv/io/spectral_library.h"
#include "tavr/image/component_probe.h"

namespace tavr {

processing_selection selection_for(processing_command command, const processing_settings& values,
                                   bool has_illuminant, bool has_reflectance, bool filtered) {
  processing_selection s;
  s.filter_method = values.filter_method;
  s.filter_size = values.filter_size;
  s.principal_components = values.principal_components;
  s.analysis_cube_type = values.analysis_cube_type();
  s.filter_image = false;
  s.recover_illuminant = false;
  s.recover_reflectance = false;
  switch (command) {
    case processing_command::illuminant:
      s.recover_illuminant = true;
      break;
    case processing_command::reflectance:
      s.recover_illuminant = !has_illuminant;
      s.recover_reflectance = true;
      break;
    case processing_command::materials:
      s.recover_illuminant = !has_reflectance && !has_illuminant;
      s.recover_reflectance = !has_reflectance;
      s.recover_materials = true;
      break;
    case processing_command::classification:
    case processing_command::endmembers:
      s.recover_illuminant = !has_reflectance && !has_illuminant;
      s.recover_reflectance = !has_reflectance;
      s.classify = command == processing_command::classification;
      s.recover_endmembers = command == processing_command::endmembers;
      break;
    case processing_command::analysis:
      s.recover_illuminant = values.pca_on_reflectance && !has_reflectance && !has_illuminant;
      s.recover_reflectance = values.pca_on_reflectance && !has_reflectance;
      s.analyse = true;
      break;
  }
  s.filter_image = s.recover_illuminant && !filtered;
  return s;
}

processing_controller::processing_controller(QObject* parent) : QObject(parent) {
  qRegisterMetaType<tavr::stage_progress>();
  qRegisterMetaType<std::shared_ptr<tavr::hs_image>>();
  timer_.setInterval(poll_interval_ms);
}

processing_controller::~processing_controller() {
  if (image_ != nullptr) {
    // The run works on the image this controller keeps alive: stop it and wait.
    corv::logger::instance().request_abort();
    QThreadPool::globalInstance()->waitForDone();
    corv::logger::instance().clear_progress();
  }
}

bool processing_controller::start(const std::shared_ptr<hs_image>& image,
                                  processing_command command, const processing_settings& values) {
  if (running() || image == nullptr) {
    return false;
  }
  values.apply_to(*image);
  const bool filtered = image->filtered();
  // The components already present: computed ones in the pipeline, or the input's.
  const bool has_illuminant =
      component_or_null(image->pipeline(), &corv::pipeline::illuminant) != nullptr;
  const bool has_reflectance = component_or_null(image->pipeline(), &corv::pipeline::s) != nullptr;
  processing_selection selection =
      selection_for(command, values, has_illuminant, has_reflectance, filtered);
  selection.classification_method = classification_method_;
  image->set_selection(selection);
  return start(image);
}

bool processing_controller::start(const std::shared_ptr<hs_image>& image) {
  if (running() || image == nullptr) {
    return false;
  }
  image_ = image;
  cancelling_ = false;
  corv::logger::instance().clear_progress();
  complete_connection_ =
      connect(image.get(), &hs_image::process_pipeline_complete, this,
              &processing_controller::process_pipeline_complete_, Qt::QueuedConnection);
  timer_connection_ = connect(&timer_, &QTimer::timeout, this,
                              &processing_controller::process_pipeline_stage_update_);
  timer_.start();
  Q_EMIT started("Running Corvantis");
  image->start_process();
  return true;
}

QString processing_controller::library_problem(const corv::spectral_library* library) {
  if (library == nullptr || library->empty()) {
    return "No endmember labels selected. Please select endmember labels using the Spectral "
           "Library Manager.";
  }
  return QString();
}

QString processing_controller::user_message(const QString& pipeline_message, bool cancelled) {
  if (pipeline_message.isEmpty()) {
    return QString();
  }
  if (pipeline_message.contains("No valid patches found")) {
    return "Illuminate Recovery: No valid patches found. Adjust illuminant patch size in "
           "Corvantis Settings.";
  }
  if (cancelled && pipeline_message == "Processing was aborted!") {
    return QString();
  }
  return pipeline_message;
}

void processing_controller::pipeline_process_cancel_() {
  if (!running() || cancelling_) {
    return;
  }
  cancelling_ = true;
  corv::logger::instance().request_abort();
  Q_EMIT cancel_requested();
}

void processing_controller::process_pipeline_stage_update_() {
  const corv::logger& log = corv::logger::instance();
  Q_EMIT progress_changed(
      progress_for_stage(log.stage(), log.progress(), cancelling_ || log.abort_requested()));
}

void processing_controller::process_pipeline_complete_(const QString& message) {
  if (!running()) {
    return;
  }
  timer_.stop();
  disconnect(complete_connection_);
  disconnect(timer_connection_);
  corv::logger::instance().clear_progress();
  std::shared_ptr<hs_image> image = std::move(image_);
  image_.reset();
  const bool cancelled = cancelling_;
  cancelling_ = false;
  Q_EMIT finished(image, user_message(message, cancelled));
}

}  // namespace tavr
