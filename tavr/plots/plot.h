#ifndef TAVR_PLOTS_PLOT_H
#define TAVR_PLOTS_PLOT_H

#include <QList>
#include <QPointer>
#include <QString>
#include <QVector>
#include <QWidget>

#include "tavr/plots/plot_dialog.h"
#include "tavr/plots/spectrum_plot.h"

namespace tavr {

// The four spectral plots of the plots dock: pixel irradiance, illuminant,
// material reflectance and pixel reflectance, each with its pop-out and save
// buttons (and clear, for the two pixel plots).
class plot : public QWidget {
  Q_OBJECT

 public:
  explicit plot(QWidget* parent = nullptr);

  spectrum_plot& source_plot() { return *source_; }
  spectrum_plot& illuminant_plot() { return *illuminant_; }
  spectrum_plot& material_plot() { return *materials_; }
  spectrum_plot& reflectance_plot() { return *reflectance_; }

  // Highlights a pixel's spectra (the previous pixel stays as a further curve).
  // An empty reflectance leaves the reflectance plot as it is.
  void show_pixel(const QString& name, const QVector<double>& wavelengths,
                  const QVector<double>& irradiance, const QVector<double>& reflectance);
  // Adds a pixel's spectra as further curves.
  void add_pixel(const QString& name, const QVector<double>& wavelengths,
                 const QVector<double>& irradiance, const QVector<double>& reflectance);
  // Replaces the illuminant curve; empty values clear the plot.
  void set_illuminant(const QVector<double>& wavelengths, const QVector<double>& values);
  // Replaces the material curves (one per material, in the given colours when valid).
  void set_materials(const QVector<double>& wavelengths, const QList<QVector<double>>& spectra,
                     const QList<QColor>& colours = {});
  // Adds spectra of labelled regions (each in its own colour) to the pixel
  // irradiance and pixel reflectance plots.
  void show_labels(const QList<spectrum_curve>& irradiance,
                   const QList<spectrum_curve>& reflectance);
  void clear_all();
  // Lays the four plots out in a grid of this many columns (1, 2 or 4).
  void set_columns(int columns);
  int columns() const { return columns_; }

  // The pop-out window, once a plot has been popped out.
  plot_dialog* popout() const { return popout_; }

 public Q_SLOTS:
  void source_enlarge_button_();
  void source_save_button_();
  void source_clear_button_();
  void illum_enlarge_button_();
  void illum_save_button_();
  void sig_enlarge_button_();
  void sig_save_button_();
  void reflect_enlarge_button_();
  void reflect_save_button_();
  void reflect_clear_button_();

 private:
  void enlarge(const spectrum_plot& which);

  spectrum_plot* source_;
  spectrum_plot* illuminant_;
  spectrum_plot* materials_;
  spectrum_plot* reflectance_;
  QPointer<plot_dialog> popout_;
  QList<QWidget*> frames_;
  int columns_ = 2;
};

}  // namespace tavr

#endif
