#ifndef TAVR_PLOTS_PLOT_DIALOG_H
#define TAVR_PLOTS_PLOT_DIALOG_H

#include <QDialog>
#include <QList>

class QMdiArea;

namespace tavr {

class spectrum_plot;

// The pop-out window: larger copies of plots as sub-windows that can be
// cascaded or tiled.
class plot_dialog : public QDialog {
  Q_OBJECT

 public:
  explicit plot_dialog(QWidget* parent = nullptr);

  // Adds a copy of the plot as a new sub-window and shows the dialog.
  spectrum_plot* add_plot(const spectrum_plot& source);
  QList<spectrum_plot*> plots() const;

 public Q_SLOTS:
  void cascade_windows_();
  void tile_windows_();

 private:
  QMdiArea* area_;
};

}  // namespace tavr

#endif
