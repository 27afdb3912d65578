// The life cycle's observers against threads: a removed observer is never
// called again, and its removal waits for a call in progress elsewhere, so
// whatever it uses may go as soon as the removal returns.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>

#include "facade/ostrel_facade_impl.h"
#include "ostrel/platform/life_cycle.h"
#include "support/emulator_service.h"
#include "testing/ostrel_testing.h"

namespace ostrel {
namespace {

using platform::AppLifeCycle;
using platform::LifeCycleEvent;

TEST(AppLifeCycleTest, RemovalWaitsForACallInProgressOnAnotherThread) {
  AppLifeCycle lifeCycle;
  auto state = std::make_unique<std::atomic<int>>(0);
  std::promise<void> entered, release;
  auto released = release.get_future().share();
  const int token = lifeCycle.addObserver([&, s = state.get()](LifeCycleEvent) {
    entered.set_value();
    released.wait();
    s->fetch_add(1);  // still in use after the removal was asked for
  });
  std::thread poster([&] { lifeCycle.didEnterBackground(); });
  entered.get_future().wait();
  std::atomic<bool> removed{false};
  std::thread remover([&] {
    lifeCycle.removeObserver(token);
    removed = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(removed) << "the removal returned while the observer was still running";
  release.set_value();
  remover.join();
  state.reset();  // the observer's owner goes as soon as the removal returned
  poster.join();
  lifeCycle.willEnterForeground();  // never called again
}

TEST(AppLifeCycleTest, ObserversRemovedDuringAPostAreNotCalledAndMayRemoveThemselves) {
  AppLifeCycle lifeCycle;
  int second = 0, selfRemoving = 0;
  int secondCalls = 0, selfCalls = 0;
  lifeCycle.addObserver([&](LifeCycleEvent) { lifeCycle.removeObserver(second); });
  second = lifeCycle.addObserver([&](LifeCycleEvent) { ++secondCalls; });
  selfRemoving = lifeCycle.addObserver([&](LifeCycleEvent) {
    ++selfCalls;
    lifeCycle.removeObserver(selfRemoving);  // from its own call: no wait for itself
  });
  lifeCycle.willTerminate();
  lifeCycle.willTerminate();
  EXPECT_EQ(secondCalls, 0);
  EXPECT_EQ(selfCalls, 1);
}

TEST(AppLifeCycleTest, FacadeDestroyedWhileAPostIsUnderWay) {
  test::TestPlatform base;
  test::EmulatorService service;
  auto lifeCycle = base.platform().lifeCycle;
  std::promise<void> entered, gone;
  auto facadeGone = gone.get_future().share();
  // Runs first: the facade goes while the post has yet to reach its observer.
  const int blocker = lifeCycle->addObserver([&](LifeCycleEvent) {
    entered.set_value();
    facadeGone.wait();
  });
  auto facade = service.startFacade(base);
  ASSERT_TRUE(facade);
  // The queue manager outlives the facade, as it does while a flush runs.
  auto manager = testing::internals(*facade).eventManager;
  std::thread poster([&] { lifeCycle->willTerminate(); });
  entered.get_future().wait();
  facade.reset();
  gone.set_value();
  poster.join();
  lifeCycle->removeObserver(blocker);
}

}  // namespace
}  // namespace ostrel
