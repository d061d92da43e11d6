#include "tavr/image/image_exporter.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStringList>
#include <QTextStream>
#include <stdexcept>
#include <string>
#include <vector>

#include "corv/io/hdr_output.h"
#include "corv/io/hsz_output.h"
#include "corv/io/library_csv.h"
#include "corv/io/mat_file.h"
#include "corv/io/spectral_library.h"
#include "corv/pipeline/pipeline.h"
#include "tavr/processing/processing_settings.h"

namespace tavr {

namespace {

[[noreturn]] void fail(const QString& text) {
  throw std::runtime_error(text.toStdString());
}

// A number of a CSV field, or false when the field is not one.
bool parse(const QString& field, double& value) {
  bool ok = false;
  value = field.trimmed().remove('"').toDouble(&ok);
  return ok;
}

// The spectrum on the image's wavelengths: the values as they are when there is
// one per band (x empty), else interpolated linearly between the (x, y) pairs.
corv::vector illumination_on(const corv::vector& wavelengths, const std::vector<double>& x,
                             const std::vector<double>& y, const char* routine,
                             const QString& file_name) {
  const arma::uword bands = wavelengths.n_elem;
  corv::vector out(bands);
  if (x.empty()) {
    if (y.size() != bands) {
      fail(QString("%1: %2 values for %3 bands in %4.")
               .arg(routine)
               .arg(y.size())
               .arg(bands)
               .arg(file_name));
    }
    for (arma::uword b = 0; b < bands; ++b) {
      out(b) = static_cast<float>(y[b]);
    }
    return out;
  }
  if (x.size() != y.size()) {
    fail(QString(routine) + ": Rows of one and two values are mixed in " + file_name);
  }
  for (arma::uword b = 0; b < bands; ++b) {
    const double w = wavelengths(b);
    std::size_t i = 1;
    while (i < x.size() && x[i] < w) {
      ++i;
    }
    if (x.size() < 2 || w < x.front() || w > x.back()) {
      fail(QString("%1: Wavelength %2 is outside the file's range.").arg(routine).arg(w));
    }
    const double t = (w - x[i - 1]) / (x[i] - x[i - 1]);
    out(b) = static_cast<float>(y[i - 1] + t * (y[i] - y[i - 1]));
  }
  return out;
}

}  // namespace

bool has_material_components(corv::pipeline& image) {
  try {
    return !image.material_elements().empty() && !image.material_element_abundances().empty();
  } catch (const std::exception&) {
    return false;
  }
}

void save_hsz(corv::pipeline& image, const QString& file_name, const processing_settings& values) {
  image.set_nurbs_encoding(values.nurbs_save);
  image.set_nurbs_degree(values.nurbs_degree);
  image.set_nurbs_max_iterations(values.nurbs_iterations);
  image.set_nurbs_knots_threshold(values.nurbs_knot_threshold);
  image.set_nurbs_alpha(static_cast<float>(values.nurbs_alpha));
  image.save(std::make_shared<corv::hsz_output>(), file_name.toStdString());
}

void save_cube(corv::pipeline& image, const QString& file_name, bool reflectance, int data_type) {
  image.save(std::make_shared<corv::hdr_output>(reflectance, data_type), file_name.toStdString());
}

void export_illumination(corv::pipeline& image, const QString& file_name) {
  const corv::vector& illuminant = image.illuminant();
  const corv::vector& wavelengths = image.wavelengths();
  if (illuminant.n_elem != wavelengths.n_elem) {
    fail(QString("export_illumination: The illuminant has %1 values for %2 wavelengths.")
             .arg(illuminant.n_elem)
             .arg(wavelengths.n_elem));
  }
  QSaveFile file(file_name);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
    fail("export_illumination: Could not write " + file_name);
  }
  QTextStream out(&file);
  out << "Wavelength (nm),Illuminant\n";
  for (arma::uword b = 0; b < illuminant.n_elem; ++b) {
    out << QString::number(wavelengths(b), 'g', 8) << ',' << QString::number(illuminant(b), 'g', 8)
        << '\n';
  }
  out.flush();
  if (!file.commit()) {
    fail("export_illumination: Could not write " + file_name);
  }
}

void export_material_library(corv::pipeline& image, const QString& file_name) {
  const corv::matrix& elements = image.material_elements();
  std::vector<std::string> labels;
  for (arma::uword i = 0; i < elements.n_cols; ++i) {
    labels.push_back("Material " + std::to_string(i + 1));
  }
  corv::spectral_library library(elements, labels, image.wavelengths());
  library.set_colours(corv::spectral_library::palette_colours(0, elements.n_cols));
  if (QFileInfo(file_name).suffix().toLower() == "slz") {
    library.save(file_name.toStdString());
  } else {
    corv::write_library_csv(library, file_name.toStdString());
  }
}

corv::vector read_illumination_csv(const QString& file_name, const corv::vector& wavelengths) {
  QFile file(file_name);
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
    fail("read_illumination_csv: Could not read " + file_name);
  }
  std::vector<double> x;
  std::vector<double> y;
  QTextStream in(&file);
  int line_number = 0;
  while (!in.atEnd()) {
    const QString line = in.readLine().trimmed();
    ++line_number;
    if (line.isEmpty()) {
      continue;
    }
    const QStringList fields = line.split(QRegularExpression("[,;\\t]"), Qt::SkipEmptyParts);
    double first = 0.0;
    double second = 0.0;
    const bool numeric =
        parse(fields.value(0), first) && (fields.size() < 2 || parse(fields.value(1), second));
    if (!numeric) {
      if (x.empty() && y.empty()) {
        continue;  // a header line
      }
      fail(QString("read_illumination_csv: Line %1 of %2 is not a number.")
               .arg(line_number)
               .arg(file_name));
    }
    if (fields.size() >= 2) {
      x.push_back(first);
      y.push_back(second);
    } else {
      y.push_back(first);
    }
  }
  return illumination_on(wavelengths, x, y, "read_illumination_csv", file_name);
}

corv::vector read_illumination(const QString& file_name, const corv::vector& wavelengths) {
  if (QFileInfo(file_name).suffix().toLower() != QLatin1String("mat")) {
    return read_illumination_csv(file_name, wavelengths);
  }
  const std::vector<corv::mat_variable> variables = corv::read_mat_file(file_name.toStdString());
  const arma::uword bands = wavelengths.n_elem;
  for (const corv::mat_variable& v : variables) {
    if ((v.rows == 1 || v.cols == 1) && v.values.size() == bands) {
      return illumination_on(wavelengths, {}, v.values, "read_illumination", file_name);
    }
  }
  // Wavelengths and values side by side (or one above the other).
  for (const corv::mat_variable& v : variables) {
    if (v.cols == 2 && v.rows >= 2) {
      return illumination_on(wavelengths,
                             std::vector<double>(v.values.begin(), v.values.begin() + v.rows),
                             std::vector<double>(v.values.begin() + v.rows, v.values.end()),
                             "read_illumination", file_name);
    }
    if (v.rows == 2 && v.cols >= 2) {
      std::vector<double> x;
      std::vector<double> y;
      for (arma::uword c = 0; c < v.cols; ++c) {
        x.push_back(v.values[2 * c]);
        y.push_back(v.values[2 * c + 1]);
      }
      return illumination_on(wavelengths, x, y, "read_illumination", file_name);
    }
  }
  fail(QString("read_illumination: No illumination spectrum in %1: it needs %2 values, or "
               "wavelengths and values in two columns.")
           .arg(file_name)
           .arg(bands));
}

}  // namespace tavr
