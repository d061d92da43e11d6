#include <QSignalSpy>
#include <QTest>

#include "corv/io/logger.h"
#include "tavr/image/hs_image.h"
#include "tavr/processing/processing_controller.h"
#include "tavr/processing/stage_progress.h"

namespace {

std::shared_ptr<tavr::hs_image> small_image() {
  corv::cube I(24, 32, 12);
  for (arma::uword i = 0; i < I.n_elem; ++i) {
    I(i) = static_cast<float>((i * 7919) % 1000) / 1000.0f;
  }
  corv::vector wavelengths = arma::linspace<corv::vector>(400, 700, 12);
  return std::make_shared<tavr::hs_image>(I, wavelengths, "generated.hdr");
}

// Waits for the controller's end of run and returns its message.
QString wait_finished(QSignalSpy& finished) {
  if (finished.isEmpty()) {
    finished.wait(60000);
  }
  return finished.isEmpty() ? QString("<no end>") : finished.front().at(1).toString();
}

}  // namespace

class processing_controller_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void init() { corv::logger::instance().clear_progress(); }

  void stages_map_to_progress_and_labels() {
    struct row {
      int stage;
      int value;
      const char* label;
    };
    const row rows[] = {{7, 42, "Preprocessing..."},           {0, 142, "Recovering illuminant..."},
                        {1, 242, "Recovering reflectance..."}, {2, 342, "Recovering materials..."},
                        {3, 342, "Image Analysis..."},         {4, 342, "Image classification..."}};
    for (const row& r : rows) {
      const tavr::stage_progress p = tavr::progress_for_stage(r.stage, 42, false);
      QCOMPARE(p.value, r.value);
      QVERIFY(p.label_changed);
      QCOMPARE(p.label, QString(r.label));
      QVERIFY(!p.cancelling);
    }
    for (int stage : {5, 6, 8, 12, -1}) {
      const tavr::stage_progress p = tavr::progress_for_stage(stage, 42, false);
      QCOMPARE(p.value, 410);
      QVERIFY(!p.label_changed);
    }
    const tavr::stage_progress cancel = tavr::progress_for_stage(1, 17, true);
    QCOMPARE(cancel.value, 17);
    QCOMPARE(cancel.label, QString("Exiting pipeline process..."));
    QVERIFY(cancel.cancelling);
  }

  void commands_select_missing_prerequisites() {
    tavr::processing_settings values;
    values.filter_size = 7;
    values.principal_components = 4;
    values.pca_on_reflectance = false;

    tavr::processing_selection s =
        tavr::selection_for(tavr::processing_command::illuminant, values, false, false, false);
    QVERIFY(s.filter_image && s.recover_illuminant && !s.recover_reflectance);
    QCOMPARE(s.filter_size, 7);
    s = tavr::selection_for(tavr::processing_command::illuminant, values, true, false, true);
    QVERIFY(!s.filter_image && s.recover_illuminant);

    s = tavr::selection_for(tavr::processing_command::reflectance, values, true, false, true);
    QVERIFY(!s.recover_illuminant && s.recover_reflectance && !s.recover_materials);
    s = tavr::selection_for(tavr::processing_command::reflectance, values, false, false, false);
    QVERIFY(s.filter_image && s.recover_illuminant && s.recover_reflectance);

    s = tavr::selection_for(tavr::processing_command::materials, values, false, true, false);
    QVERIFY(!s.filter_image && !s.recover_illuminant && !s.recover_reflectance);
    QVERIFY(s.recover_materials);
    s = tavr::selection_for(tavr::processing_command::materials, values, false, false, false);
    QVERIFY(s.recover_illuminant && s.recover_reflectance && s.recover_materials);

    s = tavr::selection_for(tavr::processing_command::analysis, values, false, false, false);
    QVERIFY(s.analyse && !s.recover_illuminant && !s.recover_reflectance && !s.filter_image);
    QCOMPARE(s.analysis_cube_type, QString("Irradiance"));
    QCOMPARE(s.principal_components, 4);
    values.pca_on_reflectance = true;
    s = tavr::selection_for(tavr::processing_command::analysis, values, false, false, false);
    QVERIFY(s.recover_illuminant && s.recover_reflectance && s.analyse);
    QVERIFY(!s.classify && !s.recover_endmembers);
  }

  void messages_for_the_user() {
    QCOMPARE(tavr::processing_controller::user_message("", false), QString());
    QCOMPARE(tavr::processing_controller::user_message("No valid patches found", false),
             QString("Illuminate Recovery: No valid patches found. Adjust illuminant patch size "
                     "in Corvantis Settings."));
    QCOMPARE(tavr::processing_controller::user_message("Processing was aborted!", true), QString());
    QCOMPARE(tavr::processing_controller::user_message("Processing was aborted!", false),
             QString("Processing was aborted!"));
    QCOMPARE(tavr::processing_controller::user_message("pipeline: s is empty", false),
             QString("pipeline: s is empty"));
  }

  void a_run_polls_and_ends() {
    tavr::processing_controller controller;
    QSignalSpy started(&controller, &tavr::processing_controller::started);
    QSignalSpy progress(&controller, &tavr::processing_controller::progress_changed);
    QSignalSpy finished(&controller, &tavr::processing_controller::finished);
    auto image = small_image();
    tavr::processing_settings values;
    values.pca_on_reflectance = false;
    values.principal_components = 3;

    QVERIFY(controller.start(image, tavr::processing_command::analysis, values));
    QVERIFY(controller.running());
    QCOMPARE(controller.image(), image);
    QVERIFY(controller.timer().isActive());
    QCOMPARE(controller.timer().interval(), 500);
    QCOMPARE(started.size(), 1);
    QCOMPARE(started.front().front().toString(), QString("Running Corvantis"));
    QVERIFY(!controller.start(small_image()));  // one run at a time
    QVERIFY(image->selection().analyse);

    corv::logger::instance().set_stage(9);
    controller.process_pipeline_stage_update_();
    QCOMPARE(progress.back().front().value<tavr::stage_progress>().value, 410);

    QCOMPARE(wait_finished(finished), QString());
    QCOMPARE(finished.front().front().value<std::shared_ptr<tavr::hs_image>>(), image);
    QVERIFY(!controller.running());
    QVERIFY(!controller.timer().isActive());
    QCOMPARE(corv::logger::instance().stage(), 0);
    QCOMPARE(image->pipeline().principal_components().n_slices, arma::uword(3));

    // After the end the timer's connection is gone: a poll by hand still works, a
    // late completion signal is ignored.
    const int ends = finished.size();
    Q_EMIT image->process_pipeline_complete("late");
    QTest::qWait(10);
    QCOMPARE(finished.size(), ends);
  }

  void cancel_goes_through_the_logger() {
    tavr::processing_controller controller;
    QSignalSpy cancels(&controller, &tavr::processing_controller::cancel_requested);
    QSignalSpy progress(&controller, &tavr::processing_controller::progress_changed);
    QSignalSpy finished(&controller, &tavr::processing_controller::finished);
    controller.pipeline_process_cancel_();  // nothing running: nothing to cancel
    QCOMPARE(cancels.size(), 0);

    auto image = small_image();
    tavr::processing_settings values;
    values.pca_on_reflectance = false;
    QVERIFY(controller.start(image, tavr::processing_command::analysis, values));
    corv::logger::instance().set_stage(3);
    corv::logger::instance().set_progress(60);
    controller.pipeline_process_cancel_();
    controller.pipeline_process_cancel_();
    QCOMPARE(cancels.size(), 1);
    QVERIFY(controller.cancelling());
    controller.process_pipeline_stage_update_();
    const auto shown = progress.back().front().value<tavr::stage_progress>();
    QVERIFY(shown.cancelling);
    QCOMPARE(shown.label, QString("Exiting pipeline process..."));

    // Whether the run stopped or had already ended, the user is told nothing more.
    QCOMPARE(wait_finished(finished), QString());
    QVERIFY(!controller.cancelling());
    QVERIFY(!corv::logger::instance().abort_requested());
  }
};

QTEST_MAIN(processing_controller_test)
#include "processing_controller_test.moc"
