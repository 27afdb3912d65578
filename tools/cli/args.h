#pragma once
// Command-line options of the form --name value and --flag.
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ostrel::cli {

class Args {
 public:
  // Parses argv after the sub-command. `flags` take no value; every other
  // option takes exactly one. Unknown options or missing values yield nothing.
  static std::optional<Args> parse(const std::vector<std::string>& argv,
                                   const std::set<std::string>& options,
                                   const std::set<std::string>& flags, std::string* problem);

  std::optional<std::string> get(const std::string& name) const;
  bool has(const std::string& name) const;
  const std::vector<std::string>& positional() const { return positional_; }

 private:
  std::map<std::string, std::string> values_;
  std::set<std::string> flags_;
  std::vector<std::string> positional_;
};

// Prints a one-line usage error and answers the exit status for bad arguments (2).
int usageError(const std::string& message);

}  // namespace ostrel::cli
