// Opening in two steps: the first picture from three bands, then the full
// picture streamed band block by band block, the same as rendering the whole cube.
#include <QTemporaryDir>
#include <QtTest/QtTest>

#include "corv/io/data_input.h"
#include "corv/io/hdr_output.h"
#include "corv/io/logger.h"
#include "corv/io/open_input.h"
#include "corv/pipeline/pipeline.h"
#include "tavr/image/colour_renderer.h"
#include "tavr/image/image_loading.h"

namespace {

corv::cube scene(arma::uword bands) {
  corv::cube I(9, 11, bands);
  for (arma::uword i = 0; i < I.n_elem; ++i) {
    I(i) = static_cast<float>((i * 7919) % 1000) / 1000.0f;
  }
  I.tube(2, 3).fill(-9999.0f);  // two ignored pixels
  I.tube(2, 2).fill(-9999.0f);
  return I;
}

// The cube written as an ENVI file and opened without holding it.
std::shared_ptr<corv::input> written(const QTemporaryDir& folder, const corv::cube& I,
                                     const corv::vector& wavelengths) {
  auto data = std::make_shared<corv::data_input>();
  data->set_I(I);
  data->set_wavelengths(wavelengths);
  corv::pipeline source(data);
  const std::string file = folder.filePath("scene.fla").toStdString();
  source.save(std::make_shared<corv::hdr_output>(false, 4), file);
  return corv::open_input(file, false);
}

}  // namespace

class image_loading_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void initTestCase() { corv::logger::instance().set_echo(false); }
  void first_picture_bands_follow_the_colour_rules();
  void pictures_equal_the_whole_cube_rendering();
};

void image_loading_test::first_picture_bands_follow_the_colour_rules() {
  tavr::rendering_options options;
  using bands = std::array<unsigned, 3>;
  // Spanning 550 nm: nearest to the weight peaks 470, 530 and 600 nm.
  QCOMPARE(tavr::first_picture_bands(arma::linspace<corv::vector>(400, 1000, 61), options),
           bands({7, 13, 20}));
  // Not spanning 550 nm: the band-copy rule.
  QCOMPARE(tavr::first_picture_bands(arma::linspace<corv::vector>(600, 1000, 128), options),
           bands({96, 64, 32}));
  QCOMPARE(tavr::first_picture_bands(arma::linspace<corv::vector>(600, 1000, 5), options),
           bands({4, 2, 0}));
  options.auto_rgb = false;
  options.rgb_bands = {9, 4, 1};  // red, green, blue
  QCOMPARE(tavr::first_picture_bands(arma::linspace<corv::vector>(400, 1000, 61), options),
           bands({1, 4, 9}));
}

void image_loading_test::pictures_equal_the_whole_cube_rendering() {
  QTemporaryDir folder;
  const corv::cube I = scene(20);  // more than two blocks of bands
  const corv::vector wavelengths = arma::linspace<corv::vector>(420, 800, 20);
  const auto input = written(folder, I, wavelengths);
  const tavr::rendering_options options;
  const QImage whole = tavr::colour_renderer::to_image(
      tavr::colour_renderer(options).render_channels(I, wavelengths, corv::vector()));

  unsigned calls = 0;
  const tavr::full_picture_result streamed =
      tavr::full_picture(*input, options, false, [&calls](unsigned, unsigned total) {
        ++calls;
        return total == 20;
      });
  QCOMPARE(streamed.message, QString());
  QCOMPARE(calls, 3u);
  QVERIFY(streamed.I.empty());
  QCOMPARE(streamed.picture, whole);

  const tavr::full_picture_result held = tavr::full_picture(*input, options, true);
  QCOMPARE(held.picture, whole);
  QVERIFY(arma::approx_equal(held.I, I, "absdiff", 0.0f));

  const tavr::full_picture_result stopped =
      tavr::full_picture(*input, options, false, [](unsigned, unsigned) { return false; });
  QVERIFY(stopped.cancelled);
  QVERIFY(stopped.picture.isNull());

  // The first picture: the three peak bands, each scaled by its colour constant.
  const std::array<unsigned, 3> b = tavr::first_picture_bands(wavelengths, options);
  corv::cube channels(I.n_rows, I.n_cols, 3);
  arma::umat keep(I.n_rows, I.n_cols, arma::fill::ones);
  const double scale[] = {0.74744, 1.003742, 1.071787};
  for (arma::uword c = 0; c < 3; ++c) {
    channels.slice(c) = I.slice(b[c]) * static_cast<float>(scale[c]);
    keep %= arma::conv_to<arma::umat>::from(I.slice(b[c]) != -9999.0f);
  }
  const QImage first = tavr::first_picture(*input, options);
  const QImage exact = tavr::colour_renderer::to_image(
      tavr::colour_renderer(options).finish_channels(channels, keep));
  QCOMPARE(first.size(), exact.size());
  int largest = 0;  // the first picture's tone curve comes from a table
  for (int y = 0; y < first.height(); ++y) {
    for (int x = 0; x < first.width(); ++x) {
      const QRgb a = first.pixel(x, y);
      const QRgb b = exact.pixel(x, y);
      largest = std::max({largest, std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)),
                          std::abs(qBlue(a) - qBlue(b))});
    }
  }
  QVERIFY(largest <= 1);
  // Sampled from every other pixel: half the size (rounded up), the ignored pixel still black.
  QCOMPARE(tavr::first_picture_step(2048, 1000), 2u);
  QCOMPARE(tavr::first_picture_step(1024, 1024), 1u);
  const QImage sampled = tavr::first_picture(*input, options, 2);
  QCOMPARE(sampled.size(), QSize(6, 5));
  QCOMPARE(sampled.pixelColor(1, 1), QColor(Qt::black));
  tavr::rendering_options stretched = options;
  stretched.contrast_enhancement = true;
  QCOMPARE(tavr::first_picture(*input, stretched),
           tavr::colour_renderer::to_image(
               tavr::colour_renderer(stretched).finish_channels(channels, keep)));
  QCOMPARE(first.pixelColor(3, 2), QColor(Qt::black));
}

QTEST_MAIN(image_loading_test)
#include "image_loading_test.moc"
