#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <stdexcept>

#include "corv/io/library_csv.h"
#include "corv/io/open_input.h"
#include "corv/pipeline/pipeline.h"
#include "tavr/image/image_exporter.h"

namespace {

// A pipeline whose material results can be set directly.
class test_pipeline : public corv::pipeline {
 public:
  using corv::pipeline::material_elements_;
};

void write(const QString& path, const QByteArray& text) {
  QFile file(path);
  QVERIFY(file.open(QIODevice::WriteOnly));
  file.write(text);
}

QByteArray read(const QString& path) {
  QFile file(path);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString failure_of(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& error) {
    return QString::fromStdString(error.what());
  }
  return QString();
}

}  // namespace

class image_exporter_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void illumination_is_written_per_band() {
    QTemporaryDir dir;
    corv::pipeline image;
    image.set_I(corv::cube(2, 2, 3, arma::fill::ones), corv::vector{400, 450.5, 500});
    const QString file = dir.filePath("light.csv");
    QCOMPARE(failure_of([&] { tavr::export_illumination(image, file); }),
             QString("pipeline: illuminant does not exist in pipeline or input."));
    QVERIFY(!QFileInfo::exists(file));

    image.set_illuminant(corv::vector{0.5, 1, 0.25});
    tavr::export_illumination(image, file);
    QCOMPARE(read(file), QByteArray("Wavelength (nm),Illuminant\n400,0.5\n450.5,1\n500,0.25\n"));
  }

  void illumination_is_read_per_band_or_interpolated() {
    QTemporaryDir dir;
    const corv::vector wavelengths{400, 450, 500};
    const QString values = dir.filePath("values.csv");
    write(values, "Illuminant\n1\n2\n3\n");
    const corv::vector read_values = tavr::read_illumination_csv(values, wavelengths);
    QVERIFY(arma::approx_equal(read_values, corv::vector{1, 2, 3}, "absdiff", 1e-6));

    const QString pairs = dir.filePath("pairs.csv");
    write(pairs, "nm,power\n380,0\n420,4\n\n520,14\n");
    const corv::vector interpolated = tavr::read_illumination_csv(pairs, wavelengths);
    QVERIFY(arma::approx_equal(interpolated, corv::vector{2, 7, 12}, "absdiff", 1e-5));

    write(values, "1\n2\n");
    QCOMPARE(failure_of([&] { tavr::read_illumination_csv(values, wavelengths); }),
             "read_illumination_csv: 2 values for 3 bands in " + values + ".");
    write(pairs, "420,4\n480,5\n");
    QCOMPARE(failure_of([&] { tavr::read_illumination_csv(pairs, wavelengths); }),
             QString("read_illumination_csv: Wavelength 400 is outside the file's range."));
    write(pairs, "400,1\nabc,2\n");
    QCOMPARE(failure_of([&] { tavr::read_illumination_csv(pairs, wavelengths); }),
             "read_illumination_csv: Line 2 of " + pairs + " is not a number.");
    QCOMPARE(
        failure_of([&] { tavr::read_illumination_csv(dir.filePath("none.csv"), wavelengths); }),
        "read_illumination_csv: Could not read " + dir.filePath("none.csv"));

    // MATLAB files: a vector of one value per band, else wavelength and value columns.
    const QString mat = QStringLiteral(CORV_SOURCE_DIR "/tests/data/illuminant_compressed.mat");
    const corv::vector per_band =
        tavr::read_illumination(mat, arma::linspace<corv::vector>(400, 720, 33));
    QCOMPARE(per_band(0), 1.0f);
    const corv::vector from_pairs = tavr::read_illumination(mat, wavelengths);
    QVERIFY(arma::approx_equal(from_pairs, corv::vector{0.24f, 0.34f, 0.44f}, "absdiff", 1e-5));
    QCOMPARE(failure_of([&] {
               tavr::read_illumination(mat, corv::vector{300, 400});
             }),
             QString("read_illumination: Wavelength 300 is outside the file's range."));
  }

  void materials_and_cubes_are_written() {
    QTemporaryDir dir;
    test_pipeline image;
    corv::cube I(3, 4, 2);
    for (arma::uword i = 0; i < I.n_elem; ++i) {
      I(i) = static_cast<float>(i) * 0.5f;
    }
    image.set_I(I, corv::vector{500, 600});
    QVERIFY(!tavr::has_material_components(image));
    image.material_elements_ = corv::matrix{{0.1f, 0.7f}, {0.2f, 0.8f}};

    const QString csv = dir.filePath("materials.csv");
    tavr::export_material_library(image, csv);
    const corv::spectral_library library = corv::read_library_csv(csv.toStdString());
    QCOMPARE(library.size(), arma::uword(2));
    QCOMPARE(QString::fromStdString(library.labels()[1]), QString("Material 2"));
    QCOMPARE(library.endmembers()(1, 1), 0.8f);
    const QString slz = dir.filePath("materials.slz");
    tavr::export_material_library(image, slz);
    QVERIFY(QFileInfo(slz).size() > 0);

    const QString cube_file = dir.filePath("cube.fla");
    tavr::save_cube(image, cube_file, false, 4);
    const auto input = corv::open_input(cube_file.toStdString(), true);
    QVERIFY(arma::approx_equal(input->I(), I, "absdiff", 1e-6));
  }
};

QTEST_MAIN(image_exporter_test)
#include "image_exporter_test.moc"
