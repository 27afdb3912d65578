// What a host writes with nothing but the umbrella header: every facade call the
// README shows. Compiled with only include/ on the path, never linked.
#include <ostrel/ostrel.h>

#include <string>

namespace {

[[maybe_unused]] void host(const std::string& secret, const std::string& pushToken,
                           const ostrel::Json& payload) {
  auto platform = ostrel::Platform::fromEnvironment();
  if (!platform) return (void)platform.error().description();
  auto ostrel =
      ostrel::Ostrel::getSharedInstanceWithConfig(secret, nullptr, std::nullopt, *platform);
  if (!ostrel) return (void)ostrel.error().description();
  auto& o = **ostrel;

  auto data = ostrel::OLSimpleObject::fromJSONString(R"({"screen":"home"})");
  (void)o.sendEvent("button_tap", data);
  (void)o.timedEventStart("watch");
  (void)o.timedEventStop("watch");
  (void)o.flowBegin("checkout");
  (void)o.flowStep("address");
  (void)o.flowSucceed("paid");
  (void)o.rankContent("content", ostrel::RankingScope(ostrel::_RankingScope::consumption), 1.5f);
  (void)o.attachSession("session", std::nullopt, ostrel::AttachType::master);
  o.flushEvents([](std::optional<ostrel::OLError>, std::optional<ostrel::Json>) {});
  (void)o.waitUntilPersisted(std::chrono::milliseconds(100));
  (void)ostrel::Ostrel::resetStorage();

  auto builder = *o.getLoginBuilder();
  builder->setEmail("user@example.com")
      .setPassword("secret")
      .setOnFlowCompleteCallback([](std::optional<ostrel::OLError>) {});
  if (auto flow = builder->getEmailLoginFlow()) (*flow)->startLoginFlow();

  auto push = *o.getPushManager();
  push->setPushCallback([](std::shared_ptr<ostrel::OLPushBase>) {});
  (void)push->setDeviceToken(pushToken);
  (void)push->processRemoteNotification(payload, /*appIsBackground=*/true);

  auto payments = *o.getPaymentManager();
  payments->isUserPayingForDefault([](auto, auto state) { (void)state->isPaying; });
  o.shutdown(std::chrono::milliseconds(1000));
}

}  // namespace
