// Colour rendering: the channel weights, the spectrum-to-colour conversion, the
// tone curve, the data-ignore value, contrast enhancement and the component views.
#include <QtTest/QtTest>
#include <cmath>
#include <stdexcept>

#include "corv/io/spectral_library.h"
#include "corv/pipeline/pipeline.h"
#include "tavr/image/channel_weights.h"
#include "tavr/image/colour_renderer.h"
#include "tavr/image/contrast_stretch.h"
#include "tavr/image/tone_curve.h"

using tavr::colour_renderer;
using tavr::rendering_options;

namespace {

bool near(double a, double b, double tolerance = 1e-4) {
  return std::abs(a - b) <= tolerance;
}

corv::vector wavelengths_from(float first, float step, arma::uword count) {
  corv::vector waves(count);
  for (arma::uword b = 0; b < count; ++b) {
    waves(b) = first + step * static_cast<float>(b);
  }
  return waves;
}

}  // namespace

class colour_renderer_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void channel_weight_interpolation();
  void weighted_colour_by_hand();
  void band_copy_without_550_nm();
  void sine_tone_curve();
  void contrast_stretch_between_cutoffs();
  void render_channels_ignores_pixels_and_takes_manual_bands();
  void pictures_of_pipeline_views();
};

void colour_renderer_test::channel_weight_interpolation() {
  const auto& table = tavr::channel_weight_table();
  // Halfway between 450 (0.675, 0.11, 0.01) and 460 (0.72, 0.18, 0.01).
  const auto between = tavr::channel_weights(455.0f);
  QVERIFY(near(between[0], 0.6975));
  QVERIFY(near(between[1], 0.145));
  QVERIFY(near(between[2], 0.01));
  // A quarter of the way from 570 (0, 0.6, 0.23) to 580 (0, 0.4, 0.46).
  const auto quarter = tavr::channel_weights(572.5f);
  QVERIFY(near(quarter[1], 0.55));
  QVERIFY(near(quarter[2], 0.2875));
  // Outside the table: the end rows.
  QCOMPARE(tavr::channel_weights(350.0f), table.front().weights);
  QCOMPARE(tavr::channel_weights(1000.0f), table.back().weights);
  const auto before_end = tavr::channel_weights(675.0f);
  QVERIFY(near(before_end[2], 0.0525));
}

void colour_renderer_test::weighted_colour_by_hand() {
  // Bands at 450, 550 and 650 nm; weights (0.675, 0.11, 0.01), (0.0166, 0.91, 0.01),
  // (0, 0.01, 0.19).
  const corv::vector waves{450.0f, 550.0f, 650.0f};
  corv::cube I(1, 1, 3);
  I(0, 0, 0) = 1.0f;
  I(0, 0, 1) = 2.0f;
  I(0, 0, 2) = 3.0f;
  const corv::cube colour = tavr::spectrum_to_colour(I, waves, corv::vector());
  QVERIFY(near(colour(0, 0, 0), (0.675 + 0.0332) * 0.74744 / (0.675 + 0.0166)));
  QVERIFY(near(colour(0, 0, 1), (0.11 + 1.82 + 0.03) * 1.003742 / (0.11 + 0.91 + 0.01)));
  QVERIFY(near(colour(0, 0, 2), (0.01 + 0.02 + 0.57) * 1.071787 / (0.01 + 0.01 + 0.19)));
  // The illuminant divides out: the same pixel under weighting (2, 1, 1).
  const corv::cube weighted = tavr::spectrum_to_colour(I, waves, corv::vector{2.0f, 1.0f, 1.0f});
  QVERIFY(near(weighted(0, 0, 0), (0.675 + 0.0332) * 0.74744 / (1.35 + 0.0166)));
  QVERIFY_EXCEPTION_THROWN(tavr::spectrum_to_colour(I, waves, corv::vector(4)),
                           std::invalid_argument);
  QVERIFY_EXCEPTION_THROWN(tavr::spectrum_to_colour(I, corv::vector(2), corv::vector()),
                           std::invalid_argument);
}

void colour_renderer_test::band_copy_without_550_nm() {
  // Five bands from 600 nm: channel 0 takes band 4, channel 1 band 2, channel 2 band 0.
  corv::cube few(1, 1, 5);
  for (arma::uword b = 0; b < 5; ++b) {
    few(0, 0, b) = static_cast<float>(10 * b);
  }
  const corv::cube copied = tavr::spectrum_to_colour(few, wavelengths_from(600.0f, 10.0f, 5),
                                                     corv::vector{9.0f, 9.0f, 9.0f, 9.0f, 9.0f});
  QCOMPARE(copied(0, 0, 0), 40.0f);
  QCOMPARE(copied(0, 0, 1), 20.0f);
  QCOMPARE(copied(0, 0, 2), 0.0f);
  // Twelve bands ending below 550 nm: h = 6, q = 3, so bands 9, 6 and 3.
  corv::cube many(1, 1, 12);
  for (arma::uword b = 0; b < 12; ++b) {
    many(0, 0, b) = static_cast<float>(b);
  }
  const corv::cube spread =
      tavr::spectrum_to_colour(many, wavelengths_from(400.0f, 10.0f, 12), corv::vector());
  QCOMPARE(spread(0, 0, 0), 9.0f);
  QCOMPARE(spread(0, 0, 1), 6.0f);
  QCOMPARE(spread(0, 0, 2), 3.0f);
}

void colour_renderer_test::sine_tone_curve() {
  corv::cube values(1, 3, 1);
  values(0, 0, 0) = 0.0f;
  values(0, 1, 0) = 2.0f;
  values(0, 2, 0) = 4.0f;
  tavr::apply_sine_tone_curve(values);
  QCOMPARE(values(0, 0, 0), 0.0f);
  QVERIFY(near(values(0, 1, 0), 255.0 * std::sin(M_PI / 4.0), 1e-3));
  QVERIFY(near(values(0, 2, 0), 255.0, 1e-3));
  // All negative but one: shifted so that the minimum becomes 0 first.
  corv::cube negative(1, 3, 1);
  negative(0, 0, 0) = -3.0f;
  negative(0, 1, 0) = -1.0f;
  negative(0, 2, 0) = 1.0f;
  tavr::apply_sine_tone_curve(negative);
  QCOMPARE(negative(0, 0, 0), 0.0f);
  QVERIFY(near(negative(0, 1, 0), 180.312, 1e-2));
  QVERIFY(near(negative(0, 2, 0), 255.0, 1e-3));
  corv::cube empty;
  try {
    tavr::apply_sine_tone_curve(empty);
    QFAIL("an empty cube was rendered");
  } catch (const std::exception& e) {
    QCOMPARE(QString(e.what()), QString("Cube::min(): object has no elements"));
  }
}

void colour_renderer_test::contrast_stretch_between_cutoffs() {
  corv::vector ramp(101);
  for (arma::uword i = 0; i < 101; ++i) {
    ramp(100 - i) = static_cast<float>(i);
  }
  QCOMPARE(tavr::cumulative_cutoff(ramp, 0.1), 10.0f);
  QCOMPARE(tavr::cumulative_cutoff(ramp, 0.9), 90.0f);
  QCOMPARE(tavr::cumulative_cutoff(ramp, 1.0), 100.0f);
  QVERIFY(std::isnan(tavr::cumulative_cutoff(corv::vector(), 0.5)));

  // One row of 0..100 in channel 0; pixel 0 ignored (its value must not count).
  corv::cube channels(1, 102, 1);
  channels(0, 0, 0) = -1000.0f;
  for (arma::uword i = 0; i < 101; ++i) {
    channels(0, i + 1, 0) = static_cast<float>(i);
  }
  arma::umat keep(1, 102, arma::fill::ones);
  keep(0, 0) = 0;
  tavr::stretch_contrast(channels, keep, 0.1, 0.9);
  QCOMPARE(channels(0, 0, 0), 0.0f);
  QCOMPARE(channels(0, 1, 0), 0.0f);   // 0, below the low cut-off
  QCOMPARE(channels(0, 11, 0), 0.0f);  // 10, at the low cut-off
  QVERIFY(near(channels(0, 51, 0), 127.5, 1e-3));
  QCOMPARE(channels(0, 91, 0), 255.0f);  // 90, at the high cut-off
  QCOMPARE(channels(0, 101, 0), 255.0f);
}

void colour_renderer_test::render_channels_ignores_pixels_and_takes_manual_bands() {
  // Three bands; the first pixel carries the data-ignore value in band 0.
  corv::cube I(1, 4, 3);
  for (arma::uword col = 0; col < 4; ++col) {
    I(0, col, 0) = static_cast<float>(col);      // red band
    I(0, col, 1) = static_cast<float>(2 * col);  // green band
    I(0, col, 2) = static_cast<float>(4 * col);  // blue band
  }
  I(0, 0, 0) = -9999.0f;
  I(0, 0, 1) = 50.0f;
  I(0, 0, 2) = 60.0f;
  rendering_options options;
  options.auto_rgb = false;
  options.rgb_bands = {0, 1, 2};
  colour_renderer renderer(options);
  const corv::vector waves{400.0f, 500.0f, 600.0f};
  const corv::cube channels = renderer.render_channels(I, waves, corv::vector());
  for (arma::uword c = 0; c < 3; ++c) {
    QCOMPARE(channels(0, 0, c), 0.0f);
  }
  // The largest element (blue band, pixel 3: 12) becomes 255; channel 0 holds blue.
  QVERIFY(near(channels(0, 3, 0), 255.0, 1e-3));
  QVERIFY(near(channels(0, 3, 1), 255.0 * std::sin(M_PI / 2.0 * 6.0 / 12.0), 1e-3));
  QVERIFY(near(channels(0, 3, 2), 255.0 * std::sin(M_PI / 2.0 * 3.0 / 12.0), 1e-3));
  const QImage picture = colour_renderer::to_image(channels);
  QCOMPARE(picture.size(), QSize(4, 1));
  QCOMPARE(picture.pixel(3, 0), qRgb(98, 180, 255));
  QCOMPARE(picture.pixel(0, 0), qRgb(0, 0, 0));

  // Still black after contrast enhancement, and the others stretched over 0..255.
  options.contrast_enhancement = true;
  options.min_cum_val = 0.0;
  options.max_cum_val = 1.0;
  renderer.set_options(options);
  const corv::cube stretched = renderer.render_channels(I, waves, corv::vector());
  for (arma::uword c = 0; c < 3; ++c) {
    QCOMPARE(stretched(0, 0, c), 0.0f);
    QCOMPARE(stretched(0, 1, c), 0.0f);
    QVERIFY(near(stretched(0, 3, c), 255.0, 1e-3));
  }

  options.rgb_bands = {0, 1, 3};
  renderer.set_options(options);
  QVERIFY_EXCEPTION_THROWN(renderer.render_channels(I, waves, corv::vector()),
                           std::invalid_argument);
}

void colour_renderer_test::pictures_of_pipeline_views() {
  const corv::vector waves = wavelengths_from(400.0f, 10.0f, 31);
  corv::vector illuminant(31);
  for (arma::uword b = 0; b < 31; ++b) {
    illuminant(b) = 1.0f + 0.1f * static_cast<float>(b);
  }
  corv::cube I(2, 2, 31);
  for (arma::uword b = 0; b < 31; ++b) {
    I.slice(b).fill(illuminant(b));
  }
  corv::pipeline image;
  image.set_I(I, waves);
  image.set_illuminant(illuminant);
  colour_renderer renderer;
  // Every pixel equals the illuminant: (K0, K1, K2) before the tone curve, K2 the largest.
  const QImage colour = renderer.render(image, tavr::component_view::colour);
  const auto level = [](double k) {
    return static_cast<int>(std::lround(255.0 * std::sin(M_PI / 2.0 * k / 1.071787)));
  };
  QCOMPARE(colour.pixel(1, 1), qRgb(255, level(1.003742), level(0.74744)));

  // Grey levels scale by the 99.5th percentile: one extreme pixel in 200 does
  // not darken the rest.
  corv::matrix k(1, 200, arma::fill::ones);
  k(0, 0) = 1000.0f;
  k(0, 1) = 0.5f;
  k(0, 2) = -1.0f;
  k(0, 3) = std::nanf("");
  const QImage specularity = colour_renderer::grey_image(k);
  QCOMPARE(specularity.pixel(0, 0), qRgb(255, 255, 255));
  QCOMPARE(specularity.pixel(1, 0), qRgb(128, 128, 128));
  QCOMPARE(specularity.pixel(2, 0), qRgb(0, 0, 0));
  QCOMPARE(specularity.pixel(3, 0), qRgb(0, 0, 0));
  QCOMPARE(specularity.pixel(4, 0), qRgb(255, 255, 255));

  // The reflectance views clamp to 0..1: a pixel the split blew up does not
  // wash out the others, a red surface stays red.
  corv::cube s(2, 2, 31);
  for (arma::uword b = 0; b < 31; ++b) {
    s.slice(b).fill(b < 17 ? 0.05f : 0.3f);
  }
  s.tube(1, 1).fill(-13.0f);
  s(1, 1, 30) = 17.0f;
  image.set_s(s);
  const corv::cube shown = colour_renderer::displayed_reflectance(s);
  QCOMPARE(shown.min(), 0.0f);
  QCOMPARE(shown.max(), 1.0f);
  const QRgb red = renderer.render(image, tavr::component_view::reflectance).pixel(0, 0);
  QVERIFY2(qRed(red) > 2 * qBlue(red), qPrintable(QColor(red).name()));

  // Band 0 holds 1.0, the cube's largest value is 4.0.
  const QImage by_cube = renderer.render(image, tavr::component_view::irradiance, 0,
                                         tavr::band_normalisation::by_cube);
  QCOMPARE(qRed(by_cube.pixel(0, 0)), 64);
  const QImage by_band = renderer.render(image, tavr::component_view::irradiance, 0,
                                         tavr::band_normalisation::by_band);
  QCOMPARE(qRed(by_band.pixel(0, 0)), 255);
  QVERIFY_EXCEPTION_THROWN(renderer.render(image, tavr::component_view::irradiance, 31),
                           std::invalid_argument);
  try {
    renderer.render(image, tavr::component_view::shading);
    QFAIL("shading rendered without g");
  } catch (const std::runtime_error& e) {
    QCOMPARE(QString(e.what()), QString("pipeline: g does not exist in pipeline or input."));
  }

  // Material map in the palette colours; numbers without a colour black.
  corv::matrix map(1, 3);
  map(0, 0) = 0.0f;
  map(0, 1) = 1.0f;
  map(0, 2) = 5.0f;
  const corv::matrix palette = corv::spectral_library::palette_colours(0, 2);
  const QImage materials = colour_renderer::material_map_image(map, palette);
  QCOMPARE(materials.pixel(1, 0),
           qRgb(static_cast<int>(palette(1, 0)), static_cast<int>(palette(1, 1)),
                static_cast<int>(palette(1, 2))));
  QCOMPARE(materials.pixel(2, 0), qRgb(0, 0, 0));

  // Abundance overlay: element 1 at half abundance pulls a black pixel halfway to its colour.
  QImage black(1, 1, QImage::Format_RGB32);
  black.fill(Qt::black);
  corv::cube abundances(1, 1, 2);
  abundances(0, 0, 0) = 0.5f;
  abundances(0, 0, 1) = 0.5f;
  corv::cube indexes(1, 1, 2);
  indexes(0, 0, 0) = 1.0f;
  indexes(0, 0, 1) = 0.0f;
  corv::matrix colours(2, 3, arma::fill::zeros);
  colours(1, 0) = 200.0f;
  colours(0, 2) = 200.0f;
  const QImage overlay =
      colour_renderer::overlay_abundances(black, abundances, indexes, {1}, colours);
  QCOMPARE(overlay.pixel(0, 0), qRgb(100, 0, 0));
}

QTEST_GUILESS_MAIN(colour_renderer_test)
#include "colour_renderer_test.moc"
