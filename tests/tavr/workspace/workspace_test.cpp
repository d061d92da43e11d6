
#include <QBuffer>
#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <array>
#include <functional>

#include "corv/io/logger.h"
#include "corv/io/zip_archive.h"
#include "tavr/app/main_window.h"
#include "tavr/workspace/workspace_file.h"
#include "tavr/workspace/workspace_record.h"
#include "tests/file_size_limit.h"

namespace {

const QString sample = QStringLiteral(CORV_SOURCE_DIR "/data/sample/sample.hdr");

// An image that exists only in memory, with recovered components set by hand.
std::shared_ptr<tavr::hs_image> processed_memory_image() {
  corv::cube I(6, 8, 3);
  I.imbue([n = 0]() mutable { return static_cast<float>(1 + (n++ % 17)); });
  auto image = std::make_shared<tavr::hs_image>(I, corv::vector{500.0f, 600.0f, 700.0f}, "capture");
  corv::pipeline& p = image->pipeline();
  p.set_illuminant({1.0f, 2.0f, 3.0f});
  p.set_k(corv::matrix(6, 8, arma::fill::value(0.25f)));
  p.set_g(corv::matrix(6, 8, arma::fill::value(0.5f)));
  p.set_materials(corv::matrix{{0.1f, 0.9f}, {0.2f, 0.8f}, {0.3f, 0.7f}},
                  corv::cube(6, 8, 1, arma::fill::ones), corv::cube(6, 8, 1, arma::fill::ones));
  return image;
}

tavr::workspace_contents two_images() {
  tavr::workspace_contents contents;
  auto first = std::make_shared<tavr::hs_image>(sample);
  first->crop(QRectF(10, 20, 100, 50));
  first->labels().add({"grass", QColor(10, 200, 30), QPolygonF(QRectF(5, 5, 10, 10)), true, false});
  first->labels().add({"roof, red", QColor("Red"), QPolygonF(QRectF(30, 5, 4, 4)), false, true});
  first->view_state().component = tavr::component_view::irradiance;
  first->view_state().scale = 2.5;
  first->view_state().position = QPointF(40.5, 12.25);
  first->view_state().material_labels = QStringList{"Material 1", "a,b"};
  first->view_state().material_states = QVector<bool>{true, false};
  first->rendering().auto_rgb = false;
  first->rendering().rgb_bands = {3, 2, 1};
  contents.images = {first, processed_memory_image()};
  contents.label_list = QStringList{"grass", "roof, red", "water"};
  contents.library = {{"water", {0.1f, 0.2f, 0.3f}, {500.0f, 600.0f, 700.0f}, QColor("Blue"), "x"}};
  contents.current = 1;
  return contents;
}

QByteArray read_all(const QString& name) {
  QFile file(name);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void same_image_state(const tavr::hs_image& opened, const tavr::hs_image& saved) {
  QCOMPARE(opened.labels().labels(), saved.labels().labels());
  QCOMPARE(opened.history().size(), saved.history().size());
  QCOMPARE(opened.history().front().rectangle, saved.history().front().rectangle);
  QCOMPARE(opened.view_state().component, saved.view_state().component);
  QCOMPARE(opened.view_state().scale, saved.view_state().scale);
  QCOMPARE(opened.view_state().position, saved.view_state().position);
  QCOMPARE(opened.view_state().material_labels, saved.view_state().material_labels);
  QCOMPARE(opened.view_state().material_states, saved.view_state().material_states);
  QCOMPARE(opened.rendering().rgb_bands, saved.rendering().rgb_bands);
  QCOMPARE(opened.rendering().auto_rgb, false);
}

}  // namespace

class workspace_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void initTestCase() { corv::logger::instance().set_echo(false); }

  void round_trip_refers_to_images_or_carries_them() {
    const tavr::workspace_contents saved = two_images();
    QTemporaryDir dir;
    for (const bool portable : {false, true}) {
      const QString file = dir.filePath(portable ? "portable.tvw" : "refers.tvw");
      // Only the portable workspace can hold the image that exists in memory only.
      QCOMPARE(tavr::save_workspace(file, saved, portable), !portable);
      const tavr::opened_workspace opened = tavr::open_workspace_file(file);
      QVERIFY2(opened.errors.isEmpty(), qPrintable(opened.errors.join("; ")));
      const auto& images = opened.contents.images;
      QCOMPARE(images.size(), portable ? 2 : 1);
      QCOMPARE(images[0]->file_name(), portable ? QDir(opened.folder->path()).filePath("sample.hdr")
                                                : QFileInfo(sample).absoluteFilePath());
      QCOMPARE(images[0]->pipeline().height(), 51u);  // the crop is applied again
      same_image_state(*images[0], *saved.images[0]);
      QCOMPARE(opened.contents.current, portable ? 1 : -1);
      QCOMPARE(opened.contents.label_list, saved.label_list);
      QCOMPARE(opened.contents.library.size(), 1);
      QCOMPARE(opened.contents.library[0].label, QString("water"));
      QCOMPARE(opened.contents.library[0].colour, QColor("Blue"));
      QVERIFY(arma::approx_equal(opened.contents.library[0].spectrum, saved.library[0].spectrum,
                                 "absdiff", 1e-5f));
      if (portable) {
        // The image in memory travels whole, with its recovered components.
        corv::pipeline& memory = images[1]->pipeline();
        QVERIFY(arma::approx_equal(memory.I(), saved.images[1]->pipeline().I(), "absdiff", 0.0f));
        QVERIFY(arma::approx_equal(memory.illuminant(), corv::vector{1.0f, 2.0f, 3.0f}, "absdiff",
                                   1e-3f));
        QCOMPARE(memory.material_elements().n_cols, arma::uword(2));
      }
      std::vector<std::string> names;
      const QTemporaryDir extracted;
      for (const corv::zip_entry& member :
           corv::extract_zip(file.toStdString(), extracted.path().toStdString())) {
        names.push_back(member.name);
        QCOMPARE(member.comment, std::string("no comment"));
      }
      const std::vector<std::string> expected =
          portable
              ? std::vector<std::string>{"tavrel.dat",  "library.slz", "capture.fla", "capture.hdr",
                                         "capture.hsz", "sample.fla",  "sample.hdr"}
              : std::vector<std::string>{"tavrel.dat", "library.slz"};
      QCOMPARE(names, expected);
    }
  }

  void refusals_leave_the_window_as_it_was() {
    QTemporaryDir dir;
    QSettings settings(dir.filePath("tavrel.ini"), QSettings::IniFormat);
    tavr::main_window window(&settings);
    window.set_interactive(false);
    QSignalSpy messages(&window, &tavr::main_window::message_reported);
    // A workspace referring to a copy of the sample that is then removed.
    for (const QString suffix : {".hdr", ".fla"}) {
      QVERIFY(QFile::copy(CORV_SOURCE_DIR "/data/sample/sample" + suffix,
                          dir.filePath("copy" + suffix)));
    }
    QVERIFY(window.open_images({sample, dir.filePath("copy.hdr")}));
    const QString file = dir.filePath("w.tvw");
    QVERIFY(window.save_workspace(file, false));
    QCOMPARE(window.windowTitle(), QString("w.tvw - Tavrel"));
    QVERIFY(QFile::remove(dir.filePath("copy.hdr")));
    QVERIFY(window.open_workspace(file));
    QCOMPARE(window.images().size(), 1);
    QCOMPARE(messages.back().at(1).toString(),
             "Could not open image file " + dir.filePath("copy.hdr") + ".<br/>File does not exist");

    // Damaged and hostile files are refused with their messages; nothing changes.
    QFile damaged(dir.filePath("damaged.tvw"));
    QVERIFY(QFile::copy(file, damaged.fileName()));
    QVERIFY(damaged.open(QIODevice::ReadWrite));
    damaged.seek(40);
    damaged.write(QByteArray(40, '\x5a'));
    damaged.close();
    const auto archive = [&dir](const QString& name, const QByteArray& record) {
      corv::write_zip(dir.filePath(name).toStdString(),
                      {{"tavrel.dat", record.toStdString(), "no comment"}}, 1);
      return dir.filePath(name);
    };
    // A record of one image whose first label's value is written by `value`.
    const auto label_value = [&archive](const QString& name,
                                        const std::function<void(QDataStream&)>& value) {
      QByteArray record;
      QDataStream out(&record, QIODevice::WriteOnly);
      out << quint32(0xA0B0C0D0) << qint32(1000) << qint32(1) << sample << qint32(1);
      value(out);
      out << QString("label");
      return archive(name, record);
    };
    tavr::workspace_record escaping;
    escaping.images = QStringList{"../copy.hdr"};
    escaping.labels = {{}};
    escaping.settings = QStringList{""};
    escaping.histories = {{}};
    escaping.states = {{}};
    QBuffer escaping_record;
    escaping_record.open(QIODevice::WriteOnly);
    tavr::write_record(escaping_record, escaping);
    const QString record_damaged = ".<br/><br/>Reason: workspace: The workspace record is damaged.";
    const QList<std::array<QString, 3>> refusals = {
        {damaged.fileName(), "Open Workspace",
         "Could not open workspace " + damaged.fileName() +
             ".<br/><br/>Reason: zip_archive: Cannot read tavrel.dat: Zlib error: data error (" +
             damaged.fileName() + ")"},
        {archive("other.tvw", QByteArray::fromHex("a0b0c0d1000003e8")), "Cannot open workspace",
         "Mismatch magic numbers. Cannot open workspace."},
        {dir.filePath("none.tvw"), "Open File",
         "Could not open workspace " + dir.filePath("none.tvw") + ".<br/>File does not exist"},
        {archive("escaping.tvw", escaping_record.data()), "Open Workspace",
         "Could not open workspace " + dir.filePath("escaping.tvw") + record_damaged},
        {label_value("picture.tvw",
                     [](QDataStream& out) { out << QVariant(QImage(8, 8, QImage::Format_RGB32)); }),
         "Open Workspace",
         "Could not open workspace " + dir.filePath("picture.tvw") + record_damaged},
        {label_value("nested.tvw",
                     [](QDataStream& out) {
                       for (int i = 0; i < 100000; ++i) {
                         out << quint32(QMetaType::QVariantList) << qint8(0) << qint32(1);
                       }
                     }),
         "Open Workspace",
         "Could not open workspace " + dir.filePath("nested.tvw") + record_damaged},
        {label_value("points.tvw",
                     [](QDataStream& out) {
                       out << quint32(QMetaType::QVariantMap) << qint8(0) << qint32(1)
                           << QString("polygon") << quint32(QMetaType::QPolygonF) << qint8(0)
                           << qint32(0x7fffffff);
                     }),
         "Open Workspace",
         "Could not open workspace " + dir.filePath("points.tvw") + record_damaged},
        {label_value("colour.tvw",
                     [](QDataStream& out) {
                       out << quint32(QMetaType::QVariantMap) << qint8(0) << qint32(1)
                           << QString("colour") << quint32(QMetaType::QColor) << qint8(0)
                           << qint8(78) << quint16(0) << quint16(0) << quint16(0) << quint16(0)
                           << quint16(0);
                     }),
         "Open Workspace",
         "Could not open workspace " + dir.filePath("colour.tvw") + record_damaged},
    };
    for (const auto& [name, title, text] : refusals) {
      QVERIFY(!window.open_workspace(name));
      QCOMPARE(messages.back().at(0).toString(), title);
      QCOMPARE(messages.back().at(1).toString(), text);
      QCOMPARE(window.images().size(), 1);
      QCOMPARE(window.windowTitle(), QString("w.tvw - Tavrel"));
    }

    // A save that meets a file size limit keeps the workspace that was there.
    const QByteArray before = read_all(file);
    {
      const corv::test::file_size_limit limit(100000);
      QVERIFY(!window.save_workspace(file, true));
    }
    QVERIFY2(messages.back().at(1).toString().endsWith("File too large"),
             qPrintable(messages.back().at(1).toString()));
    QCOMPARE(read_all(file), before);
    QCOMPARE(QDir(dir.path()).entryList(QStringList{"w.tvw*"}, QDir::Files), QStringList{"w.tvw"});
  }
};

QTEST_MAIN(workspace_test)
#include "workspace_test.moc"
