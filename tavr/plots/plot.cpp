#include "tavr/plots/plot.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "tavr/plots/plot_dialog.h"

namespace tavr {

namespace {

QToolButton* button(const QString& text, QWidget* parent) {
  auto* b = new QToolButton(parent);
  b->setText(text);
  b->setToolTip(text);
  b->setAutoRaise(true);
  return b;
}

// A plot with its row of buttons underneath.
QWidget* framed(spectrum_plot* plot, const QList<QToolButton*>& buttons, QWidget* parent) {
  auto* box = new QWidget(parent);
  auto* layout = new QVBoxLayout(box);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(plot, 1);
  auto* row = new QHBoxLayout;
  row->addStretch();
  for (QToolButton* b : buttons) {
    row->addWidget(b);
  }
  layout->addLayout(row);
  return box;
}

}  // namespace

plot::plot(QWidget* parent)
    : QWidget(parent),
      source_(new spectrum_plot("Pixel Irradiance", this)),
      illuminant_(new spectrum_plot("Illuminant", this)),
      materials_(new spectrum_plot("Material Reflectance", this)),
      reflectance_(new spectrum_plot("Pixel Reflectance", this)) {
  // Reflectance is shown as it is: its scale means something.
  materials_->set_normalised(false);
  reflectance_->set_normalised(false);
  for (spectrum_plot* p : {source_, illuminant_, materials_, reflectance_}) {
    p->setMinimumSize(220, 160);
  }

  auto* source_enlarge = button("Popout plot", this);
  auto* source_save = button("Save plot", this);
  auto* source_clear = button("Clear plot", this);
  auto* illum_enlarge = button("Popout plot", this);
  auto* illum_save = button("Save plot", this);
  auto* sig_enlarge = button("Popout plot", this);
  auto* sig_save = button("Save plot", this);
  auto* reflect_enlarge = button("Popout plot", this);
  auto* reflect_save = button("Save plot", this);
  auto* reflect_clear = button("Clear plot", this);

  frames_ = {framed(source_, {source_enlarge, source_save, source_clear}, this),
             framed(illuminant_, {illum_enlarge, illum_save}, this),
             framed(reflectance_, {reflect_enlarge, reflect_save, reflect_clear}, this),
             framed(materials_, {sig_enlarge, sig_save}, this)};
  auto* layout = new QGridLayout(this);
  layout->setContentsMargins(2, 2, 2, 2);
  set_columns(2);

  connect(source_enlarge, &QToolButton::clicked, this, &plot::source_enlarge_button_);
  connect(source_save, &QToolButton::clicked, this, &plot::source_save_button_);
  connect(source_clear, &QToolButton::clicked, this, &plot::source_clear_button_);
  connect(illum_enlarge, &QToolButton::clicked, this, &plot::illum_enlarge_button_);
  connect(illum_save, &QToolButton::clicked, this, &plot::illum_save_button_);
  connect(sig_enlarge, &QToolButton::clicked, this, &plot::sig_enlarge_button_);
  connect(sig_save, &QToolButton::clicked, this, &plot::sig_save_button_);
  connect(reflect_enlarge, &QToolButton::clicked, this, &plot::reflect_enlarge_button_);
  connect(reflect_save, &QToolButton::clicked, this, &plot::reflect_save_button_);
  connect(reflect_clear, &QToolButton::clicked, this, &plot::reflect_clear_button_);
}

void plot::show_pixel(const QString& name, const QVector<double>& wavelengths,
                      const QVector<double>& irradiance, const QVector<double>& reflectance) {
  if (!irradiance.isEmpty()) {
    source_->demote_main_curve();
    source_->set_main_curve({name, wavelengths, irradiance, QColor()});
  }
  if (!reflectance.isEmpty()) {
    reflectance_->demote_main_curve();
    reflectance_->set_main_curve({name, wavelengths, reflectance, QColor()});
  }
}

void plot::add_pixel(const QString& name, const QVector<double>& wavelengths,
                     const QVector<double>& irradiance, const QVector<double>& reflectance) {
  if (!irradiance.isEmpty()) {
    source_->add_curve({name, wavelengths, irradiance, QColor()});
  }
  if (!reflectance.isEmpty()) {
    reflectance_->add_curve({name, wavelengths, reflectance, QColor()});
  }
}

void plot::set_illuminant(const QVector<double>& wavelengths, const QVector<double>& values) {
  illuminant_->clear_curves();
  if (!values.isEmpty()) {
    illuminant_->set_main_curve({"Illuminant", wavelengths, values, QColor()});
  }
}

void plot::set_materials(const QVector<double>& wavelengths, const QList<QVector<double>>& spectra,
                         const QList<QColor>& colours) {
  materials_->clear_curves();
  for (int i = 0; i < spectra.size(); ++i) {
    const QColor colour = i < colours.size() ? colours[i] : QColor();
    materials_->add_curve({QString("Material %1").arg(i + 1), wavelengths, spectra[i], colour});
  }
}

void plot::show_labels(const QList<spectrum_curve>& irradiance,
                       const QList<spectrum_curve>& reflectance) {
  for (const spectrum_curve& curve : irradiance) {
    source_->add_curve(curve);
  }
  for (const spectrum_curve& curve : reflectance) {
    reflectance_->add_curve(curve);
  }
}

void plot::clear_all() {
  for (spectrum_plot* p : {source_, illuminant_, materials_, reflectance_}) {
    p->clear_curves();
  }
}

void plot::set_columns(int columns) {
  columns_ = std::max(1, columns);
  auto* grid = static_cast<QGridLayout*>(layout());
  for (QWidget* frame : frames_) {
    grid->removeWidget(frame);
  }
  for (int i = 0; i < frames_.size(); ++i) {
    grid->addWidget(frames_[i], i / columns_, i % columns_);
  }
}

void plot::enlarge(const spectrum_plot& which) {
  if (popout_ == nullptr) {
    popout_ = new plot_dialog(window());
  }
  popout_->add_plot(which);
}

void plot::source_enlarge_button_() {
  enlarge(*source_);
}
void plot::source_save_button_() {
  source_->save_();
}
void plot::source_clear_button_() {
  source_->clear_curves();
}
void plot::illum_enlarge_button_() {
  enlarge(*illuminant_);
}
void plot::illum_save_button_() {
  illuminant_->save_();
}
void plot::sig_enlarge_button_() {
  enlarge(*materials_);
}
void plot::sig_save_button_() {
  materials_->save_();
}
void plot::reflect_enlarge_button_() {
  enlarge(*reflectance_);
}
void plot::reflect_save_button_() {
  reflectance_->save_();
}
void plot::reflect_clear_button_() {
  reflectance_->clear_curves();
}

}  // namespace tavr
