// The emulator driven through the library's own connector over real HTTPS.
#include "emulator/emulator.h"

#include <gtest/gtest.h>

#include "support/connector_answer.h"
#include "support/emulator_client.h"
#include "support/emulator_service.h"

namespace ostrel {
namespace {

using test::Answer;

// A bulk of one custom event.
Json bulkOf(const std::string& name) {
  return Json::array({{{"event_type", "custom event"},
                       {"session_id", "s"},
                       {"creation_date", "2026-11-22T10:00:00Z"},
                       {"user_id", "A_1"},
                       {"name", name}}});
}

class EmulatorTest : public ::testing::Test {
 protected:
  void SetUp() override { startEmulator(); }

  void startEmulator(const std::string& dataDir = "") {
    service_.reset();
    service_ = std::make_unique<test::EmulatorService>(
        [&](emulator::Options& options) { options.dataDir = dataDir; });
    services_ = std::make_shared<const Platform>(service_->platformFor(platform_));
  }

  Answer send(OstrelAPIEndpoint endpoint, const Json& body,
              const std::string& secret = "demo-secret", const std::string& app = "demo",
              int64_t timeout = 15) {
    return test::send(ConnectorBuilder(services_, app, secret, false, false, false, timeout),
                      endpoint, body);
  }
  Json control(const std::string& path, const std::optional<Json>& post = std::nullopt) {
    return test::control(service_->emulator().info(), path, post);
  }

  test::TestPlatform platform_;
  std::unique_ptr<test::EmulatorService> service_;
  PlatformRef services_;  // reaches service_
};

TEST_F(EmulatorTest, SignaturesAreChecked) {
  // Accepted with the right secret: every library test that reaches the
  // emulator (signed with its device identifier) shows that.
  EXPECT_EQ(send(OstrelAPIEndpoint::RichPush, Json::object(), "wrong").status, 401);
  // A stale timestamp.
  Platform p = *services_;
  p.clock = std::make_shared<test::FakeClock>(1000);
  services_ = std::make_shared<const Platform>(p);
  EXPECT_EQ(send(OstrelAPIEndpoint::RichPush, Json::object()).status, 401);
}

// Refusals the library's connector cannot produce on its own: hand-signed
// requests with a wrong version, an unknown path, a body that is not JSON,
// and one over the size limit.
TEST_F(EmulatorTest, MalformedRequestsAreRefusedWithTheErrorObject) {
  struct Case {
    std::string path, body, version;
    int status;
    std::string code;
  };
  const std::string big(2 << 20, 'x');
  const Case cases[] = {
      {std::string(endpointPath(OstrelAPIEndpoint::RichPush)), "{}", "2.0", 401, "UNAUTHORIZED"},
      {"/no/such/endpoint", "{}", "2.1", 404, "NOT_FOUND"},
      {std::string(endpointPath(OstrelAPIEndpoint::EmailLogin)), "{not json", "2.1", 400,
       "BAD_REQUEST"},
      {std::string(endpointPath(OstrelAPIEndpoint::TrackBulk)), big, "2.1", 413, "TOO_LARGE"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path + " " + std::to_string(c.status));
    auto reply = test::sendSigned(service_->emulator().info(), c.path, c.body, c.version);
    EXPECT_EQ(reply.status, c.status);
    auto body = parseJson(reply.body);
    ASSERT_TRUE(body && body->contains("error")) << reply.body;
    EXPECT_EQ((*body)["error"]["code"], c.code);
  }
}

// What the library's own payment tests cannot reach: a receipt paid by one
// user sent again by another, and a stranger's paying state.
TEST_F(EmulatorTest, ReceiptsAndPayingStateBelongToTheOffersUser) {
  auto login =
      send(OstrelAPIEndpoint::MSISDNLogin, Json{{"msisdn", "393331234567"}, {"pin", "1234"}});
  ASSERT_FALSE(login.error);
  const std::string user = (*login.body)["session_token"];
  auto offer =
      send(OstrelAPIEndpoint::PaymentGetOfferFor,
           Json{{"user_id", user}, {"native_item_id", "gold"}, {"marketplace", "appleStore"}});
  ASSERT_FALSE(offer.error);
  const std::string offerId = (*offer.body)["offer"]["offer_id"];
  Json add = {{"user_id", user},
              {"serialized_receipt", {{"offerId", offerId}, {"receipt", "UkVDRUlQVA=="}}}};
  EXPECT_FALSE(send(OstrelAPIEndpoint::PaymentReceiptAdd, add).error);
  add["user_id"] = "O_someone_else";
  EXPECT_EQ(send(OstrelAPIEndpoint::PaymentReceiptAdd, add).code(), "OFFER_PAYMENT_USER_MISMATCH");
  EXPECT_EQ(
      (*send(OstrelAPIEndpoint::PaymentIsPayingForDefault, Json{{"user_id", "O_someone_else"}})
            .body)["is_paying"],
      false);
}

// The login tests forward the page as it came; only the emulator's refusal of
// an altered one is checked here.
TEST_F(EmulatorTest, OperatorRecognitionTakesBackOnlyThePageItServed) {
  (void)send(OstrelAPIEndpoint::MSISDNUR, Json::object());  // a page is served
  auto altered = send(OstrelAPIEndpoint::MSISDNURBody, Json{{"mno_response", "cGFnZQ=="}});
  ASSERT_TRUE(altered.error);
  EXPECT_EQ(altered.error->code(), "WRONG_MNO_RESPONSE");
}

// Faults asked through the control API; what each fault does to the library is
// the fault campaign's and the login tests' own check.
TEST_F(EmulatorTest, InjectedFaultsComeBackAsAsked) {
  const Json bulk = bulkOf("faulted");
  control("/_emulator/faults", Json{{"endpoint", "TrackBulk"}, {"body", "non_utf8"}});
  EXPECT_EQ((*send(OstrelAPIEndpoint::TrackBulk, bulk).body)["__parsed_hex__"], "fffe0001");
  // Beyond the connector's time-out: the host gets a connection error, no status.
  control("/_emulator/faults", Json{{"endpoint", "TrackBulk"}, {"delay_ms", 2500}});
  auto late = send(OstrelAPIEndpoint::TrackBulk, bulk, "demo-secret", "demo", /*timeout=*/1);
  ASSERT_TRUE(late.error);
  EXPECT_TRUE(late.error->is(LocalErrorCodes::ConnectionError, "Error on Ostrel Server Response"));
  EXPECT_EQ(late.status, 0);
  EXPECT_NE(late.error->underlyingError(), nullptr);
  auto unknown = send(OstrelAPIEndpoint::TrackBulk, Json::array({{{"event_type", "x"}}}));
  EXPECT_EQ(unknown.status, 400);
  // The last request is read back first, with its signed header.
  auto last = control("/_emulator/requests?limit=1")["requests"];
  ASSERT_EQ(last.size(), 1u);
  EXPECT_NE(dumpJson(last[0]).find("iMeld"), std::string::npos);
}

TEST_F(EmulatorTest, EventsPersistAcrossARestart) {
  test::TempDir data;
  startEmulator(data.path());
  ASSERT_FALSE(send(OstrelAPIEndpoint::TrackBulk, bulkOf("persisted_one")).error);
  startEmulator(data.path());
  auto events = control("/_emulator/events");
  EXPECT_EQ(events["count"], 1);
  EXPECT_EQ(events["events"][0]["event"]["name"], "persisted_one");
}

TEST(EmulatorStoreTest, EventsCanBeCountedWithoutBeingKept) {
  test::TempDir data;
  auto store = emulator::EmulatorStore::open(data.path());
  ASSERT_TRUE(store);
  const Json bulk = Json::array({{{"event_type", "custom event"}, {"name", "a"}},
                                 {{"event_type", "custom event"}, {"name", "b"}}});
  store->addEvents(bulk, 1.0);
  store->setKeepEvents(false);
  store->addEvents(bulk, 2.0);
  EXPECT_EQ(store->eventCount(), 4u);
  EXPECT_EQ(store->events(100).size(), 2u);
  store->reset();
  EXPECT_EQ(store->eventCount(), 0u);
}

}  // namespace
}  // namespace ostrel
