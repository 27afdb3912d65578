#include <cstdlib>

#include "ostrel/platform/deployment.h"

namespace ostrel {
namespace {
std::optional<std::string> env(const char* name) {
  const char* v = std::getenv(name);
  if (v == nullptr || *v == '\0') return std::nullopt;
  return std::string(v);
}
}  // namespace

Deployment Deployment::fromEnvironment() {
  Deployment d;
  if (auto domain = env("OSTREL_SERVICE_DOMAIN")) d.domain = *domain;
  if (env("OSTREL_SERVICE_SCHEME") == std::optional<std::string>("http")) d.scheme = "http";
  return d;
}

NetworkOverrides NetworkOverrides::fromEnvironment() {
  return NetworkOverrides{env("OSTREL_CONNECT_TO"), env("OSTREL_CA_FILE")};
}

}  // namespace ostrel
