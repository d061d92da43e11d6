#include "tavr/image/hs_image.h"

#include <QFileInfo>
#include <QTransform>
#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "corv/analysis/sam.h"
#include "corv/analysis/svm.h"
#include "corv/analysis/unmixing.h"
#include "corv/io/data_input.h"
#include "corv/io/logger.h"
#include "corv/io/open_input.h"
#include "corv/io/quiet_log.h"
#include "corv/io/spectral_library.h"

namespace tavr {

namespace {

// ENVI images smaller than this many samples are kept in memory after the first read.
constexpr double held_envi_limit = 1e8;

std::shared_ptr<corv::input> open_image_input(const std::string& name) {
  switch (corv::format_of(name)) {
    case corv::image_format::hsz:
      return corv::open_input(name, false);
    case corv::image_format::tiff:
      return corv::open_input(name, true);
    default: {
      // The size is asked first, quietly; the reader that stays is opened again
      // and logs (as does a file that cannot be opened, opened again to log why).
      std::shared_ptr<corv::input> probe;
      try {
        const corv::quiet_log quiet;
        probe = corv::open_input(name, false);
      } catch (const std::exception&) {
        return corv::open_input(name, false);
      }
      const double samples = static_cast<double>(probe->height()) *
                             static_cast<double>(probe->width()) *
                             static_cast<double>(probe->bands());
      return corv::open_input(name, samples < held_envi_limit);
    }
  }
}

const char* yes_no(bool flag) {
  return flag ? "Yes" : "No";
}

QString classification_name(int method) {
  switch (method) {
    case classify_sam:
      return QStringLiteral("Spectral Angle Mapper");
    case classify_svm:
      return QStringLiteral("Support Vector Machines");
    case classify_unmixing:
      return QStringLiteral("Linear Spectral Unmixing");
    default:
      return QString::number(method);
  }
}

// Class numbers (1-based) of the references given by 1-based reference numbers;
// 0 where the number is not a reference.
corv::matrix classes_of(const corv::matrix& references, const corv::vector& reference_classes) {
  corv::matrix classes(arma::size(references), arma::fill::zeros);
  for (arma::uword i = 0; i < references.n_elem; ++i) {
    const float reference = references(i);
    if (reference >= 1.0f && reference <= static_cast<float>(reference_classes.n_elem)) {
      classes(i) = reference_classes(static_cast<arma::uword>(reference) - 1);
    }
  }
  return classes;
}

// The picture size (columns x rows) an operation leaves, from the size before it.
QSize size_after(const operation_record& record, const QSize& before) {
  if (record.name == QLatin1String("crop")) {
    const QRectF& r = record.rectangle;
    return QSize(static_cast<int>(r.x() + r.width()) - static_cast<int>(r.x()) + 1,
                 static_cast<int>(r.y() + r.height()) - static_cast<int>(r.y()) + 1);
  }
  if (record.name == QLatin1String("resize") &&
      (record.width_percent < 100.0 || record.height_percent < 100.0)) {
    return QSize(std::max(1, static_cast<int>(before.width() * record.width_percent / 100.0)),
                 std::max(1, static_cast<int>(before.height() * record.height_percent / 100.0)));
  }
  return before;
}

// How picture coordinates move through an operation, given the sizes around it.
QTransform picture_transform(const operation_record& record, const QSize& before,
                             const QSize& after) {
  QTransform transform;
  if (record.name == QLatin1String("crop")) {
    transform.translate(-static_cast<int>(record.rectangle.x()),
                        -static_cast<int>(record.rectangle.y()));
  } else if (record.name == QLatin1String("resize") && !before.isEmpty()) {
    transform.scale(static_cast<double>(after.width()) / before.width(),
                    static_cast<double>(after.height()) / before.height());
  }
  return transform;
}

}  // namespace

hs_image::hs_image(const QString& file_name, open_mode mode, QObject* parent)
    : QObject(parent), mode_(mode), file_name_(file_name) {
  original_ = open_image_input(file_name.toStdString());
  pipeline_ = std::make_shared<corv::pipeline>(original_);
  if (mode_ == open_mode::reflectance) {
    pipeline_->set_s(pipeline_->I(), pipeline_->wavelengths());
  }
}

hs_image::hs_image(const corv::cube& I, const corv::vector& wavelengths, const QString& file_name,
                   QObject* parent)
    : QObject(parent), file_name_(file_name) {
  if (wavelengths.n_elem != I.n_slices) {
    throw std::runtime_error("hs_image: The image has " + std::to_string(I.n_slices) +
                             " bands but " + std::to_string(wavelengths.n_elem) + " wavelengths.");
  }
  auto data = std::make_shared<corv::data_input>();
  data->set_I(I);
  data->set_wavelengths(wavelengths);
  original_ = data;
  pipeline_ = std::make_shared<corv::pipeline>(original_);
}

hs_image::~hs_image() = default;

QList<std::function<void()>> hs_image::queued_operations() {
  QList<std::function<void()>> operations;
  const processing_selection& chosen = selection_;
  if (chosen.filter_image) {
    const int method = chosen.filter_method;
    const int size = chosen.filter_size;
    const bool reflectance = prepare_reflectance_;
    operations.append([this, method, size, reflectance] {
      pipeline_->filter(method, size, reflectance);
      filtered_ = true;
    });
  }
  if (chosen.recover_illuminant) {
    operations.append([this] { pipeline_->process_recover_illuminant(true); });
  }
  if (chosen.recover_reflectance) {
    operations.append([this] { pipeline_->process_recover_dichromatic_parameters(); });
  }
  if (chosen.recover_materials) {
    operations.append([this] { pipeline_->process_recover_materials(); });
  }
  if (chosen.recover_endmembers) {
    operations.append([this] { pipeline_->process_recover_endmembers(); });
  }
  if (chosen.classify) {
    operations.append([this] { run_classification(); });
  }
  if (chosen.analyse) {
    operations.append([this] { run_analysis(); });
  }
  return operations;
}

void hs_image::process() {
  QString message;
  try {
    pipeline_->set_verbosity(verbosity_);
    const QList<std::function<void()>> operations = queued_operations();
    for (const auto& operation : operations) {
      operation();
    }
  } catch (const std::exception& failure) {
    message = QString::fromStdString(failure.what());
  } catch (...) {
    message = QStringLiteral("process: Unknown failure.");
  }
  Q_EMIT process_pipeline_complete(message);
}

void hs_image::start_process() {
  // The future is not kept: the completion signal is the only report.
  (void)QtConcurrent::run([this] { process(); });
}

void hs_image::run_classification() {
  const int method = selection_.classification_method;
  if (method != classify_sam && method != classify_svm && method != classify_unmixing) {
    throw std::runtime_error("No classification method selected");
  }
  corv::logger::instance().set_stage(corv::stage_classification);
  corv::logger::instance().set_progress(0);

  // Classes are the distinct endmember labels, numbered from 1 in library order.
  const std::shared_ptr<corv::spectral_library> library = pipeline_->library();
  const corv::spectral_library none;
  const corv::spectral_library& references = library ? *library : none;
  if (references.labels().size() != references.size()) {
    throw std::runtime_error("Error creating label list.");
  }
  classification_result result;
  result.method = method;
  corv::vector reference_classes(references.size());
  for (arma::uword i = 0; i < references.size(); ++i) {
    const QString label = QString::fromStdString(references.labels()[i]);
    int number = static_cast<int>(result.class_labels.indexOf(label));
    if (number < 0) {
      result.class_labels.append(label);
      number = static_cast<int>(result.class_labels.size()) - 1;
    }
    reference_classes(i) = static_cast<float>(number + 1);
  }

  const corv::cube& reflectance = pipeline_->s();
  const corv::vector& wavelengths = pipeline_->wavelengths();
  const corv::matrix spectra = references.endmembers().t();
  const int k = pipeline_->parameters().materials_per_pixel;
  if (method == classify_sam) {
    corv::sam(reflectance, wavelengths, spectra, references.wavelengths(), result.values,
              result.indexes, k);
    result.class_map = classes_of(result.indexes.slice(0), reference_classes);
  } else if (method == classify_svm) {
    corv::vector labels = reference_classes;
    corv::svm(reflectance, wavelengths, spectra, references.wavelengths(), labels,
              result.class_map);
  } else {
    corv::unmix_by_spectra(reflectance, wavelengths, spectra, references.wavelengths(),
                           result.values, result.indexes, k);
    // The dominant reference is the one with the largest fraction, not the best angle.
    corv::matrix dominant(result.values.n_rows, result.values.n_cols, arma::fill::zeros);
    for (arma::uword row = 0; row < result.values.n_rows; ++row) {
      for (arma::uword col = 0; col < result.values.n_cols; ++col) {
        float best = 0.0f;
        for (arma::uword j = 0; j < result.values.n_slices; ++j) {
          if (result.values(row, col, j) > best) {
            best = result.values(row, col, j);
            dominant(row, col) = result.indexes(row, col, j);
          }
        }
      }
    }
    result.class_map = classes_of(dominant, reference_classes);
  }
  result.reference_classes = reference_classes;
  classification_ = std::move(result);
}

void hs_image::run_analysis() {
  pipeline_->set_principal_components(selection_.principal_components);
  if (selection_.analysis_cube_type == QLatin1String("Irradiance")) {
    pipeline_->process_analysis(false);
  } else if (selection_.analysis_cube_type == QLatin1String("Reflectance")) {
    pipeline_->process_analysis(true);
  }
}

void hs_image::apply_record(const operation_record& record, bool reflectance) {
  if (record.name == QLatin1String("crop")) {
    const QRectF& r = record.rectangle;
    pipeline_->crop(static_cast<int>(r.y()), static_cast<int>(r.x()),
                    static_cast<int>(r.y() + r.height()), static_cast<int>(r.x() + r.width()),
                    reflectance);
  } else if (record.name == QLatin1String("resize")) {
    const double height = pipeline_->height();
    const double width = pipeline_->width();
    const int rows = std::max(1, static_cast<int>(height * record.height_percent / 100.0));
    const int cols = std::max(1, static_cast<int>(width * record.width_percent / 100.0));
    pipeline_->resize(rows, cols, reflectance);
  } else if (record.name == QLatin1String("remove_band")) {
    corv::band_list bands;
    for (const qint32 band : record.bands) {
      if (band < 0) {
        throw std::runtime_error("remove_bands: Band " + std::to_string(band) +
                                 " does not exist; the image has " +
                                 std::to_string(pipeline_->bands()) + " bands.");
      }
      bands.push_back(static_cast<unsigned>(band));
    }
    pipeline_->remove_bands(bands, reflectance);
  } else if (record.name == QLatin1String("align_bands")) {
    const qint32 reference = record.bands.value(0);
    if (reference < 0) {
      throw std::runtime_error("align_bands: Reference band " + std::to_string(reference) +
                               " does not exist; the image has " +
                               std::to_string(pipeline_->bands()) + " bands.");
    }
    pipeline_->align_bands(static_cast<unsigned>(reference), reflectance);
  }
}

QSize hs_image::picture_size() const {
  return QSize(static_cast<int>(pipeline_->width()), static_cast<int>(pipeline_->height()));
}

void hs_image::apply_with_labels(const operation_record& record, bool reflectance) {
  const QSize before = picture_size();
  apply_record(record, reflectance);
  labels_.transform(picture_transform(record, before, picture_size()));
}

void hs_image::crop(const QRectF& rectangle) {
  operation_record record;
  record.name = QStringLiteral("crop");
  record.rectangle = rectangle;
  apply_with_labels(record, prepare_reflectance_);
  history_.append(record);
  redo_.clear();
}

void hs_image::resize(double width_percent, double height_percent) {
  if (width_percent >= 100.0 && height_percent >= 100.0) {
    return;
  }
  operation_record record;
  record.name = QStringLiteral("resize");
  record.width_percent = width_percent;
  record.height_percent = height_percent;
  apply_with_labels(record, prepare_reflectance_);
  history_.append(record);
  redo_.clear();
}

void hs_image::remove_bands(const QVector<qint32>& bands) {
  operation_record record;
  record.name = QStringLiteral("remove_band");
  record.bands = bands;
  apply_record(record, prepare_reflectance_);
  history_.append(record);
  redo_.clear();
}

void hs_image::align_bands(int reference) {
  operation_record record;
  record.name = QStringLiteral("align_bands");
  record.bands = {reference};
  apply_record(record, prepare_reflectance_);
  history_.append(record);
  redo_.clear();
}

void hs_image::restore_original() {
  corv::pipeline fresh(original_);
  corv::parameters kept = pipeline_->parameters();
  kept.wiener_marker = false;  // the original image was never filtered
  fresh.set_parameters(kept);
  fresh.set_library(pipeline_->library());
  if (mode_ == open_mode::reflectance) {
    fresh.set_s(fresh.I(), fresh.wavelengths());
  }
  *pipeline_ = fresh;
  filtered_ = false;
  classification_ = classification_result();
}

void hs_image::undo() {
  if (history_.isEmpty()) {
    return;
  }
  const QSize undone = picture_size();
  const operation_record last = history_.takeLast();
  restore_original();
  for (const operation_record& record : history_) {
    apply_record(record, prepare_reflectance_);
  }
  labels_.transform(picture_transform(last, picture_size(), undone).inverted());
  redo_.prepend(last);
}

void hs_image::redo() {
  if (redo_.isEmpty()) {
    return;
  }
  const operation_record record = redo_.takeFirst();
  // Redoing never transforms the reflectance, whatever the first application did.
  apply_with_labels(record, false);
  history_.append(record);
}

void hs_image::reload() {
  restore_original();
  // Labels go back through every step of the history, in picture sizes worked out from the
  // original.
  QTransform forward;
  QSize size = picture_size();
  for (const operation_record& record : history_) {
    const QSize next = size_after(record, size);
    forward *= picture_transform(record, size, next);
    size = next;
  }
  labels_.transform(forward.inverted());
  history_.clear();
  redo_.clear();
}

bool hs_image::shown_from_file() const {
  const auto& source = pipeline_->source();
  return mode_ == open_mode::irradiance && !pipeline_->holds_I() && source != nullptr &&
         (source->input_kind() == corv::kind_hdr || source->input_kind() == corv::kind_tif);
}

corv::vector hs_image::irradiance_spectrum(int x, int y) {
  if (pipeline_->holds_I() || pipeline_->source() == nullptr) {
    return pipeline_->I().tube(static_cast<arma::uword>(y), static_cast<arma::uword>(x));
  }
  return pipeline_->source()->I(y, x, y, x).tube(0, 0);
}

QString hs_image::settings_summary() const {
  const corv::parameters& p = pipeline_->parameters();
  const processing_selection& chosen = selection_;
  QString text = QStringLiteral("Pipeline settings:");
  text += QStringLiteral("\nFilter image: ") + yes_no(chosen.filter_image);
  text += QStringLiteral("\nFaster illumination estimation: ") + yes_no(p.second_illuminant);
  text += QStringLiteral("\nIllumination Smoothness level: ") +
          QString::number(static_cast<double>(p.spatial_smoothness));
  text += QStringLiteral("\nIlluminant patch size: ") + QString::number(p.illuminant_patch_size);
  text +=
      QStringLiteral("\nDichromatic neighborhood size: ") + QString::number(p.neighbourhood_size);
  text += QStringLiteral("\nDichromatic gray threshold: ") + QString::number(p.gray_threshold);
  text += QStringLiteral("\nFaster material recovery: ") + yes_no(p.material_mode != 0);
  text += QStringLiteral("\nMaterials max clusters: ") + QString::number(p.max_clusters);
  text += QStringLiteral("\nMaterial temperature max: ") +
          QString::number(static_cast<double>(p.max_temperature));
  text += QStringLiteral("\nMaterial temperature min: ") +
          QString::number(static_cast<double>(p.min_temperature));
  text += QStringLiteral("\nMaterial cooling rate: ") +
          QString::number(static_cast<double>(p.cooling_rate));
  text += QStringLiteral("\nMaterial split threshold: ") +
          QString::number(static_cast<double>(p.split_threshold));
  text += QStringLiteral("\nAbundance num materials: ") + QString::number(p.materials_per_pixel);
  text += QStringLiteral("\nClassification method: ") +
          classification_name(chosen.classification_method);
  text += QStringLiteral("\nCube type: ") + chosen.analysis_cube_type;
  text += QStringLiteral("\nNumber of principal components: ") +
          QString::number(chosen.principal_components);
  return text;
}

}  // namespace tavr
