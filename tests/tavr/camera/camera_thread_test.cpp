// The acquisition thread with the simulated camera: discovery, live view in each
// mode, captures, and a camera unplugged and plugged in again.
#include <QSignalSpy>
#include <QTest>

#include "tavr/camera/camera_thread.h"
#include "tests/tavr/camera/simulator_control.h"

namespace {

// Waits until `spy` has at least `count` signals.
bool wait_for(QSignalSpy& spy, int count, int timeout_ms) {
  QElapsedTimer clock;
  clock.start();
  while (spy.count() < count && clock.elapsed() < timeout_ms) {
    spy.wait(std::max<qint64>(1, timeout_ms - clock.elapsed()));
  }
  return spy.count() >= count;
}

}  // namespace

class camera_thread_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void init() { camera_testing::configure({{"XIMEA_SIMULATOR_FPS", "60"}}); }

  void without_cameras_the_timer_only_looks() {
    camera_testing::configure({{"XIMEA_SIMULATOR_CAMERAS", "0"}});
    tavr::camera_thread thread(camera_testing::simulator());
    QCOMPARE(thread.timer().interval(), 1500);
    QVERIFY(thread.timer().isActive());
    QSignalSpy added(&thread, &tavr::camera_thread::add_cam_to_ui);
    QSignalSpy removed(&thread, &tavr::camera_thread::remove_cam_from_ui);
    QTest::qWait(1700);
    QCOMPARE(added.count() + removed.count(), 0);
    QVERIFY(!thread.isRunning());
    // No library at all is no camera too.
    tavr::camera_thread none(nullptr);
    none.check_for_cameras_();
    QCOMPARE(none.camera_count(), 0);
  }

  void live_view_in_each_mode_and_captures() {
    tavr::camera_thread thread(camera_testing::simulator());
    QSignalSpy added(&thread, &tavr::camera_thread::add_cam_to_ui);
    thread.check_for_cameras_();
    QCOMPARE(added.count(), 1);
    QCOMPARE(thread.camera_count(), 1);
    QVERIFY(thread.isRunning());
    QCOMPARE(thread.view_mode(), QString("Raw"));

    QSignalSpy shown(&thread, &tavr::camera_thread::cam_image_captured);
    thread.set_live(true);
    const struct {
      const char* mode;
      QSize size;
    } modes[] = {{"Raw", {2048, 1088}}, {"band", {512, 272}}, {"Color", {512, 272}}};
    for (const auto& m : modes) {
      thread.set_view_mode(m.mode);
      thread.display_image();
      shown.clear();
      // The frame in conversion when the mode changed may still be in the old mode.
      QVERIFY2(wait_for(shown, 1, 3000), m.mode);
      thread.display_image();
      QVERIFY(wait_for(shown, 2, 3000));
      const QImage picture = thread.display_image();
      QCOMPARE(picture.size(), m.size);
      QCOMPARE(picture.format(), QImage::Format_RGB32);
    }
    thread.set_live(false);

    // Captures come with live view off too, as copies of whole frames.
    QSignalSpy copies(&thread, &tavr::camera_thread::frame_captured);
    thread.request_frames(2);
    QVERIFY(wait_for(copies, 2, 3000));
    const auto frame = copies.at(1).at(0).value<std::shared_ptr<const tavr::camera_frame>>();
    QCOMPARE(frame->width, 2048);
    QCOMPARE(frame->bytes.size(), std::size_t{2048} * 1088 * 2);
    QVERIFY(frame->exposure_us >= 50.0);
    QVERIFY(frame->frame_number >
            copies.at(0).at(0).value<std::shared_ptr<const tavr::camera_frame>>()->frame_number);
  }

  void unplugged_and_plugged_in_again() {
    // The camera goes after 10 frames and comes back 400 ms later (the waits are long
    // enough for the slow frames of a sanitizer build).
    camera_testing::configure({{"XIMEA_SIMULATOR_FPS", "60"},
                               {"XIMEA_SIMULATOR_UNPLUG_AFTER", "10"},
                               {"XIMEA_SIMULATOR_REPLUG_MS", "400"}});
    {
      tavr::camera_thread thread(camera_testing::simulator());
      QSignalSpy added(&thread, &tavr::camera_thread::add_cam_to_ui);
      QSignalSpy removed(&thread, &tavr::camera_thread::remove_cam_from_ui);
      QSignalSpy shown(&thread, &tavr::camera_thread::cam_image_captured);
      QSignalSpy failed(&thread, &tavr::camera_thread::capture_failed);
      thread.check_for_cameras_();
      added.clear();
      removed.clear();
      thread.set_live(true);
      // Live view skips the missing frames silently until discovery notices.
      QVERIFY(wait_for(removed, 1, 10000));
      QCOMPARE(failed.count(), 0);
      // Discovery may look while the camera is away (no cameras), then again.
      QTRY_COMPARE_WITH_TIMEOUT(thread.camera_count(), 1, 10000);
      QVERIFY(added.count() >= 1);
      QCOMPARE(camera_testing::open_handles(), 1);
      // Live view goes on with the new camera object.
      QVERIFY(thread.live());
      shown.clear();
      thread.display_image();
      QVERIFY(wait_for(shown, 1, 3000));
    }
    QCOMPARE(camera_testing::open_handles(), 0);
  }

  void a_capture_without_a_frame_fails() {
    camera_testing::configure({{"XIMEA_SIMULATOR_UNPLUG_AFTER", "3"}});
    tavr::camera_thread thread(camera_testing::simulator());
    thread.check_for_cameras_();
    QSignalSpy copies(&thread, &tavr::camera_thread::frame_captured);
    QSignalSpy failed(&thread, &tavr::camera_thread::capture_failed);
    thread.request_frames(10);
    QVERIFY(wait_for(failed, 1, 3000));
    QVERIFY(copies.count() < 10);
  }
};

QTEST_MAIN(camera_thread_test)
#include "camera_thread_test.moc"
