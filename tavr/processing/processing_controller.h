#ifndef TAVR_PROCESSING_PROCESSING_CONTROLLER_H
#define TAVR_PROCESSING_PROCESSING_CONTROLLER_H

#include <QMetaObject>
#include <QObject>
#include <QString>
#include <QTimer>
#include <memory>

#include "tavr/image/hs_image.h"
#include "tavr/processing/processing_settings.h"
#include "tavr/processing/stage_progress.h"

namespace corv {
class spectral_library;
}

namespace tavr {

// The processing commands of the "Process" menu (classification and endmember
// recovery work on the reflectance against the image's spectral library).
enum class processing_command {
  illuminant,
  reflectance,
  materials,
  analysis,
  classification,
  endmembers
};

// What a command runs on an image: the stages it asks for and those that must
// run first because their results are missing. The filter runs with the first
// recovery of an image only.
processing_selection selection_for(processing_command command, const processing_settings& values,
                                   bool has_illuminant, bool has_reflectance, bool filtered);

// Runs one background processing run at a time: starts the image's `process`
// on the thread pool, polls the library logger's stage every 500 ms while it
// runs, carries the user's cancel to the logger and reports the end.
class processing_controller : public QObject {
  Q_OBJECT

 public:
  static constexpr int poll_interval_ms = 500;

  explicit processing_controller(QObject* parent = nullptr);
  ~processing_controller() override;

  bool running() const { return image_ != nullptr; }
  // The image being processed (null when none).
  const std::shared_ptr<hs_image>& image() const { return image_; }
  bool cancelling() const { return cancelling_; }
  const QTimer& timer() const { return timer_; }

  // Copies the settings into the image, chooses the stages for the command and
  // starts the run. Returns false (and does nothing) while another run is going.
  bool start(const std::shared_ptr<hs_image>& image, processing_command command,
             const processing_settings& values);
  // Starts a run with the image's selection as it stands.
  bool start(const std::shared_ptr<hs_image>& image);

  // The classifier that the classification command runs (a classification_code).
  int classification_method() const { return classification_method_; }
  void set_classification_method(int code) { classification_method_ = code; }

  // Why classification or endmember recovery cannot run against a library (empty
  // when it can): "No endmember labels selected. Please select endmember labels
  // using the Spectral Library Manager." for a missing or empty library.
  static QString library_problem(const corv::spectral_library* library);

  // The message shown to the user for a failed run's text (empty: none).
  static QString user_message(const QString& pipeline_message, bool cancelled);

 public Q_SLOTS:
  // Cancel button of the progress dialog: asks the running stage to stop.
  void pipeline_process_cancel_();
  // The 500 ms poll of the logger's cancel request, stage and progress.
  void process_pipeline_stage_update_();
  // The image's end of processing (empty message on success).
  void process_pipeline_complete_(const QString& message);

 Q_SIGNALS:
  void started(const QString& label);
  void progress_changed(const tavr::stage_progress& progress);
  void cancel_requested();
  // The run has ended; `message` is what to show the user (empty: nothing).
  void finished(std::shared_ptr<tavr::hs_image> image, const QString& message);

 private:
  QTimer timer_;
  std::shared_ptr<hs_image> image_;
  QMetaObject::Connection complete_connection_;
  QMetaObject::Connection timer_connection_;
  bool cancelling_ = false;
  int classification_method_ = classify_sam;
};

}  // namespace tavr

Q_DECLARE_METATYPE(tavr::stage_progress)
Q_DECLARE_METATYPE(std::shared_ptr<tavr::hs_image>)

#endif
