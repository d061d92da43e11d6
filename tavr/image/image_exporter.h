#ifndef TAVR_IMAGE_IMAGE_EXPORTER_H
#define TAVR_IMAGE_IMAGE_EXPORTER_H

#include <QImage>
#include <QString>

#include "corv/io/types.h"

namespace corv {
class pipeline;
}

namespace tavr {

struct processing_settings;

// Saving and exporting an image's components. Each routine throws
// std::runtime_error with the library's text, or its own "<routine>: ..." text,
// and writes nothing on failure.

// Whether the pipeline holds the material components an HSZ file needs.
bool has_material_components(corv::pipeline& image);
// The HSZ file with the NURBS options of the settings.
void save_hsz(corv::pipeline& image, const QString& file_name, const processing_settings& values);
// The irradiance or reflectance cube as ENVI of the settings' data type.
void save_cube(corv::pipeline& image, const QString& file_name, bool reflectance, int data_type);
// The recovered illuminant as CSV: a header line "Wavelength (nm),Illuminant",
// then one "wavelength,value" line per band.
void export_illumination(corv::pipeline& image, const QString& file_name);
// The material reflectances ("Material 1", ...) as a spectral library: SLZ when
// the name ends in ".slz", CSV otherwise.
void export_material_library(corv::pipeline& image, const QString& file_name);
// Reads an illumination spectrum from CSV: one value per band, or
// "wavelength,value" lines interpolated linearly onto the image's wavelengths
// (never extrapolated). A header line is skipped.
corv::vector read_illumination_csv(const QString& file_name, const corv::vector& wavelengths);

// An illumination spectrum from a CSV file (as read_illumination_csv) or a
// MATLAB file (".mat"): its first vector of one value per band, else its first
// array of two columns (or two rows) of wavelengths and values, interpolated.
// Throws std::runtime_error with the reader's text or "read_illumination: No
// illumination spectrum in <file>: it needs <bands> values, or wavelengths and
// values in two columns.".
corv::vector read_illumination(const QString& file_name, const corv::vector& wavelengths);

}  // namespace tavr

#endif
