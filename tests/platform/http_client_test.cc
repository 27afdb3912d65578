#include <gtest/gtest.h>

#include <future>
#include <string>

#include "platform/defaults.h"
#include "support/loopback_server.h"

namespace ostrel {
namespace {

using platform::HttpRequest;
using platform::HttpResponse;

struct Outcome {
  std::optional<PlatformError> error;
  HttpResponse response;
};

Outcome sendAndWait(platform::HttpClient& client, HttpRequest request) {
  std::promise<Outcome> done;
  client.send(std::move(request), [&](std::optional<PlatformError> e, HttpResponse r) {
    done.set_value({std::move(e), std::move(r)});
  });
  return done.get_future().get();
}

NetworkOverrides reaching(const test::LoopbackServer& server, bool trustCa = true) {
  NetworkOverrides o;
  o.connectTo = server.connectTo();
  if (trustCa) o.caFile = server.caFile();
  return o;
}

TEST(CurlHttpClient, SendsBodyAndHeadersByteExactAndReturnsRawBody) {
  test::LoopbackServer server;
  const std::string reply("\xff\xfe\x00\x80ok", 6);
  server.setHandler([&](const httplib::Request&, httplib::Response& res) {
    res.set_content(reply, "application/octet-stream");
  });
  auto client = platform::makeCurlHttpClient(reaching(server));
  const std::string body("{\"a\":\"\xc3\xa9\"}\x00\x01", 12);
  auto out =
      sendAndWait(*client, {"https://client.ostrel.test/api/x",
                            "POST",
                            {{"Authorization", "OL abc:def"}, {"Content-Type", "application/json"}},
                            body});
  ASSERT_FALSE(out.error) << out.error->localizedDescription;
  EXPECT_EQ(out.response.status, 200);
  EXPECT_EQ(out.response.body, reply);
  EXPECT_EQ(out.response.finalUrl, "https://client.ostrel.test/api/x");
  auto got = server.received();
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].body, body);
  EXPECT_EQ(got[0].header("Authorization"), "OL abc:def");
  EXPECT_EQ(got[0].header("Content-Length"), std::to_string(body.size()));
  EXPECT_EQ(got[0].header("Host"), "client.ostrel.test");
}

TEST(CurlHttpClient, TransportFailuresCompleteWithErrorAndNoResponse) {
  test::LoopbackServer server;
  server.setHandler([](const httplib::Request&, httplib::Response& res) {
    std::this_thread::sleep_for(std::chrono::seconds(2));
    res.set_content("late", "text/plain");
  });
  struct Case {
    const char* name;
    NetworkOverrides overrides;
    double timeout;
    const char* url = "https://client.ostrel.test/x";
  };
  NetworkOverrides refused;
  refused.connectTo = "127.0.0.1:1";
  // A trusted certificate for another name: no setting lets that through.
  const Case cases[] = {
      {"untrusted certificate", reaching(server, false), 10},
      {"certificate of another host", reaching(server), 10, "https://elsewhere.example/x"},
      {"time-out", reaching(server), 0.3},
      {"refused", refused, 10},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto client = platform::makeCurlHttpClient(c.overrides);
    auto out = sendAndWait(*client, {c.url, "POST", {}, "{}", c.timeout});
    ASSERT_TRUE(out.error);
    EXPECT_EQ(out.error->domain, "ostrel.http");
    EXPECT_NE(out.error->code, 0);
    EXPECT_FALSE(out.error->localizedDescription.empty());
    EXPECT_EQ(out.response.status, 0);
  }
}

TEST(CurlHttpClient, DestructionCompletesRequestsInFlightAsCancelled) {
  test::LoopbackServer server;
  server.setHandler([](const httplib::Request&, httplib::Response& res) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    res.set_content("{}", "application/json");
  });
  std::promise<Outcome> done;
  {
    auto client = platform::makeCurlHttpClient(reaching(server));
    client->send({"https://client.ostrel.test/x", "POST", {}, "{}"},
                 [&](std::optional<PlatformError> e, HttpResponse r) {
                   done.set_value({std::move(e), std::move(r)});
                 });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  auto out = done.get_future().get();
  ASSERT_TRUE(out.error);
  EXPECT_EQ(out.error->localizedDescription, "cancelled");
}

}  // namespace
}  // namespace ostrel
