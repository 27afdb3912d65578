// The emulator's page for people: the data behind it, and the page itself as
// headless Chromium shows it once its scripts ran.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <numeric>
#include <thread>

#include "core/ostrel_api_endpoint.h"
#include "emulator/emulator.h"
#include "emulator/event_rate.h"
#include "support/emulator_client.h"
#include "support/eventually.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

std::size_t total(const std::vector<std::size_t>& counts) {
  return std::accumulate(counts.begin(), counts.end(), std::size_t{0});
}

// The chart's ring of seconds: arrivals in one second add up, the oldest second
// still shows, and a slot met again a lap later starts over.
TEST(EventRateTest, CountsEachOfTheLastSecondsOnce) {
  const double lap = 1000.0 + emulator::EventRate::kSeconds;  // second 1000's slot again
  emulator::EventRate rate;
  rate.add(1000.2, 2);
  rate.add(1000.9, 3);
  EXPECT_EQ(rate.lastSeconds(lap - 0.1).front(), 5u);
  EXPECT_EQ(total(rate.lastSeconds(lap)), 0u) << "gone one second later";
  rate.add(lap, 1);
  EXPECT_EQ(rate.lastSeconds(lap).back(), 1u);
  EXPECT_EQ(total(rate.lastSeconds(lap)), 1u);
  rate.clear();
  EXPECT_EQ(total(rate.lastSeconds(lap)), 0u);
}

Json event(const std::string& name, const std::string& user, const std::string& session,
           const std::string& type = "custom event") {
  return Json{{"event_type", type},
              {"session_id", session},
              {"creation_date", "2026-11-22T10:00:00Z"},
              {"user_id", user},
              {"name", name}};
}

// An emulator over plain HTTP, so that a browser reaches it without a certificate.
class EmulatorPageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    emulator::Options options;
    options.https = false;
    options.keepAliveSecs = 1;
    emulator_ = std::make_unique<emulator::Emulator>(options);
    auto started = emulator_->start();
    ASSERT_TRUE(started) << started.error().description();
  }

  // Answers the status.
  int send(OstrelAPIEndpoint endpoint, const Json& body) {
    return test::sendSigned(emulator_->info(), std::string(endpointPath(endpoint)), dumpJson(body))
        .status;
  }
  Json control(const std::string& path, const std::optional<Json>& post = std::nullopt) {
    return test::control(emulator_->info(), path, post);
  }

  // Events of two users, one account, and one fault served.
  void fillIn() {
    ASSERT_EQ(send(OstrelAPIEndpoint::TrackBulk,
                   Json::array({event("ev_alpha", "A_1", "s1"), event("ev_beta", "A_2", "s2"),
                                event("ev_gamma", "A_1", "s1", "session start")})),
              200);
    ASSERT_EQ(send(OstrelAPIEndpoint::EmailSignup,
                   Json{{"email", "page@ostrel.test"}, {"password", "pw"}}),
              200);
    control("/_emulator/faults", Json{{"endpoint", "TrackBulk"}, {"status", 503}});
    ASSERT_EQ(send(OstrelAPIEndpoint::TrackBulk, Json::array({event("ev_refused", "A_1", "s1")})),
              503);
  }

  static std::vector<std::string> names(const Json& events) {
    std::vector<std::string> out;
    for (const auto& e : events) out.push_back(e["event"].value("name", ""));
    return out;
  }

  std::unique_ptr<emulator::Emulator> emulator_;
};

TEST_F(EmulatorPageTest, LiveDataFiltersEventsAndShowsUsersAndFaults) {
  fillIn();
  // The counts are checked as the page shows them, in Chromium.
  auto live = control("/_emulator/live");
  EXPECT_EQ(live["users"][0]["email"], "page@ostrel.test");
  EXPECT_EQ(live["faults"][0]["status"], 503);
  EXPECT_FALSE(live["faults"][0].contains("request")) << "the page gets sizes, not bodies";
  EXPECT_EQ(total(live["per_second"].get<std::vector<std::size_t>>()), 3u) << "refused ones not";
  EXPECT_EQ(live["choices"]["user_id"], Json::array({"A_1", "A_2"})) << "latest first";

  struct Case {
    std::string query;
    std::vector<std::string> names;  // newest first
  };
  const Case cases[] = {
      {"", {"ev_gamma", "ev_beta", "ev_alpha"}},
      {"event_type=custom%20event&user_id=A_1", {"ev_alpha"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.query);
    auto filtered = control("/_emulator/live?" + c.query);
    EXPECT_EQ(names(filtered["events"]), c.names);
    EXPECT_EQ(names(control("/_emulator/events?" + c.query)["events"]), c.names);
    // The page itself renders the same rows before any script runs.
    const std::string page = control("/?" + c.query).get<std::string>();
    for (const char* name : {"ev_alpha", "ev_beta", "ev_gamma"}) {
      const bool shown = std::find(c.names.begin(), c.names.end(), name) != c.names.end();
      EXPECT_EQ(page.find(name) != std::string::npos, shown) << name;
    }
  }
}

// A waiting page woken by news is what the Chromium test below sees.
TEST_F(EmulatorPageTest, AWaitingPageDoesNotHoldUpAStop) {
  const auto seen = control("/_emulator/live")["change"];
  auto held = std::async(std::launch::async, [&] {
    return control("/_emulator/live?wait_ms=30000&after=" + dumpJson(seen));
  });
  ASSERT_TRUE(test::eventually([&] { return emulator_->requestCount("/_emulator/live") >= 2; }));
  auto stopped = std::async(std::launch::async, [&] { emulator_->stop(); });
  EXPECT_EQ(stopped.wait_for(20s), std::future_status::ready);
  EXPECT_EQ(held.wait_for(20s), std::future_status::ready);
}

// Headless Chromium loading one page, ended after a minute at most: its DOM,
// printed once `budgetMs` of the page's (virtual) time passed, is read on a
// thread of its own.
class Browser {
 public:
  Browser(const std::string& url, int budgetMs) {
    const std::string command =
        "exec timeout -k 5 60 chromium --headless --no-sandbox --disable-gpu --disable-quic "
        "--no-first-run --disable-background-networking --disable-component-update "
        "--disable-sync --user-data-dir=" +
        dir_.path() + "/profile --virtual-time-budget=" + std::to_string(budgetMs) +
        " --dump-dom '" + url + "' 2>" + dir_.path() + "/errors";
    FILE* pipe = ::popen(command.c_str(), "r");
    dom_ = std::async(std::launch::async, [pipe] {
      std::string out;
      char buffer[4096];
      for (std::size_t n; pipe && (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        out.append(buffer, n);
      if (pipe) ::pclose(pipe);
      return out;
    });
  }
  static bool installed() { return std::system("command -v chromium >/dev/null 2>&1") == 0; }

  bool waitForExit(std::chrono::milliseconds limit) {
    return dom_.wait_for(limit) == std::future_status::ready;
  }
  bool exited() { return waitForExit(0ms); }
  // "" while it still runs.
  std::string dom() { return exited() ? dom_.get() : ""; }
  std::string errors() const { return test::readWholeFile(dir_.path() + "/errors"); }

 private:
  test::TempDir dir_;
  std::shared_future<std::string> dom_;  // goes first: waits for the browser before the folder
};

// The inner HTML of the element with this id ("" when missing).
std::string element(const std::string& dom, const std::string& tag, const std::string& id) {
  const auto open = dom.find("<" + tag + " id=\"" + id + "\"");
  if (open == std::string::npos) return "";
  const auto end = dom.find("</" + tag + ">", open);
  return dom.substr(open, end == std::string::npos ? std::string::npos : end - open);
}

TEST_F(EmulatorPageTest, ChromiumShowsTheChartAndAnEventSentWhileThePageIsOpen) {
  if (!Browser::installed())
    GTEST_SKIP() << "chromium is not installed (scripts/setup.sh installs it)";
  fillIn();
  const std::string url =
      "http://127.0.0.1:" + std::to_string(emulator_->info().port) + "/?user_id=A_1";
  // The page's first request answers at once, the second waits for news; the
  // budget ends the page a moment after the news is shown.
  Browser browser(url, 1500);
  test::eventually(
      [&] { return emulator_->requestCount("/_emulator/live") >= 2 || browser.exited(); }, 60s);
  if (emulator_->requestCount("/_emulator/live") == 0 && browser.exited() &&
      browser.dom().find("<html") == std::string::npos) {
    GTEST_SKIP() << "chromium cannot run here:\n" << browser.errors();
  }
  ASSERT_EQ(emulator_->requestCount("/_emulator/live"), 2)
      << "the page did not come back for news\n"
      << browser.dom() << browser.errors();
  ASSERT_EQ(send(OstrelAPIEndpoint::TrackBulk,
                 Json::array({event("ev_fresh", "A_1", "s1"), event("ev_hidden", "A_2", "s2")})),
            200);
  ASSERT_TRUE(browser.waitForExit(60s)) << "chromium did not finish";
  const std::string dom = browser.dom();
  ASSERT_NE(dom.find("</html>"), std::string::npos) << dom << browser.errors();

  EXPECT_NE(element(dom, "p", "summary")
                .find("5 events received, 3 match the filter · 1 user · 1 fault served"),
            std::string::npos)
      << element(dom, "p", "summary");
  EXPECT_NE(element(dom, "path", "rate-bars").find("d=\"M"), std::string::npos)
      << "no bars in the chart\n"
      << element(dom, "svg", "rate");
  const std::string events = element(dom, "tbody", "events");
  for (const char* name : {"ev_fresh", "ev_alpha", "ev_gamma"}) {
    EXPECT_NE(events.find(name), std::string::npos) << name << " missing in\n" << events;
  }
  for (const char* name : {"ev_beta", "ev_hidden"}) {
    EXPECT_EQ(events.find(name), std::string::npos) << name << " passed the user filter";
  }
  EXPECT_LT(events.find("ev_fresh"), events.find("ev_alpha")) << "newest first";
}

}  // namespace
}  // namespace ostrel
