// A minimal host of the library: start, record events and a flow, sign a user
// up (or log them in when the address is known already), hand a push payload
// over, flush, and shut down in order.
//
//   ostrel_cpp_example EMAIL PASSWORD
//
// The deployment comes from OSTREL_SERVICE_DOMAIN, OSTREL_CONNECT_TO and
// OSTREL_CA_FILE (ostrel-emulator prints the values), the storage folder from
// OSTREL_STORAGE_DIR. Exits 0 when every step worked.
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_push.h"
#include "ostrel/ol_push_manager.h"
#include "ostrel/ol_simple_object.h"
#include "ostrel/ostrel.h"

namespace {

bool ok(const ostrel::Result<void>& result, const char* step) {
  if (!result) std::fprintf(stderr, "%s: %s\n", step, result.error().description().c_str());
  return result.has_value();
}

// Runs one e-mail flow and waits for its outcome, which the library reports on
// one of its own threads.
std::optional<ostrel::OLError> runEmailFlow(ostrel::Ostrel& ostrel, const std::string& email,
                                            const std::string& password, bool signUp) {
  auto builder = ostrel.getLoginBuilder();
  if (!builder) return builder.error();
  auto outcome = std::make_shared<std::promise<std::optional<ostrel::OLError>>>();
  (*builder)->setEmail(email).setPassword(password).setOnFlowCompleteCallback(
      [outcome](std::optional<ostrel::OLError> error) { outcome->set_value(std::move(error)); });
  std::shared_ptr<ostrel::OLLoginFlow> flow;
  if (signUp) {
    auto made = (*builder)->getEmailSignupFlow();
    if (!made) return made.error();
    flow = *made;
  } else {
    auto made = (*builder)->getEmailLoginFlow();
    if (!made) return made.error();
    flow = *made;
  }
  flow->startLoginFlow();
  return outcome->get_future().get();
}

bool logIn(ostrel::Ostrel& ostrel, const std::string& email, const std::string& password) {
  auto error = runEmailFlow(ostrel, email, password, /*signUp=*/true);
  if (error) {
    // Most likely the address has an account from an earlier run.
    std::printf("sign-up refused (%s), logging in\n", error->code().c_str());
    error = runEmailFlow(ostrel, email, password, /*signUp=*/false);
  }
  if (error) {
    std::fprintf(stderr, "login: %s\n", error->description().c_str());
    return false;
  }
  auto token = ostrel.getUserToken();
  std::printf("logged in as %s\n", token ? token->c_str() : "?");
  return true;
}

bool recordEvents(ostrel::Ostrel& ostrel) {
  auto data = ostrel::OLSimpleObject::fromDictionary({{"language", "C++"}, {"answer", 42}});
  return ok(ostrel.sendEvent("cpp_example_started", data), "send event") &&
         ok(ostrel.flowBegin("cpp_onboarding"), "flow begin") &&
         ok(ostrel.flowStep("cpp_profile"), "flow step") &&
         ok(ostrel.flowSucceed("done"), "flow succeed");
}

// A payload as the push service delivers it; the callback runs on the thread
// that hands the push over, here this one.
bool receivePush(ostrel::Ostrel& ostrel) {
  auto manager = ostrel.getPushManager();
  if (!manager) return ok(manager.error(), "push manager");
  std::string body;
  (*manager)->setPushCallback([&body](std::shared_ptr<ostrel::OLPushBase> push) {
    if (auto standard = std::dynamic_pointer_cast<ostrel::OLStandardPush>(push))
      body = standard->body;
  });
  auto payload = ostrel::parseJson(R"({"aps": {"t": "N", "alert": "Hello"}, "push_id": "cpp1"})");
  bool handed = ok((*manager)->processRemoteNotification(*payload), "push");
  (*manager)->setPushCallback(nullptr);
  std::printf("push received: %s\n", body.c_str());
  return handed && body == "Hello";
}

bool flush(ostrel::Ostrel& ostrel) {
  std::promise<std::optional<ostrel::OLError>> flushed;
  ostrel.flushEvents([&flushed](std::optional<ostrel::OLError> error, std::optional<ostrel::Json>) {
    flushed.set_value(std::move(error));
  });
  auto error = flushed.get_future().get();
  if (error) std::fprintf(stderr, "flush: %s\n", error->description().c_str());
  return !error;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: ostrel_cpp_example EMAIL PASSWORD\n");
    return 2;
  }
  std::printf("Ostrel %s\n", ostrel::Ostrel::versionString().c_str());
  // A production host passes Platform{} (or leaves it out); a test or staging
  // build takes the deployment from the environment.
  auto platform = ostrel::Platform::fromEnvironment();
  if (!platform) return ok(platform.error(), "environment"), 1;
  // Who this application is, as the service sees it (session start, push
  // registration, store receipts).
  platform->app = {"io.ostrel.cpp-example", "1.0", "1", /*development=*/true};
  auto started = ostrel::Ostrel::getSharedInstanceWithConfig("demo-secret", nullptr, std::nullopt,
                                                             std::move(*platform));
  if (!started) return ok(started.error(), "start"), 1;
  ostrel::Ostrel& ostrel = **started;

  const bool worked = recordEvents(ostrel) && logIn(ostrel, argv[1], argv[2]) &&
                      ok(ostrel.sendEvent("cpp_example_logged_in"), "send event") &&
                      receivePush(ostrel) && flush(ostrel);
  std::printf("every step worked: %s\n", worked ? "yes" : "no");

  // Writes what was accepted and stops the library's threads; later calls are
  // refused, never lost silently.
  ostrel.shutdown(std::chrono::seconds(1));
  auto late = ostrel.sendEvent("too_late");
  std::printf("after shutdown: %s\n", late ? "accepted" : late.error().code().c_str());
  return worked && !late ? 0 : 1;
}
