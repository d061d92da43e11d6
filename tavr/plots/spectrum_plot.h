#ifndef TAVR_PLOTS_SPECTRUM_PLOT_H
#define TAVR_PLOTS_SPECTRUM_PLOT_H

#include <qwt_plot.h>
#include <QColor>
#include <QList>
#include <QMutex>
#include <QString>
#include <QVector>

class QwtPlotCurve;

namespace tavr {

// One spectrum as plotted: wavelengths in nm and the values at them.
struct spectrum_curve {
  QString name;
  QVector<double> wavelengths;
  QVector<double> values;
  QColor colour;
};

// A Qwt plot of spectra against wavelength. It holds one highlighted curve (the
// latest pixel or single spectrum: blue, 3.0 wide, drawn on top) and further
// curves (1.5 wide, each in its own colour). Curve changes hold the plot's mutex.
class spectrum_plot : public QwtPlot {
  Q_OBJECT

 public:
  // The oldest further curves are dropped beyond this many.
  static constexpr int max_further_curves = 100;

  explicit spectrum_plot(const QString& title, QWidget* parent = nullptr);
  ~spectrum_plot() override;

  // Normalised display divides every curve by its largest absolute value and
  // titles the vertical axis "Normalized Power"; raw display titles it "Power".
  void set_normalised(bool normalised);
  bool normalised() const { return normalised_; }

  // Replaces the highlighted curve.
  void set_main_curve(const spectrum_curve& curve);
  // Moves the highlighted curve among the further ones (in the next colour).
  void demote_main_curve();
  // Adds a further curve; an invalid colour takes the next one of the palette.
  void add_curve(spectrum_curve curve);
  void clear_curves();

  bool has_main_curve() const { return main_ != nullptr; }
  spectrum_curve main_curve() const;
  QList<spectrum_curve> further_curves() const;
  int further_curve_count() const { return further_.size(); }

  // Renders the plot into a file whose suffix picks the format (PDF, SVG, PNG...),
  // 300 x 200 mm at 85 dots per inch. Returns false when nothing was written.
  bool render_to(const QString& file_name);
  // Copies title, axis titles and curves into another plot (for the pop-out).
  void copy_to(spectrum_plot& other) const;

  QMutex& mutex() { return mutex_; }

 public Q_SLOTS:
  // Asks for a file and its format, then renders the plot into it.
  void save_();

 private:
  QwtPlotCurve* make_curve(const spectrum_curve& curve, double width, double z);
  QColor next_colour();
  // Fixed axes for an empty plot (the visible range of spectra), automatic ones otherwise.
  void update_axes();

  mutable QMutex mutex_;
  bool normalised_ = true;
  QwtPlotCurve* main_ = nullptr;
  QList<QwtPlotCurve*> further_;
  QList<spectrum_curve> further_data_;
  spectrum_curve main_data_;
  int next_colour_ = 0;
};

// The colour of the n-th further curve (a ten-colour qualitative palette, cycled).
QColor curve_colour(int n);

}  // namespace tavr

#endif
