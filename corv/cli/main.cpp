// corv: batch work on hyperspectral images from the command line.
#include <csignal>
#include <exception>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "corv/cli/arguments.h"
#include "corv/cli/commands.h"
#include "corv/io/file_path.h"
#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"

namespace {

const char* const usage_text =
    "Usage: corv [-v] COMMAND [ARGUMENTS]\n"
    "\n"
    "Commands:\n"
    "  info FILE [--json] [--components]\n"
    "                              describe an image: format, size, wavelengths, components\n"
    "                              (--components: FILE is DIR/PREFIX of component files)\n"
    "  convert IN OUT [--data-type 1|2|4|12] [--reflectance] [--from-components]\n"
    "  convert IN --components DIR/PREFIX [--from-components]\n"
    "                              write an image as ENVI (OUT ending in .fla, .raw, .dat,\n"
    "                              .img or .hdr; data type 4, float, by default), as HSZ\n"
    "                              (OUT.hsz) or as component files\n"
    "  prepare IN -o OUT [--crop R0,C0,R1,C1] [--remove-bands LIST] [--resize ROWSxCOLS]\n"
    "          [--filter wiener|mavg|sg[:SIZE]] [--reflectance]\n"
    "                              crop, remove bands, resize and filter, in that order\n"
    "  pca IN -n N [-o OUT] [--reflectance]\n"
    "                              principal components: prints their singular values,\n"
    "                              writes the component cube as ENVI with -o\n"
    "  bandmath FORMULA [IMAGE...] [-o OUT] [--reflectance]\n"
    "                              evaluate e.g. \"(I1[40]-I1[20])/(I1[40]+I1[20])\"; a\n"
    "                              single number is printed when there is no -o\n"
    "  classify IN --library LIB --method sam|svm|unmix [-k K] -o PREFIX\n"
    "                              compare every pixel with a spectral library; writes\n"
    "                              PREFIX_values and PREFIX_indexes (PREFIX_labels for svm)\n"
    "  process IN -o OUT [--filter wiener|mavg|sg[:SIZE]] [--illuminant METHOD]\n"
    "          [--reflectance] [--materials] [--endmembers LIB] [--pca N [--pca-out FILE]]\n"
    "          [--set NAME=VALUE ...] [-v LEVEL] [--illuminant-csv FILE]\n"
    "          [--components DIR/PREFIX] [--data-type 1|2|4|12] [--from-components]\n"
    "                              run the pipeline: filter, illuminant, reflectance,\n"
    "                              materials, endmembers, analysis, in that order, each\n"
    "                              when asked for (none asked: illuminant and reflectance);\n"
    "                              METHOD white-patch, shade-of-gray, gray-world,\n"
    "                              gray-edge, fs, orbek or its code 0..5; NAME any\n"
    "                              parameter (illuminant_method, filter_size, ...);\n"
    "                              Ctrl-C aborts (exit status 130, nothing written)\n"
    "  library info LIB            describe a spectral library (.slz, .csv, .sli or .hdr)\n"
    "  library merge A B -o OUT [--re-evaluate]\n"
    "                              merge B into A, resampling B onto A's wavelengths\n"
    "                              with --re-evaluate\n"
    "  library to-csv LIB OUT.csv  export a library as CSV\n"
    "  library from-csv IN.csv OUT.slz\n"
    "  library from-sli IN.sli OUT.slz [--drop-incomplete]\n"
    "                              import a CSV or ENVI spectral library\n"
    "\n"
    "Options:\n"
    "  -v, --verbose   echo the library's log on standard output\n"
    "  -h, --help      show this help\n"
    "  --version       show the library version\n"
    "\n"
    "Exit status: 0 success, 1 the library refused or failed (its message on stderr),\n"
    "2 a usage error, 130 processing aborted by Ctrl-C.\n";

}  // namespace

int main(int argc, char** argv) {
  // Past a file size limit a write fails with EFBIG and is reported, instead
  // of the signal ending the program.
  std::signal(SIGXFSZ, SIG_IGN);
  std::vector<std::string> words(argv + 1, argv + argc);
  corv::logger::instance().set_echo(false);
  while (!words.empty() && (words.front() == "-v" || words.front() == "--verbose")) {
    corv::logger::instance().set_echo(true);
    words.erase(words.begin());
  }
  if (words.empty() || words.front() == "-h" || words.front() == "--help" ||
      words.front() == "help") {
    std::cout << usage_text;
    return words.empty() ? 2 : 0;
  }
  if (words.front() == "--version") {
    std::cout << "corv " << corv::pipeline::version() << "\n";
    return 0;
  }

  const std::map<std::string, std::function<int(const std::vector<std::string>&)>> commands = {
      {"info", corv::cli::info_command},         {"convert", corv::cli::convert_command},
      {"library", corv::cli::library_command},   {"prepare", corv::cli::prepare_command},
      {"pca", corv::cli::pca_command},           {"bandmath", corv::cli::bandmath_command},
      {"classify", corv::cli::classify_command}, {"process", corv::cli::process_command},
  };
  const auto command = commands.find(words.front());
  if (command == commands.end()) {
    std::cerr << "corv: unknown command '" << words.front() << "'\n" << usage_text;
    return 2;
  }
  try {
    return command->second(std::vector<std::string>(words.begin() + 1, words.end()));
  } catch (const corv::cli::usage_error& error) {
    std::cerr << "corv " << command->first << ": " << error.what() << "\n"
              << "Try 'corv --help'.\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << corv::printable(error.what()) << "\n";
    return 1;
  }
}
