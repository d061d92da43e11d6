// Tavrel: the viewer's entry point. Shows the splash picture, builds the main
// window and opens the image or workspace named last on the command line; with
// --screenshot it renders the window after the requested processing into a
// picture and exits; with --save-workspace it saves the images named as a
// workspace and exits.
#include <QApplication>
#include <QComboBox>
#include <QCommandLineParser>
#include <QDockWidget>
#include <QElapsedTimer>
#include <QSplashScreen>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <memory>

#include "tavr/app/dialog_gallery.h"
#include "tavr/app/main_window.h"
#include "tavr/camera/camera_controller.h"
#include "tavr/camera/camera_panel.h"
#include "tavr/image/open_image_controller.h"
#include "tavr/view/image_view.h"

namespace {

constexpr int splash_ms = 1500;

void name_application() {
  QCoreApplication::setOrganizationName(tavr::settings_organisation);
  QCoreApplication::setApplicationName(tavr::settings_application);
  QCoreApplication::setApplicationVersion(tavr::viewer_version);
}

// "-h", "--help", "--help-all", "-v" or "--version" before any "--".
bool asks_for_help_or_version(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const QString word = QString::fromLocal8Bit(argv[i]);
    if (word == "--") {
      return false;
    }
    if (QStringList{"-h", "--help", "-?", "--help-all", "-v", "--version"}.contains(word)) {
      return true;
    }
  }
  return false;
}

// Runs that only render, save or capture and then exit need no display: without
// one (and without a platform chosen by the user) they draw offscreen.
void choose_platform_for_headless_runs(int argc, char** argv) {
  if (!qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
      !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
    return;
  }
  for (int i = 1; i < argc; ++i) {
    const QString word = QString::fromLocal8Bit(argv[i]);
    if (word == "--") {
      return;
    }
    if (word == "--screenshot" || word.startsWith("--screenshot=") || word == "--save-workspace" ||
        word.startsWith("--save-workspace=") || word == "--camera" ||
        word.startsWith("--camera=")) {
      qputenv("QT_QPA_PLATFORM", "offscreen");
      return;
    }
  }
}

void print_error(const QString& text) {
  std::fprintf(stderr, "tavrel: %s\n", qPrintable(QString(text).replace("<br/>", " ")));
}

bool view_for(const QString& name, tavr::main_window& window) {
  if (name == "color") {
    window.view_color_();
  } else if (name == "irradiance") {
    window.view_irradiance_();
  } else if (name == "reflectance") {
    window.view_reflectance_();
  } else if (name == "specularity") {
    window.view_high_();
  } else if (name == "shading") {
    window.view_shading_();
  } else {
    return false;
  }
  return true;
}

// The command that runs every requested stage (each includes the ones before it).
bool command_for(const QStringList& stages, tavr::processing_command& command) {
  int highest = -1;
  for (const QString& stage : stages) {
    const int rank = stage == "illuminant"    ? 0
                     : stage == "reflectance" ? 1
                     : stage == "materials"   ? 2
                                              : -1;
    if (rank < 0) {
      return false;
    }
    highest = std::max(highest, rank);
  }
  command = highest == 0   ? tavr::processing_command::illuminant
            : highest == 1 ? tavr::processing_command::reflectance
                           : tavr::processing_command::materials;
  return highest >= 0;
}

// The screenshot run: open, process, show the view, plot the centre pixel, grab.
class screenshot_run : public QObject {
 public:
  screenshot_run(tavr::main_window& window, tavr::startup_file opened, QString view,
                 QStringList stages, QString file, QString dialog)
      : window_(window),
        opened_(std::move(opened)),
        view_(std::move(view)),
        stages_(std::move(stages)),
        file_(std::move(file)),
        dialog_(std::move(dialog)) {
    QObject::connect(&window_, &tavr::main_window::message_reported, this,
                     [this] { reported_ = true; });
  }

  void start() {
    window_.show();
    if (opened_.what == tavr::startup_file::kind::none) {
      grab(tavr::open_gallery_dialog(window_, dialog_));
      return;
    }
    const bool workspace = opened_.what == tavr::startup_file::kind::workspace;
    if (!(workspace ? window_.open_workspace(opened_.path) : window_.open_image(opened_.path))) {
      finish(1);
      return;
    }
    if (stages_.isEmpty()) {
      after_processing();
      return;
    }
    tavr::processing_command command{};
    command_for(stages_, command);
    QObject::connect(&window_.processing(), &tavr::processing_controller::finished, this,
                     [this](const std::shared_ptr<tavr::hs_image>&, const QString& message) {
                       if (!message.isEmpty()) {
                         finish(1);
                         return;
                       }
                       after_processing();
                     });
    if (!window_.process(command)) {
      print_error("processing could not start");
      finish(1);
    }
  }

 private:
  void after_processing() {
    reported_ = false;
    if (!view_.isEmpty()) {
      view_for(view_, window_);
    }
    if (reported_ || !window_.view().has_picture()) {
      finish(1);
      return;
    }
    // Fill the view with the picture, enlarging it if need be, so that it can be seen.
    tavr::image_view& view = window_.view();
    const QRectF picture = view.picture_rect();
    const QSize port = view.viewport()->size();
    view.scale_to(0.96 *
                  std::min(port.width() / picture.width(), port.height() / picture.height()));
    view.centre_on_picture();
    const QPointF centre(std::floor(picture.width() / 2) + 0.5,
                         std::floor(picture.height() / 2) + 0.5);
    window_.view().mark_point(centre);
    window_.add_plot_curve_(centre);
    window_.pixel_inspect_(centre);
    grab(dialog_.isEmpty() ? nullptr : tavr::open_gallery_dialog(window_, dialog_));
  }

  // Saves the window, with the dialog over it when there is one.
  void grab(QDialog* dialog) {
    // Let the docks, plots and dialog lay out and paint before the grab.
    QTimer::singleShot(300, this, [this, dialog] {
      const QImage shot =
          dialog != nullptr
              ? tavr::window_with_dialog(window_, *dialog,
                                         // The band maths result shows in the view beside it.
                                         dialog_ == "band-maths" ? Qt::AlignRight : Qt::AlignCenter)
              : window_.grab().toImage();
      if (!shot.save(file_)) {
        print_error("could not save the screenshot " + file_);
        finish(1);
        return;
      }
      finish(0);
    });
  }

  void finish(int code) { QCoreApplication::exit(code); }

  tavr::main_window& window_;
  tavr::startup_file opened_;
  QString view_;
  QStringList stages_;
  QString file_;
  QString dialog_;
  bool reported_ = false;
};

// The headless camera run: live view with the named camera for a number of
// frames, then optionally a capture of the next frame and a screenshot.
class camera_run : public QObject {
 public:
  camera_run(tavr::main_window& window, bool simulated, QString view, int frames, QString capture,
             QString screenshot)
      : window_(window),
        simulated_(simulated),
        view_(std::move(view)),
        frames_(frames),
        capture_(std::move(capture)),
        screenshot_(std::move(screenshot)) {}

  void start() {
    tavr::camera_controller& camera = window_.camera();
    window_.show();
    window_.show_camera_dock_();
    if (simulated_ && !camera.use_simulator(true)) {
      finish(1);
      return;
    }
    if (!camera.library_problem().isEmpty()) {
      print_error(camera.library_problem());
      finish(1);
      return;
    }
    camera.thread().check_for_cameras_();
    if (camera.thread().camera_count() == 0) {
      print_error(tavr::camera_controller::capture_failed_message);
      finish(1);
      return;
    }
    QComboBox* views = camera.panel().views;
    views->setCurrentIndex(views->findData(view_ == "raw"    ? "Raw"
                                           : view_ == "band" ? "band"
                                                             : "Color"));
    QObject::connect(&camera.thread(), &tavr::camera_thread::cam_image_captured, this,
                     &camera_run::frame_shown);
    QObject::connect(&camera, &tavr::camera_controller::snapshot_finished, this,
                     &camera_run::captured);
    // Every pause of the event loop longer than the tick shows in the ticks' spacing.
    QObject::connect(&ticks_, &QTimer::timeout, this,
                     [this] { longest_pause_ = std::max(longest_pause_, since_tick_.restart()); });
    // A camera that stops sending frames ends the run.
    QObject::connect(&patience_, &QTimer::timeout, this, [this] {
      print_error(tavr::camera_controller::capture_failed_message);
      finish(1);
    });
    patience_.setSingleShot(true);
    patience_.start(patience_ms);
    window_.live_camera_();
  }

 private:
  static constexpr int patience_ms = 12000;

  void frame_shown() {
    patience_.start(patience_ms);
    if (shown_ == 0) {
      // The first frame can come late (the camera starts); time the rest.
      clock_.start();
      since_tick_.start();
      ticks_.start(5);
    }
    if (++shown_ < frames_ || done_) {
      return;
    }
    done_ = true;
    const double seconds = clock_.elapsed() / 1000.0;
    std::printf(
        "tavrel: %d frames shown, %.1f frames per second, longest event-loop pause %lld ms\n",
        shown_, seconds > 0 ? (shown_ - 1) / seconds : 0.0, static_cast<long long>(longest_pause_));
    std::fflush(stdout);
    ticks_.stop();
    if (capture_.isEmpty()) {
      shoot();
      return;
    }
    window_.camera().snapshot(capture_);
  }

  // A failed capture has already been reported through the window's messages.
  void captured(bool saved) {
    if (!saved) {
      finish(1);
      return;
    }
    shoot();
  }

  // The screenshot shows the live view as it runs, fitted to the laid-out window.
  void shoot() {
    if (screenshot_.isEmpty()) {
      finish(0);
      return;
    }
    window_.view().fit_to_window();
    QTimer::singleShot(300, this, [this] {
      if (!window_.grab().save(screenshot_)) {
        print_error("could not save the screenshot " + screenshot_);
        finish(1);
        return;
      }
      finish(0);
    });
  }

  void finish(int code) {
    patience_.stop();
    ticks_.stop();
    window_.stop_view_camera_();
    QCoreApplication::exit(code);
  }

  tavr::main_window& window_;
  bool simulated_;
  QString view_;
  int frames_;
  QString capture_;
  QString screenshot_;
  int shown_ = 0;
  bool done_ = false;
  QElapsedTimer clock_;
  QElapsedTimer since_tick_;
  qint64 longest_pause_ = 0;
  QTimer ticks_;
  QTimer patience_;
};

}  // namespace

int main(int argc, char** argv) {
  // Every option of the viewer, in this one parser: --help lists them all.
  QCommandLineParser parser;
  parser.setApplicationDescription("Tavrel, the Corvantis hyperspectral image viewer.");
  parser.addHelpOption();
  parser.addVersionOption();
  const QCommandLineOption screenshot(
      "screenshot", "Render the window into FILE (after any processing) and exit.", "FILE");
  const QCommandLineOption view(
      "view",
      "View shown: color, irradiance, reflectance, specularity or shading; with --camera raw, "
      "band or color.",
      "VIEW");
  const QCommandLineOption process(
      "process", "Comma-separated stages to run first: illuminant, reflectance, materials.",
      "STAGES");
  const QCommandLineOption camera(
      "camera", "Live view with a camera instead of an image: simulated or ximea.", "CAMERA");
  const QCommandLineOption frames("frames", "Frames of live view before exiting (default 30).", "N",
                                  "30");
  const QCommandLineOption capture(
      "capture", "Capture the frame after the live view into FILE (.hsz: HSZ, else ENVI).", "FILE");
  const QCommandLineOption dialog("dialog",
                                  "With --screenshot: open this dialog over the window first (" +
                                      tavr::gallery_dialog_names().join(", ") + ").",
                                  "NAME");
  parser.addOption(screenshot);
  parser.addOption(dialog);
  parser.addOption(view);
  const QCommandLineOption save_workspace(
      "save-workspace", "Open the images named, save them as the workspace OUT and exit.", "OUT");
  const QCommandLineOption portable(
      "portable", "With --save-workspace: put the images inside the workspace file.");
  parser.addOption(process);
  parser.addOption(save_workspace);
  parser.addOption(portable);
  parser.addOption(camera);
  parser.addOption(frames);
  parser.addOption(capture);
  parser.addPositionalArgument("IMAGE", "An image (.hdr, .hsz, .tif) or workspace (.tvw).");

  // Help and version need no display: answered before the window system is reached.
  if (asks_for_help_or_version(argc, argv)) {
    QCoreApplication app(argc, argv);
    name_application();
    parser.process(app);
    return 0;
  }
  choose_platform_for_headless_runs(argc, argv);
  QApplication app(argc, argv);
  name_application();
  QApplication::setWindowIcon(QIcon(":/tavrel/icons/tavrel.png"));
  // Past a file size limit a save fails with EFBIG and is reported, instead of
  // the signal ending the program with every unsaved image. The library's log
  // is echoed to standard output, as the library does by default.
  std::signal(SIGXFSZ, SIG_IGN);
  parser.process(app);

  const QString view_name = parser.value(view);
  if (parser.isSet(camera)) {
    const QString which = parser.value(camera);
    const QString camera_view = view_name.isEmpty() ? QString("color") : view_name;
    bool counted = false;
    const int frame_count = parser.value(frames).toInt(&counted);
    if (which != "simulated" && which != "ximea") {
      print_error("unknown camera '" + which + "' (simulated or ximea)");
      return 2;
    }
    if (!QStringList{"raw", "band", "color"}.contains(camera_view)) {
      print_error("unknown camera view '" + camera_view + "' (raw, band or color)");
      return 2;
    }
    if (!counted || frame_count < 1) {
      print_error("--frames needs a positive number, not '" + parser.value(frames) + "'");
      return 2;
    }
    tavr::main_window window;
    window.set_interactive(false);
    window.camera().set_interactive(false);
    QObject::connect(&window, &tavr::main_window::message_reported,
                     [](const QString&, const QString& text) { print_error(text); });
    window.resize(1400, 860);
    camera_run run(window, which == "simulated", camera_view, frame_count, parser.value(capture),
                   parser.value(screenshot));
    QTimer::singleShot(0, &run, [&run] { run.start(); });
    return app.exec();
  }
  const QStringList stages = parser.value(process).split(',', Qt::SkipEmptyParts);
  tavr::processing_command command{};
  if (!view_name.isEmpty() &&
      !QStringList{"color", "irradiance", "reflectance", "specularity", "shading"}.contains(
          view_name)) {
    print_error("unknown view '" + view_name + "'");
    return 2;
  }
  if (!stages.isEmpty() && !command_for(stages, command)) {
    print_error("unknown stage in '" + parser.value(process) + "'");
    return 2;
  }
  if (parser.isSet(dialog) && !tavr::gallery_dialog_names().contains(parser.value(dialog))) {
    print_error("unknown dialog '" + parser.value(dialog) + "'");
    return 2;
  }
  if (parser.isSet(dialog) && !parser.isSet(screenshot)) {
    print_error("--dialog needs --screenshot");
    return 2;
  }
  const QStringList positional = parser.positionalArguments();
  const tavr::startup_file startup =
      tavr::startup_file_of(QStringList{app.applicationFilePath()} + positional);

  if (parser.isSet(save_workspace)) {
    if (positional.isEmpty()) {
      print_error("--save-workspace needs at least one image");
      return 2;
    }
    tavr::main_window window;
    window.set_interactive(false);
    QObject::connect(&window, &tavr::main_window::message_reported,
                     [](const QString&, const QString& text) { print_error(text); });
    const bool saved = window.open_images(positional) &&
                       window.save_workspace(parser.value(save_workspace), parser.isSet(portable));
    return saved ? 0 : 1;
  }

  if (parser.isSet(screenshot)) {
    // A dialog can be shown over an empty window.
    const bool without_image = parser.isSet(dialog) && positional.isEmpty();
    if (startup.what == tavr::startup_file::kind::none && !without_image) {
      print_error(positional.isEmpty() ? QString("--screenshot needs an image or a workspace")
                                       : "no image or workspace file " + positional.back());
      return 2;
    }
    tavr::main_window window;
    window.set_interactive(false);
    QObject::connect(&window, &tavr::main_window::message_reported,
                     [](const QString&, const QString& text) { print_error(text); });
    window.resize(1400, 860);
    screenshot_run run(window, startup, view_name, stages, parser.value(screenshot),
                       parser.value(dialog));
    QTimer::singleShot(0, &run, [&run] { run.start(); });
    return app.exec();
  }

  QSplashScreen splash(QPixmap(":/tavrel/icons/Tavrel_logo.png"));
  splash.show();
  app.processEvents();

  tavr::main_window window;
  QTimer::singleShot(splash_ms, &splash, &QWidget::close);
  QTimer::singleShot(splash_ms, &window, &QWidget::show);
  if (window.app_settings().show_tutorial_at_startup) {
    QTimer::singleShot(splash_ms, &window, &tavr::main_window::show_tutorial_);
  }
  // The docks the restored layout left open appear together with the window.
  for (QDockWidget* dock : window.startup_docks()) {
    if (!dock->isHidden()) {
      dock->hide();
      QTimer::singleShot(splash_ms, dock, &QWidget::show);
    }
  }
  if (startup.what == tavr::startup_file::kind::workspace) {
    window.open_workspace(startup.path);
  } else if (startup.what == tavr::startup_file::kind::image) {
    window.open_image(startup.path);
  }
  return app.exec();
}
