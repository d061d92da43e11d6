#include <QFileInfo>
#include <QListView>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include "corv/io/logger.h"
#include "tavr/library/library_model.h"
#include "tavr/library/spectral_manager_dialog.h"

namespace {

const QString shared_data = QStringLiteral(CORV_SHARED_DATA);

tavr::library_entry entry(const QString& label, corv::vector spectrum, corv::vector wavelengths,
                          const QString& source = "test") {
  return {label, std::move(spectrum), std::move(wavelengths), QColor(), source};
}

}  // namespace

class library_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void initTestCase() { corv::logger::instance().set_echo(false); }

  void entries_meet_on_one_grid() {
    tavr::library_model model;
    QVERIFY(model.to_library().empty());
    model.add(entry("flat", {1.0f, 1.0f, 1.0f}, {400.0f, 500.0f, 600.0f}));
    model.add(entry("ramp", {0.0f, 10.0f}, {300.0f, 700.0f}));
    model.add(entry("flat", {2.0f, 2.0f, 2.0f}, {400.0f, 500.0f, 600.0f}, "other"));
    model.add(entry("flat", {3.0f, 3.0f, 3.0f}, {400.0f, 500.0f, 600.0f}));  // replaces the first
    QCOMPARE(model.size(), 3);
    const corv::spectral_library library = model.to_library();
    QCOMPARE(library.size(), arma::uword(3));
    QCOMPARE(library.endmembers()(0, 0), 3.0f);
    QCOMPARE(library.endmembers()(1, 1), 5.0f);  // the ramp at 500 nm
    const corv::spectral_library on_image = model.library_on({450.0f, 550.0f});
    QCOMPARE(on_image.endmembers()(0, 1), 3.75f);
    QVERIFY_EXCEPTION_THROWN(model.library_on({350.0f}), std::runtime_error);  // not covered
  }

  void manager_reads_copies_and_saves() {
    tavr::library_model selected;
    tavr::spectral_manager_dialog dialog(selected);
    dialog.set_interactive(false);
    QTemporaryDir dir;
    const QString slz = dir.filePath("two.slz");
    corv::spectral_library({{0.1f, 0.3f}, {0.2f, 0.4f}}, {"dry", "wet"}, {450.0f, 550.0f})
        .save(slz.toStdString());

    dialog.add_file(slz);
    QCOMPARE(dialog.label_list().model()->rowCount(), 2);
    dialog.label_list().setCurrentIndex(dialog.label_list().model()->index(1, 0));
    dialog.copy_one_label_button_();
    QCOMPARE(selected.size(), 1);
    QCOMPARE(selected.entries()[0].label, QString("wet"));
    QCOMPARE(selected.entries()[0].source, slz);
    QCOMPARE(dialog.plot().main_curve().colour, QColor("Blue"));
    dialog.selected_label_clicked_(0);
    QCOMPARE(dialog.plot().further_curves().front().colour, QColor("Red"));
    dialog.copy_all_labels_button_();
    QCOMPARE(selected.size(), 2);  // "wet" from the same file is not repeated

    const QString saved = dir.filePath("chosen");
    dialog.save_selected(saved);
    corv::spectral_library back;
    back.load((saved + ".slz").toStdString());
    QCOMPARE(back.labels(), (std::vector<std::string>{"wet", "dry"}));

    dialog.selected_list().setCurrentIndex(selected.index(0));
    dialog.delete_one_label_button_();
    QCOMPARE(selected.entries()[0].label, QString("dry"));
    dialog.delete_all_label_button_();
    QVERIFY(selected.empty());
    dialog.delete_file_button_();
    QCOMPARE(dialog.file_list().model()->rowCount(), 0);
    try {
      dialog.add_file(dir.filePath("missing.slz"));
      QFAIL("a missing library was added");
    } catch (const std::runtime_error& error) {
      QCOMPARE(QString(error.what()), QString("spectral_library: Error loading file."));
    }
    QCOMPARE(dialog.file_list().model()->rowCount(), 0);
  }

  void real_libraries() {
    const QString usgs = shared_data + "/usgs-aster-spectra-and-aviris/s07_AV95_envi.sli";
    const QString hylite = shared_data + "/hylite-spectra/library.csv";
    if (!QFileInfo::exists(usgs) || !QFileInfo::exists(hylite)) {
      QSKIP("../shared/data is absent");
    }
    tavr::library_model selected;
    tavr::spectral_manager_dialog dialog(selected);
    dialog.add_file(usgs);
    dialog.add_file(hylite);
    QCOMPARE(dialog.files()[1].size(), arma::uword(57));
    // USGS spectra are in micrometres in the file and in nm here. A spectrum
    // with missing points (water bands) keeps its measured ones and still serves
    // an image of the visible range.
    const corv::spectral_library& splib = dialog.files()[0];
    QCOMPARE(splib.size(), arma::uword(3139));
    QVERIFY(splib.wavelengths()(0) > 300.0f && splib.wavelengths()(0) < 500.0f);
    const arma::uword gappy = splib.incomplete_endmembers().front();
    selected.add(tavr::entries_of(splib)[static_cast<int>(gappy)]);
    QVERIFY(selected.entries().front().spectrum.is_finite());
    QCOMPARE(selected.library_on(arma::regspace<corv::vector>(400, 10, 700)).size(),
             arma::uword(1));
  }
};

QTEST_MAIN(library_test)
#include "library_test.moc"
