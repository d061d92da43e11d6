#ifndef CORV_CLI_ARGUMENTS_H
#define CORV_CLI_ARGUMENTS_H

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace corv::cli {

// A mistake in how the tool was called: exit status 2.
struct usage_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A command's arguments: positionals in order, options by name. The command
// declares which options take a value and which are flags. "--" ends the
// options: every word after it is a positional, whatever it begins with.
class arguments {
 public:
  arguments(const std::vector<std::string>& words, const std::vector<std::string>& flags,
            const std::vector<std::string>& valued);

  const std::vector<std::string>& positionals() const { return positionals_; }
  bool flag(const std::string& name) const;
  std::optional<std::string> value(const std::string& name) const;
  std::vector<std::string> values(const std::string& name) const;
  // The value as an integer; a usage error when it is not one.
  std::optional<int> integer(const std::string& name) const;

 private:
  std::vector<std::string> positionals_;
  std::multimap<std::string, std::string> options_;
};

}  // namespace corv::cli

#endif
