#ifndef CORV_CLI_USAGE_H
#define CORV_CLI_USAGE_H

#include <optional>
#include <string>

namespace corv::cli {

// `corv --help`: every command with its arguments, the global options and the exit status.
const std::string& usage_overview();

// `corv COMMAND --help` and `corv help COMMAND`: the command's own page, with
// every option it takes. Nothing for a name that is not a command.
std::optional<std::string> command_usage(const std::string& command);

}  // namespace corv::cli

#endif
