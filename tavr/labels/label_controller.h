#ifndef TAVR_LABELS_LABEL_CONTROLLER_H
#define TAVR_LABELS_LABEL_CONTROLLER_H

#include <QObject>
#include <QPolygonF>
#include <QString>
#include <QStringList>
#include <QStringListModel>
#include <memory>

#include "tavr/labels/label_export.h"
#include "tavr/plots/spectrum_plot.h"

class QWidget;

namespace tavr {

class hs_image;
class image_list_model;
class library_model;

// The polygon labels of the current image: naming new polygons, renaming,
// deleting, checking, plotting, copying into the viewer's library and exporting.
// Labels are unique within an image; the label list gathers every label text
// used in the session, so that a region of the same kind gets the same name (and
// colour) on every image.
class label_controller : public QObject {
  Q_OBJECT

 public:
  // Which cube a raw export or a plot reads.
  enum class cube_kind { source, reflectance };

  label_controller(const image_list_model& images, library_model& library,
                   QWidget* window = nullptr);

  void set_interactive(bool interactive) { interactive_ = interactive; }
  void set_image(const std::shared_ptr<hs_image>& image) { image_ = image; }
  const std::shared_ptr<hs_image>& image() const { return image_; }

  // Every label text used so far, in order of first use (the main window's
  // label list, kept in workspaces).
  QStringListModel& label_list() { return label_list_; }
  void set_label_list(const QStringList& texts);
  // Adds a text to the label list when it is new there.
  void add_to_label_list(const QString& text);

  // The refusal of a label text for a row of the current image (-1 for a new
  // label), or empty when the text may be used.
  QString problem_with(const QString& text, int row = -1) const;
  // Whether the text belongs to an unchecked label of an open image.
  bool is_unchecked(const QString& text) const;
  // The colour a new label of this text takes: the text's colour on another
  // image, else the first palette colour the current image does not use yet.
  QColor colour_for(const QString& text) const;

  // Adds a polygon of the current image under a label (selected); false, with
  // the refusal reported, when the text may not be used.
  bool add_label(const QPolygonF& polygon, const QString& text);
  bool rename(int row, const QString& text);

  // The mean spectrum of every checked label, in its colour.
  QList<spectrum_curve> mean_curves(cube_kind kind) const;
  // The checked labels as a library: one mean spectrum each, or with `mean`
  // false every pixel's spectrum under its label. Reflectance when the image
  // has it, else irradiance.
  corv::spectral_library checked_library(bool mean) const;
  // Copies the checked labels' mean spectra into the viewer's library; the
  // number copied.
  int copy_to_library();
  // Raw CSV of the checked labels' pixels; false when cancelled.
  bool export_raw(cube_kind kind, const QString& file_name, const export_progress& progress = {});
  // The checked labels as an SLZ library (".slz" added when missing).
  void export_endmembers(const QString& file_name, bool mean);

  // Interactive steps: ask for a label (the "Polygon Label" dialog), for a file
  // name, show progress, and report failures.
  void ask_label(const QPolygonF& polygon);
  void ask_rename(int row);
  void ask_export_raw(cube_kind kind, QString& folder);
  void ask_export_endmembers(QString& folder, bool mean);

 Q_SIGNALS:
  // Every refusal and failure, with the title of its box.
  void message(const QString& title, const QString& text);

 private:
  // The cube of a kind of the current image (null, reported, when missing).
  const corv::cube* cube_of(cube_kind kind) const;

  const image_list_model& images_;
  library_model& library_;
  QWidget* window_;
  std::shared_ptr<hs_image> image_;
  QStringListModel label_list_;
  bool interactive_ = true;
};

}  // namespace tavr

#endif
