#include "tavr/plots/plot_dialog.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QPushButton>
#include <QVBoxLayout>

#include "tavr/plots/spectrum_plot.h"

namespace tavr {

plot_dialog::plot_dialog(QWidget* parent) : QDialog(parent), area_(new QMdiArea(this)) {
  setObjectName("Plot_Dialog");
  setWindowTitle("Spectral Plots");
  resize(900, 600);
  auto* cascade = new QPushButton("Cascade Windows", this);
  auto* tile = new QPushButton("Tile Windows", this);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
  auto* row = new QHBoxLayout;
  row->addWidget(cascade);
  row->addWidget(tile);
  row->addStretch();
  row->addWidget(buttons);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(area_, 1);
  layout->addLayout(row);
  connect(cascade, &QPushButton::clicked, this, &plot_dialog::cascade_windows_);
  connect(tile, &QPushButton::clicked, this, &plot_dialog::tile_windows_);
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

spectrum_plot* plot_dialog::add_plot(const spectrum_plot& source) {
  auto* copy = new spectrum_plot(source.title().text());
  source.copy_to(*copy);
  QMdiSubWindow* window = area_->addSubWindow(copy);
  window->setAttribute(Qt::WA_DeleteOnClose);
  window->setWindowTitle(source.title().text());
  window->resize(480, 320);
  window->show();
  show();
  raise();
  return copy;
}

QList<spectrum_plot*> plot_dialog::plots() const {
  QList<spectrum_plot*> found;
  for (QMdiSubWindow* window : area_->subWindowList()) {
    if (auto* plot = qobject_cast<spectrum_plot*>(window->widget())) {
      found.append(plot);
    }
  }
  return found;
}

void plot_dialog::cascade_windows_() {
  area_->cascadeSubWindows();
}

void plot_dialog::tile_windows_() {
  area_->tileSubWindows();
}

}  // namespace tavr
