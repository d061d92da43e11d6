#ifndef TAVR_IMAGE_HS_IMAGE_H
#define TAVR_IMAGE_HS_IMAGE_H

#include <QImage>
#include <QList>
#include <QObject>
#include <QPointF>
#include <QRectF>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QVector>
#include <functional>
#include <memory>
#include <optional>

#include "corv/io/types.h"
#include "corv/io/vector_file.h"
#include "corv/pipeline/pipeline.h"
#include "tavr/image/colour_renderer.h"
#include "tavr/labels/label_model.h"

namespace tavr {

// One step of the user's image preparation, kept so that it can be undone and redone.
struct operation_record {
  QString name;                  // "crop", "resize", "remove_band" or "align_bands"
  QRectF rectangle;              // crop: x, y, width, height in picture coordinates
  double width_percent = 100.0;  // resize
  double height_percent = 100.0;
  QVector<qint32> bands;  // remove_band: the band indexes; align_bands: the reference band
};

// What one processing run does, in the order it does it, and the arguments.
struct processing_selection {
  bool filter_image = true;
  int filter_method = corv::FILTER_WIENER;  // a corv::FILTER_METHOD
  int filter_size = 5;
  bool recover_illuminant = true;
  bool recover_reflectance = true;
  bool recover_materials = false;
  bool recover_endmembers = false;
  bool classify = false;
  bool analyse = false;
  // 4 spectral angle mapper, 5 support vector machines, 6 linear spectral unmixing.
  int classification_method = 4;
  QString analysis_cube_type = QStringLiteral("Reflectance");  // or "Irradiance"
  int principal_components = 10;
};

// Classification method codes of processing_selection::classification_method.
enum classification_code : int {
  classify_sam = 4,
  classify_svm = 5,
  classify_unmixing = 6,
};

// What the classification step leaves: one class per pixel, and for the
// spectral angle mapper and unmixing the per-pixel values and references.
struct classification_result {
  int method = 0;            // the classification_code that produced it
  QStringList class_labels;  // class n (1-based) is class_labels[n - 1]
  // rows x columns, each pixel's class number (1-based; 0 where none applies).
  corv::matrix class_map;
  // Spectral angle mapper: angles in degrees; unmixing: fractions. Best first,
  // rows x columns x k, with the 1-based library endmember numbers in `indexes`.
  corv::cube values;
  corv::cube indexes;
  // The class number (1-based) of each library endmember, in library order.
  corv::vector reference_classes;
};

// How an image was last shown, so that it comes back as it was when it becomes
// current again (and when a workspace is opened).
struct image_view_state {
  component_view component = component_view::colour;
  int band = -1;  // band of the irradiance and reflectance views; -1 for colour
  int pc = -1;    // principal component shown instead of the component; -1 for none
  band_normalisation normalisation = band_normalisation::by_cube;
  bool abundance_layer = false;
  QPointF position;    // picture point at the centre of the view
  double scale = 0.0;  // 0 until the image has been shown: fit it then
  // Check states of the material and class lists, with their labels.
  QVector<bool> material_states;
  QStringList material_labels;
  QVector<bool> class_states;
  QStringList class_labels;
  // Class scores shown instead of the component: 1-based class number; -1 for none.
  int class_scores = -1;
  // "Show Class Transparency Layer": the checked classes over the picture.
  bool class_layer = false;
};

// The colour picture of an image made from its file in the background, band
// block by band block, for an image whose cube is not in memory.
struct streamed_colour {
  QImage picture;
  rendering_options options;  // the rendering choices it was made with
  float maximum = 0.0f;       // the cube's largest value, found on the way
};

// The viewer's object for one open image: its pipeline, the file it came from,
// the processing the user asks for and the history of image preparation.
//
// `process` is meant for a pool thread (start_process runs it there) and is then
// the only code touching the pipeline until `process_pipeline_complete` arrives.
class hs_image : public QObject {
  Q_OBJECT

 public:
  // How the file is taken: as an irradiance image (I), or as a reflectance cube (s).
  enum class open_mode { irradiance, reflectance };

  // Opens an image by its suffix, compared in lower case: "hsz" HSZ, "tif" (or
  // "tiff") TIFF held in memory, anything else ENVI, held in memory when
  // height x width x bands is below 1e8. Library failures propagate as
  // std::runtime_error with the library's text.
  explicit hs_image(const QString& file_name, open_mode mode = open_mode::irradiance,
                    QObject* parent = nullptr);
  // Wraps an image that is already in memory (a capture, a band maths result, a
  // workspace member); reload returns to this cube.
  hs_image(const corv::cube& I, const corv::vector& wavelengths, const QString& file_name,
           QObject* parent = nullptr);
  ~hs_image() override;

  corv::pipeline& pipeline() { return *pipeline_; }
  const std::shared_ptr<corv::pipeline>& pipeline_ptr() const { return pipeline_; }
  open_mode mode() const { return mode_; }

  const QString& file_name() const { return file_name_; }
  void set_file_name(const QString& name) { file_name_ = name; }
  // The name this image has inside a saved workspace (empty until saved there).
  const QString& workspace_name() const { return workspace_name_; }
  void set_workspace_name(const QString& name) { workspace_name_ = name; }

  // Verbosity given to the pipeline at the start of every run (default 2).
  int verbosity() const { return verbosity_; }
  void set_verbosity(int value) { verbosity_ = value; }

  processing_selection& selection() { return selection_; }
  const processing_selection& selection() const { return selection_; }
  void set_selection(const processing_selection& value) { selection_ = value; }

  // The choices of the image rendering dialog for this image.
  rendering_options& rendering() { return rendering_; }
  const rendering_options& rendering() const { return rendering_; }
  void set_rendering(const rendering_options& value) { rendering_ = value; }

  // How the image is shown, and its polygon labels.
  image_view_state& view_state() { return view_state_; }
  const image_view_state& view_state() const { return view_state_; }
  label_model& labels() { return labels_; }
  const label_model& labels() const { return labels_; }
  // The input the image was opened from (what reload returns to).
  const std::shared_ptr<corv::input>& original() const { return original_; }

  // Whether crop, resize and band removal change the reflectance rather than
  // the image (default false).
  bool prepare_reflectance() const { return prepare_reflectance_; }
  void set_prepare_reflectance(bool value) { prepare_reflectance_ = value; }

  // The background task: runs the selected operations in their fixed order and
  // always ends by emitting process_pipeline_complete (empty text on success,
  // the failure's text otherwise). Never throws.
  void process();
  // Runs process on the global thread pool.
  void start_process();

  // Whether the image has been filtered: set when a run's filter has completed,
  // cleared whenever the image is rebuilt from its file (undo, reload).
  bool filtered() const { return filtered_; }

  // Image preparation with history. Each applies the pipeline operation (whose
  // exceptions propagate, leaving the history unchanged), then appends its
  // record and empties the redo list.
  void crop(const QRectF& rectangle);
  // Only shrinks: nothing happens when both percentages are 100 or more.
  void resize(double width_percent, double height_percent);
  void remove_bands(const QVector<qint32>& bands);
  // Lines every band up with the reference band (phase correlation).
  void align_bands(int reference);

  bool can_undo() const { return !history_.isEmpty(); }
  bool can_redo() const { return !redo_.isEmpty(); }
  // Returns to the original image, replays every record but the last, and puts
  // the last at the head of the redo list. Does nothing with an empty history.
  void undo();
  // Applies the head of the redo list again, never to the reflectance. Does
  // nothing with an empty redo list.
  void redo();
  // Returns to the image as it was opened (every component computed since is
  // discarded; parameters and spectral library are kept) and forgets the history.
  // Crops and resizes move the polygon labels with the picture; undo, redo and
  // reload move them back and forth.
  void reload();

  const QList<operation_record>& history() const { return history_; }
  const QList<operation_record>& redo_list() const { return redo_; }

  // The result of the last classification step (empty until one has run).
  const classification_result& classification() const { return classification_; }

  // The irradiance spectrum of a pixel (column x, row y). An image whose cube is
  // not in memory (a large image) reads just that pixel from its file, so that
  // looking at spectra never loads the whole cube. Throws std::runtime_error
  // with the reader's text.
  corv::vector irradiance_spectrum(int x, int y);

  // Whether the image is shown from its file rather than from memory: an ENVI
  // or TIFF image (not a reflectance one) whose cube nothing has loaded yet.
  bool shown_from_file() const;
  // The colour picture streamed from the file, when one has been made.
  const std::optional<streamed_colour>& streamed() const { return streamed_; }
  void set_streamed(const streamed_colour& value) { streamed_ = value; }
  void clear_streamed() { streamed_.reset(); }

  // The vector files opened over this image (Spatial > Vector Files), in the
  // order opened.
  std::vector<corv::vector_features>& vector_files() { return vector_files_; }

  // "Pipeline settings:" and one line per processing choice, for the image
  // information dialog.
  QString settings_summary() const;

 Q_SIGNALS:
  void process_pipeline_complete(QString message);

 private:
  // Builds the list of queued operations from the selection.
  QList<std::function<void()>> queued_operations();
  void run_classification();
  void run_analysis();
  void apply_record(const operation_record& record, bool reflectance);
  // Applies an operation and moves the polygon labels with the picture.
  void apply_with_labels(const operation_record& record, bool reflectance);
  QSize picture_size() const;
  void restore_original();

  std::shared_ptr<corv::pipeline> pipeline_;
  std::shared_ptr<corv::input> original_;  // what reload returns to
  open_mode mode_ = open_mode::irradiance;
  QString file_name_;
  QString workspace_name_;
  int verbosity_ = 0;
  processing_selection selection_;
  rendering_options rendering_;
  image_view_state view_state_;
  label_model labels_;
  bool prepare_reflectance_ = false;
  bool filtered_ = false;
  QList<operation_record> history_;
  QList<operation_record> redo_;
  classification_result classification_;
  std::vector<corv::vector_features> vector_files_;
  std::optional<streamed_colour> streamed_;
};

}  // namespace tavr

#endif
