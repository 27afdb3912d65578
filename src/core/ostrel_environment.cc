#include "core/ostrel_environment.h"

namespace ostrel {

OstrelEnvironment::OstrelEnvironment(std::string_view secret, bool isDevelopmentApp,
                                     platform::LogSink& log)
    : isSandbox_(secret.find('_') != std::string_view::npos) {
  if (isSandbox_ && !isDevelopmentApp) {
    log.write("Warning using sandbox environment in a Release application!!");
  }
}

}  // namespace ostrel
