#include "corv/io/hsz_output.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "corv/io/hsz_record.h"
#include "corv/io/huge_pages.h"
#include "corv/io/logger.h"
#include "corv/io/spectral_library.h"
#include "corv/pipeline/pipeline.h"
#include "corv/spectral/nurbs.h"

namespace corv {

namespace {

using quantised::block_shape;
using quantised::index_block;
using quantised::value_block;

block_shape shape_of(const cube& c) {
  return {static_cast<std::uint32_t>(c.n_rows), static_cast<std::uint32_t>(c.n_cols),
          static_cast<std::uint32_t>(c.n_slices)};
}

block_shape shape_of(const matrix& m) {
  return {static_cast<std::uint32_t>(m.n_rows), static_cast<std::uint32_t>(m.n_cols), 1};
}

template <typename Array>
value_block values_of(const Array& values) {
  std::vector<double> copy;
  resize_large(copy, values.n_elem);
  std::copy(values.begin(), values.end(), copy.begin());
  return value_block(shape_of(values), std::move(copy));
}

// A value that is not a finite number cannot be quantised: it is stored as 0,
// what the recovery stages give the pixels they cannot model, and the writer
// says how many there were.
template <typename Array>
Array finite(Array values, const std::string& name) {
  std::size_t replaced = 0;
  values.transform([&replaced](float x) {
    if (std::isfinite(x)) {
      return x;
    }
    ++replaced;
    return 0.0f;
  });
  if (replaced > 0) {
    logger::instance() << "hsz_output: " << name << " holds " << std::to_string(replaced)
                       << " values that are not finite numbers; they are stored as 0."
                       << "EOL";
  }
  return values;
}

// The library counts elements from 0, the file from 1.
index_block one_based(const cube& indexes, const std::string& name) {
  std::vector<std::int32_t> stored;
  resize_large(stored, indexes.n_elem);
  bool whole = true;
  std::transform(indexes.begin(), indexes.end(), stored.begin(), [&whole](float index) {
    const bool ok = std::isfinite(index) && index >= 0.0f && index < 2147483647.0f;
    whole = whole && ok;
    return ok ? static_cast<std::int32_t>(std::lround(index)) + 1 : 0;
  });
  if (!whole) {
    log_and_throw("hsz_output: " + name + " holds a value that is not an element number.");
  }
  return index_block(shape_of(indexes), std::move(stored));
}

// A single element covering every pixel: abundance 1.0, element number 1.
void single_element(hsz_part& part, std::uint32_t height, std::uint32_t width) {
  const std::size_t pixels = static_cast<std::size_t>(height) * width;
  part.element_abundances = value_block({height, width, 1}, std::vector<double>(pixels, 1.0));
  part.element_abundance_indexes =
      index_block({height, width, 1}, std::vector<std::int32_t>(pixels, 1));
}

void require_size(bool agrees, const std::string& name) {
  if (!agrees) {
    log_and_throw("hsz_output: Data size mismatch: " + name + " is incorrect size.");
  }
}

// Takes a component from the pipeline; its absence is logged and thrown with
// this writer's texts.
template <typename T, typename Get>
T take(Get get, const std::string& log_line, const std::string& thrown_text) {
  try {
    return get();
  } catch (const std::exception&) {
    log_and_throw(log_line, thrown_text);
  }
}

// Stores spectra (one per column) as curves on one knot vector, with the
// pipeline's NURBS settings passed on unchanged (the encoder applies its own
// rules to them):
//   ElementKnots: the knot vector, one column.
//   ElementCP: the control points, one row per point and one column per
//     spectrum; slice 0 holds their wavelengths (nm), slice 1 their values.
// Returns the curves' degree, which the header records.
std::int32_t encode_curves(const matrix& spectra, const vector& wavelengths,
                           const parameters& settings, hsz_part& part) {
  const arma::uword bands = spectra.n_rows, count = spectra.n_cols;
  cube curves(1, count, bands);
  for (arma::uword j = 0; j < count; ++j) {
    for (arma::uword b = 0; b < bands; ++b) {
      curves(0, j, b) = spectra(b, j);
    }
  }
  vector knots;
  nurbs_control_points points;
  const auto degree = static_cast<std::uint32_t>(std::max(settings.nurbs_degree, 2));
  generate_nurbs(curves, cube(0, 0, bands), wavelengths, knots, points, degree,
                 static_cast<std::uint32_t>(settings.nurbs_knots_threshold), settings.nurbs_alpha,
                 settings.nurbs_max_iterations, settings.verbosity);
  const arma::uword controls = points.values.n_slices;
  std::vector<double> values(controls * count * 2);
  for (arma::uword j = 0; j < count; ++j) {
    for (arma::uword i = 0; i < controls; ++i) {
      values[j * controls + i] = points.wavelengths(0, j, i);
      values[(count + j) * controls + i] = points.values(0, j, i);
    }
  }
  part.element_knots = value_block({static_cast<std::uint32_t>(knots.n_elem), 1, 1},
                                   std::vector<double>(knots.begin(), knots.end()));
  part.element_cp =
      value_block({static_cast<std::uint32_t>(controls), static_cast<std::uint32_t>(count), 2},
                  std::move(values));
  return static_cast<std::int32_t>(degree);
}

hsz_record record_of(pipeline& source) {
  const parameters& settings = source.parameters();
  const vector wavelengths =
      take<vector>([&] { return source.wavelengths(); }, "HSZ Out: Error reading Wavelengths.",
                   "Error retrieving wavelengths.");
  const vector illuminant =
      finite(take<vector>([&] { return source.illuminant(); }, "HSZ Out: Error reading Illuminant.",
                          "Error retrieving Illuminant."),
             "L->Elements");
  const matrix k = finite(
      take<matrix>([&] { return source.k(); }, "HSZ Out: Error reading K.", "Error retrieving K."),
      "K->Factor");
  const std::string s_log = "HSZ Out: Error reading S (Maybe you didn't generate abundances).";
  const std::string s_thrown = "Error retrieving S components.";
  const matrix g =
      finite(take<matrix>([&] { return source.g(); }, s_log, s_thrown), "S->Factor (g)");
  const matrix elements = finite(
      take<matrix>([&] { return source.material_elements(); }, s_log, s_thrown), "S->Elements");
  const cube abundances =
      finite(take<cube>([&] { return source.material_element_abundances(); }, s_log, s_thrown),
             "S->Element Abundances");
  const cube indexes =
      take<cube>([&] { return source.material_element_abundance_indexes(); }, s_log, s_thrown);

  // The image size is k's and the band count the wavelengths'; a pipeline that
  // knows its image's size must agree.
  const auto height = static_cast<std::uint32_t>(k.n_rows);
  const auto width = static_cast<std::uint32_t>(k.n_cols);
  const auto bands = static_cast<std::uint32_t>(wavelengths.n_elem);
  require_size(source.bands() == 0 || source.bands() == bands, "Wavelengths");
  require_size(illuminant.n_elem == bands, "Illuminant");
  require_size(source.height() == 0 || (source.height() == height && source.width() == width), "K");
  require_size(g.n_rows == height && g.n_cols == width, "S->Factor (g)");
  require_size(elements.n_rows == bands, "S->Elements");
  require_size(abundances.n_rows == height && abundances.n_cols == width, "S->Element Abundances");
  require_size(shape_of(indexes) == shape_of(abundances), "S->Element Abundances Indexes");

  hsz_record record;
  hsz_header& header = record.header;
  header.lines = static_cast<std::int32_t>(height);
  header.samples = static_cast<std::int32_t>(width);
  header.bands = static_cast<std::int32_t>(bands);
  header.interleave = "bsq";
  header.description = "Corvantis HSZ";
  header.method = "Dichromatic";
  header.encoding_k = "RAW";
  header.encoding_l = settings.nurbs_encoding ? "NURBS" : "RAW";
  header.encoding_s = settings.nurbs_encoding ? "NURBS" : "RAW";
  header.datatype = 12;
  header.wavelengths.assign(wavelengths.begin(), wavelengths.end());

  // L: the illuminant as the single element of every pixel.
  if (settings.nurbs_encoding) {
    header.degree_nurbs_l = encode_curves(matrix(illuminant), wavelengths, settings, record.l);
  } else {
    record.l.elements = values_of(matrix(illuminant));
  }
  single_element(record.l, height, width);
  header.indexed_l = 1;
  header.num_elements_l = 1;

  // K: k scales the illuminant's own spectrum in every pixel, which K keeps as
  // it is (its encoding stays "RAW").
  header.num_elements_k = 1;
  header.indexed_k = 1;
  record.k.factor = values_of(k);
  record.k.elements = values_of(matrix(illuminant));
  single_element(record.k, height, width);

  // S: the material elements mixed per pixel, scaled by g. numElementsS counts
  // the elements that each pixel mixes, the depth of the abundance arrays.
  header.indexed_s = 1;
  if (settings.nurbs_encoding) {
    header.degree_nurbs_s = encode_curves(elements, wavelengths, settings, record.s);
  } else {
    record.s.elements = values_of(elements);
  }
  record.s.factor = values_of(g);
  record.s.element_abundances = values_of(abundances);
  record.s.element_abundance_indexes = one_based(indexes, "S->Element Abundances Indexes");
  header.num_elements_s = static_cast<std::int32_t>(abundances.n_slices);

  if (const std::shared_ptr<spectral_library> library = source.library()) {
    header.endmember_indexed_s = source.parameters().endmember_setting;
    record.endmembers_s.count = static_cast<std::int32_t>(library->size());
    if (library->bands() > 0) {
      const vector& library_wavelengths = library->wavelengths();
      record.endmembers_s.wavelengths.assign(library_wavelengths.begin(),
                                             library_wavelengths.end());
    }
    if (!library->empty()) {
      record.endmembers_s.labels = library->labels();
      record.s.endmembers = values_of(finite(library->endmembers(), "S->Endmembers"));
    }
    // Endmember abundances exist once the image has been unmixed.
    try {
      const cube endmember_abundances =
          finite(source.endmember_abundances(), "S->Endmember Abundances");
      const cube endmember_indexes = source.endmember_abundance_indexes();
      record.s.endmember_abundances = values_of(endmember_abundances);
      record.s.endmember_abundance_indexes =
          one_based(endmember_indexes, "S->Endmember Abundance Indexes");
    } catch (const std::exception&) {
      record.s.endmember_abundances = value_block();
      record.s.endmember_abundance_indexes = index_block();
    }
  }
  record.endmembers_l.wavelength_unit = "Nanometers";
  record.endmembers_s.wavelength_unit = "Nanometers";
  return record;
}

}  // namespace

void hsz_output::write(pipeline& source, const std::string& file_name) {
  if (file_name.empty()) {
    log_and_throw("HSZ_Output: Oops, looks like you forgot to set a filename!",
                  "Filename not specified for HSZ save.");
  }
  const hsz_record record = record_of(source);
  if (!record.save(file_name, true)) {
    logger::instance() << "hsz_output: Warning - Overwriting file " << file_name << "EOL";
    std::string failure;
    if (!record.save(file_name, true, &failure)) {
      log_and_throw("hsz_output: Could not save " + file_name + ": " + failure);
    }
  }
  logger::instance() << "hsz_output: Saved " << file_name << "EOL";
}

}  // namespace corv
