// ostrel-demo: a small host application that exercises the library end to end
// against a service on loopback.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include "emulator/emulator.h"
#include "ostrel/diagnostics.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ostrel.h"
#include "push_and_payments.h"

namespace {

constexpr const char* kSecret = "demo-secret";

}  // namespace

int main() {
  ostrel::emulator::Options options;
  options.keepAliveSecs = 1;
  ostrel::emulator::Emulator emulator(options);
  auto started = emulator.start();
  if (!started) {
    std::printf("Cannot start the emulator: %s\n", started.error().description().c_str());
    return 1;
  }
  std::printf("Emulator: %s\n", ostrel::dumpJson(started->toJson()).c_str());

  // The environment's overrides are checked like everywhere; the demo then
  // points the library at the emulator it started itself.
  auto platform = ostrel::Platform::fromEnvironment();
  if (!platform) {
    std::printf("Cannot start Ostrel: %s\n", platform.error().description().c_str());
    return 1;
  }
  platform->deployment.domain = started->domain;
  platform->deployment.scheme = started->scheme;
  platform->network = {"127.0.0.1:" + std::to_string(started->port), started->caFile};
  // A fresh storage folder per run unless the caller chose one.
  if (std::getenv("OSTREL_STORAGE_DIR") == nullptr) {
    char folder[] = "/tmp/ostrel-demo-XXXXXX";
    if (::mkdtemp(folder) != nullptr) {
      platform->storageRoot = std::string(folder) + "/Ostrel";
    }
  }

  // Who the demo is, as the service sees it, and its own life cycle to post to.
  platform->app = {"io.ostrel.demo", "1.0", "1", /*development=*/true};
  auto lifeCycle = std::make_shared<ostrel::platform::AppLifeCycle>();
  platform->lifeCycle = lifeCycle;

  auto facade =
      ostrel::Ostrel::getSharedInstanceWithConfig(kSecret, nullptr, std::nullopt, *platform);
  if (!facade) {
    std::printf("Cannot start Ostrel: %s\n", facade.error().description().c_str());
    return 1;
  }
  std::printf("Ostrel %s (build %lld), environment %s\n", ostrel::Ostrel::versionString().c_str(),
              static_cast<long long>(ostrel::Ostrel::buildNumber),
              (*facade)->environmentString().c_str());

  // Analytics end to end: events, a flow, a timer, a ranking and an attachment, then a flush.
  auto& ostrel = **facade;
  auto data = ostrel::OLSimpleObject::fromJSONString(R"({"plan":"pro"})");
  for (int i = 0; i < 12; ++i) (void)ostrel.sendEvent("demo_event", data);
  (void)ostrel.flowBegin("onboarding");
  (void)ostrel.flowStep("profile");
  (void)ostrel.flowSucceed("done");
  (void)ostrel.timedEventStart("loading");
  (void)ostrel.timedEventStop("loading");
  (void)ostrel.rankContent("article-7", ostrel::RankingScope(ostrel::_RankingScope::social), 2.0f);
  (void)ostrel.attachSession("other-session", std::string("U_42"), ostrel::AttachType::peer);
  // What waits on disk for the flush, as `ostrel-cli queue` shows it.
  (void)ostrel.waitUntilPersisted(std::chrono::seconds(1));
  const auto queued = ostrel::diagnostics::describeQueue(*platform);
  std::printf("queued before the flush: %zu in the intake, %zu chunks\n", queued["intake"].size(),
              queued["chunks"].size());
  std::promise<void> flushed;
  ostrel.flushEvents(
      [&](std::optional<ostrel::OLError> error, std::optional<ostrel::Json> details) {
        std::printf("flush: %s\n", error ? error->description().c_str()
                                         : ostrel::dumpJson(details.value_or(nullptr)).c_str());
        flushed.set_value();
      });
  flushed.get_future().wait();

  // In the background events are kept on disk, not sent; the foreground sends them.
  lifeCycle->didEnterBackground();
  (void)ostrel.sendEvent("while_in_background");
  lifeCycle->willEnterForeground();

  // A user signs up, then the events the emulator received.
  auto builder = *ostrel.getLoginBuilder();
  std::promise<std::optional<ostrel::OLError>> signedUp;
  builder->setEmail("demo@ostrel.test").setPassword("demo-password");
  builder->setOnFlowCompleteCallback(
      [&](std::optional<ostrel::OLError> e) { signedUp.set_value(e); });
  if (auto flow = builder->getEmailSignupFlow()) (*flow)->startLoginFlow();
  auto signupError = signedUp.get_future().get();
  std::printf("sign-up: %s, user token %s\n",
              signupError ? signupError->description().c_str() : "ok",
              ostrel.getUserToken()->c_str());
  demoPushAndPayments(ostrel, emulator);

  std::promise<void> again;
  ostrel.flushEvents(
      [&](std::optional<ostrel::OLError>, std::optional<ostrel::Json>) { again.set_value(); });
  again.get_future().wait();
  auto received = emulator.store().events(1000);
  std::printf("The emulator received %zu events:\n", emulator.store().eventCount());
  // Every event by type and name; the first of each type whole, as it went on the wire.
  std::set<std::string> shown;
  for (auto it = received.rbegin(); it != received.rend(); ++it) {
    const auto& e = (*it)["event"];
    const std::string type = e.value("event_type", "");
    std::printf("  %-16s %s\n", type.c_str(), e.value("name", "").c_str());
    if (shown.insert(type).second) std::printf("    %s\n", ostrel::dumpJson(e).c_str());
  }
  std::fflush(stdout);
  // Everything is delivered; skip tearing down the process-wide library.
  std::_Exit(0);
}
