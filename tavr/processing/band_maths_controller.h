#ifndef TAVR_PROCESSING_BAND_MATHS_CONTROLLER_H
#define TAVR_PROCESSING_BAND_MATHS_CONTROLLER_H

#include <QImage>
#include <QList>
#include <QString>
#include <memory>

#include "corv/io/types.h"
#include "tavr/image/value_picture.h"

namespace tavr {

class hs_image;

// Runs band maths formulas over the open images and keeps the last result, which
// can be shown, added to the open images as a new image, or saved.
class band_maths_controller {
 public:
  // Evaluates the formula over the images in list order (I1 is the first), on
  // their irradiance or, with `reflectance`, their reflectance. Returns the
  // message for the user (empty on success); on failure the previous result
  // stays.
  QString run(const QList<std::shared_ptr<hs_image>>& images, const QString& formula,
              bool reflectance);

  bool has_result() const { return !result_.empty(); }
  const corv::matrix& result() const { return result_; }
  // The formula that produced the result.
  const QString& formula() const { return formula_; }

  // The result as a picture, in grey or through the colour map.
  QImage picture(value_colours colours) const;

  // The result as a new one-band image named "Band Maths Result <n>", n counting
  // the layers made so far (band number 1 stands for its wavelength). Null when
  // there is no result.
  std::shared_ptr<hs_image> make_layer();

  // Writes the result as a one-band 32-bit float ENVI image. Throws
  // std::runtime_error ("band_maths: There is no result to save.", or the
  // writer's text).
  void save(const QString& file_name) const;

 private:
  corv::matrix result_;
  QString formula_;
  int layers_made_ = 0;
};

}  // namespace tavr

#endif
