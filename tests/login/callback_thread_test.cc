// Every asynchronous call answers off the caller's thread, also when it refuses
// at once: a host that holds its own lock around the call and takes it again in
// the callback must not deadlock. Driven through the public headers only.
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <string>
#include <thread>

#include "ostrel/ol_login_builder.h"
#include "ostrel/ol_login_flow.h"
#include "ostrel/ol_payment_manager.h"
#include "ostrel/ostrel.h"
#include "support/emulator_service.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

// A call on `o` that refuses at once; it answers through `done` (error text).
using Refusal = std::function<void(Ostrel& o, std::function<void(std::string)> done)>;

template <class... Rest>
auto errorText(std::function<void(std::string)> done) {
  return [done](std::optional<OLError> e, Rest...) { done(e ? e->description() : "no error"); };
}

TEST(CallbackThreadTest, ARefusalAnswersOnTheNetworkThreadNeverInsideTheCall) {
  struct Case {
    const char* name;
    Refusal call;
    const char* expected;  // a piece of the error's description
  };
  const Case cases[] = {
      {"delete without a user",
       [](Ostrel& o, auto done) { o.__temporaryUserDelete(errorText(done)); }, "User Not Logged"},
      {"payment without a user",
       [](Ostrel& o, auto done) {
         (*o.getPaymentManager())->addPayment("offer", std::nullopt, errorText(done));
       },
       "User must be logged in to add a Payment"},
      {"PIN login without a PIN",
       [](Ostrel& o, auto done) {
         auto b = *o.getLoginBuilder();
         b->setMSISDN(test::EmulatorService::kMsisdn).setOnFlowCompleteCallback(errorText(done));
         (*b->getMSISDPINLoginFlow())->startLoginFlow();
       },
       "Missing MSISDN PIN credential"},
      {"flush after shutdown",
       [](Ostrel& o, auto done) {
         o.shutdown();
         o.flushEvents(errorText<std::optional<Json>>(done));
       },
       "OstrelNotInitialized"},
  };
  test::EmulatorService service;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    test::TestPlatform platform;
    auto o = service.startFacade(platform);
    std::promise<std::pair<std::thread::id, std::string>> answered;
    c.call(*o, [&](std::string error) {
      answered.set_value({std::this_thread::get_id(), std::move(error)});
    });
    auto [thread, error] = answered.get_future().get();
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_NE(error.find(c.expected), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace ostrel
