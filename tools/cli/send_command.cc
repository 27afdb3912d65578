// ostrel-cli send: one request through the library's connector to the deployment.
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>

#include "args.h"
#include "commands.h"
#include "ostrel/diagnostics.h"

namespace ostrel::cli {

int runSend(const std::vector<std::string>& argv) {
  std::string problem;
  auto args = Args::parse(argv, {"secret", "app-id", "group", "endpoint", "body", "body-file"},
                          {"sandbox", "dev"}, &problem);
  if (!args) return usageError(problem);
  for (const char* required : {"secret", "app-id", "endpoint"}) {
    if (!args->get(required)) return usageError(std::string("send needs --") + required);
  }
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

  diagnostics::Request request;
  request.secret = *args->get("secret");
  request.applicationId = *args->get("app-id");
  request.group = args->get("group");
  request.endpoint = *args->get("endpoint");
  request.body = body;
  request.sandbox = args->has("sandbox");
  request.dev = args->has("dev");
  std::mutex mutex;
  std::condition_variable done;
  bool finished = false;
  int exitStatus = 0;
  auto sent = diagnostics::send(
      cliPlatform(), std::move(request),
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
  if (!sent) return usageError(sent.error().description());
  std::unique_lock lock(mutex);
  done.wait(lock, [&] { return finished; });
  return exitStatus;
}

}  // namespace ostrel::cli
