#pragma once
// An in-process ostrel-emulator for the library's tests, with two accounts made
// up front: e-mail "user@ostrel.test" / "secret" and MSISDN "393331234567" / PIN "1234".
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "emulator/emulator.h"
#include "ostrel/ol_login_builder.h"
#include "ostrel/ostrel.h"
#include "support/eventually.h"
#include "support/test_platform.h"

namespace ostrel::test {

class EmulatorService {
 public:
  // `tweak` adjusts the emulator's options before it starts.
  explicit EmulatorService(const std::function<void(emulator::Options&)>& tweak = {});

  void failNext(const std::string& path, int status, int count = 1) {
    emulator_->injectFault(path, status, count);
  }
  // The next reply to `path` comes after a pause (and otherwise as usual).
  void delayNext(const std::string& path, int delayMs) {
    emulator_->injectFault(path, 0, 1, delayMs);
  }
  // What the emulator received, oldest first: every event, or those of one type.
  std::vector<Json> events() const;
  std::vector<Json> events(const std::string& type) const;
  // How many received events carry this name.
  int named(const std::string& name) const;
  int requestsTo(const std::string& path) const { return emulator_->requestCount(path); }
  void setOperatorBounces(int bounces) { emulator_->setOperatorBounces(bounces); }
  // A platform that reaches this emulator (real clock, its CA trusted).
  Platform platformFor(const TestPlatform& base) const;
  emulator::Emulator& emulator() { return *emulator_; }
  // A facade (not the process-wide one) signed with the emulator's demo secret.
  std::shared_ptr<Ostrel> startFacade(const TestPlatform& base) const;

  // Runs one flow from a fresh login builder of `facade`: `configure` sets the
  // credentials, `getter` picks the flow. Answers the flow's outcome, or the
  // builder's refusal.
  template <class Getter>
  static std::optional<OLError> runFlow(Ostrel& facade,
                                        const std::function<void(OLLoginBuilder&)>& configure,
                                        Getter getter) {
    auto builder = facade.getLoginBuilder();
    if (!builder) return builder.error();
    configure(**builder);
    return runFlow(**builder, getter);
  }
  // Runs the flow `getter` takes from `builder` as it stands.
  template <class Getter>
  static std::optional<OLError> runFlow(OLLoginBuilder& builder, Getter getter) {
    std::promise<std::optional<OLError>> done;
    builder.setOnFlowCompleteCallback([&](std::optional<OLError> e) { done.set_value(e); });
    auto flow = std::invoke(getter, builder);
    if (!flow) return flow.error();
    (*flow)->startLoginFlow();
    return done.get_future().get();
  }
  // Sends what `facade` queued; answers the flush's error.
  static std::optional<OLError> flush(Ostrel& facade) {
    return std::get<0>(await<std::optional<OLError>, std::optional<Json>>(
        [&](auto done) { facade.flushEvents(done); }));
  }
  // Logs the e-mail account in.
  static std::optional<OLError> logIn(Ostrel& facade) {
    return runFlow(
        facade, [](OLLoginBuilder& b) { b.setEmail(kEmail).setPassword(kPassword); },
        &OLLoginBuilder::getEmailLoginFlow);
  }

  static constexpr const char* kEmail = "user@ostrel.test";
  static constexpr const char* kPassword = "secret";
  static constexpr const char* kMsisdn = "393331234567";
  static constexpr const char* kPin = "1234";

 private:
  std::unique_ptr<emulator::Emulator> emulator_;
};

// A test against one emulator of its own, whose facades run on its platform.
class EmulatorTest : public ::testing::Test {
 protected:
  std::shared_ptr<Ostrel> start() {
    auto made = service_.startFacade(platform_);
    EXPECT_TRUE(made);
    return made;
  }

  TestPlatform platform_;
  EmulatorService service_;
};

}  // namespace ostrel::test
