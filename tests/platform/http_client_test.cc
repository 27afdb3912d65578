#include <curl/curl.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "platform/defaults.h"
#include "support/eventually.h"
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
  auto [error, response] = test::await<std::optional<PlatformError>, HttpResponse>(
      [&](auto done) { client.send(std::move(request), done); });
  return {std::move(error), std::move(response)};
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
  EXPECT_EQ(out.response.body, reply);
  auto got = server.received();
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].body, body);
  EXPECT_EQ(got[0].header("Authorization"), "OL abc:def");
  EXPECT_EQ(got[0].header("Host"), "client.ostrel.test");
}

TEST(CurlHttpClient, TransportFailuresCompleteWithErrorAndNoResponse) {
  test::LoopbackServer server;
  server.setHandler([](const httplib::Request&, httplib::Response& res) {
    std::this_thread::sleep_for(std::chrono::seconds(2));
    res.set_content("late", "text/plain");
  });
  using Headers = std::vector<std::pair<std::string, std::string>>;
  struct Case {
    std::string name;
    NetworkOverrides overrides;
    double timeout = 10;
    std::string url = "https://client.ostrel.test/x";
    Headers headers = {};
  };
  NetworkOverrides refused;
  refused.connectTo = "127.0.0.1:1";
  // A trusted certificate for another name: no setting lets that through.
  std::vector<Case> cases = {
      {"untrusted certificate", reaching(server, false)},
      {"certificate of another host", reaching(server), 10, "https://elsewhere.example/x"},
      {"time-out", reaching(server), 0.3},
      {"refused", refused},
  };
  // A header that would add a line of its own is never sent.
  for (const auto& header : Headers{{"Authorization", "iMeld group=\"x\"\r\nX-Injected: yes"},
                                    {"A", std::string("b\0c", 3)},
                                    {"X: y", "z"}}) {
    cases.push_back({"header " + header.first, reaching(server), 10, cases[0].url, {header}});
  }
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto client = platform::makeCurlHttpClient(c.overrides);
    auto out = sendAndWait(*client, {c.url, "POST", c.headers, "{}", c.timeout});
    ASSERT_TRUE(out.error);
    EXPECT_EQ(out.error->domain, "ostrel.http");
    EXPECT_EQ(out.response.status, 0);
  }
  // Only the time-out case reached the handler.
  EXPECT_EQ(server.received().size(), 1u);
}

TEST(CurlHttpClient, RedirectsCarryTheBodyOnlyWhereItMayGo) {
  test::LoopbackServer server;
  struct Case {
    const char* name;
    int status;
    std::string target;
    std::string method;  // at the target; "" when the redirect is refused
    bool keepsBody;
    bool keepsAuthorization;
    std::string bodyDomain = "ostrel.test";
    bool bodyMayLeaveDomain = false;
  };
  const std::string same = "https://auth.ostrel.test/next";
  const std::string inDomain = "https://client.ostrel.test/next";
  const std::string outside = "https://operator.mno.test/next";
  const Case cases[] = {
      {"301 same host", 301, same, "GET", false, true},
      {"302 outside", 302, outside, "GET", false, false},
      {"303 in the domain", 303, inDomain, "GET", false, true},
      {"308 in the domain", 308, inDomain, "POST", true, true},
      {"307 outside", 307, outside, "", false, false},
      {"307 down to http", 307, "http://auth.ostrel.test/next", "", false, false},
      {"307 relative", 307, "/next", "POST", true, true},
      {"307 another host, own host only", 307, inDomain, "", false, false, ""},
      {"307 outside, allowed there", 307, outside, "POST", true, true, "ostrel.test", true},
  };
  const std::string body = R"({"email":"a@b.c","password":"pw"})";
  auto client = platform::makeCurlHttpClient(reaching(server));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    server.setHandler([&](const httplib::Request& req, httplib::Response& res) {
      if (req.path == "/start") {
        res.status = c.status;
        res.set_header("Location", c.target);
      } else {
        res.set_content("{\"ok\":true}", "application/json");
      }
    });
    const std::size_t before = server.received().size();
    HttpRequest request{"https://auth.ostrel.test/start",
                        "POST",
                        {{"Authorization", "iMeld signature=\"s\""},
                         {"Content-Type", "application/json"},
                         {"Content-Length", std::to_string(body.size())}},
                        body};
    request.bodyDomain = c.bodyDomain;
    request.bodyMayLeaveDomain = c.bodyMayLeaveDomain;
    auto out = sendAndWait(*client, request);
    auto received = server.received();
    ASSERT_GE(received.size(), before + 1);
    if (c.method.empty()) {
      ASSERT_TRUE(out.error);
      EXPECT_EQ(out.error->domain, "ostrel.http.redirect");
      EXPECT_EQ(received.size(), before + 1) << "nothing may reach the redirect's target";
      continue;
    }
    ASSERT_FALSE(out.error) << out.error->localizedDescription;
    ASSERT_EQ(received.size(), before + 2);
    const auto& hop = received[before + 1];
    EXPECT_EQ(hop.method, c.method);
    EXPECT_EQ(hop.body, c.keepsBody ? body : "");
    EXPECT_EQ(hop.header("Content-Length"), c.keepsBody ? std::to_string(body.size()) : "");
    EXPECT_EQ(hop.header("Authorization").empty(), !c.keepsAuthorization);
    EXPECT_EQ(out.response.finalUrl, c.target.starts_with("/") ? same : c.target);
  }

  // A redirect that never ends stops with an error.
  server.setHandler([](const httplib::Request&, httplib::Response& res) {
    res.status = 302;
    res.set_header("Location", "/loop");
  });
  auto out = sendAndWait(*client, {"https://client.ostrel.test/loop", "POST", {}, "{}"});
  ASSERT_TRUE(out.error);
  EXPECT_EQ(out.error->code, CURLE_TOO_MANY_REDIRECTS);
}

TEST(CurlHttpClient, ExtraCaIsReadOnceWhenTheClientIsMade) {
  test::LoopbackServer server;
  test::TempDir dir;
  const std::string copy = dir.path() + "/ca.pem";
  std::ofstream(copy) << test::readWholeFile(server.caFile());
  auto client = platform::makeCurlHttpClient(NetworkOverrides{server.connectTo(), copy});
  std::remove(copy.c_str());
  // Each host is a connection of its own: each one is verified with the CA read before.
  for (const char* url : {"https://client.ostrel.test/x", "https://auth.ostrel.test/x"}) {
    auto out = sendAndWait(*client, {url, "POST", {}, "{}"});
    EXPECT_FALSE(out.error) << url << ": " << out.error->localizedDescription;
  }
}

TEST(CurlHttpClient, ReleasedFromItsOwnCompletion) {
  test::LoopbackServer server;
  auto holder = std::make_shared<std::shared_ptr<platform::HttpClient>>(
      platform::makeCurlHttpClient(reaching(server)));
  std::promise<std::thread::id> done;
  (*holder)->send({"https://client.ostrel.test/x", "POST", {}, "{}"},
                  [holder, &done](std::optional<PlatformError>, HttpResponse) {
                    holder->reset();  // the last reference: the client goes here
                    done.set_value(std::this_thread::get_id());
                  });
  EXPECT_NE(done.get_future().get(), std::this_thread::get_id());
}

// Not on the caller's thread: the connector's test of a refused body shows that.
TEST(CurlHttpClient, DispatchedWorkRunsInOrder) {
  auto client = platform::makeCurlHttpClient(NetworkOverrides{});
  std::vector<int> order;  // touched only on the network thread
  std::promise<void> done;
  client->dispatch([&] { order.push_back(1); });
  client->dispatch([&] {
    order.push_back(2);
    done.set_value();
  });
  done.get_future().wait();
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

// A loopback port that accepts connections and never answers: a request waits
// in its backlog, and no server thread is left running while the process exits.
std::string silentPort() {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      ::listen(listener, 4) != 0 ||
      ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    std::_Exit(3);
  }
  return "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
}

const HttpRequest kSilentRequest{"http://client.ostrel.test/x", "POST", {}, "{}"};

// A request in flight when the process exits, whose completions send again twice.
[[noreturn]] void exitWithARequestThatSendsAgain() {
  ::alarm(20);  // a deadlock ends as SIGALRM, not as a hung test
  auto client = platform::makeCurlHttpClient(NetworkOverrides{silentPort(), {}});
  platform::HttpClient* raw = client.get();
  raw->send(kSilentRequest, [raw](std::optional<PlatformError>, HttpResponse) {
    raw->send(kSilentRequest, [raw](std::optional<PlatformError>, HttpResponse) {
      raw->send(kSilentRequest, [](std::optional<PlatformError>, HttpResponse) {});
    });
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  std::exit(0);
}

// The process exits while the only owner of the client is the completion of a
// request in flight: the exit handler joins the network thread while that
// thread, cancelling the request, releases the client.
[[noreturn]] void exitWhileACancelledCompletionReleasesTheClient() {
  ::alarm(20);
  auto holder = std::make_shared<std::shared_ptr<platform::HttpClient>>(
      platform::makeCurlHttpClient(NetworkOverrides{silentPort(), {}}));
  (*holder)->send(kSilentRequest, [holder](std::optional<PlatformError>, HttpResponse) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // the handler is joining now
    holder->reset();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  std::exit(0);
}

TEST(CurlHttpClientDeathTest, ExitWithRequestsInFlightEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitWithARequestThatSendsAgain(), ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(exitWhileACancelledCompletionReleasesTheClient(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace ostrel
