#include "corv/io/hdr_output.h"

#include <stdexcept>

#include "corv/io/envi_writer.h"
#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"

namespace corv {

hdr_output::hdr_output(bool reflectance, int data_type)
    : reflectance_(reflectance), data_type_(data_type) {}

std::string hdr_output::header_text(const cube& data, const vector& wavelengths) const {
  return envi_header_text(data.n_rows, data.n_cols, wavelengths, data_type_, reflectance_);
}

void hdr_output::write(pipeline& source, const std::string& file_name) {
  const std::string data_name = envi_data_name(file_name);

  vector wavelengths;
  try {
    wavelengths = source.wavelengths();
  } catch (const std::exception&) {
    log_and_throw("HDR_Output: Error reading Wavelengths.",
                  "Wavelengths not present when saving HDR file.");
  }
  const cube* data = nullptr;
  try {
    data = reflectance_ ? &source.s() : &source.I();
  } catch (const std::exception&) {
    log_and_throw("HDR_Output: Error reading I.", "Image not present when saving HDR file.");
  }
  if (wavelengths.n_elem != data->n_slices) {
    log_and_throw("HDR_Output: Wavelengths must have same number of bands as I");
  }
  check_envi_data_type(data_type_);

  const double largest = data_type_ == 4 || data->empty() ? 0.0 : double(data->max());
  envi_writer out(data_name, data->n_rows, data->n_cols, wavelengths, data_type_, reflectance_,
                  largest);
  out.write_rows(*data, 0);
  out.commit();
}

void write_envi(const cube& data, const vector& wavelengths, const std::string& file_name,
                int data_type, bool reflectance) {
  pipeline holder;
  if (reflectance) {
    holder.set_s(data, wavelengths);
  } else {
    holder.set_I(data, wavelengths);
  }
  hdr_output(reflectance, data_type).write(holder, file_name);
}

}  // namespace corv
