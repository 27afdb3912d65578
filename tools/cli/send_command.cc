// ostrel-cli send: one request through the library's connector to the deployment.
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>

#include "args.h"
#include "commands.h"
#include "platform/runtime.h"
#include "transport/connector_builder.h"
#include "transport/ol_connector.h"

namespace ostrel::cli {

int runSend(const std::vector<std::string>& argv) {
  std::string problem;
  auto args = Args::parse(argv, {"secret", "app-id", "group", "endpoint", "body", "body-file"},
                          {"sandbox", "dev"}, &problem);
  if (!args) return usageError(problem);
  for (const char* required : {"secret", "app-id", "endpoint"}) {
    if (!args->get(required)) return usageError(std::string("send needs --") + required);
  }
  if (auto group = args->get("group"); group && !ConnectorBuilder::checkDistributionGroup(*group)) {
    return usageError("--group cannot hold control characters, quotes or backslashes");
  }
  auto endpoint = endpointFromName(*args->get("endpoint"));
  if (!endpoint) return usageError("unknown endpoint " + *args->get("endpoint"));
  if (args->get("body") && args->get("body-file")) {
    return usageError("give --body or --body-file, not both");
  }
  std::optional<Json> body;
  std::optional<std::string> text = args->get("body");
  if (auto file = args->get("body-file")) {
    std::ifstream in(*file, std::ios::binary);
    if (!in) return usageError("cannot read " + *file);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    text = bytes.str();
  }
  if (text) {
    body = parseJson(*text);
    if (!body) return usageError("the body is not JSON");
  }

  const Deployment deployment = runtime::deployment();
  const auto group = args->get("group");
  OLConnector connector(
      *args->get("app-id"), *args->get("secret"), false, args->has("sandbox"), args->has("dev"),
      [group] { return group; }, 15.0, deployment);

  std::mutex mutex;
  std::condition_variable done;
  bool finished = false;
  int exitStatus = 0;
  connector.send(*endpoint, body,
                 [&](std::optional<OLError> error, int64_t status, std::optional<Json> reply) {
                   std::lock_guard lock(mutex);
                   if (error) {
                     std::printf("%s\n", error->description().c_str());
                     exitStatus = 1;
                   } else {
                     Json out = {{"status", status}, {"reply", reply ? *reply : Json(nullptr)}};
                     std::printf("%s\n", dumpJson(out).c_str());
                   }
                   std::fflush(stdout);
                   finished = true;
                   done.notify_one();
                 });
  std::unique_lock lock(mutex);
  done.wait(lock, [&] { return finished; });
  return exitStatus;
}

}  // namespace ostrel::cli
