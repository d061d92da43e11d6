#include <algorithm>

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDockWidget>
#include <QListView>
#include <QListWidget>
#include <QMenuBar>
#include <QProgressDialog>
#include <QSettings>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTest>

#include "corv/io/logger.h"
#include "tavr/app/band_chooser.h"
#include "tavr/app/dialog_gallery.h"
#include "tavr/app/main_window.h"
#include "tavr/dialogs/band_maths.h"
#include "tavr/library/library_model.h"
#include "tavr/plots/pixel_dialog.h"
#include "tavr/plots/plot.h"
#include "tavr/processing/band_maths_controller.h"
#include "tavr/view/image_view.h"

namespace {

const QString sample = QStringLiteral(CORV_SOURCE_DIR "/data/sample/sample.hdr");

QAction* action_named(QWidget& window, const QString& text) {
  for (QAction* action : window.findChildren<QAction*>()) {
    if (action->text() == text) {
      return action;
    }
  }
  return nullptr;
}

}  // namespace

class main_window_test : public QObject {
  Q_OBJECT

 private Q_SLOTS:
  void initTestCase() { corv::logger::instance().set_echo(false); }

  void menus_actions_and_docks() {
    QTemporaryDir dir;
    QSettings settings(dir.filePath("tavrel.ini"), QSettings::IniFormat);
    tavr::main_window window(&settings);
    QCOMPARE(window.windowTitle(), QString("Tavrel"));
    const QList<QPair<QString, QString>> shortcuts = {{"Open Image...", "Ctrl+O"},
                                                      {"Close Image", "Ctrl+W"},
                                                      {"Close All Images", "Ctrl+Alt+C"},
                                                      {"&Quit", "Ctrl+Q"},
                                                      {"Undo", "Ctrl+Z"},
                                                      {"Redo", "Ctrl+Y"},
                                                      {"Reload Original Image", "Ctrl+R"},
                                                      {"Crop to Selection", "Alt+C"},
                                                      {"Color", "Alt+1"},
                                                      {"Irradiance", "Alt+2"},
                                                      {"Reflectance", "Alt+3"},
                                                      {"Specularity", "Alt+4"},
                                                      {"Shading", "Alt+5"},
                                                      {"Zoom In", "Ctrl+="},
                                                      {"Zoom Out", "Ctrl+-"},
                                                      {"Settings...", "Shift+P"},
                                                      {"Label Image (Polygon Tool)", "Alt+P"},
                                                      {"New Workspace", "Ctrl+N"},
                                                      {"Open Workspace...", "Ctrl+Shift+O"},
                                                      {"Close Workspace", "Ctrl+Shift+C"},
                                                      {"&Save Workspace", "Ctrl+S"},
                                                      {"Show All Labels", "Alt+L"},
                                                      {"Show All Polygon Labels", "Shift+L"},
                                                      {"Show All Material Clusters", "Shift+M"},
                                                      {"Stop Camera", "Shift+C"},
                                                      {"Snapshot", "Ctrl+I"},
                                                      {"Resize...", "Alt+R"},
                                                      {"Align Bands", "Alt+A"},
                                                      {"Tavrel Help (Offline)", "F1"},
                                                      {"Tavrel Help (Online)", "Alt+F1"}};
    for (const auto& [text, keys] : shortcuts) {
      QAction* action = action_named(window, text);
      QVERIFY2(action != nullptr, qPrintable(text));
      QCOMPARE(action->shortcut(), QKeySequence(keys));
    }
    for (const QString text : {"Open Reflectance Image...",
                               "Save Current Image View...",
                               "Save as HSZ...",
                               "Material Reflectances...",
                               "Illumination Spectrum...",
                               "Import Illumination Spectrum...",
                               "Remove Bands",
                               "Show Material Abundance Layer",
                               "Fit to Window",
                               "Actual Size",
                               "Recover Illuminant",
                               "Recover Reflectance",
                               "Run Material Discovery",
                               "Run Analysis",
                               "Pixel Inspector...",
                               "About",
                               "Image Rendering...",
                               "Run Classification",
                               "Show Class Transparency Layer",
                               "Band Maths...",
                               "Logs...",
                               "Open Vector File",
                               "Export Vector Statistics...",
                               "Delete Vector File",
                               "Tutorial",
                               "Provide Feedback (Online)",
                               "Check For Updates",
                               "Live Camera",
                               "Record Video"}) {
      QVERIFY2(action_named(window, text) != nullptr, qPrintable(text));
    }
    QCOMPARE(action_named(window, "Open Image...")->toolTip(), QString("Open Image"));
    QCOMPARE(action_named(window, "By Band")->toolTip(),
             QString("Normalize image bands by dividing by the maximum value of the band."));
    QVERIFY(action_named(window, "By Cube")->isChecked());

    QStringList menus;
    for (QAction* action : window.menuBar()->actions()) {
      menus.append(action->text());
    }
    QCOMPARE(menus, (QStringList{"File", "Image", "View", "Process", "Tools", "Camera", "Spatial",
                                 "Help"}));
    QCOMPARE(action_named(window, "Align Bands")->toolTip(),
             QString("Align the bands in the source image"));
    // Without an image, what needs one is disabled.
    QVERIFY(!action_named(window, "Resize...")->isEnabled());
    QVERIFY(!action_named(window, "Run Classification")->isEnabled());
    QVERIFY(!action_named(window, "Undo")->isEnabled());
    QVERIFY(action_named(window, "Open Image...")->isEnabled());

    auto* plots = window.findChild<QDockWidget*>("Plots_Dock");
    QVERIFY(plots != nullptr);
    QCOMPARE(plots->windowTitle(), QString("Plots"));
    QCOMPARE(window.startup_docks().size(), 7);
    QCOMPARE(window.statusBar()->styleSheet(), QString("QStatusBar::item { border: none; };"));
    QCOMPARE(window.process_dialog().labelText(), QString("Running Corvantis"));
    QCOMPARE(window.process_dialog().windowTitle(), QString("Processing Pipeline"));
    QCOMPARE(window.cancel_dialog().labelText(), QString("Cancelling Pipeline"));

    auto* list = window.findChild<QDockWidget*>("Images_Dock")->findChild<QListView*>();
    window.change_image_list_flow_(Qt::BottomDockWidgetArea);
    QCOMPARE(list->flow(), QListView::LeftToRight);
    window.change_image_list_flow_(Qt::LeftDockWidgetArea);
    QCOMPARE(list->flow(), QListView::TopToBottom);

    // Every dialog that `tavrel --dialog` names opens over the window, image or not.
    for (const QString& name : tavr::gallery_dialog_names()) {
      QDialog* dialog = tavr::open_gallery_dialog(window, name);
      QVERIFY2(dialog != nullptr && dialog->isVisible(), qPrintable(name));
      dialog->close();
    }
    QVERIFY(tavr::open_gallery_dialog(window, "about") == nullptr);
  }

  void opening_plotting_and_closing() {
    QTemporaryDir dir;
    QSettings settings(dir.filePath("tavrel.ini"), QSettings::IniFormat);
    tavr::main_window window(&settings);
    window.set_interactive(false);
    window.resize(1200, 800);
    window.show();
    QSignalSpy messages(&window, &tavr::main_window::message_reported);

    QVERIFY(window.open_image(sample));
    QCOMPARE(window.images().size(), 1);
    QCOMPARE(window.windowTitle(), QString("sample.hdr - Tavrel"));
    auto* list = window.findChild<QDockWidget*>("Images_Dock")->findChild<QListView*>();
    QCOMPARE(list->currentIndex().data().toString(),
             QString("sample.hdr\nHeight: 200\nWidth: 300\nBands: 33"));
    QVERIFY(window.view().has_picture());
    QCOMPARE(window.view().picture_rect(), QRectF(0, 0, 300, 200));
    QVERIFY(window.view().current_scale() <= 1.0);
    QCOMPARE(window.app_settings().recent_image_filenames.front(), sample);

    const QString missing = dir.filePath("missing.hdr");
    QVERIFY(!window.open_image(missing));
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.front().at(0).toString(), QString("Open File"));
    QCOMPARE(messages.front().at(1).toString(),
             "Could not open image file " + missing + ".<br/>File does not exist");
    QCOMPARE(window.images().size(), 1);

    // A click plots the pixel and adds it to the inspector; a rectangle adds its pixels.
    Q_EMIT window.view().image_clicked(QPointF(10.5, 20.5));
    QCOMPARE(window.plots().source_plot().main_curve().values.size(), 33);
    QCOMPARE(window.plots().source_plot().main_curve().name, QString("(10, 20)"));
    const double value = window.images().front()->pipeline().I()(20, 10, 5);
    QCOMPARE(window.plots().source_plot().main_curve().values[5], value);
    QCOMPARE(window.inspector().pixel_count(), 1);
    Q_EMIT window.view().selection_rect_set(QRectF(1, 1, 4, 2));
    QCOMPARE(window.plots().source_plot().further_curve_count(), 8);

    // A second image (dropped on the view) becomes current; closing it returns to the first.
    Q_EMIT window.view().main_open_image(sample);
    QCOMPARE(window.images().size(), 2);
    QCOMPARE(list->currentIndex().row(), 1);
    window.close_image_();
    QCOMPARE(window.images().size(), 1);
    QCOMPARE(window.windowTitle(), QString("sample.hdr - Tavrel"));

    // Views without their component report it and stay on the colour view.
    window.view_high_();
    QCOMPARE(window.current_view(), tavr::component_view::colour);
    QCOMPARE(messages.back().at(0).toString(), QString("Tavrel"));
    window.view_irradiance_();
    QCOMPARE(window.current_view(), tavr::component_view::irradiance);
    // Irradiance starts at the middle band; the chooser's first entry is colour.
    const auto* bands = window.findChild<tavr::band_chooser*>();
    QCOMPARE(bands->band(), 16);
    bands->findChild<QComboBox*>()->setCurrentIndex(0);
    QCOMPARE(window.images().back()->view_state().band, -1);

    // Each image keeps its own view, zoom and normalisation.
    window.view().scale_to(2.0);
    QVERIFY(window.open_image(sample));
    QCOMPARE(window.current_view(), tavr::component_view::colour);
    window.view_actual_size_();
    list->setCurrentIndex(window.image_list().index(0));
    QCOMPARE(window.current_view(), tavr::component_view::irradiance);
    QCOMPARE(window.view().current_scale(), 2.0);
    QVERIFY(action_named(window, "Irradiance")->isChecked());
    list->setCurrentIndex(window.image_list().index(1));
    QCOMPARE(window.view().current_scale(), 1.0);
    QVERIFY(action_named(window, "Color")->isChecked());
    window.close_image_();

    window.close_all_images_();
    QVERIFY(window.images().isEmpty());
    QCOMPARE(window.windowTitle(), QString("Tavrel"));
    QVERIFY(!window.view().has_picture());

    window.close();
    settings.sync();
    QCOMPARE(settings.value("recent_image_filenames").toStringList(), QStringList{sample});
    QCOMPARE(settings.value("version").toString(), QString("1.2.0"));
    QVERIFY(!settings.value("main_window_state").toByteArray().isEmpty());
  }

  void processing_fills_the_docks() {
    QTemporaryDir dir;
    QSettings settings(dir.filePath("tavrel.ini"), QSettings::IniFormat);
    tavr::main_window window(&settings);
    window.set_interactive(false);
    window.show();
    QVERIFY(!window.process(tavr::processing_command::analysis));  // no image yet
    QVERIFY(window.open_image(sample));
    // Looking for the components an unprocessed image lacks leaves no error in the log.
    corv::logger::instance().clear_entries();
    window.pixel_inspect_(QPointF(1.5, 1.5));
    for (const auto& [stamp, line] : corv::logger::instance().entries()) {
      QVERIFY2(line.find("does not exist") == std::string::npos, line.c_str());
    }
    window.processing_values().pca_on_reflectance = false;
    window.processing_values().principal_components = 4;
    QSignalSpy finished(&window.processing(), &tavr::processing_controller::finished);
    QVERIFY(window.process(tavr::processing_command::analysis));
    QVERIFY(window.process_dialog().isVisible());
    QVERIFY(!window.process(tavr::processing_command::analysis));
    QVERIFY(finished.wait(60000));
    QCOMPARE(finished.front().at(1).toString(), QString());
    QVERIFY(!window.process_dialog().isVisible());
    auto* pca = window.findChild<QDockWidget*>("PCA_Dock")->findChild<QListWidget*>();
    QCOMPARE(pca->count(), 4);
    QVERIFY(pca->item(0)->text().startsWith("PC 1 ("));
    // A component shows in grey; "Color/Grayscale" adds the next two as green and blue.
    Q_EMIT pca->itemActivated(pca->item(1));
    QCOMPARE(window.current_image()->view_state().pc, 1);
    const QImage grey = window.view().picture();
    QVERIFY(grey.pixelColor(150, 100).red() == grey.pixelColor(150, 100).blue());
    window.findChild<QDockWidget*>("PCA_Dock")->findChild<QCheckBox*>()->setChecked(true);
    QVERIFY(window.view().picture() != grey);

    // Cancelling swaps the progress dialog for the cancel dialog until the run ends.
    QVERIFY(window.process(tavr::processing_command::analysis));
    Q_EMIT window.process_dialog().canceled();  // what its Cancel button sends
    QVERIFY(!window.process_dialog().isVisible());
    QVERIFY(window.cancel_dialog().isVisible());
    QCOMPARE(window.cancel_dialog().labelText(), QString("Cancelling Pipeline"));
    QVERIFY(finished.wait(60000));
    QCOMPARE(finished.back().at(1).toString(), QString());
    QVERIFY(!window.cancel_dialog().isVisible());
  }

  void tools_band_maths_classes_and_actions() {
    QTemporaryDir dir;
    QSettings settings(dir.filePath("tavrel.ini"), QSettings::IniFormat);
    tavr::main_window window(&settings);
    window.set_interactive(false);
    // Opened while the window is hidden, the image is fitted to the window as it
    // shows (never enlarged), and stays fitted as the window changes, until it is
    // zoomed.
    window.resize(500, 400);
    QVERIFY(window.open_image(sample));
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    tavr::image_view& view = window.view();
    const auto fitted_scale = [&view] {
      const QSize port = view.viewport()->size();
      return std::min({1.0, port.width() / 300.0, port.height() / 200.0});
    };
    QTRY_COMPARE(view.current_scale(), fitted_scale());
    window.resize(1200, 800);
    QTRY_COMPARE(view.current_scale(), 1.0);
    view.zoom_in_();
    window.resize(1100, 700);
    QTest::qWait(50);
    QCOMPARE(view.current_scale(), 1.19);
    // The full picture follows the first one, from the file; the cube stays there.
    const auto image = window.current_image();
    QTRY_VERIFY(image->streamed().has_value());
    QVERIFY(!image->pipeline().holds_I());
    QVERIFY(action_named(window, "Resize...")->isEnabled());
    QVERIFY(!action_named(window, "Undo")->isEnabled());
    QSignalSpy messages(&window, &tavr::main_window::message_reported);

    // Band maths through the window's slots: the result, then a layer.
    window.show_band_maths_();
    window.band_maths_dialog().set_formula("I1[20] - I1[3]");
    window.run_band_maths_();
    QCOMPARE(window.band_maths_runner().formula(), QString("I1[20] - I1[3]"));
    window.add_band_maths_layer_();
    QCOMPARE(window.images().size(), 2);
    QCOMPARE(window.images().back()->file_name(), QString("Band Maths Result 1"));
    window.close_image_();

    // Classification asks for library labels first, then shows classes and their layer.
    window.process_classification_();
    QCOMPARE(messages.back().at(0).toString(), QString("Tavrel Classification"));
    QCOMPARE(messages.back().at(1).toString(),
             QString("No endmember labels selected. Please select endmember labels using the "
                     "Spectral Library Manager."));
    const corv::vector wavelengths = image->pipeline().wavelengths();
    const corv::cube& I = image->pipeline().I();
    window.library().add({"ball", corv::vector(I.tube(60, 80)), wavelengths, QColor(), "test"});
    window.library().add({"floor", corv::vector(I.tube(190, 20)), wavelengths, QColor(), "test"});
    QSignalSpy finished(&window.processing(), &tavr::processing_controller::finished);
    window.process_classification_();
    QVERIFY(!action_named(window, "Run Classification")->isEnabled());  // while it runs
    QVERIFY(finished.wait(120000));
    QCOMPARE(finished.front().at(1).toString(), QString());
    QTRY_VERIFY(action_named(window, "Show Class Transparency Layer")->isEnabled());
    QCOMPARE(image->classification().class_labels, QStringList({"ball", "floor"}));
    auto* components =
        window.findChild<QDockWidget*>("Image_Components_Dock")->findChild<QListWidget*>();
    QVERIFY(!components->findItems("Class Map", Qt::MatchExactly).isEmpty());
    action_named(window, "Show Class Transparency Layer")->trigger();
    QVERIFY(image->view_state().class_layer);
    QVERIFY(window.view().has_picture());

    // Image preparation from its dialogs' values: the history records it.
    window.align_bands_();
    QCOMPARE(image->history().back().name, QString("align_bands"));
    QVERIFY(action_named(window, "Undo")->isEnabled());
  }
};

QTEST_MAIN(main_window_test)
#include "main_window_test.moc"
