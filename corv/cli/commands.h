#ifndef CORV_CLI_COMMANDS_H
#define CORV_CLI_COMMANDS_H

#include <string>
#include <vector>

namespace corv::cli {

// Each command takes the words after its name and returns the exit status.
// Library failures escape as exceptions (exit 1), usage mistakes as usage_error (exit 2).
int info_command(const std::vector<std::string>& words);
int convert_command(const std::vector<std::string>& words);
int library_command(const std::vector<std::string>& words);
int prepare_command(const std::vector<std::string>& words);
int pca_command(const std::vector<std::string>& words);
int bandmath_command(const std::vector<std::string>& words);
int classify_command(const std::vector<std::string>& words);
// Exits 130 when Ctrl-C aborts the processing.
int process_command(const std::vector<std::string>& words);

}  // namespace corv::cli

#endif
