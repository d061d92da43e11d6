#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <stdexcept>

#include "tavr/app/recent_files.h"
#include "tavr/app/viewer_settings.h"
#include "tavr/image/open_image_controller.h"

namespace {

const QString sample = QStringLiteral(CORV_SOURCE_DIR "/data/sample/sample.hdr");

void touch(const QString& path) {
  QFile file(path);
  QVERIFY(file.open(QIODevice::WriteOnly));
}

}  // namespace

class open_image_controller_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void command_line_names_a_file_to_open() {
    QTemporaryDir dir;
    const QString image = dir.filePath("a.hdr");
    const QString workspace = dir.filePath("w.tvw");
    const QString upper = dir.filePath("W.TVW");
    touch(image);
    touch(workspace);
    touch(upper);
    using kind = tavr::startup_file::kind;
    QCOMPARE(tavr::startup_file_of({"tavrel"}).what, kind::none);
    QCOMPARE(tavr::startup_file_of({"tavrel", dir.filePath("missing.hdr")}).what, kind::none);
    QCOMPARE(tavr::startup_file_of({"tavrel", dir.path()}).what, kind::none);  // a folder
    QCOMPARE(tavr::startup_file_of({"tavrel", image}).what, kind::image);
    QCOMPARE(tavr::startup_file_of({"tavrel", image}).path, image);
    QCOMPARE(tavr::startup_file_of({"tavrel", image, workspace}).what, kind::workspace);
    QCOMPARE(tavr::startup_file_of({"tavrel", workspace, image}).what, kind::image);
    // The suffix test is exact: an upper-case workspace suffix is opened as an image.
    QCOMPARE(tavr::startup_file_of({"tavrel", upper}).what, kind::image);
    QCOMPARE(tavr::window_title_for("/data/scenes/leaf.hsz"), QString("leaf.hsz - Tavrel"));
  }

  void opening_reports_each_failure_exactly() {
    QTemporaryDir dir;
    const QString good = dir.filePath("good.hdr");
    const QString bad = dir.filePath("bad.hdr");
    touch(good);
    touch(bad);
    const QString missing = dir.filePath("missing.hdr");
    QStringList made;
    tavr::open_image_controller opener(
        [&made](const QString& path, tavr::hs_image::open_mode mode) {
          if (path.endsWith("bad.hdr")) {
            throw std::runtime_error("hdr_input: Cannot open file.");
          }
          made.append(path + (mode == tavr::hs_image::open_mode::reflectance ? " s" : " I"));
          corv::cube I(2, 2, 2, arma::fill::ones);
          return std::make_shared<tavr::hs_image>(I, corv::vector{400, 500}, path);
        });
    QStringList recent{bad, "/old/one.hdr"};
    const auto result =
        opener.open({good, missing, bad}, tavr::hs_image::open_mode::reflectance, recent);
    QCOMPARE(made, QStringList{good + " s"});
    QCOMPARE(result.images.size(), 1);
    QVERIFY(!result.cancelled);
    QCOMPARE(result.errors,
             (QStringList{"Could not open image file " + missing + ".<br/>File does not exist",
                          "Could not open image file " + bad +
                              ".<br/><br/>Reason: hdr_input: Cannot open file."}));
    QCOMPARE(recent, (QStringList{good, bad, "/old/one.hdr"}));
    // A name relative to the working folder is remembered whole.
    const QString working = QDir::currentPath();
    QDir::setCurrent(dir.path());
    opener.open({"good.hdr"}, tavr::hs_image::open_mode::irradiance, recent);
    QDir::setCurrent(working);
    QCOMPARE(recent.first(), QFileInfo(good).absoluteFilePath());

    // Cancelling before the second file stops there.
    made.clear();
    const auto cancelled = opener.open({good, good, good}, tavr::hs_image::open_mode::irradiance,
                                       recent, [](int index) { return index < 1; });
    QVERIFY(cancelled.cancelled);
    QCOMPARE(cancelled.images.size(), 1);
    QCOMPARE(made, QStringList{good + " I"});
  }

  void opening_the_sample_for_real() {
    tavr::open_image_controller opener;
    QStringList recent;
    const auto result = opener.open({sample}, tavr::hs_image::open_mode::irradiance, recent);
    QVERIFY2(result.errors.isEmpty(), qPrintable(result.errors.join("; ")));
    QCOMPARE(result.images.size(), 1);
    corv::pipeline& p = result.images.front()->pipeline();
    QCOMPARE(p.I().n_rows, arma::uword(200));
    QCOMPARE(p.I().n_cols, arma::uword(300));
    QCOMPARE(p.wavelengths().n_elem, arma::uword(33));
    QCOMPARE(recent.size(), 1);

    const tavr::open_command image = tavr::open_image_command();
    QCOMPARE(image.filter, QString("HS Image Files (*.hsz *.hdr *.tif)"));
    const tavr::open_command reflectance = tavr::open_reflectance_command();
    QCOMPARE(reflectance.filter, QString("HS Image Files (*.hdr *.tif)"));
    QVERIFY(reflectance.mode == tavr::hs_image::open_mode::reflectance);
  }

  void recent_lists_keep_the_latest_first() {
    QStringList list;
    for (int i = 0; i < 12; ++i) {
      list = tavr::with_recent_file(list, QString("/images/%1.hdr").arg(i));
    }
    QCOMPARE(list.size(), tavr::max_recent_files);
    QCOMPARE(list.front(), QString("/images/11.hdr"));
    QCOMPARE(list.back(), QString("/images/2.hdr"));
    list = tavr::with_recent_file(list, "/images/./5.hdr");
    QCOMPARE(list.front(), QString("/images/5.hdr"));
    QCOMPARE(list.count("/images/5.hdr"), 1);
    QCOMPARE(list.size(), tavr::max_recent_files);
  }

  void settings_round_trip() {
    QTemporaryDir dir;
    const QString file = dir.filePath("tavrel.ini");
    {
      QSettings settings(file, QSettings::IniFormat);
      tavr::viewer_settings values;
      values.import_image_filename = "/data";
      values.recent_image_filenames = QStringList{"/data/a.hdr", "/data/b.hsz"};
      values.show_tutorial_at_startup = false;
      values.main_window_state = QByteArray("\x01\x02", 2);
      values.save(settings);
    }
    QSettings settings(file, QSettings::IniFormat);
    QCOMPARE(settings.value("version").toString(), QString("1.2.0"));
    QVERIFY(!settings.value("date").toString().isEmpty());
    QCOMPARE(settings.value("recent_image_filenames").toStringList(),
             (QStringList{"/data/a.hdr", "/data/b.hsz"}));
    tavr::viewer_settings loaded;
    loaded.load(settings);
    QCOMPARE(loaded.import_image_filename, QString("/data"));
    QCOMPARE(loaded.recent_image_filenames.size(), 2);
    QVERIFY(!loaded.show_tutorial_at_startup);
    QCOMPARE(loaded.main_window_state, QByteArray("\x01\x02", 2));
    QVERIFY(loaded.workspace_filename.isEmpty());
  }
};

QTEST_MAIN(open_image_controller_test)
#include "open_image_controller_test.moc"
