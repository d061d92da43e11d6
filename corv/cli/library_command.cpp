// corv library: inspect, convert and merge spectral libraries.
#include <iostream>
#include <sstream>

#include "corv/cli/arguments.h"
#include "corv/io/envi_library.h"
#include "corv/io/file_path.h"
#include "corv/io/library_csv.h"
#include "corv/io/spectral_library.h"

namespace corv::cli {

namespace {

const char* const subcommands =
    "expects a subcommand: info LIB, merge A B -o OUT [--re-evaluate], to-csv LIB OUT.csv, "
    "from-csv IN.csv OUT.slz, from-sli IN.sli|IN.hdr OUT.slz [--drop-incomplete]";

std::string extension_of(const std::string& name) {
  return lower_case(file_path::split(name).extension);
}

// By suffix: .slz, .csv, else an ENVI library or image of spectra (.sli, .hdr,
// or the data file).
spectral_library read_library(const std::string& name, missing_points missing) {
  const std::string extension = extension_of(name);
  if (extension == ".slz") {
    spectral_library library;
    library.load(name);
    return library;
  }
  if (extension == ".csv") {
    return read_library_csv(name);
  }
  return read_envi_library(name, missing);
}

void write_library(const spectral_library& library, const std::string& name) {
  const std::string extension = extension_of(name);
  if (extension == ".csv") {
    write_library_csv(library, name);
  } else {
    library.save(name);
  }
}

void require_output(const std::string& name, bool csv_allowed) {
  const std::string extension = extension_of(name);
  if (extension == ".slz" || (csv_allowed && extension == ".csv")) {
    return;
  }
  throw usage_error("cannot tell the output format of '" + name + "': end it in .slz" +
                    (csv_allowed ? " or .csv" : ""));
}

void require_positionals(const arguments& args, std::size_t count, const std::string& what) {
  if (args.positionals().size() != count) {
    throw usage_error(what);
  }
}

std::string format_name(const std::string& name) {
  const std::string extension = extension_of(name);
  return extension == ".slz" ? "SLZ" : extension == ".csv" ? "CSV" : "ENVI";
}

void print_info(const std::string& name, const spectral_library& library) {
  std::ostringstream out;
  out << "file:        " << name << "\n"
      << "format:      " << format_name(name) << "\n"
      << "endmembers:  " << library.size() << "\n"
      << "bands:       " << library.bands() << "\n";
  if (library.bands() > 0) {
    const vector& wavelengths = library.wavelengths();
    out << "wavelengths: " << wavelengths.min() << " - " << wavelengths.max() << " nm\n";
  }
  out << "colours:     " << (library.has_colours() ? "yes" : "no") << "\n"
      << "missing:     " << library.incomplete_endmembers().size()
      << " endmembers with missing values\n";
  if (!library.metadata().empty()) {
    out << "metadata:    " << library.metadata() << "\n";
  }
  if (!library.empty()) {
    out << "labels:\n";
    const auto& labels = library.labels();
    for (std::size_t i = 0; i < labels.size(); ++i) {
      out << "  " << (i + 1) << "  " << labels[i] << "\n";
    }
  }
  std::cout << out.str();
}

}  // namespace

int library_command(const std::vector<std::string>& words) {
  if (words.empty()) {
    throw usage_error(subcommands);
  }
  const std::string& sub = words.front();
  const std::vector<std::string> rest(words.begin() + 1, words.end());
  if (sub == "info") {
    const arguments args(rest, {}, {});
    require_positionals(args, 1, "info expects one LIB");
    const std::string& name = args.positionals()[0];
    print_info(name, read_library(name, missing_points::keep));
    return 0;
  }
  if (sub == "merge") {
    const arguments args(rest, {"--re-evaluate"}, {"-o", "--output"});
    require_positionals(args, 2, "merge expects A and B");
    const auto out = args.value("-o") ? args.value("-o") : args.value("--output");
    if (!out) {
      throw usage_error("merge needs -o OUT");
    }
    require_output(*out, true);
    spectral_library merged = read_library(args.positionals()[0], missing_points::keep);
    merged.merge(read_library(args.positionals()[1], missing_points::keep),
                 args.flag("--re-evaluate"));
    write_library(merged, *out);
    return 0;
  }
  if (sub == "to-csv") {
    const arguments args(rest, {}, {});
    require_positionals(args, 2, "to-csv expects LIB and OUT.csv");
    if (extension_of(args.positionals()[1]) != ".csv") {
      throw usage_error("to-csv writes a .csv file, not '" + args.positionals()[1] + "'");
    }
    write_library_csv(read_library(args.positionals()[0], missing_points::keep),
                      args.positionals()[1]);
    return 0;
  }
  if (sub == "from-csv") {
    const arguments args(rest, {}, {});
    require_positionals(args, 2, "from-csv expects IN.csv and OUT.slz");
    require_output(args.positionals()[1], false);
    read_library_csv(args.positionals()[0]).save(args.positionals()[1]);
    return 0;
  }
  if (sub == "from-sli") {
    const arguments args(rest, {"--drop-incomplete"}, {});
    require_positionals(args, 2, "from-sli expects IN.sli (or IN.hdr) and OUT.slz");
    require_output(args.positionals()[1], false);
    const missing_points missing =
        args.flag("--drop-incomplete") ? missing_points::drop : missing_points::keep;
    read_envi_library(args.positionals()[0], missing).save(args.positionals()[1]);
    return 0;
  }
  throw usage_error("unknown subcommand '" + sub + "'; " + subcommands);
}

}  // namespace corv::cli
