#include "tavr/dialogs/band_maths.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

namespace tavr {

band_maths::band_maths(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("Band_Maths"));
  setWindowTitle(QStringLiteral("Tavrel - Band Maths"));
  setSizeGripEnabled(true);
  setModal(false);

  image_list_ = new QListWidget;
  image_list_->setSelectionMode(QAbstractItemView::SingleSelection);
  image_list_->setSelectionBehavior(QAbstractItemView::SelectRows);

  auto* help = new QLabel(QStringLiteral(
      "<b>Available Operators:</b><br/>+, -, /, *, ^<br/>"
      "&lt;, &gt;, produce masks (1 = true, 0 = false)<br/>"
      "Images - Ix[y] x = image number (listed above), y = band number.<br/>"
      "To add a result as a 'layer' for future operations, use 'Export Current Result'"));
  help->setTextFormat(Qt::RichText);
  help->setWordWrap(true);

  formula_ = new QLineEdit;
  formula_->setPlaceholderText(QStringLiteral("(I1[40] - I1[20]) / (I1[40] + I1[20])"));
  run_ = new QPushButton(QIcon(QStringLiteral(":/tavrel/icons/run.png")), QString());
  run_->setToolTip(QStringLiteral("Run the formula"));
  run_->setDefault(true);
  auto* formula_row = new QHBoxLayout;
  formula_row->addWidget(new QLabel(QStringLiteral("Formula:")));
  formula_row->addWidget(formula_, 1);
  formula_row->addWidget(run_);

  irradiance_ = new QRadioButton(QStringLiteral("Irradiance"));
  reflectance_ = new QRadioButton(QStringLiteral("Reflectance"));
  irradiance_->setChecked(true);
  auto* data_row = new QHBoxLayout;
  data_row->addWidget(irradiance_);
  data_row->addWidget(reflectance_);
  data_row->addStretch(1);

  export_ = new QPushButton(QStringLiteral("Export Current Result"));
  save_ = new QPushButton(QStringLiteral("Save Result..."));
  auto* result_row = new QHBoxLayout;
  result_row->addWidget(export_);
  result_row->addWidget(save_);
  result_row->addStretch(1);

  history_ = new QListWidget;
  colour_ = new QCheckBox(QStringLiteral("Colour result"));
  auto* close = new QPushButton(QStringLiteral("Close"));
  auto* bottom_row = new QHBoxLayout;
  bottom_row->addWidget(colour_);
  bottom_row->addStretch(1);
  bottom_row->addWidget(close);

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(image_list_, 2);
  layout->addWidget(help);
  layout->addLayout(formula_row);
  layout->addLayout(data_row);
  layout->addLayout(result_row);
  layout->addWidget(new QLabel(QStringLiteral("Command History")));
  layout->addWidget(history_, 2);
  layout->addLayout(bottom_row);
  resize(460, 560);

  // The history is updated before the main window's own connection runs the formula.
  connect(run_, &QPushButton::clicked, this, &band_maths::execute_);
  connect(formula_, &QLineEdit::returnPressed, run_, &QPushButton::click);
  connect(history_, &QListWidget::doubleClicked, this, &band_maths::put_command_);
  connect(close, &QPushButton::clicked, this, &band_maths::close_);
}

void band_maths::set_images(const QStringList& names) {
  image_list_->clear();
  for (int i = 0; i < names.size(); ++i) {
    image_list_->addItem(QStringLiteral("I%1: %2").arg(i + 1).arg(names[i]));
  }
  if (image_list_->count() > 0) {
    image_list_->setCurrentRow(0);
  }
}

QStringList band_maths::images() const {
  QStringList names;
  for (int i = 0; i < image_list_->count(); ++i) {
    names << image_list_->item(i)->text();
  }
  return names;
}

QString band_maths::formula() const {
  return formula_->text();
}

void band_maths::set_formula(const QString& text) {
  formula_->setText(text);
}

bool band_maths::reflectance() const {
  return reflectance_->isChecked();
}

bool band_maths::colour_result() const {
  return colour_->isChecked();
}

QStringList band_maths::history() const {
  QStringList entries;
  for (int i = 0; i < history_->count(); ++i) {
    entries << history_->item(i)->text();
  }
  return entries;
}

void band_maths::execute_() {
  history_->insertItem(0, formula_->text());
}

void band_maths::put_command_(const QModelIndex& index) {
  if (index.isValid()) {
    formula_->setText(index.data().toString());
  }
}

void band_maths::close_() {
  close();
}

}  // namespace tavr
