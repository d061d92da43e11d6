#ifndef TAVR_APP_IMAGE_LIST_MODEL_H
#define TAVR_APP_IMAGE_LIST_MODEL_H

#include <QAbstractListModel>
#include <QIcon>
#include <QList>
#include <memory>

#include "tavr/image/hs_image.h"

namespace tavr {

// The open images, in the order they were opened: the model of the "Current
// Images" dock. Each row shows the image's picture as its icon and the text
// "<file name>\nHeight: <h>\nWidth: <w>\nBands: <b>".
class image_list_model : public QAbstractListModel {
  Q_OBJECT

 public:
  explicit image_list_model(QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = QModelIndex()) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

  const QList<std::shared_ptr<hs_image>>& images() const { return images_; }
  std::shared_ptr<hs_image> at(int row) const;
  int row_of(const std::shared_ptr<hs_image>& image) const;
  int size() const { return images_.size(); }
  bool empty() const { return images_.isEmpty(); }

  void append(const std::shared_ptr<hs_image>& image);
  void remove(int row);
  // The row's text after the image's size changed.
  void refresh(int row);
  void set_icon(int row, const QIcon& icon);

  static QString text_for(hs_image& image);

 private:
  QList<std::shared_ptr<hs_image>> images_;
  QList<QIcon> icons_;
};

}  // namespace tavr

#endif
