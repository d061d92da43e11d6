// The camera commands of the main window with the simulated camera: snapshots into
// the image list and the capture folder, reflectance references, image sequences
// and the preferences dialog.
#include <QCheckBox>
#include <QDir>
#include <QLineEdit>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include "corv/io/hdr_input.h"
#include "corv/io/logger.h"
#include "tavr/app/main_window.h"
#include "tavr/camera/camera_controller.h"
#include "tavr/camera/camera_panel.h"
#include "tavr/camera/camera_preferences_dialog.h"
#include "tests/tavr/camera/simulator_control.h"

namespace {

void point_simulator_at(int target) {
  void* handle = dlopen(camera_testing::simulator_path().c_str(), RTLD_NOW | RTLD_LOCAL);
  reinterpret_cast<void (*)(int)>(dlsym(handle, "ximea_simulator_set_target"))(target);
  dlclose(handle);
}

// Takes a snapshot and returns what snapshot_finished said.
QString snapshot(tavr::camera_controller& camera) {
  QSignalSpy finished(&camera, &tavr::camera_controller::snapshot_finished);
  camera.snapshot();
  if (finished.isEmpty() && !finished.wait(20000)) {
    return "<no end>";
  }
  return (finished.front().at(0).toBool() ? "saved " : "failed ") +
         finished.front().at(1).toString();
}

}  // namespace

class camera_controller_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void initTestCase() {
    corv::logger::instance().set_echo(false);
    qputenv("TAVREL_XIMEA_LIBRARY", camera_testing::simulator_path().c_str());
  }
  void init() { camera_testing::configure({{"XIMEA_SIMULATOR_FPS", "60"}}); }

  void snapshots_references_and_sequences() {
    QTemporaryDir dir;
    QSettings settings(dir.filePath("tavrel.ini"), QSettings::IniFormat);
    settings.setValue("camera/image_folder", dir.filePath("captures"));
    settings.setValue("camera/sequence_folder", dir.filePath("sequences"));
    tavr::main_window window(&settings);
    window.set_interactive(false);
    tavr::camera_controller& camera = window.camera();
    camera.set_interactive(false);
    QVERIFY(camera.library_problem().isEmpty());
    camera.thread().check_for_cameras_();
    QCOMPARE(camera.panel().cameras->count(), 1);
    QCOMPARE(camera.panel().bands->count(), 16);

    // A snapshot is saved under the next free name and joins the image list.
    QCOMPARE(snapshot(camera), "saved " + dir.filePath("captures/image_0001.hdr"));
    QCOMPARE(window.images().size(), 1);
    corv::hdr_input first(dir.filePath("captures/image_0001.hdr").toStdString());
    const corv::cube raw = first.I();
    QCOMPARE(arma::size(raw), arma::size(272, 512, 16));
    QVERIFY(first.wavelengths().is_sorted());
    QVERIFY(raw.max() <= 1023.0f && raw.max() > 100.0f);

    // Dark and white references, then a white tile captured at another exposure
    // than the white reference's comes out as a reflectance of about 1.
    camera.capture_dark_reference();
    QTRY_VERIFY_WITH_TIMEOUT(camera.references().dark().has_value(), 20000);
    camera.capture_white_reference();
    QTRY_VERIFY_WITH_TIMEOUT(camera.references().white().has_value(), 20000);
    QVERIFY(camera.panel().reflectance->isChecked());
    QVERIFY(QFile::exists(dir.filePath("captures/camera_references.ini")));
    tavr::camera* device = camera.thread().current_camera();
    device->set_exposure_gain_mode("manual");
    device->set_exposure(camera.references().white()->exposure_us * 0.6);
    point_simulator_at(2);
    QCOMPARE(snapshot(camera), "saved " + dir.filePath("captures/image_0002.hdr"));
    point_simulator_at(0);
    QFile header(dir.filePath("captures/image_0002.hdr"));
    QVERIFY(header.open(QIODevice::ReadOnly));
    QVERIFY(header.readAll().contains("REFLECTANCE"));
    const corv::cube white =
        corv::hdr_input(dir.filePath("captures/image_0002.hdr").toStdString()).s();
    // Within the change of the simulated camera's moving light between the two.
    QVERIFY2(std::abs(arma::mean(arma::vectorise(white)) - 1.0f) < 0.15f,
             qPrintable(QString::number(arma::mean(arma::vectorise(white)))));
    QCOMPARE(window.images().back()->pipeline().s().n_slices, arma::uword{16});

    // Recording writes one numbered cube per frame it keeps up with.
    camera.toggle_recording();
    QVERIFY(camera.recording());
    QTRY_VERIFY_WITH_TIMEOUT(camera.frames_recorded() >= 2, 40000);
    camera.toggle_recording();
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(dir.filePath("sequences/image_0002.hdr")), 20000);
    QCOMPARE(window.images().size(), 2);  // sequences stay out of the image list

    // Clearing forgets the references and removes their files.
    camera.clear_references();
    QVERIFY(!camera.references().dark() && !camera.panel().reflectance->isEnabled());
    QVERIFY(!QFile::exists(dir.filePath("captures/dark_reference.hdr")));
  }

  void without_a_camera_nothing_is_captured() {
    camera_testing::configure({{"XIMEA_SIMULATOR_CAMERAS", "0"}});
    QTemporaryDir dir;
    QSettings settings(dir.filePath("tavrel.ini"), QSettings::IniFormat);
    tavr::main_window window(&settings);
    window.set_interactive(false);
    window.camera().set_interactive(false);
    QSignalSpy messages(&window.camera(), &tavr::camera_controller::message_reported);
    QCOMPARE(snapshot(window.camera()), QString("failed Could not capture image."));
    QCOMPARE(messages.front().at(1).toString(), QString("Could not capture image."));
    QVERIFY(window.images().isEmpty());
  }

  void preferences_dialog() {
    tavr::camera_preferences_dialog dialog;
    dialog.set_interactive(false);
    const tavr::camera_preferences defaults = dialog.values();

    // A sequence folder that cannot be made keeps the dialog open.
    QTemporaryDir dir;
    QFile blocker(dir.filePath("file"));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    tavr::camera_preferences values = defaults;
    values.sequence_folder = dir.filePath("file/sequences");
    values.image_name = "leaf";
    values.smoothed = true;
    dialog.set_values(values);
    QSignalSpy messages(&dialog, &tavr::camera_preferences_dialog::message_reported);
    QSignalSpy accepted(&dialog, &QDialog::accepted);
    dialog.accept();
    QCOMPARE(messages.count(), 1);
    QCOMPARE(messages.front().at(0).toString(), QString("Image Sequence Directory"));
    QCOMPARE(messages.front().at(1).toString(),
             QString("Cannot create directory. Please change directory"));
    QCOMPARE(accepted.count(), 0);

    // Kept between runs in the settings.
    QSettings settings(dir.filePath("tavrel.ini"), QSettings::IniFormat);
    dialog.values().save(settings);
    const tavr::camera_preferences read = tavr::camera_preferences::load(settings);
    QCOMPARE(read.image_name, QString("leaf"));
    QVERIFY(read.smoothed);
    QCOMPARE(read.sequence_folder, values.sequence_folder);
  }
};

QTEST_MAIN(camera_controller_test)
#include "camera_controller_test.moc"
