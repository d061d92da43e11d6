// The XIMEA driver against the simulated camera library, and the calibration reader.
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <numeric>

#include "tavr/camera/camera_calibration.h"
#include "tavr/camera/ximea_camera.h"
#include "tavr/camera/ximea_library.h"
#include "tests/tavr/camera/simulator_control.h"

namespace {

// Every parameter the driver writes, as "name=value", recorded on the way to the simulator.
QStringList written;
tavr::xi::set_param_int_fn simulator_set_int = nullptr;
tavr::xi::set_param_float_fn simulator_set_float = nullptr;
tavr::xi::set_param_string_fn simulator_set_string = nullptr;

std::shared_ptr<tavr::ximea_library> spied_simulator() {
  auto library = std::make_shared<tavr::ximea_library>(camera_testing::simulator_path());
  simulator_set_int = library->set_param_int;
  simulator_set_float = library->set_param_float;
  simulator_set_string = library->set_param_string;
  library->set_param_int = [](tavr::xi::handle h, const char* name, int value) {
    written << QString("%1=%2").arg(name).arg(value);
    return simulator_set_int(h, name, value);
  };
  library->set_param_float = [](tavr::xi::handle h, const char* name, float value) {
    written << QString("%1=%2").arg(name).arg(static_cast<double>(value), 0, 'f', 1);
    return simulator_set_float(h, name, value);
  };
  library->set_param_string = [](tavr::xi::handle h, const char* name, void* value,
                                 tavr::xi::dword size) {
    written << QString("%1=%2 (%3)").arg(name, static_cast<const char*>(value)).arg(size);
    return simulator_set_string(h, name, value, size);
  };
  written.clear();
  return library;
}

}  // namespace

class ximea_camera_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void initTestCase() {
    if (camera_testing::simulator_path().empty()) {
      QFAIL("libximea_simulator.so is not built beside the tests");
    }
  }
  void init() { camera_testing::configure({}); }

  void missing_library_is_refused_with_its_name() {
    try {
      tavr::ximea_library library("/nonexistent/libm3api.so.2");
      QFAIL("loaded a missing library");
    } catch (const std::runtime_error& e) {
      QVERIFY(
          QString(e.what()).startsWith("ximea_library: Cannot load /nonexistent/libm3api.so.2: "));
    }
    qputenv("TAVREL_XIMEA_LIBRARY", "/opt/x/libsim.so");
    QCOMPARE(tavr::ximea_library::default_file(), std::string("/opt/x/libsim.so"));
    qunsetenv("TAVREL_XIMEA_LIBRARY");
    QCOMPARE(tavr::ximea_library::default_file(), std::string("libm3api.so.2"));
  }

  void opens_with_the_calibration_of_a_4x4_mosaic() {
    auto library = camera_testing::simulator();
    tavr::ximea_camera camera(library);
    QCOMPARE(camera.get_number_devices(), 1);
    camera.open_device(0);
    QCOMPARE(camera.get_number_bands(), 16);
    QCOMPARE(camera.get_mosaic_width(), 4);
    QCOMPARE(camera.get_mosaic_height(), 4);
    const std::vector<float> wavelengths = camera.get_wavelengths();
    QCOMPARE(wavelengths.size(), std::size_t{16});
    QCOMPARE(wavelengths.front(), 570.49f);  // mosaic order, not wavelength order
    QCOMPARE(*std::min_element(wavelengths.begin(), wavelengths.end()), 460.14f);
    const corv::matrix responses = camera.get_filter_responses();
    QCOMPARE(responses.n_rows, arma::uword{16});
    QCOMPARE(responses.n_cols, arma::uword{601});
    QCOMPARE(camera.get_response_range(), std::make_pair(400, 1000));
    // Every filter peaks near its band's wavelength.
    for (arma::uword b = 0; b < 16; ++b) {
      const double peak_nm = 400.0 + static_cast<double>(responses.row(b).index_max());
      QVERIFY2(std::abs(peak_nm - wavelengths[b]) < 6.0, qPrintable(QString::number(peak_nm)));
    }
    QVERIFY(camera.start_acquisition());
    QCOMPARE(camera.get_width(), 2048);
    QCOMPARE(camera.get_height(), 1088);
    camera.stop_acquisition();
    QCOMPARE(camera_testing::open_handles(), 1);
    camera.close_device();
    QCOMPARE(camera_testing::open_handles(), 0);
  }

  void settings_are_clamped_and_written_as_the_camera_expects() {
    auto library = spied_simulator();
    tavr::ximea_camera camera(library);
    camera.open_device(0);
    QCOMPARE(written, QStringList{"ffs_file_name=sens_calib.dat (260)"});
    const struct {
      double asked;
      double written;
    } gains[] = {{100.0, 24.0}, {3.7, 3.0}, {-5.0, 0.0}};
    for (const auto& g : gains) {
      camera.set_gain(g.asked);
      QCOMPARE(camera.get_gain(), g.written);
    }
    camera.set_exposure(1.0);
    QCOMPARE(camera.get_exposure(), 50.0);
    camera.set_exposure(5e6);
    QCOMPARE(camera.get_exposure(), 1e6);
    camera.set_exposure(12345.0);
    QCOMPARE(camera.get_exposure_list(), std::vector<float>{12345.0f});

    written.clear();
    camera.set_auto_exposure();
    QCOMPARE(camera.get_exposure_gain_mode(), QString("auto"));
    camera.set_exposure_gain_mode("manual");
    camera.set_exposure_gain_mode("auto");
    camera.set_exposure_gain_mode("night");
    QCOMPARE(camera.get_exposure_gain_mode(), QString("night"));
    QCOMPARE(written,
             (QStringList{"aeag=1", "exp_priority=1.0", "aeag=0", "aeag=1", "exp_priority=0.5"}));
    const struct {
      int bits;
      int format;
    } depths[] = {{8, 5}, {10, 6}, {12, 6}, {16, 6}};
    for (const auto& d : depths) {
      camera.set_bit_depth(d.bits);
      QCOMPARE(camera.get_image_format(), d.format);
    }
    camera.set_current_band(7);
    QCOMPARE(camera.get_current_band(), 7);
  }

  void frames_in_both_depths_with_the_border_removed() {
    QTemporaryDir dir;
    const QString calibration = dir.filePath("calibration.xml");
    QFile file(calibration);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(
        "<c><nr_bands>16</nr_bands><offset_x>2</offset_x><offset_y>1</offset_y>"
        "<mosaic_pattern_width>4</mosaic_pattern_width>"
        "<mosaic_pattern_height>4</mosaic_pattern_height></c>");
    file.close();
    camera_testing::configure({{"XIMEA_SIMULATOR_CALIBRATION", calibration.toUtf8().constData()},
                               {"XIMEA_SIMULATOR_FPS", "100"}});
    auto library = camera_testing::simulator();
    tavr::ximea_camera camera(library);
    camera.open_device(0);
    camera.set_exposure_gain_mode("manual");
    camera.set_exposure(8000.0);
    camera.start_acquisition();
    QCOMPARE(camera.get_width(), 2044);
    QCOMPARE(camera.get_height(), 1086);

    const std::uint16_t* wide = camera.get_image_16bit();
    QVERIFY(wide != nullptr);
    const int first = camera.get_frame_number();
    const std::size_t pixels = std::size_t{2044} * 1086;
    const double mean16 = std::accumulate(wide, wide + pixels, 0.0) / pixels;
    QVERIFY(*std::max_element(wide, wide + pixels) <= 1023);
    camera.set_bit_depth(8);
    const std::uint8_t* narrow = camera.get_image_8bit();
    QVERIFY(narrow != nullptr);
    QVERIFY(camera.get_frame_number() > first);
    const double mean8 = std::accumulate(narrow, narrow + pixels, 0.0) / pixels;
    // The same scene in 8 bits is a quarter of the 10-bit counts.
    QVERIFY2(std::abs(mean8 * 4 - mean16) < 0.1 * mean16,
             qPrintable(QString("%1 %2").arg(mean8).arg(mean16)));
    // Both point one line and two pixels into the same buffer: 2050 pixels of 2
    // bytes for the 16-bit frame, of 1 byte for the 8-bit one.
    QCOMPARE(reinterpret_cast<const std::uint8_t*>(wide) - narrow, std::ptrdiff_t{2050});
    camera.stop_acquisition();
  }

  void dropped_frames_leave_gaps_in_the_frame_numbers() {
    camera_testing::configure({{"XIMEA_SIMULATOR_FPS", "100"}, {"XIMEA_SIMULATOR_DROP", "2"}});
    auto library = camera_testing::simulator();
    tavr::ximea_camera camera(library);
    camera.open_device(0);
    camera.start_acquisition();
    for (int i = 0; i < 3; ++i) {
      QVERIFY(camera.get_image_16bit() != nullptr);
      QCOMPARE(camera.get_frame_number() % 2, 1);  // every second frame is lost
    }
    camera.stop_acquisition();
  }

  void calibration_reading() {
    // Without a calibration the camera has the 3-band fallback.
    camera_testing::configure({{"XIMEA_SIMULATOR_CALIBRATION", ""}});
    auto library = camera_testing::simulator();
    tavr::ximea_camera camera(library);
    camera.open_device(0);
    QCOMPARE(camera.get_number_bands(), 3);
    QCOMPARE(camera.get_wavelengths(), (std::vector<float>{0.0f, 1.0f, 2.0f}));
    QCOMPARE(camera.get_mosaic_width(), 0);

    tavr::camera_calibration c = tavr::parse_calibration(
        "<x><nr_bands>2.9</nr_bands><bands><band>470,12</band><band>480,11</band></bands>"
        "<fwhm><band>12</band><band>11</band></fwhm>"
        "<filter_responses>1,2,,4,5,6,7</filter_responses>"
        "<start_calibration_range>500</start_calibration_range>"
        "<end_calibration_range>502</end_calibration_range></x>");
    QCOMPARE(c.bands, 2);
    QCOMPARE(c.wavelengths, (std::vector<float>{470.0f, 480.0f}));
    // Value 2 x s + b of the list is band b at sample s; an empty value stays 0;
    // extra values are unused.
    const corv::matrix expected = {{1, 0, 5}, {2, 4, 6}};
    QVERIFY(arma::approx_equal(c.filter_responses, expected, "absdiff", 0.0f));

    // A damaged file keeps what was read before the damage.
    c = tavr::parse_calibration(
        "<x><nr_bands>16</nr_bands><band>500</band><oops></x><band>9</band>");
    QCOMPARE(c.bands, 16);
    QCOMPARE(c.wavelengths, std::vector<float>{500.0f});
  }

  void a_frame_later_than_the_time_out_is_no_frame() {
    // A frame every 5.6 s: the first is due after the driver's 5 s time-out.
    camera_testing::configure({{"XIMEA_SIMULATOR_FPS", "0.18"}});
    auto library = camera_testing::simulator();
    tavr::ximea_camera camera(library);
    camera.open_device(0);
    camera.set_exposure_gain_mode("manual");
    QElapsedTimer clock;
    clock.start();
    QVERIFY(camera.start_acquisition());  // true even though its first frame timed out
    QVERIFY(clock.elapsed() >= 4900);
    QCOMPARE(camera.get_width(), 0);               // no frame has filled the descriptor
    QVERIFY(camera.get_image_16bit() != nullptr);  // ... until the late frame comes
    QCOMPARE(camera.get_width(), 2048);
    camera.stop_acquisition();
  }
};

QTEST_MAIN(ximea_camera_test)
#include "ximea_camera_test.moc"
