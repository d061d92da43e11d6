// The acquisition thread with the simulated camera: discovery, live view in each
// mode, captures, and a camera unplugged and plugged in again.
#include <QSignalSpy>
#include <QTest>

#include "tavr/camera/camera_thread.h"
#include "tests/tavr/camera/simulator_control.h"

namespace {

// The loop's signals, counted on the test's thread: they arrive queued, as in the
// viewer (a QSignalSpy would be written on the loop's thread while the test reads it).
struct loop_signals {
  QObject context;
  int shown = 0;
  int failed = 0;
  QList<std::shared_ptr<const tavr::camera_frame>> frames;

  explicit loop_signals(tavr::camera_thread& thread) {
    QObject::connect(&thread, &tavr::camera_thread::cam_image_captured, &context,
                     [this] { ++shown; });
    QObject::connect(&thread, &tavr::camera_thread::capture_failed, &context, [this] { ++failed; });
    QObject::connect(&thread, &tavr::camera_thread::frame_captured, &context,
                     [this](std::shared_ptr<const tavr::camera_frame> frame) {
                       frames.append(std::move(frame));
                     });
  }
};

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
    loop_signals loop(thread);
    QSignalSpy added(&thread, &tavr::camera_thread::add_cam_to_ui);
    thread.check_for_cameras_();
    QCOMPARE(added.count(), 1);
    QCOMPARE(thread.camera_count(), 1);
    QVERIFY(thread.isRunning());
    QCOMPARE(thread.view_mode(), QString("Raw"));

    thread.set_live(true);
    const struct {
      const char* mode;
      QSize size;
    } modes[] = {{"Raw", {2048, 1088}}, {"band", {512, 272}}, {"Color", {512, 272}}};
    for (const auto& m : modes) {
      thread.set_view_mode(m.mode);
      // The frame in conversion when the mode changed may still be in the old mode.
      for (int i = 0; i < 2; ++i) {
        const int before = loop.shown;
        thread.display_image();
        QTRY_VERIFY_WITH_TIMEOUT(loop.shown > before, 12000);
      }
      const QImage picture = thread.display_image();
      QCOMPARE(picture.size(), m.size);
      QCOMPARE(picture.format(), QImage::Format_RGB32);
    }
    thread.set_live(false);

    // Captures come with live view off too, as copies of whole frames.
    thread.request_frames(2);
    QTRY_COMPARE_WITH_TIMEOUT(loop.frames.size(), 2, 12000);
    const tavr::camera_frame& frame = *loop.frames.back();
    QCOMPARE(frame.width, 2048);
    QCOMPARE(frame.bytes.size(), std::size_t{2048} * 1088 * 2);
    QVERIFY(frame.exposure_us >= 50.0);
    QVERIFY(frame.frame_number > loop.frames.front()->frame_number);
  }

  void unplugged_and_plugged_in_again() {
    // The camera goes after 10 frames and comes back 400 ms later (the waits are long
    // enough for the slow frames of a sanitizer build).
    camera_testing::configure({{"XIMEA_SIMULATOR_FPS", "60"},
                               {"XIMEA_SIMULATOR_UNPLUG_AFTER", "10"},
                               {"XIMEA_SIMULATOR_REPLUG_MS", "400"}});
    {
      tavr::camera_thread thread(camera_testing::simulator());
      loop_signals loop(thread);
      thread.check_for_cameras_();
      QSignalSpy added(&thread, &tavr::camera_thread::add_cam_to_ui);
      QSignalSpy removed(&thread, &tavr::camera_thread::remove_cam_from_ui);
      thread.set_live(true);
      // Live view skips the missing frames silently until discovery notices.
      QTRY_VERIFY_WITH_TIMEOUT(removed.count() >= 1, 40000);
      QCOMPARE(loop.failed, 0);
      // Discovery may look while the camera is away (no cameras), then again.
      QTRY_COMPARE_WITH_TIMEOUT(thread.camera_count(), 1, 40000);
      QVERIFY(added.count() >= 1);
      QCOMPARE(camera_testing::open_handles(), 1);
      // Live view goes on with the new camera object.
      QVERIFY(thread.live());
      const int before = loop.shown;
      thread.display_image();
      QTRY_VERIFY_WITH_TIMEOUT(loop.shown > before, 12000);
    }
    QCOMPARE(camera_testing::open_handles(), 0);
  }

  void a_capture_without_a_frame_fails() {
    camera_testing::configure({{"XIMEA_SIMULATOR_UNPLUG_AFTER", "3"}});
    tavr::camera_thread thread(camera_testing::simulator());
    loop_signals loop(thread);
    thread.check_for_cameras_();
    thread.request_frames(10);
    QTRY_COMPARE_WITH_TIMEOUT(loop.failed, 1, 12000);
    QVERIFY(loop.frames.size() < 10);
  }
};

QTEST_MAIN(camera_thread_test)
#include "camera_thread_test.moc"
