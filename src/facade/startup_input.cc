#include "facade/startup_input.h"

#include "transport/connector_builder.h"

namespace ostrel {

Result<void> checkStartupInput(const Platform& platform,
                               const std::optional<ExternalParameters>& dictParameters) {
  if (auto ok = platform.deployment.validate(); !ok) return ok;
  if (!platform.http) {
    if (auto ok = platform.network.validate(); !ok) return ok;
  }
  if (dictParameters) {
    auto group = dictParameters->find(OLExternalParameterKey::DistributionGroup());
    if (group != dictParameters->end()) {
      if (auto ok = ConnectorBuilder::checkDistributionGroup(group->second); !ok) return ok;
    }
  }
  return {};
}

}  // namespace ostrel
