// corv classify: compares every pixel of an image with the spectra of a library.
#include <iostream>
#include <string>
#include <vector>

#include "corv/analysis/reference_ranking.h"
#include "corv/analysis/sam.h"
#include "corv/analysis/svm.h"
#include "corv/analysis/unmixing.h"
#include "corv/cli/arguments.h"
#include "corv/cli/image_files.h"
#include "corv/cli/streaming.h"
#include "corv/io/envi_library.h"
#include "corv/io/envi_writer.h"
#include "corv/io/file_path.h"
#include "corv/io/hdr_output.h"
#include "corv/io/library_csv.h"
#include "corv/io/spectral_library.h"
#include "corv/pipeline/pipeline.h"

namespace corv::cli {

namespace {

const char* const usage =
    "expects IN --library LIB --method sam|svm|unmix [-k K] [--reflectance] -o PREFIX";

// By suffix: .slz, .csv, else an ENVI library or image of spectra. Spectra
// with missing points are left out of an ENVI library: no curve runs through
// a missing point, so they could not be resampled.
spectral_library read_library(const std::string& name) {
  const std::string extension = lower_case(file_path::split(name).extension);
  if (extension == ".slz") {
    spectral_library library;
    library.load(name);
    return library;
  }
  if (extension == ".csv") {
    return read_library_csv(name);
  }
  return read_envi_library(name, missing_points::drop);
}

// Result bands are ranks, not wavelengths: band i of a k-deep cube holds the
// i-th best reference, and its header says i.
void write_result(const cube& data, const std::string& name) {
  const vector ranks = arma::regspace<vector>(1, static_cast<float>(data.n_slices));
  write_envi(data, ranks, name + ".fla", 4, false);
  std::cout << name << ".hdr\n";
}

// sam and unmix over an ENVI image block by block: the references are made
// ready once, every block of rows is ranked and its results written at once.
void rank_streamed(reference_ranking::result kind, hdr_input& image, const matrix& spectra,
                   const vector& spectra_waves, int k, const std::string& prefix) {
  const reference_ranking ranking(kind, image.height(), image.width(), image.bands(),
                                  image.wavelengths(), spectra, spectra_waves, k);
  image_part part = image_part::whole(image);
  if (!ranking.bands().empty()) {
    part.bands = ranking.bands();
  }
  const vector ranks = arma::regspace<vector>(1, static_cast<float>(ranking.results()));
  const std::string values_name = prefix + "_values", indexes_name = prefix + "_indexes";
  stream_run run(stage_classification);
  envi_writer values_out(values_name + ".fla", part.rows(), part.cols(), ranks, 4, false, 0.0);
  envi_writer indexes_out(indexes_name + ".fla", part.rows(), part.cols(), ranks, 4, false, 0.0);
  run.for_each_block(image, part, [&](cube& block, arma::uword first) {
    cube values, indexes;
    ranking.rank(image_view::of(block), values, indexes, {first, part.rows()});
    values_out.write_rows(values, first);
    indexes_out.write_rows(indexes, first);
  });
  values_out.commit();
  indexes_out.commit();
  run.finish();
  std::cout << values_name << ".hdr\n" << indexes_name << ".hdr\n";
}

}  // namespace

int classify_command(const std::vector<std::string>& words) {
  const arguments args(words, {"--reflectance"}, {"--library", "--method", "-k", "-o", "--output"});
  if (args.positionals().size() != 1) {
    throw usage_error(usage);
  }
  const auto library_name = args.value("--library");
  const auto method = args.value("--method");
  const auto prefix = args.value("-o") ? args.value("-o") : args.value("--output");
  if (!library_name || !method || !prefix) {
    throw usage_error(usage);
  }
  if (*method != "sam" && *method != "svm" && *method != "unmix") {
    throw usage_error("--method must be sam, svm or unmix, not '" + *method + "'");
  }
  const int k = args.integer("-k").value_or(5);

  const auto source = open_image(args.positionals()[0], false);
  const spectral_library library = read_library(*library_name);
  const matrix spectra = library.endmembers().t();
  const vector& spectra_waves = library.wavelengths();
  const auto streamed = streamable(source, args.flag("--reflectance"));
  if (streamed && *method != "svm") {
    return interruptible([&] {
      rank_streamed(*method == "sam" ? reference_ranking::result::angles
                                     : reference_ranking::result::fractions,
                    *streamed, spectra, spectra_waves, k, *prefix);
      return 0;
    });
  }
  require_memory(*source, 2, "classify");
  pipeline image(source);
  // The reflectance cube is what matches a library of reflectances; the
  // image as recorded is the default, as everywhere else.
  const cube& data = args.flag("--reflectance") ? image.s() : image.I();

  if (*method == "svm") {
    vector labels;
    matrix predicted;
    svm(data, image.wavelengths(), spectra, spectra_waves, labels, predicted);
    write_result(cube(predicted.memptr(), predicted.n_rows, predicted.n_cols, 1),
                 *prefix + "_labels");
    return 0;
  }
  cube values, indexes;
  if (*method == "sam") {
    sam(data, image.wavelengths(), spectra, spectra_waves, values, indexes, k);
  } else {
    unmix_by_spectra(data, image.wavelengths(), spectra, spectra_waves, values, indexes, k);
  }
  write_result(values, *prefix + "_values");
  write_result(indexes, *prefix + "_indexes");
  return 0;
}

}  // namespace corv::cli
