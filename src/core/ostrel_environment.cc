#include "core/ostrel_environment.h"

#include "platform/runtime.h"

namespace ostrel {

OstrelEnvironment::OstrelEnvironment(std::string_view secret, bool isDevelopmentApp)
    : isSandbox_(secret.find('_') != std::string_view::npos) {
  if (isSandbox_ && !isDevelopmentApp) {
    logLine("Warning using sandbox environment in a Release application!!");
  }
}

}  // namespace ostrel
