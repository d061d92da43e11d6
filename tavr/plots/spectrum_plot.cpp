#include "tavr/plots/spectrum_plot.h"

#include <qwt_plot_canvas.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_grid.h>
#include <qwt_plot_renderer.h>
#include <qwt_text.h>
#include <QFileInfo>
#include <QMutexLocker>
#include <QPen>
#include <algorithm>
#include <cmath>

namespace tavr {

namespace {

const QSizeF export_size_mm(300, 200);
constexpr int export_resolution = 85;

QVector<double> displayed(const QVector<double>& values, bool normalised) {
  if (!normalised) {
    return values;
  }
  double largest = 0.0;
  for (double v : values) {
    if (std::isfinite(v)) {
      largest = std::max(largest, std::abs(v));
    }
  }
  if (largest == 0.0) {
    return values;
  }
  QVector<double> out(values);
  for (double& v : out) {
    v /= largest;
  }
  return out;
}

}  // namespace

QColor curve_colour(int n) {
  static const QColor palette[] = {
      QColor(214, 39, 40),  QColor(44, 160, 44),   QColor(255, 127, 14),  QColor(148, 103, 189),
      QColor(140, 86, 75),  QColor(227, 119, 194), QColor(127, 127, 127), QColor(188, 189, 34),
      QColor(23, 190, 207), QColor(31, 119, 180)};
  return palette[n % 10];
}

spectrum_plot::spectrum_plot(const QString& title, QWidget* parent) : QwtPlot(parent) {
  setTitle(title);
  setCanvasBackground(Qt::white);
  setAxisTitle(QwtPlot::xBottom, "Wavelength (nm)");
  set_normalised(true);
  auto* grid = new QwtPlotGrid;
  grid->setMajorPen(QColor(220, 220, 220), 0.0, Qt::DotLine);
  grid->attach(this);
  setAutoReplot(false);
  update_axes();
}

spectrum_plot::~spectrum_plot() = default;

void spectrum_plot::set_normalised(bool normalised) {
  normalised_ = normalised;
  setAxisTitle(QwtPlot::yLeft, normalised ? "Normalized Power" : "Power");
}

QwtPlotCurve* spectrum_plot::make_curve(const spectrum_curve& curve, double width, double z) {
  auto* item = new QwtPlotCurve(curve.name);
  item->setPen(curve.colour, width, Qt::SolidLine);
  item->setRenderHint(QwtPlotItem::RenderAntialiased);
  item->setZ(z);
  item->setSamples(curve.wavelengths, displayed(curve.values, normalised_));
  item->attach(this);
  return item;
}

QColor spectrum_plot::next_colour() {
  return curve_colour(next_colour_++);
}

void spectrum_plot::update_axes() {
  if (main_ == nullptr && further_.isEmpty()) {
    setAxisScale(QwtPlot::xBottom, 400.0, 700.0);
    setAxisScale(QwtPlot::yLeft, 0.0, 1.0);
  } else {
    setAxisAutoScale(QwtPlot::xBottom);
    setAxisAutoScale(QwtPlot::yLeft);
  }
}

void spectrum_plot::set_main_curve(const spectrum_curve& curve) {
  {
    QMutexLocker lock(&mutex_);
    main_data_ = curve;
    main_data_.colour = QColor(0, 0, 255, 255);
    if (main_ == nullptr) {
      main_ = make_curve(main_data_, 3.0, 10.0);
    } else {
      main_->setTitle(curve.name);
      main_->setSamples(curve.wavelengths, displayed(curve.values, normalised_));
    }
  }
  update_axes();
  replot();
}

void spectrum_plot::demote_main_curve() {
  spectrum_curve previous;
  {
    QMutexLocker lock(&mutex_);
    if (main_ == nullptr) {
      return;
    }
    previous = main_data_;
    previous.colour = QColor();
    main_->detach();
    delete main_;
    main_ = nullptr;
  }
  add_curve(previous);
}

void spectrum_plot::add_curve(spectrum_curve curve) {
  {
    QMutexLocker lock(&mutex_);
    if (!curve.colour.isValid()) {
      curve.colour = next_colour();
    }
    further_.append(make_curve(curve, 1.5, 1.0));
    further_data_.append(curve);
    while (further_.size() > max_further_curves) {
      QwtPlotCurve* oldest = further_.takeFirst();
      further_data_.removeFirst();
      oldest->detach();
      delete oldest;
    }
  }
  update_axes();
  replot();
}

void spectrum_plot::clear_curves() {
  {
    QMutexLocker lock(&mutex_);
    for (QwtPlotCurve* curve : further_) {
      curve->detach();
      delete curve;
    }
    further_.clear();
    further_data_.clear();
    if (main_ != nullptr) {
      main_->detach();
      delete main_;
      main_ = nullptr;
    }
    main_data_ = spectrum_curve();
    next_colour_ = 0;
  }
  update_axes();
  replot();
}

spectrum_curve spectrum_plot::main_curve() const {
  QMutexLocker lock(&mutex_);
  return main_data_;
}

QList<spectrum_curve> spectrum_plot::further_curves() const {
  QMutexLocker lock(&mutex_);
  return further_data_;
}

bool spectrum_plot::render_to(const QString& file_name) {
  QMutexLocker lock(&mutex_);
  QwtPlotRenderer renderer;
  renderer.renderDocument(this, file_name, QFileInfo(file_name).suffix(), export_size_mm,
                          export_resolution);
  return QFileInfo::exists(file_name);
}

void spectrum_plot::save_() {
  QMutexLocker lock(&mutex_);
  QwtPlotRenderer renderer;
  renderer.exportTo(this, QString(), export_size_mm, export_resolution);
}

void spectrum_plot::copy_to(spectrum_plot& other) const {
  other.setTitle(title());
  other.set_normalised(false);
  other.setAxisTitle(QwtPlot::yLeft, axisTitle(QwtPlot::yLeft));
  other.clear_curves();
  // The copies are already displayed values; the target shows them unchanged.
  auto shown = [this](spectrum_curve curve) {
    curve.values = displayed(curve.values, normalised_);
    return curve;
  };
  for (const spectrum_curve& curve : further_curves()) {
    other.add_curve(shown(curve));
  }
  if (has_main_curve()) {
    other.set_main_curve(shown(main_curve()));
  }
}

}  // namespace tavr
