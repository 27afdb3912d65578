// Platform::fromEnvironment: the deployment overrides a tool, a test or a
// staging build takes from its environment. Each value is outside input:
// checked here once, so that none can reach the request path unchecked.
#include <cstdlib>
#include <functional>

#include "ostrel/platform.h"

namespace ostrel {
namespace {

std::optional<std::string> variable(const char* name) {
  const char* v = std::getenv(name);
  if (v == nullptr || *v == '\0') return std::nullopt;
  return std::string(v);
}

OLError refusedVariable(const char* name, const std::string& value, const OLError& why) {
  return OLError::LocalError(LocalErrorCodes::OstrelInitializationError,
                             std::string(name) + " is refused: " + why.message(), std::nullopt,
                             Json{{"variable", name}, {"value", value}});
}

}  // namespace

Result<Platform> Platform::fromEnvironment() {
  Platform p;
  struct Override {
    const char* name;
    std::function<void(const std::string&)> apply;
  };
  const Override overrides[] = {
      {"OSTREL_SERVICE_DOMAIN", [&](const std::string& v) { p.deployment.domain = v; }},
      {"OSTREL_SERVICE_SCHEME", [&](const std::string& v) { p.deployment.scheme = v; }},
      {"OSTREL_CONNECT_TO", [&](const std::string& v) { p.network.connectTo = v; }},
      {"OSTREL_CA_FILE", [&](const std::string& v) { p.network.caFile = v; }},
  };
  // Checked after each one, so that the error names the variable at fault.
  for (const auto& [name, apply] : overrides) {
    auto value = variable(name);
    if (!value) continue;
    apply(*value);
    Result<void> ok = p.deployment.validate();
    if (ok) ok = p.network.validate();
    if (!ok) return refusedVariable(name, *value, ok.error());
  }
  return p;
}

}  // namespace ostrel
