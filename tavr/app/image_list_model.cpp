#include "tavr/app/image_list_model.h"

#include <QFileInfo>

namespace tavr {

image_list_model::image_list_model(QObject* parent) : QAbstractListModel(parent) {}

int image_list_model::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : images_.size();
}

QVariant image_list_model::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= images_.size()) {
    return {};
  }
  if (role == Qt::DisplayRole) {
    return text_for(*images_[index.row()]);
  }
  if (role == Qt::DecorationRole) {
    return icons_[index.row()];
  }
  return {};
}

std::shared_ptr<hs_image> image_list_model::at(int row) const {
  return row >= 0 && row < images_.size() ? images_[row] : nullptr;
}

int image_list_model::row_of(const std::shared_ptr<hs_image>& image) const {
  return static_cast<int>(images_.indexOf(image));
}

void image_list_model::append(const std::shared_ptr<hs_image>& image) {
  const int row = images_.size();
  beginInsertRows(QModelIndex(), row, row);
  images_.append(image);
  icons_.append(QIcon());
  endInsertRows();
}

void image_list_model::remove(int row) {
  if (row < 0 || row >= images_.size()) {
    return;
  }
  beginRemoveRows(QModelIndex(), row, row);
  images_.removeAt(row);
  icons_.removeAt(row);
  endRemoveRows();
}

void image_list_model::refresh(int row) {
  if (row >= 0 && row < images_.size()) {
    Q_EMIT dataChanged(index(row), index(row), {Qt::DisplayRole});
  }
}

void image_list_model::set_icon(int row, const QIcon& icon) {
  if (row >= 0 && row < images_.size()) {
    icons_[row] = icon;
    Q_EMIT dataChanged(index(row), index(row), {Qt::DecorationRole});
  }
}

QString image_list_model::text_for(hs_image& image) {
  corv::pipeline& p = image.pipeline();
  return QString("%1\nHeight: %2\nWidth: %3\nBands: %4")
      .arg(QFileInfo(image.file_name()).fileName())
      .arg(p.height())
      .arg(p.width())
      .arg(p.bands());
}

}  // namespace tavr
