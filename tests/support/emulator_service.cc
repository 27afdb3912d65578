#include "support/emulator_service.h"

#include <algorithm>
#include <limits>

#include "platform/defaults.h"

namespace ostrel::test {

EmulatorService::EmulatorService(const std::function<void(emulator::Options&)>& tweak) {
  emulator::Options options;
  options.keepAliveSecs = 1;
  if (tweak) tweak(options);
  emulator_ = std::make_unique<emulator::Emulator>(options);
  (void)emulator_->start();
  emulator_->store().saveUser({"U_email", kEmail, kPassword, "", "", true});
  emulator_->store().saveUser({"U_msisdn", "", "", kMsisdn, kPin, true});
}

std::vector<Json> EmulatorService::events() const {
  Json newestFirst = emulator_->store().events(std::numeric_limits<int>::max());
  std::vector<Json> out;
  for (auto it = newestFirst.rbegin(); it != newestFirst.rend(); ++it)
    out.push_back((*it)["event"]);
  return out;
}

std::vector<Json> EmulatorService::events(const std::string& type) const {
  std::vector<Json> out;
  for (auto& e : events())
    if (e["event_type"] == type) out.push_back(std::move(e));
  return out;
}

int EmulatorService::named(const std::string& name) const {
  int n = 0;
  for (const auto& e : events()) n += e.value("name", "") == name ? 1 : 0;
  return n;
}

Platform EmulatorService::platformFor(const TestPlatform& base) const {
  Platform p = base.platform();
  p.deployment.domain = emulator_->info().domain;
  p.deployment.scheme = emulator_->info().scheme;
  p.http = platform::makeCurlHttpClient(NetworkOverrides{
      "127.0.0.1:" + std::to_string(emulator_->info().port), emulator_->info().caFile});
  p.clock = platform::makeSystemClock();
  return p;
}

std::shared_ptr<Ostrel> EmulatorService::startFacade(const TestPlatform& base) const {
  auto made = Ostrel::makeUnshared("demo-secret", nullptr, std::nullopt, platformFor(base));
  return made ? *made : nullptr;
}

}  // namespace ostrel::test
