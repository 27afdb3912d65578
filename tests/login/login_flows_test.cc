// Login flows, the builder's checks and the user's state, against a loopback
// stand-in service over HTTPS.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "core/ol_status.h"
#include "core/ostrel_facade_impl.h"
#include "login/email_flows.h"
#include "login/msisdn_flows.h"
#include "login/ol_auto_login_flow.h"
#include "login/ol_user_status.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ostrel.h"
#include "platform/defaults.h"
#include "platform/runtime.h"
#include "support/emulator_service.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

class LoginTest : public ::testing::Test {
 protected:
  std::shared_ptr<Ostrel> start() {
    auto made = service_.startFacade(platform_);
    EXPECT_TRUE(made);
    return made;
  }
  template <class Getter>
  std::optional<OLError> run(Ostrel& o, const std::function<void(OLLoginBuilder&)>& configure,
                             Getter getter) {
    return test::EmulatorService::runFlow(o, configure, getter);
  }
  std::vector<Json> flushedEvents(Ostrel& o, const std::string& type) {
    std::promise<void> done;
    o.flushEvents([&](std::optional<OLError>, std::optional<Json>) { done.set_value(); });
    done.get_future().wait();
    std::vector<Json> out;
    for (const auto& e : service_.events()) {
      if (e["event_type"] == type) out.push_back(e);
    }
    return out;
  }

  test::TestPlatform platform_;
  test::EmulatorService service_;
};

TEST_F(LoginTest, EmailLoginLogsInQueuesIdentifyAndSurvivesARestart) {
  {
    auto o = start();
    EXPECT_FALSE(*o->isUserLogged());
    auto error = run(
        *o,
        [](OLLoginBuilder& b) {
          b.setEmail(test::EmulatorService::kEmail).setPassword(test::EmulatorService::kPassword);
        },
        &OLLoginBuilder::getEmailLoginFlow);
    ASSERT_FALSE(error) << error->description();
    EXPECT_TRUE(*o->isUserLogged());
    EXPECT_EQ(o->getUserToken()->substr(0, 2), "O_");
    auto identify = flushedEvents(*o, "identify");
    ASSERT_EQ(identify.size(), 1u);
    EXPECT_EQ(identify[0]["login_type"], "email");
  }
  // The service token is gone after a restart; the stored autologin token logs the user in.
  auto o = start();
  EXPECT_TRUE(*o->isUserLogged());
  EXPECT_EQ(o->getUserToken()->substr(0, 2), "L_");
}

TEST_F(LoginTest, ServiceRefusalsMapToLocalCodes) {
  auto o = start();
  struct Case {
    std::function<void(OLLoginBuilder&)> configure;
    bool pin;
    LocalErrorCodes code;
    std::string serviceCode;
  };
  const Case cases[] = {
      {[](OLLoginBuilder& b) { b.setEmail(test::EmulatorService::kEmail).setPassword("wrong"); },
       false, LocalErrorCodes::EMAILLoginWrongPasswordError, "WRONG_EMAIL_PASSWORD"},
      {[](OLLoginBuilder& b) { b.setMSISDN(test::EmulatorService::kMsisdn).setPIN("0000"); }, true,
       LocalErrorCodes::MSISDNLoginWrongPINError, "WRONG_PIN"},
      {[](OLLoginBuilder& b) { b.setMSISDN(test::EmulatorService::kMsisdn).setNOPIN(); }, true,
       LocalErrorCodes::MSISDNLoginWrongPINError, "WRONG_PIN"},
  };
  for (const auto& c : cases) {
    auto error = c.pin ? run(*o, c.configure, &OLLoginBuilder::getMSISDPINLoginFlow)
                       : run(*o, c.configure, &OLLoginBuilder::getEmailLoginFlow);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->localCode(), c.code) << error->description();
    EXPECT_EQ((*error->extra())["code"], c.serviceCode);
    EXPECT_EQ((*error->extra())["statusCode"], 401);
    EXPECT_FALSE(*o->isUserLogged());
  }
  EXPECT_TRUE(platform_.log().contains("Finalize Login Flow Error"));
}

TEST_F(LoginTest, BuilderChecksComeBeforeTheNetwork) {
  auto o = start();
  auto b = *o->getLoginBuilder();
  struct Case {
    std::function<Result<void>()> get;
    std::string message;
  };
  auto voidOf = [](auto r) -> Result<void> {
    if (!r) return r.error();
    return {};
  };
  EXPECT_EQ(voidOf(b->getEmailLoginFlow()).error().message(), "Missing EMAIL credential");
  b->setEmail("");
  auto wrong = voidOf(b->getEmailLoginFlow());
  EXPECT_EQ(wrong.error().message(), "Wrong EMAIL credential");
  EXPECT_EQ((*wrong.error().extra())["email"], "");
  b->setEmail("a@b.c");
  EXPECT_EQ(voidOf(b->getEmailSignupFlow()).error().message(), "Missing PASSWORD credential");
  EXPECT_TRUE(voidOf(b->getEmailForgotFlow()));
  EXPECT_EQ(voidOf(b->getMSISDPINLoginFlow()).error().message(), "Missing MSISDN credential");
  b->setMSISDN("39").setPIN("1");
  b->setNOPIN();
  EXPECT_EQ(b->pin(), "__NO_PIN_SENTINEL__");
  b->setReturnUrl("x");
  EXPECT_TRUE(platform_.log().contains("Dummy method setReturnUrl"));

  // A flow holding the slot: every login getter refuses, a forgot request still runs.
  auto forgot = std::dynamic_pointer_cast<OLLoginFlowBase>(*b->getMSISDPINLoginFlow());
  auto holder = std::dynamic_pointer_cast<OLLoginFlowBase>(*b->getMSISDNURLoginFlow());
  ASSERT_TRUE(o->impl()._ostrelStatus->setCurrentRunningFlow(holder));
  EXPECT_EQ(voidOf(b->getEmailLoginFlow()).error().message(), "Another Flow is in progress");
  std::promise<std::optional<OLError>> done;
  forgot->setInternalCompletionCallback(
      [&](std::optional<OLError> e, std::optional<std::string>) { done.set_value(e); });
  std::dynamic_pointer_cast<OLForgotFlow>(forgot)->startForgotFlow();
  EXPECT_FALSE(done.get_future().get());
  EXPECT_EQ(service_.requestsTo("/login/direct/msisdn/PINforgot"), 1);
  o->impl()._ostrelStatus->freeCurrentRunningFlow(holder.get());
}

TEST_F(LoginTest, PinLoginWithoutPinFailsAtStart) {
  auto o = start();
  auto error = run(
      *o, [](OLLoginBuilder& b) { b.setMSISDN(test::EmulatorService::kMsisdn); },
      &OLLoginBuilder::getMSISDPINLoginFlow);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->message(), "Missing MSISDN PIN credential");
  EXPECT_EQ(service_.requestsTo("/login/direct/msisdn/PINidentify"), 0);
  EXPECT_FALSE(o->impl()._ostrelStatus->hasRunningFlow());
}

TEST_F(LoginTest, OperatorRecognitionForwardsAtMostThreeTimes) {
  struct Case {
    int bounces;
    bool logged;
  };
  for (const auto& c : {Case{1, true}, Case{3, true}, Case{4, false}}) {
    test::TestPlatform platform;
    test::EmulatorService service;
    service.setOperatorBounces(c.bounces);
    auto o = service.startFacade(platform);
    auto builder = *o->getLoginBuilder();
    std::promise<std::optional<OLError>> done;
    builder->setOnFlowCompleteCallback([&](std::optional<OLError> e) { done.set_value(e); });
    (*builder->getMSISDNURLoginFlow())->startLoginFlow();
    auto error = done.get_future().get();
    EXPECT_EQ(!error, c.logged) << c.bounces;
    if (error) {
      EXPECT_TRUE(error->is(LocalErrorCodes::ConnectionDomainWarning));
    }
    EXPECT_EQ(service.requestsTo("/login/direct/msisdn/bodyrecognition"), std::min(c.bounces, 3));
  }
}

TEST_F(LoginTest, StartUpAutologinRefusedLogsOutWithTheMatchingType) {
  struct Case {
    int status;
    std::string logoutType;
  };
  for (const auto& c : {Case{401, "refresh"}, Case{400, "invalid"}, Case{500, "error"}}) {
    test::TestPlatform platform;
    test::EmulatorService service;
    {
      auto o = service.startFacade(platform);
      ASSERT_FALSE(test::EmulatorService::logIn(*o));
    }
    service.failNext("/handling/direct/refreshtoken", c.status);
    auto o = service.startFacade(platform);
    for (int i = 0; i < 400 && *o->isUserLogged(); ++i) std::this_thread::sleep_for(10ms);
    EXPECT_FALSE(*o->isUserLogged()) << c.status;
    // The logout event is queued just after the state changes: flush until it is there.
    std::vector<std::string> logouts;
    for (int attempt = 0; attempt < 50 && logouts.empty(); ++attempt) {
      std::promise<void> flushed;
      o->flushEvents([&](std::optional<OLError>, std::optional<Json>) { flushed.set_value(); });
      flushed.get_future().wait();
      for (const auto& e : service.events()) {
        if (e["event_type"] == "logout") logouts.push_back(e["login_type"]);
      }
      if (logouts.empty()) std::this_thread::sleep_for(20ms);
    }
    EXPECT_EQ(logouts, std::vector<std::string>{c.logoutType}) << c.status;
  }
}

TEST_F(LoginTest, MetaInfoIsCachedLogoutAndTransientToken) {
  auto o = start();
  ASSERT_FALSE(run(
      *o,
      [](OLLoginBuilder& b) {
        b.setEmail(test::EmulatorService::kEmail).setPassword(test::EmulatorService::kPassword);
      },
      &OLLoginBuilder::getEmailLoginFlow));
  // Logged by a service token: the meta info is the external flow's.
  std::promise<std::optional<Json>> info;
  o->getUserMetaInfo([&](std::optional<OLError>, std::optional<Json> i) { info.set_value(i); });
  EXPECT_EQ((*info.get_future().get())["login"]["flow"], "external");

  std::promise<std::optional<std::string>> transient;
  o->generateTransientToken(
      [&](std::optional<OLError>, std::optional<std::string> t) { transient.set_value(t); });
  auto token = transient.get_future().get();
  ASSERT_TRUE(token);
  EXPECT_TRUE(token->starts_with("T_"));

  const std::string before = *o->getUserToken();
  ASSERT_TRUE(o->userLogout());
  EXPECT_FALSE(*o->isUserLogged());
  auto logouts = flushedEvents(*o, "logout");
  ASSERT_EQ(logouts.size(), 1u);
  EXPECT_EQ(logouts[0]["login_type"], "explicit");
  EXPECT_EQ(logouts[0]["user_id"], before);
}

TEST(AutologinTokenTest, ShortTokensAreInvalidAndExpiryIsStrict) {
  test::TestPlatform platform;
  EXPECT_TRUE(AutologinToken("L_2026112215300").isExpired());
  EXPECT_TRUE(platform.log().contains("Invalid stored autologin L_2026112215300"));
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  AutologinToken token("L_20261122153000abc");
  platform.clock().set(1795361400);
  EXPECT_FALSE(token.isExpired()) << "the same second is still valid";
  platform.clock().set(1795361401);
  EXPECT_TRUE(token.isExpired());
  ::unsetenv("TZ");
  ::tzset();
}

}  // namespace
}  // namespace ostrel
