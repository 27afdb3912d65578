#include "args.h"

#include <cstdio>

namespace ostrel::cli {

std::optional<Args> Args::parse(const std::vector<std::string>& argv,
                                const std::set<std::string>& options,
                                const std::set<std::string>& flags, std::string* problem) {
  Args args;
  for (std::size_t i = 0; i < argv.size(); ++i) {
    const std::string& a = argv[i];
    if (!a.starts_with("--")) {
      args.positional_.push_back(a);
      continue;
    }
    std::string name = a.substr(2);
    if (flags.count(name)) {
      args.flags_.insert(name);
    } else if (options.count(name)) {
      if (i + 1 >= argv.size()) {
        *problem = "missing value for --" + name;
        return std::nullopt;
      }
      args.values_[name] = argv[++i];
    } else {
      *problem = "unknown option --" + name;
      return std::nullopt;
    }
  }
  return args;
}

std::optional<std::string> Args::get(const std::string& name) const {
  auto it = values_.find(name);
  if (it == values_.end()) return std::nullopt;
  return it->second;
}

bool Args::has(const std::string& name) const {
  return flags_.count(name) || values_.count(name);
}

int usageError(const std::string& message) {
  std::fprintf(stderr, "ostrel-cli: %s (see ostrel-cli help)\n", message.c_str());
  return 2;
}

}  // namespace ostrel::cli
