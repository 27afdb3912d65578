// ostrel-demo: a small host application that exercises the library end to end
// against a service on loopback.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>

#include "core/device_information.h"
#include "emulator/emulator.h"
#include "events/content_events.h"
#include "events/event_archive.h"
#include "events/flow_events.h"
#include "events/internal_events.h"
#include "facade/ostrel_facade_impl.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ostrel.h"
#include "platform/defaults.h"
#include "platform/runtime.h"
#include "push_and_payments.h"
#include "transport/ol_connector.h"

namespace {

constexpr const char* kSecret = "demo-secret";

}  // namespace

// One event of each kind, archived, read back and printed as its JSON dictionary.
void printEventSamples(const std::string& sessionId, const std::string& userId) {
  using namespace ostrel;
  auto data = OLSimpleObject::fromJSONString(R"({"screen":"home","score":42,"ratio":0.5})");
  auto flow = *OLFlowEvent::make("checkout", sessionId, userId, data);
  auto timer = *OLTimedEvent::make("loading", sessionId, userId, nullptr);
  (void)timer->stop(nullptr);
  std::vector<std::shared_ptr<OLBaseEvent>> samples = {
      *OLCustomEvent::make("button_tap", sessionId, userId, data),
      *OLSessionEvent::make(sessionId, userId, DeviceInformation(), true, nullptr, std::nullopt),
      *OLIdentifyEvent::make(sessionId, userId, nullptr, LoginType::email),
      *OLLogoutEvent::make(sessionId, userId, LogoutType::explicit_),
      *OLTimersHearbeat::make(10, {"loading"}, sessionId, userId),
      flow,
      timer,
      *OLRankingContentEvent::make(sessionId, userId, "article-7",
                                   RankingScope(_RankingScope::social), 1.5f),
      *OLAttachSessionEvent::make(sessionId, userId, AttachType::peer, "other-session", "U_42",
                                  nullptr),
  };
  for (const auto& event : samples) {
    auto back = decodeEvent(archivedBytes(*event));
    std::printf("%-28s %s\n", event->archiveClassName().c_str(),
                back ? dumpJson((*back)->getEventDictionary()).c_str()
                     : back.error().description().c_str());
  }
}

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
      platform->files = ostrel::platform::makePosixFileSystem(std::string(folder) + "/Ostrel");
    }
  }

  auto facade =
      ostrel::Ostrel::getSharedInstanceWithConfig(kSecret, nullptr, std::nullopt, *platform);
  if (!facade) {
    std::printf("Cannot start Ostrel: %s\n", facade.error().description().c_str());
    return 1;
  }
  std::printf("Ostrel %s (build %lld), environment %s\n", ostrel::Ostrel::versionString().c_str(),
              static_cast<long long>(ostrel::Ostrel::buildNumber),
              (*facade)->environmentString().c_str());

  printEventSamples("demo-session", "A_" + (*facade)->impl()._deviceInfo->deviceId);

  // One signed request through the facade's connector.
  std::promise<void> done;
  (*facade)->impl()._connetionBuilder->buildConnector().send(
      ostrel::OstrelAPIEndpoint::RichPush, ostrel::Json::object(),
      [&](std::optional<ostrel::OLError> error, int64_t status, std::optional<ostrel::Json> reply) {
        if (error) {
          std::printf("request failed: %s\n", error->description().c_str());
        } else {
          std::printf("request answered %lld: %s\n", static_cast<long long>(status),
                      reply ? ostrel::dumpJson(*reply).c_str() : "(no body)");
        }
        done.set_value();
      });
  done.get_future().wait();

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
  std::promise<void> flushed;
  ostrel.flushEvents(
      [&](std::optional<ostrel::OLError> error, std::optional<ostrel::Json> details) {
        std::printf("flush: %s\n", error ? error->description().c_str()
                                         : ostrel::dumpJson(details.value_or(nullptr)).c_str());
        flushed.set_value();
      });
  flushed.get_future().wait();

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
  for (auto it = received.rbegin(); it != received.rend(); ++it) {
    const auto& e = (*it)["event"];
    std::printf("  %-16s %s\n", e.value("event_type", "").c_str(), e.value("name", "").c_str());
  }
  std::fflush(stdout);
  // Everything is delivered; skip tearing down the process-wide library.
  std::_Exit(0);
}
