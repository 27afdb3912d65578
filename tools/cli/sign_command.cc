// ostrel-cli sign: the exact Authorization header of a POST, nothing else.
#include <cstdio>
#include <fstream>
#include <sstream>

#include "args.h"
#include "commands.h"
#include "transport/connector_builder.h"
#include "transport/ol_connector.h"

namespace ostrel::cli {

int runSign(const std::vector<std::string>& argv) {
  std::string problem;
  auto args = Args::parse(argv, {"secret", "app-id", "group", "url", "timestamp", "body-file"}, {},
                          &problem);
  if (!args) return usageError(problem);
  for (const char* required : {"secret", "app-id", "url", "timestamp"}) {
    if (!args->get(required)) return usageError(std::string("sign needs --") + required);
  }
  if (auto group = args->get("group"); group && !ConnectorBuilder::checkDistributionGroup(*group)) {
    return usageError("--group cannot hold control characters, quotes or backslashes");
  }
  std::string body;
  if (auto file = args->get("body-file")) {
    std::ifstream in(*file, std::ios::binary);
    if (!in) return usageError("cannot read " + *file);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    body = bytes.str();
  }
  const std::string url = *args->get("url");
  const std::string host = urlHost(url);
  if (host.empty()) return usageError("--url needs an absolute URL");
  const std::string signedBody = isValidUtf8(body) ? body : "";
  const std::string signature = OLConnector::getImeldStr(
      *args->get("secret"), host + urlPath(url), "POST", signedBody, "", *args->get("timestamp"));
  std::printf("%s\n", OLConnector::authorizationHeader(*args->get("app-id"), args->get("group"),
                                                       signature, *args->get("timestamp"))
                          .c_str());
  return 0;
}

}  // namespace ostrel::cli
