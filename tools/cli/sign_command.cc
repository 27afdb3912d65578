// ostrel-cli sign: the exact Authorization header of a POST, nothing else.
#include <cstdio>
#include <fstream>
#include <sstream>

#include "args.h"
#include "commands.h"
#include "ostrel/diagnostics.h"

namespace ostrel::cli {

int runSign(const std::vector<std::string>& argv) {
  std::string problem;
  auto args = Args::parse(argv, {"secret", "app-id", "group", "url", "timestamp", "body-file"}, {},
                          &problem);
  if (!args) return usageError(problem);
  for (const char* required : {"secret", "app-id", "url", "timestamp"}) {
    if (!args->get(required)) return usageError(std::string("sign needs --") + required);
  }
  std::string body;
  if (auto file = args->get("body-file")) {
    std::ifstream in(*file, std::ios::binary);
    if (!in) return usageError("cannot read " + *file);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    body = bytes.str();
  }
  auto header = diagnostics::authorizationHeader(*args->get("secret"), *args->get("app-id"),
                                                 args->get("group"), *args->get("url"),
                                                 *args->get("timestamp"), body);
  if (!header) return usageError(header.error().description());
  std::printf("%s\n", header->c_str());
  return 0;
}

}  // namespace ostrel::cli
