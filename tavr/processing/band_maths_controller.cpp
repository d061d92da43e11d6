#include "tavr/processing/band_maths_controller.h"

#include <QFileInfo>
#include <stdexcept>

#include "corv/analysis/band_maths.h"
#include "corv/io/data_input.h"
#include "corv/io/hdr_output.h"
#include "corv/pipeline/pipeline.h"
#include "tavr/image/component_probe.h"
#include "tavr/image/hs_image.h"

namespace tavr {

namespace {

corv::cube as_cube(const corv::matrix& layer) {
  corv::cube data(layer.n_rows, layer.n_cols, 1);
  data.slice(0) = layer;
  return data;
}

}  // namespace

QString band_maths_controller::run(const QList<std::shared_ptr<hs_image>>& images,
                                   const QString& formula, bool reflectance) {
  corv::image_list cubes;
  try {
    for (const auto& image : images) {
      if (!reflectance) {
        cubes.push_back(std::cref(image->pipeline().I()));
        continue;
      }
      const corv::cube* s = component_or_null(image->pipeline(), &corv::pipeline::s);
      if (s == nullptr) {
        return QFileInfo(image->file_name()).fileName() +
               " does not have reflectance, please process it first.";
      }
      cubes.push_back(std::cref(*s));
    }
    corv::matrix value = corv::band_maths(cubes, formula.toStdString());
    result_ = std::move(value);
    formula_ = formula;
  } catch (const std::exception& error) {
    return QString::fromStdString(error.what());
  }
  return QString();
}

QImage band_maths_controller::picture(value_colours colours) const {
  return has_result() ? value_picture(result_, colours) : QImage();
}

std::shared_ptr<hs_image> band_maths_controller::make_layer() {
  if (!has_result()) {
    return nullptr;
  }
  ++layers_made_;
  return std::make_shared<hs_image>(as_cube(result_), corv::vector{1.0f},
                                    QStringLiteral("Band Maths Result %1").arg(layers_made_));
}

void band_maths_controller::save(const QString& file_name) const {
  if (!has_result()) {
    throw std::runtime_error("band_maths: There is no result to save.");
  }
  auto data = std::make_shared<corv::data_input>();
  data->set_I(as_cube(result_));
  data->set_wavelengths(corv::vector{1.0f});
  corv::pipeline result(data);
  result.save(std::make_shared<corv::hdr_output>(false, 4), file_name.toStdString());
}

}  // namespace tavr
