// ostrel-cli commands that run the whole library: event, queue, login.
#include <cstdio>
#include <future>

#include "args.h"
#include "commands.h"
#include "ostrel/diagnostics.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_simple_object.h"
#include "ostrel/ostrel.h"

namespace ostrel::cli {

namespace {
Platform& platformSlot() {
  static Platform platform;
  return platform;
}
}  // namespace

void setCliPlatform(Platform platform) {
  platformSlot() = std::move(platform);
}

const Platform& cliPlatform() {
  return platformSlot();
}

Result<std::shared_ptr<Ostrel>> startFacade(const std::string& secret) {
  return Ostrel::makeUnshared(secret, nullptr, std::nullopt, cliPlatform());
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
  const Json out = diagnostics::describeQueue(cliPlatform(), args->get("dir").value_or(""));
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
