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

class ConnectorHttpsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    services_ = std::make_shared<const Platform>(server_.platformFor(platform_));
  }

  ConnectorBuilder connectors() const {
    return ConnectorBuilder(services_, "app-id", "secret", false, false, false, 15);
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
  auto answer = test::send(connectors(), OstrelAPIEndpoint::EmailLogin, body);
  ASSERT_FALSE(answer.error) << answer.error->description();

  auto received = server_.received();
  ASSERT_EQ(received.size(), 1u);
  const auto& r = received[0];
  EXPECT_EQ(r.method, "POST");
  EXPECT_EQ(r.path, "/login/direct/email/login");
  EXPECT_EQ(r.host, "auth.ostrel.test");
  EXPECT_EQ(r.body, dumpJson(body));
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
    connectors().buildConnector().send(
        OstrelAPIEndpoint::EmailLogin, Json{{"email", "a@b.c"}},
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
  ConnectorBuilder builder = connectors();
  struct Case {
    std::string group;
    bool accepted;
  };
  const Case cases[] = {
      {"beta\r\nX-Injected: yes", false},
      {"be\"ta", false},
      {"be\\ta", false},
      {"c1\xC2\x85", false},  // a control character beyond ASCII
      {"\xff\xfe", false},
      {"b\xC3\xA9ta 2, (rc)", true},
      {"", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.group);
    ASSERT_TRUE(builder.setDistributionGroup(std::string("before")));
    auto set = builder.setDistributionGroup(c.group);
    ASSERT_EQ(set.has_value(), c.accepted);
    const std::string expected = c.accepted ? c.group : "before";
    EXPECT_TRUE(set || set.error().is(LocalErrorCodes::ConnectionValidationError,
                                      "Invalid distribution group"));
    EXPECT_EQ(OLDefault(services_->settings).get(stored), expected);

    (void)test::send(builder, OstrelAPIEndpoint::RichPush, Json::object());
    const auto header = server_.received().back().header("Authorization");
    EXPECT_NE(header.find("group=\"" + expected + "\" , signature="), std::string::npos);
  }
  // A restart finds the accepted group; an unset one leaves the header.
  ASSERT_TRUE(builder.setDistributionGroup(std::string("beta")));
  EXPECT_EQ(connectors().distributionGroup(), "beta");
  ASSERT_TRUE(builder.setDistributionGroup(std::nullopt));
  (void)test::send(builder, OstrelAPIEndpoint::RichPush, Json::object());
  EXPECT_EQ(server_.received().back().header("Authorization").find("group="), std::string::npos);
  // A group stored by an older version that breaks the rule is dropped at start.
  OLDefault(services_->settings).set(std::string("x\r\nX-Injected: yes"), stored);
  EXPECT_FALSE(connectors().distributionGroup());
  EXPECT_FALSE(OLDefault(services_->settings).has(stored));
}

// The connector marks its requests with the service's domain: a login
// redirected outside it with its body (307) is refused before anything goes
// there. How each redirect status is followed, and what a 302 drops, is the
// HTTP client's own test. The operator recognition alone may be answered from
// outside, so its next step is checked too.
TEST(ConnectorRedirectTest, CredentialsNeverFollowARedirectOutsideTheDomain) {
  test::TestPlatform platform;
  test::EmulatorService service;
  const PlatformRef services = std::make_shared<const Platform>(service.platformFor(platform));
  const std::pair<OstrelAPIEndpoint, Json> logins[] = {
      {OstrelAPIEndpoint::EmailLogin, {{"email", "user@ostrel.test"}, {"password", "secret"}}},
      {OstrelAPIEndpoint::MSISDNURBody, {{"mno_response", "PGh0bWw+"}}},
  };
  ConnectorBuilder builder(services, "demo", "demo-secret", false, false, false, 10);
  for (const auto& [endpoint, body] : logins) {
    SCOPED_TRACE(endpointName(endpoint));
    service.emulator().injectFault(std::string(endpointPath(endpoint)),
                                   emulator::Emulator::Fault{307, 0, false, "outside"});
    auto error = test::send(builder, endpoint, body).error;
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(LocalErrorCodes::ConnectionError)) << error->description();
  }
  for (const auto& r : service.emulator().requests()) {
    EXPECT_NE(r["headers"].value("Host", ""), emulator::Emulator::kOutsideHost);
  }
}

}  // namespace
}  // namespace ostrel
