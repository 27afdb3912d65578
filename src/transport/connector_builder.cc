#include "transport/connector_builder.h"

#include "core/ol_default.h"

namespace ostrel {
namespace {
const Key<std::string> kDistributionGroupKey("DistributionGroup");
}  // namespace

ConnectorBuilder::ConnectorBuilder(std::string identifier, std::string secret, bool isDebug,
                                   bool isSandbox, bool isDev, int64_t timeout,
                                   Deployment deployment)
    : identifier_(std::move(identifier)),
      secret_(std::move(secret)),
      isDebug_(isDebug),
      isSandbox_(isSandbox),
      isDev_(isDev),
      timeout_(timeout),
      deployment_(std::move(deployment)),
      group_(std::make_shared<GroupState>()) {
  group_->value = OLDefault::shared().get(kDistributionGroupKey);
}

void ConnectorBuilder::setDistributionGroup(const std::optional<std::string>& distributionGroup) {
  OLDefault defaults = OLDefault::shared();
  if (distributionGroup) {
    if (defaults.get(kDistributionGroupKey) != distributionGroup) {
      defaults.set(*distributionGroup, kDistributionGroupKey);
    }
  } else {
    defaults.clear(kDistributionGroupKey);
  }
  std::lock_guard lock(group_->mutex);
  group_->value = distributionGroup;
}

std::optional<std::string> ConnectorBuilder::distributionGroup() const {
  std::lock_guard lock(group_->mutex);
  return group_->value;
}

OLConnector ConnectorBuilder::buildConnector() const {
  return OLConnector(
      identifier_, secret_, isDebug_, isSandbox_, isDev_,
      [group = group_]() -> std::optional<std::string> {
        std::lock_guard lock(group->mutex);
        return group->value;
      },
      static_cast<double>(timeout_), deployment_);
}

}  // namespace ostrel
