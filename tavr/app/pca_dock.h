#ifndef TAVR_APP_PCA_DOCK_H
#define TAVR_APP_PCA_DOCK_H

#include <QWidget>

#include "corv/io/types.h"

class QCheckBox;
class QDoubleSpinBox;
class QListWidget;

namespace tavr {

// The content of the "PCA" dock: the analysis that "Run Analysis" runs, the
// current image's principal components with their strengths (double-click one
// to show it), and how they are shown: in grey, or with the next two as a
// colour picture, each clipped at a number of standard deviations.
class pca_dock : public QWidget {
  Q_OBJECT

 public:
  explicit pca_dock(QWidget* parent = nullptr);

  // Lists the components by their strengths (an empty vector clears the list).
  void set_strengths(const corv::vector& strengths);
  bool colour() const;
  double clip() const;

 Q_SIGNALS:
  // A component was double-clicked (0-based).
  void component_activated(int index);
  // "Color/Grayscale" or the clip value changed.
  void display_changed();

 private:
  QListWidget* components_ = nullptr;
  QCheckBox* colour_ = nullptr;
  QDoubleSpinBox* clip_ = nullptr;
};

}  // namespace tavr

#endif
