// corv process: runs the pipeline's stages on an image and writes what they computed.
#include <unistd.h>

#include <charconv>
#include <cmath>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "corv/cli/arguments.h"
#include "corv/cli/commands.h"
#include "corv/cli/image_files.h"
#include "corv/cli/interrupt.h"
#include "corv/cli/progress_monitor.h"
#include "corv/cli/streaming.h"
#include "corv/io/envi_library.h"
#include "corv/io/file_path.h"
#include "corv/io/hdr_input.h"
#include "corv/io/hdr_output.h"
#include "corv/io/library_csv.h"
#include "corv/io/logger.h"
#include "corv/io/safe_file.h"
#include "corv/io/spectral_library.h"
#include "corv/pipeline/pipeline.h"

namespace corv::cli {

namespace {

// Every processing parameter by its name in corv::parameters, with its setter.
using integer_setter = void (pipeline::*)(int);
using number_setter = void (pipeline::*)(float);
using switch_setter = void (pipeline::*)(bool);

const std::map<std::string, integer_setter> integer_parameters = {
    {"verbosity", &pipeline::set_verbosity},
    {"illuminant_method", &pipeline::set_illuminant_method},
    {"illuminant_patch_size", &pipeline::set_illuminant_patch_size},
    {"gray_order", &pipeline::set_gray_order},
    {"dichromatic_method", &pipeline::set_dichromatic_method},
    {"neighbourhood_size", &pipeline::set_neighbourhood_size},
    {"gray_threshold", &pipeline::set_gray_threshold},
    {"max_clusters", &pipeline::set_max_clusters},
    {"material_subsample", &pipeline::set_material_subsample},
    {"materials_per_pixel", &pipeline::set_materials_per_pixel},
    {"material_mode", &pipeline::set_material_mode},
    {"filter_size", &pipeline::set_filter_size},
    {"principal_components", &pipeline::set_principal_components},
    {"pca_source", &pipeline::set_pca_source},
    {"nurbs_degree", &pipeline::set_nurbs_degree},
    {"nurbs_max_iterations", &pipeline::set_nurbs_max_iterations},
    {"nurbs_knots_threshold", &pipeline::set_nurbs_knots_threshold},
    {"endmember_setting", &pipeline::set_endmember_setting},
};

const std::map<std::string, number_setter> number_parameters = {
    {"spatial_smoothness", &pipeline::set_spatial_smoothness},
    {"max_temperature", &pipeline::set_max_temperature},
    {"min_temperature", &pipeline::set_min_temperature},
    {"cooling_rate", &pipeline::set_cooling_rate},
    {"split_threshold", &pipeline::set_split_threshold},
    {"nurbs_alpha", &pipeline::set_nurbs_alpha},
};

const std::map<std::string, switch_setter> switch_parameters = {
    {"wiener_marker", &pipeline::set_wiener_marker},
    {"second_illuminant", &pipeline::set_second_illuminant},
    {"nurbs_encoding", &pipeline::set_nurbs_encoding},
};

std::optional<int> whole_number(const std::string& text) {
  int value = 0;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value);
  if (text.empty() || parsed.ec != std::errc() || parsed.ptr != end) {
    return std::nullopt;
  }
  return value;
}

// "NAME=VALUE" applied to the pipeline through the parameter's setter.
void set_parameter(pipeline& image, const std::string& assignment) {
  const auto equals = assignment.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw usage_error("--set expects NAME=VALUE, not '" + assignment + "'");
  }
  const std::string name = assignment.substr(0, equals);
  const std::string text = assignment.substr(equals + 1);
  if (const auto found = integer_parameters.find(name); found != integer_parameters.end()) {
    const auto value = whole_number(text);
    if (!value) {
      throw usage_error("--set " + name + " expects a whole number, not '" + text + "'");
    }
    (image.*found->second)(*value);
  } else if (const auto found = number_parameters.find(name); found != number_parameters.end()) {
    float value = 0.0f;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    if (text.empty() || parsed.ec != std::errc() || parsed.ptr != end || !std::isfinite(value)) {
      throw usage_error("--set " + name + " expects a number, not '" + text + "'");
    }
    (image.*found->second)(value);
  } else if (const auto found = switch_parameters.find(name); found != switch_parameters.end()) {
    if (text != "true" && text != "false" && text != "1" && text != "0") {
      throw usage_error("--set " + name + " expects true or false, not '" + text + "'");
    }
    (image.*found->second)(text == "true" || text == "1");
  } else {
    throw usage_error("--set: unknown parameter '" + name + "'");
  }
}

// Method names of illuminant recovery, by their codes.
int illuminant_method(const std::string& text) {
  const std::map<std::string, int> methods = {
      {"orbek", 0},         {"fs", 1},          {"gray-edge", 2}, {"gray-world", 3},
      {"shade-of-gray", 4}, {"white-patch", 5},
  };
  if (const auto found = methods.find(text); found != methods.end()) {
    return found->second;
  }
  if (const auto code = whole_number(text); code && *code >= 0 && *code <= 5) {
    return *code;
  }
  throw usage_error(
      "--illuminant expects white-patch, shade-of-gray, gray-world, gray-edge, fs, orbek or a "
      "code 0 to 5, not '" +
      text + "'");
}

// "wiener", "mavg" or "sg", optionally followed by ":SIZE".
std::pair<int, int> filter_choice(const std::string& text, int default_size) {
  const auto colon = text.find(':');
  const std::string name = text.substr(0, colon);
  std::optional<int> size = default_size;
  if (colon != std::string::npos) {
    size = whole_number(text.substr(colon + 1));
  }
  const std::map<std::string, int> methods = {
      {"wiener", FILTER_WIENER}, {"mavg", FILTER_MOVING_AVERAGE}, {"sg", FILTER_SAVITZKY_GOLAY}};
  const auto method = methods.find(name);
  if (method == methods.end() || !size) {
    throw usage_error("--filter expects wiener, mavg or sg, optionally with :SIZE, not '" + text +
                      "'");
  }
  return {method->second, *size};
}

// By suffix: .slz, .csv, else an ENVI library or image of spectra (spectra
// with missing points left out: they cannot be unmixed against).
std::shared_ptr<spectral_library> read_library(const std::string& name) {
  const std::string extension = lower_case(file_path::split(name).extension);
  if (extension == ".slz") {
    auto library = std::make_shared<spectral_library>();
    library->load(name);
    return library;
  }
  if (extension == ".csv") {
    return std::make_shared<spectral_library>(read_library_csv(name));
  }
  return std::make_shared<spectral_library>(read_envi_library(name, missing_points::drop));
}

void write_number(std::ostream& out, float value) {
  char text[32];
  const auto written = std::to_chars(text, text + sizeof text, value);
  out.write(text, written.ptr - text);
}

// The illuminant as CSV, one wavelength per line. Written under a temporary
// name; the caller commits it once everything else has been written.
std::unique_ptr<safe_file> illuminant_csv(pipeline& image, const std::string& name) {
  const vector& illuminant = image.illuminant();
  const vector& wavelengths = image.wavelengths();
  if (wavelengths.n_elem != illuminant.n_elem) {
    throw std::runtime_error("process: The illuminant has " + std::to_string(illuminant.n_elem) +
                             " values but there are " + std::to_string(wavelengths.n_elem) +
                             " wavelengths.");
  }
  auto file = std::make_unique<safe_file>(name);
  if (!file->is_open()) {
    throw std::runtime_error("process: Cannot write " + name + ": " + file->reason() + ".");
  }
  std::ostream& out = file->stream();
  out << "wavelength,illuminant\n";
  for (arma::uword b = 0; b < illuminant.n_elem; ++b) {
    write_number(out, wavelengths(b));
    out << ',';
    write_number(out, illuminant(b));
    out << '\n';
  }
  if (!file->close()) {
    throw std::runtime_error("process: Cannot write " + name + ": " + file->reason() + ".");
  }
  return file;
}

// Whether the pipeline holds a reflectance or can read one from its input.
bool has_reflectance(pipeline& image) {
  try {
    return !image.s().empty();
  } catch (const std::exception&) {
    return false;
  }
}

bool is_envi_name(const std::string& name) {
  const std::string extension = lower_case(file_path::split(name).extension);
  return extension == ".fla" || extension == ".raw" || extension == ".dat" || extension == ".img" ||
         extension == ".hdr";
}

// What a command line asks for; see the process section of docs/cli.md.
struct request {
  std::string in;
  std::optional<std::string> out;  // -o OUT, or DIR/PREFIX with components_out
  bool components_out = false;
  std::optional<std::string> csv_out;
  std::optional<std::string> pca_out;
  int data_type = 4;
  bool echo = false;
  pipeline settings;  // holds the parameters only

  std::optional<std::pair<int, int>> filter;  // method, size
  bool illuminant = false;
  bool reflectance = false;  // dichromatic parameters: k, s and g
  bool materials = false;
  std::string endmembers;  // the library's file
  bool analysis = false;
};

// Every usage mistake is found here, before the input is opened.
request parse(const arguments& args) {
  if (args.positionals().size() != 1) {
    throw usage_error("expects one IN");
  }
  request r;
  r.in = args.positionals()[0];
  const auto components_out = args.value("--components");
  r.components_out = components_out.has_value();
  r.out = components_out ? components_out : args.value("-o");
  r.csv_out = args.value("--illuminant-csv");
  r.pca_out = args.value("--pca-out");
  if (!r.out && !r.csv_out && !r.pca_out) {
    throw usage_error("needs -o OUT (or --components DIR/PREFIX, --illuminant-csv FILE)");
  }
  if (r.out) {
    check_output_name(*r.out, r.components_out);
  }
  if (r.pca_out && !is_envi_name(*r.pca_out)) {
    throw usage_error(
        "--pca-out needs an ENVI name ending in .fla, .raw, .dat, .img or .hdr, not '" +
        *r.pca_out + "'");
  }
  r.data_type = args.integer("--data-type").value_or(4);
  if (r.data_type != 1 && r.data_type != 2 && r.data_type != 4 && r.data_type != 12) {
    throw usage_error("--data-type must be 1, 2, 4 or 12");
  }
  std::optional<int> verbosity;
  if (const auto text = args.value("-v")) {
    verbosity = whole_number(*text);
    if (!verbosity || *verbosity < 0 || *verbosity > 5) {
      throw usage_error("-v expects a level 0 to 5, not '" + *text + "'");
    }
  }
  const auto method_name = args.value("--illuminant");
  const int method = method_name ? illuminant_method(*method_name) : -1;
  std::optional<int> components;
  if (const auto text = args.value("--pca")) {
    components = whole_number(*text);
    if (!components || *components < 1) {
      throw usage_error("--pca needs a number of components of at least 1, not '" + *text + "'");
    }
  }
  if (r.pca_out && !components) {
    throw usage_error("--pca-out needs --pca N");
  }

  // The options that name a parameter themselves win over --set.
  for (const auto& assignment : args.values("--set")) {
    set_parameter(r.settings, assignment);
  }
  if (verbosity) {
    r.settings.set_verbosity(*verbosity);
    r.echo = true;
  }
  if (method_name) {
    r.settings.set_illuminant_method(method);
  }
  if (components) {
    r.settings.set_principal_components(*components);
  }
  const int method_code = r.settings.parameters().illuminant_method;
  if (method_code < 0 || method_code > 5) {
    throw usage_error("--set illuminant_method expects a code 0 to 5, not '" +
                      std::to_string(method_code) + "'");
  }

  if (const auto text = args.value("--filter")) {
    r.filter = filter_choice(*text, r.settings.parameters().filter_size);
  }
  r.illuminant = method_name.has_value();
  r.reflectance = args.flag("--reflectance");
  // An HSZ file holds the whole reflectance model, materials included.
  r.materials =
      args.flag("--materials") ||
      (r.out && !r.components_out && lower_case(file_path::split(*r.out).extension) == ".hsz");
  r.endmembers = args.value("--endmembers").value_or("");
  r.analysis = components.has_value();
  if (!r.illuminant && !r.reflectance && !r.materials && r.endmembers.empty() && !r.analysis) {
    r.illuminant = r.reflectance = true;
  }
  return r;
}

// The stage runs between the monitor's marks; an interrupt that the stage
// did not see itself ends the run as soon as it returns.
template <typename Stage>
void run_stage(progress_monitor& monitor, int number, Stage stage) {
  throw_if_interrupted();
  monitor.begin(number);
  stage();
  throw_if_interrupted();
  monitor.end();
}

// Runs the stages in their fixed order; returns whether the image now stands
// for a reflectance (computed, or the input's).
bool run_stages(request& r, pipeline& image, bool reflectance_image, progress_monitor& monitor) {
  if (r.filter) {
    // A reflectance image has no I: its reflectance is what gets filtered.
    run_stage(monitor, stage_filter,
              [&] { image.filter(r.filter->first, r.filter->second, reflectance_image); });
  }
  const bool needs_reflectance = r.materials || !r.endmembers.empty();
  // The input's reflectance serves unless the image was filtered since.
  if (needs_reflectance && !r.reflectance) {
    r.reflectance = !((reflectance_image || !r.filter) && has_reflectance(image));
  }
  if (r.illuminant || r.reflectance) {
    run_stage(monitor, stage_illuminant, [&] { image.process_recover_illuminant(true); });
  }
  if (r.reflectance) {
    run_stage(monitor, stage_reflectance, [&] { image.process_recover_dichromatic_parameters(); });
  }
  if (r.materials) {
    run_stage(monitor, stage_materials, [&] { image.process_recover_materials(); });
  }
  if (!r.endmembers.empty()) {
    run_stage(monitor, stage_classification, [&] { image.process_recover_endmembers(); });
  }
  if (r.analysis) {
    run_stage(monitor, stage_analysis,
              [&] { image.process_analysis(image.parameters().pca_source != 0); });
  }
  return r.reflectance || reflectance_image || needs_reflectance;
}

// Nothing is written after an interrupt, and the files are finished together:
// the CSV waits under a temporary name until the others are in place. An
// interrupt while they are written reaches only what checks for an abort (the
// NURBS encoding of an HSZ file); everything else is finished.
void write_outputs(const request& r, pipeline& image, bool reflectance) {
  throw_if_interrupted();
  const auto csv = r.csv_out ? illuminant_csv(image, *r.csv_out) : nullptr;
  if (r.out) {
    write_image(image, *r.out, r.components_out, r.data_type, reflectance);
  }
  if (r.pca_out) {
    // The components have no wavelengths: they are numbered 1, 2, ...
    write_envi(image.principal_components(),
               arma::regspace<vector>(1, image.principal_components().n_slices), *r.pca_out, 4,
               false);
  }
  if (csv && !csv->commit()) {
    throw std::runtime_error("process: Cannot write " + *r.csv_out + ": " + csv->reason() + ".");
  }
}

int run(const arguments& args) {
  request r = parse(args);
  if (r.echo) {
    logger::instance().set_echo(true);
  }
  const interrupt_scope interrupts;
  const auto source = open_image(r.in, args.flag("--from-components"));
  // The stages work on the whole image and what they compute from it.
  require_memory(*source, 4, "process");
  const auto* envi = dynamic_cast<const hdr_input*>(source.get());
  const bool reflectance_image = envi && envi->is_reflectance();
  pipeline image(source);
  image.set_parameters(r.settings.parameters());
  if (!r.endmembers.empty()) {
    image.set_library(read_library(r.endmembers));
  }
  // The log's echo writes whole lines, which a bar redrawn in place would break.
  const bool terminal = ::isatty(STDERR_FILENO) == 1 && !logger::instance().echo();
  {
    progress_monitor monitor(std::cerr, terminal, interrupt_requested);
    const bool reflectance = run_stages(r, image, reflectance_image, monitor);
    write_outputs(r, image, reflectance);
  }
  // Once the progress line is gone from the terminal.
  if (r.materials) {
    std::cout << "materials found: " << image.material_elements().n_cols << "\n";
  }
  if (r.analysis) {
    const vector& strengths = image.principal_strengths();
    std::cout << "component  singular value\n";
    for (arma::uword c = 0; c < strengths.n_elem; ++c) {
      std::cout << c + 1 << "  " << strengths(c) << "\n";
    }
  }
  return 0;
}

}  // namespace

int process_command(const std::vector<std::string>& words) {
  const arguments args(words, {"--reflectance", "--materials", "--from-components"},
                       {"-o", "--filter", "--illuminant", "--endmembers", "--pca", "--pca-out",
                        "--set", "-v", "--illuminant-csv", "--components", "--data-type"});
  return interruptible([&] { return run(args); });
}

}  // namespace corv::cli
