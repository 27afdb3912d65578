// The Platform of a C host: the defaults, with what its configuration says.
#include <string>
#include <string_view>
#include <utility>

#include "capi/c_platform.h"

namespace ostrel::capi {
namespace {

class CallbackLogSink final : public platform::LogSink {
 public:
  CallbackLogSink(ostrel_log_fn fn, void* userData) : fn_(fn), userData_(userData) {}
  void write(std::string_view line) override {
    const std::string text(line);  // the C side needs the terminating NUL
    fn_(text.c_str(), userData_);
  }

 private:
  ostrel_log_fn fn_;
  void* userData_;
};

// The device facts of the defaults, with the app identity the host gave.
class AppIdentityFacts final : public platform::DeviceFacts {
 public:
  AppIdentityFacts(std::shared_ptr<platform::DeviceFacts> facts, const ostrel_config& config)
      : facts_(std::move(facts)),
        identifier_(config.appIdentifier),
        version_(config.appVersion),
        build_(config.appBuild) {}
  platform::DeviceFactsSnapshot snapshot() override {
    auto s = facts_->snapshot();
    if (identifier_) s.appIdentifier = *identifier_;
    if (version_) s.appVersion = *version_;
    if (build_) s.appBuild = *build_;
    return s;
  }

 private:
  std::shared_ptr<platform::DeviceFacts> facts_;
  std::optional<std::string> identifier_, version_, build_;
};

}  // namespace

Result<Platform> platformFor(const ostrel_config& config) {
  Platform p;
  if (config.useEnvironment) {
    auto environment = Platform::fromEnvironment();
    if (!environment) return environment.error();
    p = std::move(*environment);
  }
  if (config.domain) p.deployment.domain = *config.domain;
  if (config.scheme) p.deployment.scheme = *config.scheme;
  if (config.connectTo) p.network.connectTo = *config.connectTo;
  if (config.caFile) p.network.caFile = *config.caFile;
  // Checked here as well as by the facade: completing the platform below
  // builds the HTTP client from the network settings before the facade sees them.
  if (auto ok = p.deployment.validate(); !ok) return ok.error();
  if (auto ok = p.network.validate(); !ok) return ok.error();

  if (config.storageDir) {
    p.storageRoot = *config.storageDir;
  }
  if (config.log) p.log = std::make_shared<CallbackLogSink>(config.log, config.logUserData);
  if (config.appIdentifier || config.appVersion || config.appBuild) {
    p = p.completed();
    p.deviceFacts = std::make_shared<AppIdentityFacts>(p.deviceFacts, config);
  }
  return p;
}

}  // namespace ostrel::capi
