// Login flows, the builder's checks and the user's state, against a loopback
// stand-in service over HTTPS.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <thread>

#include "facade/ostrel_facade_impl.h"
#include "login/ol_login_flow_base.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ostrel.h"
#include "status/ol_status.h"
#include "support/emulator_service.h"
#include "support/eventually.h"
#include "testing/ostrel_testing.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using test::EmulatorService;

using LoginTest = test::EmulatorTest;

TEST_F(LoginTest, EmailLoginMetaInfoAndTransientTokenAndARestart) {
  {
    auto o = start();
    auto error = EmulatorService::logIn(*o);
    ASSERT_FALSE(error) << error->description();
    EXPECT_EQ(o->getUserToken()->substr(0, 2), "O_");
    // Logged by a service token: the meta info is the external flow's.
    auto info = std::get<1>(test::await<std::optional<OLError>, std::optional<Json>>(
        [&](auto done) { o->getUserMetaInfo(done); }));
    ASSERT_TRUE(info);
    EXPECT_EQ((*info)["login"]["flow"], "external");
    auto token = std::get<1>(test::await<std::optional<OLError>, std::optional<std::string>>(
        [&](auto done) { o->generateTransientToken(done); }));
    ASSERT_TRUE(token);
    EXPECT_TRUE(token->starts_with("T_"));
  }
  // The service token is gone after a restart; the stored autologin token logs
  // the user in (its start-up refresh held back meanwhile), and the meta info
  // stored by the login answers without asking the service.
  service_.delayNext("/handling/direct/refreshtoken", 1500);
  auto o = start();
  EXPECT_EQ(o->getUserToken()->substr(0, 2), "L_");
  ASSERT_TRUE(std::get<1>(test::await<std::optional<OLError>, std::optional<Json>>(
      [&](auto done) { o->getUserMetaInfo(done); })));
  EXPECT_EQ(service_.requestsTo("/handling/direct/userinfo"), 0);
}

TEST_F(LoginTest, ServiceRefusalsMapToLocalCodesAndKeepTheReply) {
  auto o = start();
  using Fault = emulator::Emulator::Fault;
  struct Case {
    bool pin;
    std::string secret;  // the password or PIN sent, never in the error
    std::optional<Fault> fault;
    LocalErrorCodes code;
    std::string serviceCode;
    int64_t status;
    std::string body;  // found in the reply body's text
  };
  const Case cases[] = {
      {true, "pin-x7", std::nullopt, LocalErrorCodes::MSISDNLoginWrongPINError, "WRONG_PIN", 401,
       "WRONG_PIN"},
      // Answers that are no service error object: the status and the body still reach the host.
      {false, EmulatorService::kPassword, Fault{.status = 500, .body = "non_json"},
       LocalErrorCodes::EMAILLoginError, "HTTP 500", 500, "plain text, not JSON"},
      {true, EmulatorService::kPin, Fault{.status = 502, .body = "non_utf8"},
       LocalErrorCodes::MSISDNLoginError, "HTTP 502", 502, "fffe0001"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.serviceCode + " " + c.body);
    if (c.fault) {
      service_.emulator().injectFault(
          c.pin ? "/login/direct/msisdn/PINidentify" : "/login/direct/email/login", *c.fault);
    }
    auto configure = [&](OLLoginBuilder& b) {
      if (c.pin) {
        b.setMSISDN(EmulatorService::kMsisdn).setPIN(c.secret);
      } else {
        b.setEmail(EmulatorService::kEmail).setPassword(c.secret);
      }
    };
    auto error =
        c.pin ? EmulatorService::runFlow(*o, configure, &OLLoginBuilder::getMSISDPINLoginFlow)
              : EmulatorService::runFlow(*o, configure, &OLLoginBuilder::getEmailLoginFlow);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->localCode(), c.code) << error->description();
    EXPECT_EQ(error->statusCode(), c.status);
    EXPECT_EQ((*error->extra())["code"], c.serviceCode);
    EXPECT_NE((*error->extra())["body"].get<std::string>().find(c.body), std::string::npos)
        << error->description();
    EXPECT_EQ(error->description().find(c.secret), std::string::npos) << error->description();
  }
}

// Puts many keys before the tokens of every e-mail login reply: reading the
// reply then takes a while, which leaves a racing flow a wide window if the
// slot were ever free before the login is recorded.
class SlowToReadLoginReplies : public platform::HttpClient {
 public:
  explicit SlowToReadLoginReplies(std::shared_ptr<platform::HttpClient> inner)
      : inner_(std::move(inner)) {
    for (int i = 0; i < 5000; ++i) padding_ += "\"pad" + std::to_string(i) + "\":0,";
  }
  void send(platform::HttpRequest request, platform::HttpCompletion completion) override {
    const bool login = request.url.ends_with("/login/direct/email/login");
    inner_->send(std::move(request),
                 [this, login, completion = std::move(completion)](
                     std::optional<PlatformError> error, platform::HttpResponse response) {
                   if (login && response.status == 200 && response.body.starts_with("{")) {
                     response.body.insert(1, padding_);
                   }
                   completion(std::move(error), std::move(response));
                 });
  }
  void dispatch(std::function<void()> work) override { inner_->dispatch(std::move(work)); }

 private:
  std::shared_ptr<platform::HttpClient> inner_;
  std::string padding_;
};

TEST_F(LoginTest, AFlowRacingForTheSlotNeverLogsInBesideTheRunningOne) {
  // A second thread keeps trying a custom login while an e-mail login runs:
  // it may only ever find the slot held or the user logged.
  Platform p = service_.platformFor(platform_);
  p.http = std::make_shared<SlowToReadLoginReplies>(p.http);
  auto o = *Ostrel::makeUnshared("demo-secret", nullptr, std::nullopt, p);
  for (int round = 0; round < 30; ++round) {
    SCOPED_TRACE(round);
    std::atomic<int> successes{0};
    std::atomic<bool> emailDone{false};
    auto email = *o->getLoginBuilder();
    email->setEmail(EmulatorService::kEmail)
        .setPassword(EmulatorService::kPassword)
        .setOnFlowCompleteCallback([&](std::optional<OLError> e) {
          if (!e) ++successes;
          emailDone = true;
        });
    auto custom = *o->getLoginBuilder();
    custom->setCustomID("racer").setOnFlowCompleteCallback([&](std::optional<OLError> e) {
      if (!e) ++successes;
    });
    (*email->getEmailLoginFlow())->startLoginFlow();  // holds the slot from here
    std::thread racer([&] {
      while (!emailDone) {
        if (auto flow = custom->getCustomLoginFlow()) (*flow)->startLoginFlow();
        std::this_thread::yield();
      }
    });
    racer.join();
    EXPECT_EQ(successes.load(), 1);
    EXPECT_EQ(o->getUserToken()->substr(0, 2), "O_");
    ASSERT_TRUE(o->userLogout());
    platform_.log().clear();
  }
}

TEST_F(LoginTest, TheFingerprintsUserAndCustomDataStayWithItsOwnFlow) {
  auto o = start();
  auto b = *o->getLoginBuilder();
  b->setCustomData(OLSimpleObject::fromJSONString(R"({"from":"builder"})"))
      .setPony(R"({"ostrel":{"session_id":"s1","user_id":"O_fp","custom_data":{"from":"pony"}}})");
  ASSERT_FALSE(EmulatorService::runFlow(*b, &OLLoginBuilder::getMFPLoginFlow));
  EXPECT_EQ(*o->getUserToken(), "O_fp");  // the user the fingerprint names
  ASSERT_TRUE(o->userLogout());
  b->setEmail(EmulatorService::kEmail).setPassword(EmulatorService::kPassword);
  ASSERT_FALSE(EmulatorService::runFlow(*b, &OLLoginBuilder::getEmailLoginFlow));
  std::vector<std::string> seen;
  (void)EmulatorService::flush(*o);
  for (const auto& e : service_.events("identify")) {
    seen.push_back(e["login_type"].get<std::string>() + " " +
                   e["custom_data"]["from"].get<std::string>());
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"mfp-login pony", "email builder"}));
}

TEST_F(LoginTest, BuilderChecksComeBeforeTheNetwork) {
  auto o = start();
  auto b = *o->getLoginBuilder();
  auto message = [](auto r) { return r ? std::string("ok") : r.error().message(); };
  EXPECT_EQ(message(b->getEmailLoginFlow()), "Missing EMAIL credential");
  b->setEmail("");
  EXPECT_EQ(message(b->getEmailLoginFlow()), "Wrong EMAIL credential");
  b->setEmail("a@b.c");
  EXPECT_EQ(message(b->getEmailSignupFlow()), "Missing PASSWORD credential");
  EXPECT_EQ(message(b->getMSISDPINLoginFlow()), "Missing MSISDN credential");
  EXPECT_EQ(message(b->getCustomLoginFlow()), "Missing customID");
  EXPECT_EQ(message(b->getExternalLoginFlow()), "Missing externalID");
  EXPECT_EQ(message(b->getPaymentReceiptLoginFlow()), "Missing OfferId");
  for (std::size_t length : {31u, 33u}) {
    b->setOfferId(std::string(length, 'o'));
    EXPECT_EQ(message(b->getPaymentReceiptLoginFlow()), "Invalid OfferId") << length;
  }
  EXPECT_EQ(message(b->getMFPLoginFlow()), "Unable to retrieve Mobile Fingerprint");
  b->setPony("not json");
  EXPECT_EQ(message(b->getMFPLoginFlow()), "Unable to retrieve Mobile Fingerprint");
  EXPECT_EQ(message(b->getUO2CredentialsLoginFlow()), "Missing InfoUtente parameter");
  b->setInfoUtente("info");
  EXPECT_EQ(message(b->getUO2CredentialsLoginFlow()), "Missing BrivolaUser parameter");
  // A pony whose fields are of another type names no user: refused when started.
  auto oddPony = EmulatorService::runFlow(
      *o, [](OLLoginBuilder& odd) { odd.setPony(R"({"session_id":5,"user_id":["O_x"]})"); },
      &OLLoginBuilder::getMFPLoginFlow);
  ASSERT_TRUE(oddPony);
  EXPECT_TRUE(oddPony->is(LocalErrorCodes::MFPLoginWrongFingerprint));
  b->setMSISDN("39").setPIN("1");
  // A flow holding the slot: every login getter refuses, a forgot request still runs.
  auto forgot = std::dynamic_pointer_cast<OLLoginFlowBase>(*b->getMSISDPINLoginFlow());
  auto holder = std::dynamic_pointer_cast<OLLoginFlowBase>(*b->getMSISDNURLoginFlow());
  ASSERT_TRUE(testing::internals(*o)._ostrelStatus->setCurrentRunningFlow(holder));
  EXPECT_EQ(message(b->getEmailLoginFlow()), "Another Flow is in progress");
  EXPECT_FALSE(
      std::get<0>(test::await<std::optional<OLError>, std::optional<std::string>>([&](auto done) {
        forgot->setInternalCompletionCallback(done);
        std::dynamic_pointer_cast<OLForgotFlow>(forgot)->startForgotFlow();
      })));
  EXPECT_EQ(service_.requestsTo("/login/direct/msisdn/PINforgot"), 1);
  testing::internals(*o)._ostrelStatus->freeCurrentRunningFlow(holder.get());
}

TEST_F(LoginTest, OperatorRecognitionForwardsThePageAsItCameAtMostThreeTimes) {
  // The emulator refuses a forwarded page that differs from the one it served.
  const std::string html = emulator::Options().operatorPage;
  const char kLatin1[] = "<html>caf\xe9 \xff\x00 ok</html>";  // not UTF-8, with a NUL
  const std::string latin1(kLatin1, sizeof kLatin1 - 1);
  const std::string json = R"({ "b" : 1,   "a":"\u00e9" })";
  struct Case {
    int bounces;
    std::string page;
    std::optional<std::string> imsi;
  };
  for (const auto& c : {Case{3, html, std::nullopt}, Case{4, html, std::nullopt},
                        Case{2, latin1, "222015550001"}, Case{1, json, std::nullopt}}) {
    SCOPED_TRACE(std::to_string(c.bounces) + " " + c.page);
    test::TestPlatform platform;
    test::EmulatorService service;
    service.setOperatorBounces(c.bounces);
    service.emulator().setOperatorPage(c.page);
    auto o = service.startFacade(platform);
    auto error = EmulatorService::runFlow(
        *o,
        [&](OLLoginBuilder& b) {
          if (c.imsi) b.setIMSI(*c.imsi);
        },
        &OLLoginBuilder::getMSISDNURLoginFlow);
    EXPECT_EQ(!error, c.bounces <= 3) << error->description();
    EXPECT_TRUE(!error || error->is(LocalErrorCodes::ConnectionDomainWarning));
    const auto start = service.emulator().requestBodies("/login/direct/msisdn/autorecognition");
    ASSERT_EQ(start.size(), 1u);
    const Json sent = *parseJson(start[0]);
    EXPECT_EQ(sent.contains("imsi") ? std::optional(sent["imsi"].get<std::string>()) : std::nullopt,
              c.imsi);
    const auto forwarded = service.emulator().requestBodies("/login/direct/msisdn/bodyrecognition");
    EXPECT_EQ(forwarded.size(), static_cast<std::size_t>(std::min(c.bounces, 3)));
    for (const auto& body : forwarded) {
      EXPECT_EQ((*parseJson(body))["mno_response"],
                platform.platform().crypto->base64Encode(c.page));
    }
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
      ASSERT_FALSE(EmulatorService::logIn(*o));
    }
    service.failNext("/handling/direct/refreshtoken", c.status);
    auto o = service.startFacade(platform);
    EXPECT_TRUE(test::eventually([&] { return !*o->isUserLogged(); })) << c.status;
    // The logout event is queued just after the state changes: flush until it is there.
    EXPECT_TRUE(test::eventually([&] {
      (void)EmulatorService::flush(*o);
      return !service.events("logout").empty();
    }));
    std::vector<std::string> logouts;
    for (const auto& e : service.events("logout")) logouts.push_back(e["login_type"]);
    EXPECT_EQ(logouts, std::vector<std::string>{c.logoutType}) << c.status;
  }
}

TEST_F(LoginTest, AReplyAfterTheFacadeWentStoresNothing) {
  // A start-up refresh still under way when the host destroyed the facade
  // stored its new autologin token afterwards, over files the host may
  // already be changing (the corrupt-store campaign saw a token it had
  // damaged come back).
  {
    auto o = start();
    ASSERT_FALSE(EmulatorService::logIn(*o));
  }
  auto stored = [&] {
    std::map<std::string, std::string> files;
    for (const auto& e : std::filesystem::directory_iterator(platform_.root() + "/UserTokens"))
      files[e.path().filename()] = test::readWholeFile(e.path());
    return files;
  };
  const auto before = stored();
  ASSERT_FALSE(before.empty());
  const char* refresh = "/handling/direct/refreshtoken";
  const int refreshes = service_.requestsTo(refresh);
  service_.delayNext(refresh, 300);
  start().reset();
  ASSERT_TRUE(test::eventually([&] { return service_.requestsTo(refresh) > refreshes; }));
  std::this_thread::sleep_for(600ms);  // the late reply is back by now
  EXPECT_EQ(stored(), before);
}

}  // namespace
}  // namespace ostrel
