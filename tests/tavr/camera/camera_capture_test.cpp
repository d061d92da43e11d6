// What a capture becomes: bands in wavelength order, smoothed bands, reflectance
// against dark and white references, and the numbering of capture files.
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "tavr/camera/camera_preferences.h"
#include "tavr/camera/capture_spectra.h"
#include "tavr/camera/frame_conversion.h"
#include "tavr/camera/reflectance_calibration.h"

namespace {

std::vector<float> gaussian(const arma::fvec& grid, float peak, float fwhm) {
  const arma::fvec d = (grid - peak) / (fwhm / 2.3548f);
  return arma::conv_to<std::vector<float>>::from(arma::exp(-0.5f * d % d));
}

tavr::reference_capture reference(float level, double exposure_us, double gain_db = 0.0) {
  tavr::reference_capture r;
  r.cube = corv::cube(2, 3, 4, arma::fill::value(level));
  r.wavelengths = {450, 500, 550, 600};
  r.exposure_us = exposure_us;
  r.gain_db = gain_db;
  return r;
}

QString failure(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return {};
}

}  // namespace

class camera_capture_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void captures_hold_the_bands_in_wavelength_order() {
    QCOMPARE(tavr::wavelength_order({570, 460, 500, 460}), (std::vector<int>{1, 3, 2, 0}));
    // A 2x2 mosaic over a 4 x 2 frame: two cells of four bands.
    const std::uint16_t pixels[] = {0, 1, 10, 11, 2, 3, 12, 13};
    const tavr::frame_view frame{pixels, 4, 2, true};
    const corv::cube cube = tavr::capture_cube(frame, {2, 2, 4}, {3, 0, 2, 1});
    QCOMPARE(arma::size(cube), arma::size(1, 2, 4));
    QVERIFY(arma::approx_equal(arma::vectorise(cube.tube(0, 1)), corv::vector{13, 10, 12, 11},
                               "absdiff", 0.0f));
    QCOMPARE(failure([&] {
               tavr::capture_cube(frame, {2, 2, 4}, {0, 1, 1, 3});
             }),
             QString("capture_cube: The band order does not list each of the 4 bands once."));
    QCOMPARE(
        failure([&] {
          tavr::capture_cube(frame, {4, 4, 16});
        }),
        QString("capture_cube: A 4 x 2 frame cannot be split into 16 bands by a 4 x 4 mosaic."));
  }

  void smoothing_recovers_a_smooth_spectrum_and_keeps_a_flat_one_flat() {
    // Sixteen overlapping filters from 460 to 600 nm, sampled every nanometre from 400.
    const arma::fvec grid = arma::regspace<arma::fvec>(400, 700);
    std::vector<float> peaks;
    corv::matrix responses(16, grid.n_elem);
    for (int b = 0; b < 16; ++b) {
      peaks.push_back(460.0f + 140.0f * b / 15.0f);
      responses.row(b) = arma::frowvec(gaussian(grid, peaks.back(), 18.0f));
    }
    const tavr::spectral_smoother smoother(peaks, responses, 400, 15);
    QCOMPARE(smoother.wavelengths().n_elem, arma::uword{15});
    QCOMPARE(smoother.wavelengths()(14), 600.0f);

    // A smooth spectrum seen through the filters comes back within 3%.
    const arma::fvec spectrum = 1.0f + 0.5f * arma::sin((grid - 400.0f) / 40.0f);
    corv::cube seen(1, 2, 16);
    for (arma::uword b = 0; b < 16; ++b) {
      seen(0, 0, b) = arma::dot(responses.row(b), spectrum);
      seen(0, 1, b) = arma::accu(responses.row(b));  // a flat spectrum
    }
    const corv::cube out = smoother.apply(seen);
    const float scale =
        out(0, 0, 7) / (1.0f + 0.5f * std::sin((smoother.wavelengths()(7) - 400.0f) / 40.0f));
    for (arma::uword k = 0; k < 15; ++k) {
      const float truth = 1.0f + 0.5f * std::sin((smoother.wavelengths()(k) - 400.0f) / 40.0f);
      QVERIFY2(std::abs(out(0, 0, k) / scale - truth) < 0.03f * truth,
               qPrintable(QString::number(k)));
    }
    const float level = arma::mean(arma::vectorise(seen.tube(0, 1)));
    for (arma::uword k = 0; k < 15; ++k) {
      QVERIFY(std::abs(out(0, 1, k) - level) < 0.02f * level);
    }

    // Without responses the bands are interpolated.
    const tavr::spectral_smoother linear({500, 600}, corv::matrix(), 0, 3);
    corv::cube two(1, 1, 2);
    two(0, 0, 0) = 10;
    two(0, 0, 1) = 20;
    QCOMPARE(linear.apply(two)(0, 0, 1), 15.0f);
    QCOMPARE(failure([] { tavr::spectral_smoother({500}, corv::matrix(), 0, 5); }),
             QString("spectral_smoother: Cannot make 5 bands from 1."));
  }

  void reflectance_against_references() {
    QCOMPARE(tavr::reflectance_of(60, 10, 110, 1.0f), 0.5f);
    QCOMPARE(tavr::reflectance_of(60, 10, 110, 0.5f), 0.25f);
    QCOMPARE(tavr::reflectance_of(60, 10, 10, 1.0f), 0.0f);  // a white no brighter than dark
    // Twice the capture's exposure collects twice the signal; +6 dB of gain about the same.
    QCOMPARE(tavr::exposure_ratio(4000, 0, 2000, 0), 0.5);
    QVERIFY(std::abs(tavr::exposure_ratio(2000, 0, 2000, 6.0) - 1.9953) < 1e-4);

    tavr::reflectance_references references;
    const corv::cube raw(2, 3, 4, arma::fill::value(60.0f));
    const corv::vector nm{450, 500, 550, 600};
    QCOMPARE(failure([&] { references.reflectance(raw, nm, 1000, 0); }),
             QString("reflectance_references: The dark reference is missing."));
    references.set_dark(reference(10, 9000));
    QCOMPARE(failure([&] { references.reflectance(raw, nm, 1000, 0); }),
             QString("reflectance_references: The white reference is missing."));
    references.set_white(reference(110, 1000));
    // The white was taken at half the capture's exposure.
    const corv::cube r = references.reflectance(raw, nm, 2000, 0);
    QVERIFY(arma::all(arma::vectorise(arma::abs(r - 0.25f)) < 1e-6f));
    QCOMPARE(failure([&] { references.reflectance(corv::cube(2, 2, 4), nm, 1000, 0); }),
             QString("reflectance_references: The dark reference is 2 x 3 x 4 but the capture is "
                     "2 x 2 x 4."));
    QCOMPARE(failure([&] {
               references.reflectance(raw, {450, 500, 550, 610}, 1000, 0);
             }),
             QString("reflectance_references: The dark reference has other wavelengths than the "
                     "capture."));

    // Kept beside the captures and read back with their exposures.
    QTemporaryDir dir;
    references.save(dir.filePath("captures"));
    tavr::reflectance_references loaded;
    loaded.load(dir.filePath("captures"));
    QVERIFY(loaded.complete());
    QCOMPARE(loaded.white()->exposure_us, 1000.0);
    QCOMPARE(loaded.dark()->cube(1, 2, 3), 10.0f);
    QVERIFY(QFile::exists(dir.filePath("captures/white_reference.hdr")));
    tavr::reflectance_references none;
    none.load(dir.filePath("elsewhere"));
    QVERIFY(!none.dark() && !none.white());
  }

  void captures_are_numbered_without_overwriting() {
    QCOMPARE(tavr::numbered_name("image", 7, 4), QString("image_0007"));
    QCOMPARE(tavr::numbered_name("scan", -3, 3), QString("scan_-003"));
    QCOMPARE(tavr::numbered_name("scan", 12345, 2), QString("scan_12345"));
    QTemporaryDir dir;
    QFile taken(dir.filePath("image_003.fla"));
    QVERIFY(taken.open(QIODevice::WriteOnly));
    taken.close();
    tavr::capture_counter counter;
    counter.reset(1);
    QCOMPARE(counter.take(dir.path(), "image", 2, 3), dir.filePath("image_001.hdr"));
    QCOMPARE(counter.take(dir.path(), "image", 2, 3), dir.filePath("image_005.hdr"));
    QCOMPARE(counter.next(), 7);
  }
};

QTEST_MAIN(camera_capture_test)
#include "camera_capture_test.moc"
