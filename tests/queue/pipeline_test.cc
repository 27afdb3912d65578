// The analytics pipeline end to end: facade, on-disk queue, flushes, and a
// service on loopback over HTTPS.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <future>
#include <set>
#include <thread>

#include "events/content_events.h"
#include "facade/ostrel_facade_impl.h"
#include "ostrel/notification_center.h"
#include "ostrel/ostrel.h"
#include "queue/ol_queue_manager.h"
#include "support/emulator_service.h"
#include "support/eventually.h"
#include "testing/ostrel_testing.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

using test::EmulatorService;
using test::eventually;

// Real time (the emulator's platform): signatures carry it and events are ordered by it.
class PipelineTest : public test::EmulatorTest {
 protected:
  static std::optional<OLError> flush(Ostrel& o) { return EmulatorService::flush(o); }
  static std::vector<std::string> names(const EmulatorService& service, const std::string& type) {
    std::vector<std::string> out;
    for (const auto& e : service.events(type)) out.push_back(e.value("name", ""));
    return out;
  }
};

// One bag, changed between the calls: each event keeps the values of its own call.
TEST_F(PipelineTest, EventsArriveInOrderWithTheirDictionaries) {
  auto o = start();
  auto data = OLSimpleObject::fromJSONString(R"({"plan":"pro"})");
  for (int i = 0; i < 15; ++i) {
    ASSERT_TRUE(data->setInt("n", i));
    ASSERT_TRUE(o->sendEvent("e" + std::to_string(i), data));
  }
  ASSERT_FALSE(flush(*o));
  auto events = service_.events("custom event");
  ASSERT_EQ(events.size(), 15u);
  for (int i = 0; i < 15; ++i) {
    EXPECT_EQ(events[static_cast<std::size_t>(i)]["custom_data"],
              (Json{{"plan", "pro"}, {"n", i}}));
  }
  // Nothing left: more flushes send nothing and keep the chunk key.
  auto& queue = *testing::internals(*o).eventManager->eventQueue();
  const auto keys = queue.chunkKeys();
  const int bulks = service_.requestsTo("/events/track_bulk");
  for (int i = 0; i < 10; ++i) ASSERT_FALSE(flush(*o));
  EXPECT_EQ(service_.requestsTo("/events/track_bulk"), bulks);
  EXPECT_EQ(queue.chunkKeys(), keys);
}

// Each facade keeps the platform it was built on: the second start must not
// redirect the first one's files, network or service.
TEST_F(PipelineTest, TwoFacadesOnTwoPlatformsEachDeliverOnlyToTheirOwnService) {
  struct Side {
    test::TestPlatform platform;
    test::EmulatorService service;
    std::shared_ptr<Ostrel> facade;
  };
  Side sides[2];
  for (auto& side : sides) {
    side.facade = side.service.startFacade(side.platform);
    ASSERT_TRUE(side.facade);
  }
  for (int i = 0; i < 2; ++i) {
    for (int n = 0; n < 3; ++n) {
      ASSERT_TRUE(sides[i].facade->sendEvent("side" + std::to_string(i) + "_" + std::to_string(n)));
    }
  }
  for (int i = 0; i < 2; ++i) {
    ASSERT_FALSE(flush(*sides[i].facade)) << i;
    const std::string own = "side" + std::to_string(i) + "_";
    EXPECT_EQ(names(sides[i].service, "custom event"),
              (std::vector<std::string>{own + "0", own + "1", own + "2"}))
        << i;
    EXPECT_TRUE(std::filesystem::is_directory(sides[i].platform.root() + "/EventQueue")) << i;
  }
}

// The fate of each answer is the fault campaign's; here, that the facade's
// flush hands a refusal to its caller and the chunk goes, and that a 205 is a
// delivery that starts an autologin.
TEST_F(PipelineTest, TheFlushAnswersARefusalAndA205StartsAnAutologin) {
  auto o = start();
  ASSERT_FALSE(EmulatorService::logIn(*o));
  ASSERT_TRUE(o->sendEvent("victim"));
  service_.failNext("/events/track_bulk", 404);
  auto error = flush(*o);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->statusCode(), 404);
  ASSERT_TRUE(o->sendEvent("after_login"));
  service_.failNext("/events/track_bulk", 205);
  ASSERT_FALSE(flush(*o)) << "205 counts as delivered";
  EXPECT_TRUE(
      eventually([&] { return service_.requestsTo("/handling/direct/refreshtoken") == 1; }));
  EXPECT_EQ(names(service_, "custom event"), std::vector<std::string>{"after_login"});
}

TEST_F(PipelineTest, EverythingAtOnceNeitherHangsNorRacesWhileTheServiceRefuses) {
  // Producers, an observer that calls back in, timers, flows, logins and
  // logouts, syncs, meta info and flushes, all on their own threads against
  // one facade whose ready queue fails every flush (run under ThreadSanitizer in CI).
  service_.emulator().injectFault("TrackBulk", 503, 1000000);
  auto o = start();
  for (int i = 0; i < 30; ++i) ASSERT_TRUE(o->sendEvent("backlog"));
  std::atomic<int> observed{0};
  auto observer = NotificationCenter::defaultCenter().addObserver(
      "OLAnalyticEventAddedNotification", "test.callsBack", nullptr, [&](const Notification&) {
        (void)o->isTimedEventRunning("t0");
        (void)o->isAnalyticFlowBegun();
        if (observed++ % 50 == 0) (void)o->sendEvent("from_observer");
      });
  test::finishesWithin(180s, [o] {
    std::vector<std::thread> threads;
    threads.emplace_back([o] {
      auto bag = OLSimpleObject::fromJSONString("{}");
      for (int i = 0; i < 400; ++i) {
        (void)bag->setInt("i", i);
        (void)o->sendEvent("producer", bag);
      }
    });
    threads.emplace_back([o] {
      for (int i = 0; i < 100; ++i) {
        const std::string name = "t" + std::to_string(i % 3);
        (void)o->timedEventStart(name);
        (void)o->timedEventStop(name);
      }
    });
    threads.emplace_back([o] {
      for (int i = 0; i < 100; ++i) {
        (void)o->flowBegin("journey");
        (void)o->flowStep("step");
        (void)o->flowSucceed("done");
      }
    });
    threads.emplace_back([o] {
      for (int i = 0; i < 4; ++i) {
        (void)EmulatorService::logIn(*o);
        (void)o->userLogout();
      }
    });
    threads.emplace_back([o] {
      for (int i = 0; i < 20; ++i) {
        std::promise<void> synced;  // in flight beside the meta info
        o->syncUserState([&](std::optional<OLError>) { synced.set_value(); });
        (void)test::await<std::optional<OLError>, std::optional<Json>>(
            [&](auto done) { o->getUserMetaInfo(done); });
        synced.get_future().wait();
        (void)o->getUserToken();
        (void)flush(*o);
      }
    });
    for (auto& t : threads) t.join();
  });
  NotificationCenter::defaultCenter().removeObserver(observer);
  EXPECT_GT(observed.load(), 800);
}

TEST_F(PipelineTest, ATransientFailureBacksOffAndABacklogDrainsWithoutAskingTwice) {
  // The service refuses for a while: with the queue ready all along, automatic
  // flushes wait out the back-off (1 s, then 2 s, ...) instead of following
  // every event.
  service_.emulator().injectFault("TrackBulk", 503, 1000000);
  auto o = start();
  for (int i = 0; i < 300; ++i) {
    ASSERT_TRUE(o->sendEvent("steady"));
    std::this_thread::sleep_for(5ms);
  }
  EXPECT_LE(service_.requestsTo("/events/track_bulk"), 6);
  // Back again, and a service 50 ms away: one explicit flush sends the oldest
  // chunk, the rest follows chunk after chunk without another request of the host.
  service_.emulator().clearFaults();
  service_.emulator().setLatency(50);
  ASSERT_FALSE(flush(*o));
  EXPECT_EQ(service_.events("custom event").size(), 300u);
  for (int i = 0; i < 600; ++i) ASSERT_TRUE(o->sendEvent("burst"));
  // Well before the expire timer (10 s) could have sent more than one chunk.
  EXPECT_TRUE(eventually([&] { return service_.events("custom event").size() >= 890u; }, 8s));
}

TEST_F(PipelineTest, AnUnsendableEventNeverBlocksTheQueueNotEvenAfterARestart) {
  auto o = start();
  EXPECT_TRUE(o->rankContent("article", RankingScope(_RankingScope::social), NAN)
                  .error()
                  .is(LocalErrorCodes::EventCreationError, "Multiplier must be a finite number"));
  ASSERT_FALSE(flush(*o));
  // A store written before such numbers were refused: the oldest chunk holds
  // an event whose multiplier is not a number, between two good ones.
  o->shutdown();
  o.reset();
  const std::string chunk = platform_.root() + "/EventQueue/Chunks/7";
  ASSERT_TRUE(platform_.platform().files->createDirectories(chunk));
  auto poison =
      *OLRankingContentEvent::make("S", "U", "article", RankingScope(_RankingScope::social), 1);
  poison->multiplier = NAN;
  auto before = *OLCustomEvent::make("before", "S", "U", nullptr);
  auto after = *OLCustomEvent::make("after", "S", "U", nullptr);
  double made = 1700000000;  // in this order
  for (auto* e : {static_cast<OLBaseEvent*>(before.get()), static_cast<OLBaseEvent*>(poison.get()),
                  static_cast<OLBaseEvent*>(after.get())}) {
    e->creationDate = ++made;
    ASSERT_TRUE(
        platform_.platform().files->writeNewFile(chunk + "/" + e->uniqueName(), archivedBytes(*e)));
  }
  o = start();
  ASSERT_TRUE(o->sendEvent("later"));
  ASSERT_FALSE(flush(*o));
  EXPECT_EQ(names(service_, "custom event"),
            (std::vector<std::string>{"before", "after", "later"}));
  EXPECT_TRUE(platform_.log().contains("that can never be sent"));
}

TEST_F(PipelineTest, FlowsTimersRankingAndAttachmentReachTheServiceAndAFlowOutlivesARestart) {
  {
    auto o = start();
    ASSERT_TRUE(o->flowBegin("checkout"));
    ASSERT_TRUE(o->flowStep("payment"));
  }
  auto o = start();
  EXPECT_TRUE(*o->isAnalyticFlowBegun());
  EXPECT_EQ(*o->getCurrentAnalyticFlowName(), "payment");
  ASSERT_FALSE(o->flowStep("bad name"));
  ASSERT_TRUE(o->flowSucceed("paid"));
  EXPECT_TRUE(o->flowStep("more").error().is(LocalErrorCodes::EventFlowInconsistance,
                                             "Cannot Step a Flow Event already finished"));
  ASSERT_TRUE(o->timedEventStart("load"));
  EXPECT_TRUE(o->timedEventStart("load").error().is(LocalErrorCodes::InvalidEvent,
                                                    "Cannot Start a timer already present"));
  EXPECT_TRUE(*o->isTimedEventRunning("load"));
  ASSERT_TRUE(o->timedEventStop("load"));
  EXPECT_TRUE(o->timedEventStop("load").error().is(LocalErrorCodes::InvalidEvent,
                                                   "Timer was never started"));
  ASSERT_TRUE(o->rankContent("article", RankingScope(_RankingScope::social), 2));
  ASSERT_TRUE(o->attachSession("other", std::string("U_42"), AttachType::peer));
  ASSERT_FALSE(flush(*o));
  std::vector<std::string> types;
  std::set<std::string> flowIds;
  for (const auto& e : service_.events()) {
    types.push_back(e["event_type"]);
    if (e.contains("flow_id")) flowIds.insert(e["flow_id"]);
  }
  ASSERT_EQ(types, (std::vector<std::string>{"start session", "flow start", "flow step",
                                             "start session", "flow succeeded", "timer start",
                                             "timer stop", "rank content", "attached_session"}));
  EXPECT_EQ(flowIds.size(), 1u) << "one flow across the restart";
  // Only the first run's start was a first start.
  auto starts = service_.events("start session");
  EXPECT_EQ(starts[0]["app_installed"], true);
  EXPECT_EQ(starts[1]["app_installed"], false);
}

}  // namespace
}  // namespace ostrel
