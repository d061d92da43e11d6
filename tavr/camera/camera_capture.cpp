#include "tavr/camera/camera_capture.h"

#include <QFileInfo>
#include <stdexcept>

#include "corv/io/data_input.h"
#include "corv/io/hdr_output.h"
#include "corv/pipeline/pipeline.h"
#include "tavr/camera/camera.h"
#include "tavr/camera/camera_thread.h"
#include "tavr/camera/reflectance_calibration.h"
#include "tavr/image/image_exporter.h"
#include "tavr/processing/processing_settings.h"

namespace tavr {

camera_description camera_description::of(camera& device) {
  camera_description d;
  d.mosaic = {device.get_mosaic_width(), device.get_mosaic_height(), device.get_number_bands()};
  d.wavelengths = device.get_wavelengths();
  d.responses = device.get_filter_responses();
  d.range_start = device.get_response_range().first;
  return d;
}

spectral_cube raw_capture(const camera_frame& frame, const camera_description& device) {
  if (device.wavelengths.size() != static_cast<std::size_t>(device.mosaic.bands)) {
    throw std::runtime_error("capture: The camera's calibration lists " +
                             std::to_string(device.wavelengths.size()) + " wavelengths for " +
                             std::to_string(device.mosaic.bands) + " bands.");
  }
  const std::vector<int> order = wavelength_order(device.wavelengths);
  spectral_cube capture;
  capture.cube = capture_cube(frame.view(), device.mosaic, order);
  capture.wavelengths.set_size(order.size());
  for (std::size_t k = 0; k < order.size(); ++k) {
    capture.wavelengths(k) = device.wavelengths[static_cast<std::size_t>(order[k])];
  }
  return capture;
}

spectral_cube mean_capture(const QList<spectral_cube>& captures) {
  if (captures.isEmpty()) {
    throw std::runtime_error("capture: No frames to average.");
  }
  spectral_cube mean = captures.front();
  for (int i = 1; i < captures.size(); ++i) {
    if (arma::size(captures[i].cube) != arma::size(mean.cube)) {
      throw std::runtime_error("capture: The frames to average differ in size.");
    }
    mean.cube += captures[i].cube;
  }
  mean.cube /= static_cast<float>(captures.size());
  return mean;
}

capture_result make_capture(const camera_frame& frame, const camera_description& device,
                            const capture_options& options) {
  capture_result result;
  result.data = raw_capture(frame, device);
  corv::matrix responses;
  if (device.responses.n_rows == device.wavelengths.size()) {
    const std::vector<int> order = wavelength_order(device.wavelengths);
    responses = device.responses.rows(arma::conv_to<arma::uvec>::from(order));
  }
  if (options.references != nullptr) {
    result.data.cube = options.references->reflectance(result.data.cube, result.data.wavelengths,
                                                       frame.exposure_us, frame.gain_db);
    result.reflectance = true;
  }
  if (options.smoothed) {
    const std::vector<float> sorted(result.data.wavelengths.begin(), result.data.wavelengths.end());
    const spectral_smoother smoother(sorted, responses, device.range_start, options.smoothed_bands);
    result.data.cube = smoother.apply(result.data.cube);
    result.data.wavelengths = smoother.wavelengths();
  }
  return result;
}

void save_capture(const capture_result& capture, const QString& file_name) {
  if (QFileInfo(file_name).suffix().compare("hsz", Qt::CaseInsensitive) != 0) {
    corv::write_envi(capture.data.cube, capture.data.wavelengths, file_name.toStdString(), 4,
                     capture.reflectance);
    return;
  }
  // An HSZ file holds an image's recovered model: recover it with the default
  // settings (a reflectance capture needs only its materials).
  auto data = std::make_shared<corv::data_input>();
  data->set_wavelengths(capture.data.wavelengths);
  if (capture.reflectance) {
    const arma::uword rows = capture.data.cube.n_rows;
    const arma::uword cols = capture.data.cube.n_cols;
    data->set_s(capture.data.cube);
    data->set_illuminant(corv::vector(capture.data.wavelengths.n_elem, arma::fill::ones));
    data->set_k(corv::matrix(rows, cols, arma::fill::zeros));
    data->set_g(corv::matrix(rows, cols, arma::fill::ones));
  } else {
    data->set_I(capture.data.cube);
  }
  corv::pipeline image(data);
  if (!capture.reflectance) {
    image.process_recover_illuminant(true);
    image.process_recover_dichromatic_parameters();
  }
  image.process_recover_materials();
  save_hsz(image, file_name, processing_settings());
}

}  // namespace tavr
