#include "platform/app_info_facts.h"

#include <utility>

namespace ostrel::platform {
namespace {

class AppInfoFacts final : public DeviceFacts {
 public:
  AppInfoFacts(std::shared_ptr<DeviceFacts> facts, AppInfo app)
      : facts_(std::move(facts)), app_(std::move(app)) {}

  DeviceFactsSnapshot snapshot() override {
    auto s = facts_->snapshot();
    if (!app_.identifier.empty()) s.appIdentifier = app_.identifier;
    if (!app_.version.empty()) s.appVersion = app_.version;
    if (!app_.build.empty()) s.appBuild = app_.build;
    if (app_.development) s.isDevelopmentApp = *app_.development;
    return s;
  }

 private:
  std::shared_ptr<DeviceFacts> facts_;
  const AppInfo app_;
};

}  // namespace

std::shared_ptr<DeviceFacts> withAppInfo(std::shared_ptr<DeviceFacts> facts, AppInfo app) {
  return std::make_shared<AppInfoFacts>(std::move(facts), std::move(app));
}

}  // namespace ostrel::platform
