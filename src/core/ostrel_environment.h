#pragma once
#include <string_view>

#include "ostrel/platform/log_sink.h"

namespace ostrel {

// Flags derived from the application secret.
class OstrelEnvironment {
 public:
  // A secret containing "_" selects the sandbox. Outside a development build
  // that prints a warning, and the environment still stays in sandbox.
  OstrelEnvironment(std::string_view secret, bool isDevelopmentApp, platform::LogSink& log);

  bool isDebug() const { return isDebug_; }
  bool isSandbox() const { return isSandbox_; }
  bool isDev() const { return isDev_; }

 private:
  bool isDebug_ = false;
  bool isSandbox_ = false;
  bool isDev_ = false;
};

}  // namespace ostrel
