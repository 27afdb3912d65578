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
  p.app = config.app;
  return p;
}

}  // namespace ostrel::capi
