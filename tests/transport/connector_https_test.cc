// The connector against a real HTTPS server on loopback.
#include <gtest/gtest.h>

#include <thread>

#include "core/ol_default.h"
#include "platform/defaults.h"
#include "support/connector_answer.h"
#include "support/emulator_service.h"
#include "support/eventually.h"
#include "support/loopback_server.h"
#include "transport/connector_builder.h"

namespace ostrel {
namespace {

using test::Answer;

class ConnectorHttpsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    services_ = std::make_shared<const Platform>(server_.platformFor(platform_));
  }

  Answer send(OstrelAPIEndpoint endpoint, const Json& body, int64_t timeout = 15) {
    return test::send(ConnectorBuilder(services_, "app-id", "secret", false, false, false, timeout),
                      endpoint, body);
  }

  test::TestPlatform platform_;
  test::LoopbackServer server_;
  // Dropped first: its client closes its kept-alive connections before the server stops.
  PlatformRef services_;
};

TEST_F(ConnectorHttpsTest, SendsTheExactSignedRequest) {
  platform_.clock().set(1700000000.2);
  server_.setHandler([](const httplib::Request&, httplib::Response& res) {
    res.set_content("{\"session_token\":\"O_1\"}", "application/json");
  });
  Json body = {{"email", "a@b.c"}, {"password", "pw"}};
  auto answer = send(OstrelAPIEndpoint::EmailLogin, body);
  ASSERT_FALSE(answer.error) << answer.error->description();
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body, (Json{{"session_token", "O_1"}}));

  auto received = server_.received();
  ASSERT_EQ(received.size(), 1u);
  const auto& r = received[0];
  EXPECT_EQ(r.method, "POST");
  EXPECT_EQ(r.path, "/login/direct/email/login");
  EXPECT_EQ(r.host, "auth.ostrel.test");
  EXPECT_EQ(r.body, dumpJson(body));
  EXPECT_EQ(r.header("Content-Length"), std::to_string(r.body.size()));
  EXPECT_EQ(r.header("Content-Type"), "application/json");
  EXPECT_EQ(r.header("Accept"), "application/json");
  std::string signature = OLConnector::getImeldStr(*services_->crypto, "secret",
                                                   "auth.ostrel.test/login/direct/email/login",
                                                   "POST", r.body, "", "1700000000");
  EXPECT_EQ(r.header("Authorization"),
            OLConnector::authorizationHeader("app-id", std::nullopt, signature, "1700000000"));
}

// The refusal comes where every answer comes, never inside the caller's send().
TEST_F(ConnectorHttpsTest, InvalidBodyNeverLeavesTheDeviceAndIsAnsweredOnTheNetworkThread) {
  auto [error, thread] = test::await<std::optional<OLError>, std::thread::id>([&](auto done) {
    ConnectorBuilder(services_, "app-id", "secret", false, false, false, 15)
        .buildConnector()
        .send(OstrelAPIEndpoint::EmailLogin, Json{{"email", "a@b.c"}},
              [done](std::optional<OLError> e, int64_t, std::optional<Json>) {
                done(std::move(e), std::this_thread::get_id());
              });
  });
  EXPECT_TRUE(error && error->is(LocalErrorCodes::ConnectionValidationError, "Missing password"));
  EXPECT_NE(thread, std::this_thread::get_id());
  EXPECT_TRUE(server_.received().empty());
}

TEST_F(ConnectorHttpsTest, GroupThatCouldBreakTheHeaderIsRefusedAndNeverReachesTheWire) {
  const Key<std::string> stored("DistributionGroup");
  ConnectorBuilder builder(services_, "app-id", "secret", false, false, false, 15);
  struct Case {
    std::string group;
    bool accepted;
  };
  const Case cases[] = {
      {"be\"ta\r\nX-Injected: yes", false},
      {"beta\nX-Injected: yes", false},
      {"beta\rX-Injected: yes", false},
      {"be\"ta", false},
      {"be\\ta", false},
      {std::string("be\0ta", 5), false},
      {"tab\there", false},
      {"del\x7f", false},
      {"c1\xC2\x85", false},
      {"\xff\xfe", false},
      {"beta", true},
      {"b\xC3\xA9ta 2, (rc)", true},
      {"", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.group);
    ASSERT_TRUE(builder.setDistributionGroup(std::string("before")));
    auto set = builder.setDistributionGroup(c.group);
    ASSERT_EQ(set.has_value(), c.accepted);
    const std::string expected = c.accepted ? c.group : "before";
    if (!set) {
      EXPECT_TRUE(
          set.error().is(LocalErrorCodes::ConnectionValidationError, "Invalid distribution group"));
      EXPECT_EQ((*set.error().extra())["distributionGroup"], c.group);
    }
    EXPECT_EQ(builder.distributionGroup(), expected);
    EXPECT_EQ(OLDefault(services_->settings).get(stored), expected);

    (void)test::send(builder, OstrelAPIEndpoint::RichPush, Json::object());
    const auto received = server_.received().back();
    EXPECT_EQ(received.headers.count("X-Injected"), 0u);
    EXPECT_NE(received.header("Authorization").find("group=\"" + expected + "\" , signature="),
              std::string::npos);
  }
  // A restart finds the accepted group; an unset one leaves the header.
  ASSERT_TRUE(builder.setDistributionGroup(std::string("beta")));
  EXPECT_EQ(
      ConnectorBuilder(services_, "app-id", "secret", false, false, false, 15).distributionGroup(),
      "beta");
  ASSERT_TRUE(builder.setDistributionGroup(std::nullopt));
  (void)test::send(builder, OstrelAPIEndpoint::RichPush, Json::object());
  EXPECT_EQ(server_.received().back().header("Authorization").find("group="), std::string::npos);
  // A group stored by an older version that breaks the rule is dropped at start.
  OLDefault(services_->settings).set(std::string("x\r\nX-Injected: yes"), stored);
  ConnectorBuilder restarted(services_, "app-id", "secret", false, false, false, 15);
  EXPECT_FALSE(restarted.distributionGroup());
  EXPECT_FALSE(OLDefault(services_->settings).has(stored));
}

// Every login endpoint against the emulator redirecting it to a host outside
// the domain: credentials never reach that host, whatever the redirect.
TEST(ConnectorRedirectTest, CredentialsNeverFollowARedirectOutsideTheDomain) {
  test::TestPlatform platform;
  test::EmulatorService service;
  const PlatformRef services = std::make_shared<const Platform>(service.platformFor(platform));
  const std::pair<OstrelAPIEndpoint, Json> logins[] = {
      {OstrelAPIEndpoint::EmailLogin, {{"email", "user@ostrel.test"}, {"password", "secret"}}},
      {OstrelAPIEndpoint::EmailSignup, {{"email", "new@ostrel.test"}, {"password", "secret"}}},
      {OstrelAPIEndpoint::EmailForgot, {{"email", "user@ostrel.test"}}},
      {OstrelAPIEndpoint::EmailResend, {{"email", "user@ostrel.test"}}},
      {OstrelAPIEndpoint::EmailIdentify,
       {{"user_id", "U_1"}, {"email", "user@ostrel.test"}, {"password", "secret"}}},
      {OstrelAPIEndpoint::MSISDNLogin, {{"msisdn", "393331234567"}, {"pin", "1234"}}},
      {OstrelAPIEndpoint::MSISDNForgot, {{"msisdn", "393331234567"}}},
      {OstrelAPIEndpoint::MSISDNURBody, {{"mno_response", "PGh0bWw+"}}},
      {OstrelAPIEndpoint::NativeConvert, {{"access_token", "oauth-token"}}},
      {OstrelAPIEndpoint::RefreshToken, {{"user_id", "autologin-token"}}},
      {OstrelAPIEndpoint::PaymentReceiptLogin,
       {{"serialized_receipt", "receipt"}, {"offerId", "offer"}}},
      {OstrelAPIEndpoint::UO2CredentialsTo3, {{"brivolauser", "u"}, {"info_utente", "i"}}},
      {OstrelAPIEndpoint::GenerateTransientToken, {{"user_id", "O_session"}}},
  };
  ConnectorBuilder builder(services, "demo", "demo-secret", false, false, false, 10);
  for (const auto& [endpoint, body] : logins) {
    for (int status : {301, 302, 303, 307, 308}) {
      SCOPED_TRACE(std::string(endpointName(endpoint)) + " " + std::to_string(status));
      service.emulator().injectFault(std::string(endpointPath(endpoint)),
                                     emulator::Emulator::Fault{status, 0, false, "outside"});
      auto error = test::send(builder, endpoint, body).error;
      // Refused before it goes (307, 308), or answered by the stranger: never a success.
      ASSERT_TRUE(error);
      EXPECT_TRUE(error->is(status >= 307 ? LocalErrorCodes::ConnectionError
                                          : LocalErrorCodes::ConnectionDomainWarning))
          << error->description();
    }
  }
  int strangerRequests = 0;
  for (const auto& r : service.emulator().requests()) {
    if (r["headers"].value("Host", "") != emulator::Emulator::kOutsideHost) continue;
    ++strangerRequests;
    EXPECT_EQ(r["method"], "GET");
    EXPECT_EQ(r["body"], "");
    EXPECT_FALSE(r["headers"].contains("Authorization"));
  }
  // 301, 302 and 303 of each endpoint were followed, as GETs.
  EXPECT_EQ(strangerRequests, 3 * static_cast<int>(std::size(logins)));
}

}  // namespace
}  // namespace ostrel
