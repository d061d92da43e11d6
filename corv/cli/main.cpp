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
#include "corv/cli/usage.h"
#include "corv/io/file_path.h"
#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"

namespace {

// "-h" or "--help" among a command's options (those before "--").
bool asks_for_help(const std::vector<std::string>& words) {
  for (const std::string& word : words) {
    if (word == "--") {
      return false;
    }
    if (word == "-h" || word == "--help") {
      return true;
    }
  }
  return false;
}

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
  const std::string& usage_text = corv::cli::usage_overview();
  if (words.empty() || words.front() == "-h" || words.front() == "--help" ||
      (words.front() == "help" && words.size() == 1)) {
    std::cout << usage_text;
    return words.empty() ? 2 : 0;
  }
  if (words.front() == "help") {
    const auto page = corv::cli::command_usage(words[1]);
    if (!page) {
      std::cerr << "corv: unknown command '" << words[1] << "'\n" << usage_text;
      return 2;
    }
    std::cout << *page;
    return 0;
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
  const std::vector<std::string> rest(words.begin() + 1, words.end());
  if (asks_for_help(rest)) {
    std::cout << corv::cli::command_usage(command->first).value_or(usage_text);
    return 0;
  }
  try {
    return command->second(rest);
  } catch (const corv::cli::usage_error& error) {
    std::cerr << "corv " << command->first << ": " << error.what() << "\n"
              << "Try 'corv --help'.\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << corv::printable(error.what()) << "\n";
    return 1;
  }
}
