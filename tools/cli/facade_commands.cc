// ostrel-cli commands that run the whole library: event, queue, login.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <future>

#include "args.h"
#include "commands.h"
#include "events/event_archive.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_simple_object.h"
#include "ostrel/ostrel.h"
#include "platform/runtime.h"
#include "queue/event_intake.h"

namespace ostrel::cli {

Result<std::shared_ptr<Ostrel>> startFacade(const std::string& secret) {
  Platform platform = runtime::current();
  return Ostrel::makeUnshared(secret, nullptr, std::nullopt, platform);
}

int printOutcome(const std::optional<OLError>& error, const Json& success) {
  if (error) {
    std::printf("%s\n", error->description().c_str());
    return 1;
  }
  std::printf("%s\n", dumpJson(success).c_str());
  return 0;
}

int runEvent(const std::vector<std::string>& argv) {
  std::string problem;
  auto args = Args::parse(argv, {"secret", "name", "data"}, {}, &problem);
  if (!args) return usageError(problem);
  if (!args->get("secret") || !args->get("name"))
    return usageError("event needs --secret and --name");
  std::shared_ptr<OLSimpleObject> data;
  if (auto text = args->get("data")) {
    data = OLSimpleObject::fromJSONString(*text);
    if (!data) return usageError("--data must be a JSON object of simple values");
  }
  auto facade = startFacade(*args->get("secret"));
  if (!facade) return printOutcome(facade.error(), nullptr);
  if (auto sent = (*facade)->sendEvent(*args->get("name"), data); !sent) {
    return printOutcome(sent.error(), nullptr);
  }
  std::promise<std::pair<std::optional<OLError>, std::optional<Json>>> done;
  (*facade)->flushEvents([&](std::optional<OLError> e, std::optional<Json> d) {
    done.set_value({std::move(e), std::move(d)});
  });
  auto [error, details] = done.get_future().get();
  return printOutcome(error, Json{{"delivered", true}, {"flush", details.value_or(nullptr)}});
}

int runQueue(const std::vector<std::string>& argv) {
  std::string problem;
  auto args = Args::parse(argv, {"dir"}, {}, &problem);
  if (!args) return usageError(problem);
  const std::string root = args->get("dir").value_or(runtime::files().storageRoot());
  const std::string chunks = root + "/EventQueue/Chunks";
  Json out = {{"root", root}, {"chunks", Json::array()}, {"intake", Json::array()}};
  // Read only: the listing never opens the queue itself, which would write.
  std::vector<int> keys;
  if (auto names = runtime::files().listDirectory(chunks)) {
    for (const auto& n : *names) {
      int key = 0;
      auto [end, ec] = std::from_chars(n.data(), n.data() + n.size(), key);
      if (ec == std::errc() && end == n.data() + n.size()) keys.push_back(key);
    }
  }
  std::sort(keys.begin(), keys.end());
  for (int key : keys) {
    const std::string folder = chunks + "/" + std::to_string(key);
    Json events = Json::array();
    auto files = runtime::files().listDirectory(folder);
    if (files) std::sort(files->begin(), files->end());
    for (const auto& f : files ? *files : std::vector<std::string>{}) {
      auto bytes = runtime::files().readFile(folder + "/" + f);
      auto event =
          bytes ? decodeEvent(*bytes) : Result<std::shared_ptr<OLBaseEvent>>(bytes.error());
      events.push_back(event ? Json{{"file", f}, {"event", (*event)->getEventDictionary()}}
                             : Json{{"file", f}, {"error", event.error().description()}});
    }
    out["chunks"].push_back(Json{{"key", key}, {"events", events}});
  }
  // Accepted, on disk, and not yet in a chunk.
  for (const auto& record :
       EventIntake::pendingRecords(runtime::files(), root + "/" + EventIntake::kFolder)) {
    auto event = decodeEvent(record.archive);
    out["intake"].push_back(
        event ? Json{{"file", record.fileName}, {"event", (*event)->getEventDictionary()}}
              : Json{{"file", record.fileName}, {"error", event.error().description()}});
  }
  std::printf("%s\n", out.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
  return 0;
}

int runLogin(const std::vector<std::string>& argv) {
  if (argv.empty())
    return usageError("login needs a sub-command: email, signup, pin, logout, info");
  const std::string sub = argv.front();
  std::string problem;
  auto args = Args::parse({argv.begin() + 1, argv.end()},
                          {"secret", "email", "password", "msisdn", "pin"}, {}, &problem);
  if (!args) return usageError(problem);
  if (!args->get("secret")) return usageError("login needs --secret");
  auto facade = startFacade(*args->get("secret"));
  if (!facade) return printOutcome(facade.error(), nullptr);
  Ostrel& o = **facade;
  if (sub == "logout") {
    auto token = o.getUserToken();
    auto done = o.userLogout();
    return printOutcome(done ? std::nullopt : std::optional<OLError>(done.error()),
                        Json{{"loggedOut", token ? *token : ""}});
  }
  if (sub == "info") {
    std::promise<std::pair<std::optional<OLError>, std::optional<Json>>> done;
    o.getUserMetaInfo([&](std::optional<OLError> e, std::optional<Json> i) {
      done.set_value({std::move(e), std::move(i)});
    });
    auto [error, info] = done.get_future().get();
    return printOutcome(error, Json{{"userToken", *o.getUserToken()},
                                    {"logged", *o.isUserLogged()},
                                    {"info", info.value_or(nullptr)}});
  }
  auto builder = o.getLoginBuilder();
  if (!builder) return printOutcome(builder.error(), nullptr);
  auto& b = **builder;
  if (auto v = args->get("email")) b.setEmail(*v);
  if (auto v = args->get("password")) b.setPassword(*v);
  if (auto v = args->get("msisdn")) b.setMSISDN(*v);
  if (auto v = args->get("pin")) b.setPIN(*v);
  std::promise<std::optional<OLError>> done;
  b.setOnFlowCompleteCallback([&](std::optional<OLError> e) { done.set_value(std::move(e)); });
  std::shared_ptr<OLLoginFlow> flow;
  if (sub == "email") {
    auto f = b.getEmailLoginFlow();
    if (!f) return printOutcome(f.error(), nullptr);
    flow = *f;
  } else if (sub == "signup") {
    auto f = b.getEmailSignupFlow();
    if (!f) return printOutcome(f.error(), nullptr);
    flow = *f;
  } else if (sub == "pin") {
    auto f = b.getMSISDPINLoginFlow();
    if (!f) return printOutcome(f.error(), nullptr);
    flow = *f;
  } else {
    return usageError("unknown login sub-command " + sub);
  }
  flow->startLoginFlow();
  auto error = done.get_future().get();
  // Let the identify event reach the service too.
  std::promise<void> flushed;
  o.flushEvents([&](std::optional<OLError>, std::optional<Json>) { flushed.set_value(); });
  flushed.get_future().wait();
  return printOutcome(error, Json{{"userToken", *o.getUserToken()}, {"logged", *o.isUserLogged()}});
}

}  // namespace ostrel::cli
