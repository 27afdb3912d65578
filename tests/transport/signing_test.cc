#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <thread>

#include "core/ol_default.h"
#include "support/test_platform.h"
#include "transport/connector_builder.h"
#include "transport/hash.h"
#include "transport/ol_connector.h"

namespace ostrel {
namespace {

// The session identifier's digest (FIPS 180 "abc"); the signatures below pin the HMAC.
TEST(SigningTest, PublishedSha1Vector) {
  test::TestPlatform platform;
  EXPECT_EQ(sha1Hex(*platform.platform().crypto, "abc"),
            "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST(SigningTest, SignatureIsTheHmacOfTheJoinedRequest) {
  test::TestPlatform platform;
  // Expected: `openssl dgst -sha1 -hmac SECRET` of "endpoint|POST|body|query|timestamp".
  struct Case {
    std::string secret, endpoint, body, query, timestamp, signature;
  };
  const Case cases[] = {
      {"k", "client.ostrel.test/push/registration", "{\"é\":\"ü\"}", "q=1", "1700000001",
       "7d2ba43be1eb089af94604db9bbf3249b5929a88"},
      {"\x01\x02", "h/p", "", "", "0", "7ff61f14b1baecfb02c37c0c737181a2c2f6d16e"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(OLConnector::getImeldStr(*platform.platform().crypto, c.secret, c.endpoint, "POST",
                                       c.body, c.query, c.timestamp),
              c.signature);
  }
}

TEST(SigningTest, AuthorizationHeaderWithAndWithoutGroup) {
  EXPECT_EQ(OLConnector::authorizationHeader("app", std::nullopt, "abc", "17"),
            "iMeld application_id=\"app\", platform=\"iOS\", signature=\"abc\", "
            "version=\"2.1\", timestamp=\"17\"");
  EXPECT_EQ(OLConnector::authorizationHeader("app", std::string("beta"), "abc", "17"),
            "iMeld application_id=\"app\", platform=\"iOS\", group=\"beta\" , signature=\"abc\", "
            "version=\"2.1\", timestamp=\"17\"");
}

TEST(HeadersTest, SignsHostAndPathWithoutSchemePortOrQuery) {
  test::TestPlatform platform;
  OLConnector connector =
      ConnectorBuilder(platform.ref(), "app", "secret", false, false, false, 15).buildConnector();
  platform.clock().set(1700000000.6);
  struct Case {
    std::optional<std::string> body;
    std::string signedBody;
    std::string length;
  };
  const Case cases[] = {
      {std::nullopt, "", "0"},
      {std::string("\xff\xfe{}"), "", "4"},  // not UTF-8: sent as is, signed as empty
  };
  for (const auto& c : cases) {
    platform::HttpRequest r;
    r.url = "https://client.ostrel.io:8443/events/track_bulk?x=1";
    r.method = "POST";
    ASSERT_TRUE(connector.addHeadersToRequest(r, std::nullopt, c.body));
    const auto headers = std::map<std::string, std::string>(r.headers.begin(), r.headers.end());
    EXPECT_EQ(headers.at("Content-Length"), c.length);
    EXPECT_EQ(r.body, c.body.value_or(""));
    std::string sig = OLConnector::getImeldStr(*platform.platform().crypto, "secret",
                                               "client.ostrel.io/events/track_bulk", "POST",
                                               c.signedBody, "", "1700000001");
    EXPECT_EQ(headers.at("Authorization"),
              OLConnector::authorizationHeader("app", std::nullopt, sig, "1700000001"));
  }
}

// Settings whose writes return late, by a varying amount, so that two writers overlap.
class SlowSettings : public platform::KeyValueStore {
 public:
  explicit SlowSettings(std::shared_ptr<platform::KeyValueStore> inner)
      : inner_(std::move(inner)) {}
  std::optional<platform::SettingsValue> get(const std::string& key) const override {
    return inner_->get(key);
  }
  void set(const std::string& key, platform::SettingsValue value) override {
    inner_->set(key, std::move(value));
    std::this_thread::sleep_for(std::chrono::microseconds(100 + (++writes_ * 7919) % 1500));
  }
  void remove(const std::string& key) override { inner_->remove(key); }
  void removeAll() override { inner_->removeAll(); }
  void synchronize() override { inner_->synchronize(); }

 private:
  std::shared_ptr<platform::KeyValueStore> inner_;
  std::atomic<int> writes_{0};
};

TEST(DistributionGroupTest, ConcurrentSettersLeaveMemoryAndSettingsAgreeing) {
  test::TestPlatform platform;
  Platform slow = platform.platform();
  slow.settings = std::make_shared<SlowSettings>(slow.settings);
  ConnectorBuilder builder(std::make_shared<const Platform>(slow), "app", "secret", false, false,
                           false, 15);
  const Key<std::string> stored("DistributionGroup");
  for (int round = 0; round < 30; ++round) {
    std::thread a([&] { (void)builder.setDistributionGroup("a" + std::to_string(round)); });
    std::thread b([&] { (void)builder.setDistributionGroup("b" + std::to_string(round)); });
    a.join();
    b.join();
    ASSERT_EQ(builder.distributionGroup(), OLDefault(slow.settings).get(stored))
        << "round " << round;
  }
}

}  // namespace
}  // namespace ostrel
